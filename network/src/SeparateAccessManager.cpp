#include "SeparateAccessManager_p.h"

#include <QAbstractNetworkCache>
#include <QAuthenticator>
#include <QHstsPolicy>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>
#include <QNetworkReply>

namespace orv {

namespace {

// These three ask the owner each time. Qt's manager would take possession of the owner's objects, and the
// owner may replace them at any time.

class OwnersCookies : public QNetworkCookieJar
{
public:
    explicit OwnersCookies(QNetworkAccessManager* owner)
        : m_owner(owner)
    {
    }

    QList<QNetworkCookie> cookiesForUrl(const QUrl& url) const override
    {
        return m_owner->cookieJar()->cookiesForUrl(url);
    }
    bool setCookiesFromUrl(const QList<QNetworkCookie>& cookies, const QUrl& url) override
    {
        return m_owner->cookieJar()->setCookiesFromUrl(cookies, url);
    }

private:
    QNetworkAccessManager* const m_owner;
};

// Where the owner has no cache, it has nothing and takes nothing.
class OwnersCache : public QAbstractNetworkCache
{
public:
    explicit OwnersCache(QNetworkAccessManager* owner)
        : m_owner(owner)
    {
    }

    QNetworkCacheMetaData metaData(const QUrl& url) override
    {
        return m_owner->cache() ? m_owner->cache()->metaData(url) : QNetworkCacheMetaData();
    }
    void updateMetaData(const QNetworkCacheMetaData& metaData) override
    {
        if (m_owner->cache())
            m_owner->cache()->updateMetaData(metaData);
    }
    QIODevice* data(const QUrl& url) override
    {
        return m_owner->cache() ? m_owner->cache()->data(url) : nullptr;
    }
    bool remove(const QUrl& url) override { return m_owner->cache() && m_owner->cache()->remove(url); }
    qint64 cacheSize() const override { return m_owner->cache() ? m_owner->cache()->cacheSize() : 0; }
    QIODevice* prepare(const QNetworkCacheMetaData& metaData) override
    {
        return m_owner->cache() ? m_owner->cache()->prepare(metaData) : nullptr;
    }
    void insert(QIODevice* device) override
    {
        if (m_owner->cache())
            m_owner->cache()->insert(device);
    }
    void clear() override
    {
        if (m_owner->cache())
            m_owner->cache()->clear();
    }

private:
    QNetworkAccessManager* const m_owner;
};

class OwnersProxy : public QNetworkProxyFactory
{
public:
    explicit OwnersProxy(QNetworkAccessManager* owner)
        : m_owner(owner)
    {
    }

    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override
    {
        if (auto* factory = m_owner->proxyFactory())
            return factory->queryProxy(query);
        const auto proxy = m_owner->proxy();
        if (proxy.type() == QNetworkProxy::DefaultProxy) // none was set: the application's
            return proxyForQuery(query);
        return {proxy};
    }

private:
    QNetworkAccessManager* const m_owner;
};

} // namespace

SeparateAccessManager::SeparateAccessManager(QNetworkAccessManager* owner)
    : QNetworkAccessManager(owner)
    , m_owner(owner)
{
    setCookieJar(new OwnersCookies(owner));
    setCache(new OwnersCache(owner));
    setProxyFactory(new OwnersProxy(owner));
    connect(this, &QNetworkAccessManager::authenticationRequired, owner,
            &QNetworkAccessManager::authenticationRequired);
    connect(this, &QNetworkAccessManager::proxyAuthenticationRequired, owner,
            &QNetworkAccessManager::proxyAuthenticationRequired);
}

QNetworkReply* SeparateAccessManager::send(Operation op, const QNetworkRequest& request,
                                           QIODevice* outgoingData)
{
    applySettings();
    return QNetworkAccessManager::createRequest(op, request, outgoingData);
}

void SeparateAccessManager::applySettings()
{
    setRedirectPolicy(m_owner->redirectPolicy());
    setTransferTimeout(m_owner->transferTimeout());
    setAutoDeleteReplies(m_owner->autoDeleteReplies());
    setStrictTransportSecurityEnabled(m_owner->isStrictTransportSecurityEnabled());
    if (isStrictTransportSecurityEnabled())
        addStrictTransportSecurityHosts(m_owner->strictTransportSecurityHosts());
}

} // namespace orv
