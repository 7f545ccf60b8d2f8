#pragma once

#include "orv_network_export.h"

#include <QNetworkAccessManager>

#include <memory>

class QHttpMultiPart;

namespace orv {

class DestructionWatch;

/// The access manager that network tasks send through: Qt's, with a switch for servers whose certificate
/// cannot be verified, and a DELETE that carries content.
///
/// Requests that are not to be verified have connections of their own, so nothing that is to be verified is
/// ever sent over a connection to an unknown peer. Cookies, cache, proxy and settings are common to both.
///
/// It owns its replies until they are deleted, as Qt's manager does. Used from the thread that it lives on.
class ORV_NETWORK_EXPORT SslIgnorantNetworkAccessManager : public QNetworkAccessManager
{
public:
    /// What to do about the certificate of an https server.
    enum class SslMode : int {
        Ignore = 0, ///< Accept any: encrypted, not authenticated. For test and in-house servers.
        Verify = 1, ///< Verify it, as Qt does; requests are sent as they are.
    };

    /// A manager that treats certificates as @p mode says.
    explicit SslIgnorantNetworkAccessManager(SslMode mode = SslMode::Verify, QObject* parent = nullptr);
    ~SslIgnorantNetworkAccessManager() override;

    /// What is done about certificates; SslMode::Verify by default.
    SslMode sslMode() const;
    /// Takes effect with the next request; one that was sent, and the redirects that it follows, keep the
    /// mode they began with. SslMode::Ignore replaces the SSL configuration of https requests, so one that
    /// the caller has set, with a client certificate for example, is not used then. An http request that is
    /// redirected to https is always verified.
    void setSslMode(const SslMode& mode);

    /// Whether connections to http servers are buffered. False for a manager that a program makes; true for
    /// those that the library makes: NetworkTask::defaultNetworkAccessManager() and that of a NetworkQueue.
    bool connectionBufferingEnabled() const;
    /// Sets connectionBufferingEnabled(), for connections that are opened from now on.
    ///
    /// For http without a proxy, Qt uses sockets without a buffer, and reads the head of a reply with one
    /// system call for each byte. With a buffer, a small GET takes a third of the processor time; large
    /// content is copied once more. It is done by a proxy factory, to be seen at proxyFactory(), which asks
    /// for the proxies of the application and the system as Qt does, and changes nothing where there is one.
    /// For a host without, a factory of the application is asked about its sockets too, on the thread on
    /// which Qt opens them.
    ///
    /// setProxy() and setProxyFactory() of the program switch buffering off, and once one of them has set
    /// something, this function does nothing.
    void setConnectionBufferingEnabled(bool enabled);

    using QNetworkAccessManager::deleteResource;
    /// Sends a DELETE with @p multiPart as its content, which must outlive the reply; without content when it
    /// is null.
    QNetworkReply* deleteResource(const QNetworkRequest& request, QHttpMultiPart* multiPart);

    /// As in QNetworkAccessManager, but for the connections of both modes; a call through a pointer to the
    /// base class does not reach those that are not verified.
    void clearAccessCache();
    /// See clearAccessCache().
    void clearConnectionCache();

protected:
    /// Sends every request of the manager, https ones with the SSL configuration that sslMode() asks for.
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request,
                                 QIODevice* outgoingData = nullptr) override;

private:
    friend class NetworkExchange;

    void watchDestruction(DestructionWatch& watch);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
