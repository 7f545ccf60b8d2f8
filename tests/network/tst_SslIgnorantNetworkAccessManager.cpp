#include "NetworkTestSupport.h"

#include <QDateTime>
#include <QHstsPolicy>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkDiskCache>
#include <QNetworkProxy>
#include <QSignalSpy>
#include <QTemporaryDir>

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
};

QTEST_GUILESS_MAIN(tst_SslIgnorantNetworkAccessManager)

#include "tst_SslIgnorantNetworkAccessManager.moc"
