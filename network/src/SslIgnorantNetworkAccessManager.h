#pragma once

#include "orv_network_export.h"

#include <QNetworkAccessManager>

#include <memory>

class QHttpMultiPart;

namespace orv {

/// The access manager that network tasks send through: Qt's, with a switch for servers whose certificate
/// cannot be verified, and a DELETE that carries content.
///
/// Used from the thread that it lives on.
class ORV_NETWORK_EXPORT SslIgnorantNetworkAccessManager : public QNetworkAccessManager
{
public:
    /// What to make of the certificate of an https server.
    enum class SslMode : int {
        Ignore = 0, ///< Anything goes: encrypted, but to whom is not known. For test and in-house servers.
        Verify = 1, ///< Qt's verification; requests are sent as they are.
    };

    /// A manager that takes certificates as @p mode says.
    explicit SslIgnorantNetworkAccessManager(SslMode mode = SslMode::Verify, QObject* parent = nullptr);
    ~SslIgnorantNetworkAccessManager() override;

    /// What is made of certificates; SslMode::Verify unless told otherwise.
    SslMode sslMode() const;
    /// Takes effect with the next request. SslMode::Ignore replaces the SSL configuration of https requests,
    /// so one that the caller has set, with a client certificate for example, is not used then.
    void setSslMode(const SslMode& mode);

    using QNetworkAccessManager::deleteResource;
    /// Sends a DELETE with @p multiPart as its content, which must outlive the reply; without content when it
    /// is null.
    QNetworkReply* deleteResource(const QNetworkRequest& request, QHttpMultiPart* multiPart);

protected:
    /// Sends every request of the manager, with the SSL configuration that sslMode() asks for.
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request,
                                 QIODevice* outgoingData = nullptr) override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
