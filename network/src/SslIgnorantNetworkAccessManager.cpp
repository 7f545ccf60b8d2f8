#include "SslIgnorantNetworkAccessManager.h"

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
};

SslIgnorantNetworkAccessManager::SslIgnorantNetworkAccessManager(SslMode mode, QObject* parent)
    : QNetworkAccessManager(parent)
    , d(std::make_unique<Private>(mode))
{
}

SslIgnorantNetworkAccessManager::~SslIgnorantNetworkAccessManager() = default;

SslIgnorantNetworkAccessManager::SslMode SslIgnorantNetworkAccessManager::sslMode() const
{
    return d->sslMode;
}

void SslIgnorantNetworkAccessManager::setSslMode(const SslMode& mode)
{
    d->sslMode = mode;
}

QNetworkReply* SslIgnorantNetworkAccessManager::deleteResource(const QNetworkRequest& request,
                                                               QHttpMultiPart* multiPart)
{
    if (!multiPart)
        return deleteResource(request);
    return sendCustomRequest(request, QByteArrayLiteral("DELETE"), multiPart);
}

QNetworkReply* SslIgnorantNetworkAccessManager::createRequest(Operation op, const QNetworkRequest& request,
                                                              QIODevice* outgoingData)
{
    QNetworkRequest copy(request);
    if (d->sslMode == SslMode::Ignore && copy.url().scheme() == QLatin1String("https")) {
        copy.setSslConfiguration(d->sslConfiguration);
        // Qt keeps connections by host and peer name, whatever configuration they were made with. A name,
        // though it says nothing new, keeps a connection to an unverified peer from serving a request that is
        // to be verified.
        if (copy.peerVerifyName().isEmpty())
            copy.setPeerVerifyName(copy.url().host());
    }
    return QNetworkAccessManager::createRequest(op, copy, outgoingData);
}

} // namespace orv
