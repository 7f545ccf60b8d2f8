#include "SslIgnorantNetworkAccessManager.h"

#include "BufferedConnections_p.h"
#include "DestructionWatch_p.h"
#include "SeparateAccessManager_p.h"

#include <QNetworkProxy>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QUrl>

namespace orv {

class SslIgnorantNetworkAccessManager::Private
{
public:
    explicit Private(SslMode mode)
        : sslMode(mode)
    {
        sslConfiguration.setPeerVerifyMode(QSslSocket::VerifyNone);
    }

    SslMode sslMode;
    QSslConfiguration sslConfiguration;
    // For what is not verified; made when it is needed, as a child of the public object. The replies that it
    // makes go on using it until Qt's destructor deletes them.
    SeparateAccessManager* unverified = nullptr;
    DestructionWatches watches; // of the exchanges that wait for replies
};

SslIgnorantNetworkAccessManager::SslIgnorantNetworkAccessManager(SslMode mode, QObject* parent)
    : QNetworkAccessManager(parent)
    , d(std::make_unique<Private>(mode))
{
}

SslIgnorantNetworkAccessManager::~SslIgnorantNetworkAccessManager()
{
    d->watches.callAll();
}

void SslIgnorantNetworkAccessManager::watchDestruction(DestructionWatch& watch)
{
    d->watches.add(watch);
}

SslIgnorantNetworkAccessManager::SslMode SslIgnorantNetworkAccessManager::sslMode() const
{
    return d->sslMode;
}

void SslIgnorantNetworkAccessManager::setSslMode(const SslMode& mode)
{
    d->sslMode = mode;
}

bool SslIgnorantNetworkAccessManager::connectionBufferingEnabled() const
{
    return dynamic_cast<BufferedConnections*>(proxyFactory());
}

void SslIgnorantNetworkAccessManager::setConnectionBufferingEnabled(bool enabled)
{
    const bool isOurs = connectionBufferingEnabled();
    const bool isUnset = !proxyFactory() && proxy().type() == QNetworkProxy::DefaultProxy;
    if (enabled && isUnset)
        setProxyFactory(new BufferedConnections);
    else if (!enabled && isOurs)
        setProxyFactory(nullptr);
}

QNetworkReply* SslIgnorantNetworkAccessManager::deleteResource(const QNetworkRequest& request,
                                                               QHttpMultiPart* multiPart)
{
    if (!multiPart)
        return deleteResource(request);
    return sendCustomRequest(request, QByteArrayLiteral("DELETE"), multiPart);
}

void SslIgnorantNetworkAccessManager::clearAccessCache()
{
    QNetworkAccessManager::clearAccessCache();
    if (d->unverified)
        d->unverified->clearAccessCache();
}

void SslIgnorantNetworkAccessManager::clearConnectionCache()
{
    QNetworkAccessManager::clearConnectionCache();
    if (d->unverified)
        d->unverified->clearConnectionCache();
}

QNetworkReply* SslIgnorantNetworkAccessManager::createRequest(Operation op, const QNetworkRequest& request,
                                                              QIODevice* outgoingData)
{
    if (d->sslMode != SslMode::Ignore || request.url().scheme() != QLatin1String("https"))
        return QNetworkAccessManager::createRequest(op, request, outgoingData);
    if (!d->unverified)
        d->unverified = new SeparateAccessManager(this);
    QNetworkRequest copy(request);
    copy.setSslConfiguration(d->sslConfiguration);
    return d->unverified->send(op, copy, outgoingData);
}

} // namespace orv
