#pragma once

#include <QNetworkAccessManager>

namespace orv {

/// Sends requests over connections of its own on behalf of another manager.
///
/// Qt keeps the connections of a manager by scheme, host, port, proxy and peer verify name, whatever the TLS
/// configuration they were made with, and the redirects that it follows may lead to any host. Only a second
/// manager keeps connections apart in all cases. Everything else is the owner's: cookies, cached content,
/// proxy and settings; requests for a password are the owner's signals.
class SeparateAccessManager : public QNetworkAccessManager
{
public:
    /// A child of @p owner.
    explicit SeparateAccessManager(QNetworkAccessManager* owner);

    /// What the owner's createRequest() would return, over a separate connection.
    QNetworkReply* send(Operation op, const QNetworkRequest& request, QIODevice* outgoingData);

private:
    void applySettings();

    QNetworkAccessManager* const m_owner;
};

} // namespace orv
