#include "NetworkTestSupport.h"

#include <QDateTime>
#include <QHstsPolicy>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkDiskCache>
#include <QNetworkProxy>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTcpSocket>
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
    void verifiesCertificatesByDefault()
    {
        LoopbackServer server(LoopbackServer::Transport::Tls);
        server.addReply(u"/"_s, LoopbackReply(200, "secret"));
        QVERIFY(!server.listen().hasError());
        const QNetworkRequest request{QUrl(server.url())};

        SslIgnorantNetworkAccessManager manager;
        QCOMPARE(manager.sslMode(), SslMode::Verify);
        QCOMPARE(finished(manager.get(request))->error(), QNetworkReply::SslHandshakeFailedError);
        QVERIFY(server.requests().isEmpty()); // nothing of the request reaches an unverified server

        manager.setSslMode(SslMode::Ignore);
        auto reply = finished(manager.get(request));
        QCOMPARE(reply->error(), QNetworkReply::NoError);
        QCOMPARE(reply->readAll(), "secret"_ba);
    }

    // Qt keeps connections by host and peer verify name, and copies that name to the next host of a redirect.
    void sharesNoUnverifiedConnection()
    {
        LoopbackServer plain;
        LoopbackServer server(LoopbackServer::Transport::Tls);
        server.setHandler([](const LoopbackRequest&) { return LoopbackReply(); });
        QVERIFY(!server.listen().hasError() && !plain.listen().hasError());
        plain.addReply(u"/"_s, redirect(server.url()));
        server.addReply(u"/redirect"_s, redirect(server.url()));
        QNetworkRequest toRedirect{QUrl(plain.url())};
        QNetworkRequest ignoring{QUrl(server.url(u"/redirect"_s))};
        QNetworkRequest verifying{QUrl(server.url())};
        SslIgnorantNetworkAccessManager manager;
        for (const auto& name : {u""_s, u"127.0.0.1"_s, u"127.0.0.1."_s, u"localhost"_s, u"LOCALHOST"_s}) {
            manager.setSslMode(SslMode::Ignore);
            ignoring.setPeerVerifyName(name);
            QCOMPARE(finished(manager.get(ignoring))->error(), QNetworkReply::NoError);
            manager.setSslMode(SslMode::Verify);
            verifying.setPeerVerifyName(name);
            for (const auto& request : {verifying, toRedirect})
                QCOMPARE(finished(manager.get(request))->error(), QNetworkReply::SslHandshakeFailedError);
        }
    }

    void namesEachHostOfARedirect_data()
    {
        const auto row = addColumns<QString, QString, bool>({"from", "to", "isNamed"});
        row("from an address", u"127.0.0.1"_s, u"localhost"_s, true);
        row("to an address", u"localhost"_s, u"127.0.0.1"_s, false);
    }
    void namesEachHostOfARedirect()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        LoopbackServer server(LoopbackServer::Transport::Tls);
        QVERIFY(!server.listen().hasError());
        QTcpServer next; // reads the beginning of a handshake, in which names are not encrypted
        QVERIFY(next.listen(QHostAddress::LocalHost));
        QByteArray hello;
        connect(&next, &QTcpServer::newConnection, this, [&] {
            auto* socket = next.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [&hello, socket] {
                hello += socket->readAll();
                socket->abort();
            });
        });
        server.addReply(u"/"_s, redirect(u"https://%1:%2/"_s.arg(to).arg(next.serverPort())));
        SslIgnorantNetworkAccessManager manager(SslMode::Ignore);
        finished(manager.get(QNetworkRequest(QUrl(u"https://%1:%2/"_s.arg(from).arg(server.port())))));
        QVERIFY(!hello.isEmpty());
        QTEST(hello.contains("localhost"), "isNamed");
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
        QSignalSpy ended(&manager, &QNetworkAccessManager::finished);
        QSignalSpy login(&manager, &QNetworkAccessManager::authenticationRequired);

        for (const auto& path : {u"/cookie"_s, u"/cached"_s, u"/cached"_s, u"/login"_s})
            QCOMPARE(finished(manager.get(request(path)))->manager(), &manager);
        QCOMPARE(ended.size(), 4);
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

    void replacesTheConfigurationOfHttpsRequests_data()
    {
        const auto row = addColumns<SslMode, QString, bool>({"mode", "url", "isReplaced"});
        row("ignore https", SslMode::Ignore, u"https://127.0.0.1:1/"_s, true);
        row("ignore http", SslMode::Ignore, u"http://127.0.0.1:1/"_s, false);
        row("verify https", SslMode::Verify, u"https://127.0.0.1:1/"_s, false);
    }

    void replacesTheConfigurationOfHttpsRequests()
    {
        QFETCH(SslMode, mode);
        QFETCH(QString, url);
        QFETCH(bool, isReplaced);
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setPeerVerifyDepth(7);
        QNetworkRequest request{QUrl(url)};
        request.setSslConfiguration(configuration);
        SslIgnorantNetworkAccessManager manager(mode);
        const std::unique_ptr<QNetworkReply> reply(manager.get(request));
        const auto used = reply->request().sslConfiguration();
        QCOMPARE(used.peerVerifyDepth(), isReplaced ? 0 : 7);
        QCOMPARE(used.peerVerifyMode() == QSslSocket::VerifyNone, isReplaced);
    }
};

QTEST_GUILESS_MAIN(tst_SslIgnorantNetworkAccessManager)

#include "tst_SslIgnorantNetworkAccessManager.moc"
