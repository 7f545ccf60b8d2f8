#include "NetworkTestSupport.h"

#include <LoopbackProxy.h>

#include <QDateTime>
#include <QHstsPolicy>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkDiskCache>
#include <QNetworkProxy>
#include <QNetworkProxyFactory>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using SslMode = SslIgnorantNetworkAccessManager::SslMode;

class tst_SslIgnorantNetworkAccessManager : public QObject
{
    Q_OBJECT

private:
    static std::unique_ptr<QNetworkReply> finished(QNetworkReply* reply)
    {
        QSignalSpy spy(reply, &QNetworkReply::finished);
        if (!reply->isFinished())
            spy.wait(10000);
        return std::unique_ptr<QNetworkReply>(reply);
    }

    static LoopbackReply redirect(const QString& url)
    {
        return LoopbackReply(302).withField("Location", url.toLatin1());
    }

private Q_SLOTS:
    void verifiesUnlessToldToIgnore()
    {
        LoopbackServer plain;
        LoopbackServer server(LoopbackServer::Transport::Tls);
        server.addReply(u"/"_s, LoopbackReply(200, "secret"));
        QVERIFY(!server.listen().hasError() && !plain.listen().hasError());
        plain.addReply(u"/"_s, redirect(server.url()));
        const QNetworkRequest request{QUrl(server.url())};
        const QNetworkRequest toRedirect{QUrl(plain.url())};

        SslIgnorantNetworkAccessManager manager;
        QCOMPARE(finished(manager.get(request))->error(), QNetworkReply::SslHandshakeFailedError);
        QVERIFY(server.requests().isEmpty()); // nothing of the request reaches an unverified server

        manager.setSslMode(SslMode::Ignore);
        QCOMPARE(finished(manager.get(request))->readAll(), "secret"_ba);

        // The connection that was not verified is still open, but is not for requests that must be.
        manager.setSslMode(SslMode::Verify);
        for (const auto& verified : {request, toRedirect})
            QCOMPARE(finished(manager.get(verified))->error(), QNetworkReply::SslHandshakeFailedError);
        QCOMPARE(server.requests().size(), 1);
    }

    // Requests that are not verified have connections of their own, and all else in common with the others.
    void appliesItsSettingsInEitherMode()
    {
        LoopbackServer server(LoopbackServer::Transport::Tls);
        server.addReply(u"/cookie"_s, LoopbackReply().withField("Set-Cookie", "a=b"));
        server.addReply(u"/cached"_s, LoopbackReply(200, "x").withField("Cache-Control", "max-age=1000"));
        server.addReply(u"/login"_s, LoopbackReply(401).withField("WWW-Authenticate", "Basic realm=\"r\""));
        server.addReply(u"/silence"_s, LoopbackReply::silence());
        QVERIFY(!server.listen().hasError());
        server.addReply(u"/redirect"_s, redirect(server.url()));
        server.addReply(u"/insecure"_s, redirect(u"http://localhost:%1/cached"_s.arg(server.port())));
        const auto request = [&](const QString& path) {
            QNetworkRequest made{QUrl(server.url(path))};
            made.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferCache);
            return made;
        };
        SslIgnorantNetworkAccessManager manager(SslMode::Ignore);
        manager.cookieJar()->setCookiesFromUrl({QNetworkCookie("c", "d")}, request({}).url());
        QTemporaryDir folder;
        auto* cache = new QNetworkDiskCache(&manager);
        cache->setCacheDirectory(folder.path());
        manager.setCache(cache);
        manager.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
        QSignalSpy login(&manager, &QNetworkAccessManager::authenticationRequired);

        for (const auto& path : {u"/cookie"_s, u"/cached"_s, u"/cached"_s, u"/login"_s})
            QCOMPARE(finished(manager.get(request(path)))->manager(), &manager);
        QCOMPARE(login.size(), 1);
        QCOMPARE(server.requests(u"/cached"_s).size(), 1);
        QCOMPARE(server.requests().constLast().field("Cookie"), "c=d; a=b"_ba);
        QCOMPARE(manager.cookieJar()->cookiesForUrl(request({}).url()).size(), 2);
        const auto redirected = finished(manager.get(request(u"/redirect"_s)));
        QCOMPARE(redirected->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 302);

        for (const auto clear : {&SslIgnorantNetworkAccessManager::clearAccessCache,
                                 &SslIgnorantNetworkAccessManager::clearConnectionCache}) {
            const int connections = server.connectionCount();
            (manager.*clear)();
            finished(manager.get(request(u"/redirect"_s)));
            QCOMPARE(server.connectionCount(), connections + 1);
        }

        manager.setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, u"127.0.0.1"_s, 1));
        const auto refused = finished(manager.get(request(u"/"_s)));
        QVERIFY(refused->error() && server.requests(u"/"_s).isEmpty());
        manager.setProxy(QNetworkProxy::DefaultProxy);

        manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
        manager.setStrictTransportSecurityEnabled(true);
        manager.addStrictTransportSecurityHosts(
            {QHstsPolicy(QDateTime::currentDateTimeUtc().addDays(1), {}, u"localhost"_s)});
        QCOMPARE(finished(manager.get(request(u"/insecure"_s)))->error(), QNetworkReply::NoError);

        manager.setTransferTimeout(1);
        manager.setAutoDeleteReplies(true);
        QPointer<QNetworkReply> timedOut = manager.get(request(u"/silence"_s));
        QTRY_VERIFY(!timedOut);

        manager.setTransferTimeout(0);
        manager.get(request(u"/silence"_s)); // is under way when the manager is destroyed
    }

    // With the proxy of the application, or the one that the manager was given.
    void leavesProxiesAloneWhenBuffering_data()
    {
        const auto addRow = addColumns<int, QString, bool, bool, QString>(
            {"protocol", "host", "isTls", "isOfManager", "request"});
        const int http = static_cast<int>(LoopbackProxy::Protocol::Http);
        const int socks = static_cast<int>(LoopbackProxy::Protocol::Socks5);
        addRow("none", -1, u"127.0.0.1"_s, false, false, {});
        addRow("HTTP", http, u"server.test"_s, false, false, u"GET http://server.test:%1/"_s);
        addRow("HTTP, TLS", http, u"server.test"_s, true, false, u"CONNECT server.test:%1"_s);
        addRow("SOCKS", socks, u"server.test"_s, false, false, u"SOCKS server.test:%1"_s);
        addRow("SOCKS, TLS", socks, u"server.test"_s, true, false, u"SOCKS server.test:%1"_s);
        addRow("loopback excluded", http, u"127.0.0.1"_s, false, false, {});
        addRow("set on the manager", http, u"127.0.0.1"_s, false, true, u"GET http://127.0.0.1:%1/"_s);
    }
    void leavesProxiesAloneWhenBuffering()
    {
        QFETCH(const int, protocol);
        QFETCH(const QString, host);
        QFETCH(const bool, isTls);
        QFETCH(const bool, isOfManager);
        QFETCH(QString, request);
        using enum LoopbackServer::Transport;
        LoopbackServer server(isTls ? Tls : Plain);
        server.addReply(u"/"_s, LoopbackReply(200, "content"));
        LoopbackProxy proxy(static_cast<LoopbackProxy::Protocol>(std::max(protocol, 0)));
        QVERIFY(!server.listen().hasError() && !proxy.listen().hasError());
        const auto restore = qScopeGuard([] { QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy); });
        SslIgnorantNetworkAccessManager manager(SslMode::Ignore);
        manager.setConnectionBufferingEnabled(true);
        if (isOfManager)
            manager.setProxy(proxy.proxy());
        else if (protocol >= 0)
            QNetworkProxy::setApplicationProxy(proxy.proxy());
        manager.setConnectionBufferingEnabled(true); // does nothing after setProxy()
        QCOMPARE(manager.connectionBufferingEnabled(), !isOfManager);

        QUrl url(server.url());
        url.setHost(host);
        QCOMPARE(finished(manager.get(QNetworkRequest(url)))->readAll(), "content"_ba);
        const auto expected = request.isEmpty() ? QStringList() : QStringList{request.arg(server.port())};
        QCOMPARE(proxy.requests(), expected);
        if (isOfManager)
            return;
        const auto answer = manager.proxyFactory()->queryProxy(QNetworkProxyQuery(url)).constFirst().type();
        const bool isBuffered = request.isEmpty() && !isTls;
        QCOMPARE(answer == QNetworkProxy::DefaultProxy, isBuffered);
        manager.setConnectionBufferingEnabled(false);
        QVERIFY(!manager.proxyFactory());
    }

    void buffersOnlyWhatUsesNoProxyInAnyWay()
    {
        struct ForSockets : QNetworkProxyFactory
        {
            QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override
            {
                const bool isSocket = query.queryType() == QNetworkProxyQuery::TcpSocket;
                const auto proxied = isSocket ? "sockets.test"_L1 : "urls.test"_L1;
                socketQueries += isSocket;
                return {query.peerHostName() == proxied ? QNetworkProxy::Socks5Proxy
                                                        : QNetworkProxy::NoProxy};
            }
            int socketQueries = 0;
        };
        auto* factory = new ForSockets;
        const auto restore = qScopeGuard([] { QNetworkProxyFactory::setApplicationProxyFactory(nullptr); });
        QNetworkProxyFactory::setApplicationProxyFactory(factory);
        SslIgnorantNetworkAccessManager manager;
        manager.setConnectionBufferingEnabled(true);
        const auto answer = [&](const QString& url) {
            return manager.proxyFactory()->queryProxy(QNetworkProxyQuery(QUrl(url))).constFirst().type();
        };
        QCOMPARE(answer(u"http://server.test/"_s), QNetworkProxy::DefaultProxy);
        QCOMPARE(answer(u"http://sockets.test/"_s), QNetworkProxy::NoProxy);
        QCOMPARE(answer(u"http://urls.test/"_s), QNetworkProxy::Socks5Proxy);
        QCOMPARE(answer(u"http://server.test/again"_s), QNetworkProxy::DefaultProxy);
        QCOMPARE(factory->socketQueries, 2);
    }
};

QTEST_GUILESS_MAIN(tst_SslIgnorantNetworkAccessManager)

#include "tst_SslIgnorantNetworkAccessManager.moc"
