#include "NetworkTestSupport.h"

#include <QSignalSpy>
#include <QSslConfiguration>

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

private Q_SLOTS:
    void verifiesUnlessToldToIgnore()
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

        // The connection that was not verified is still open, but is not for requests that must be.
        manager.setSslMode(SslMode::Verify);
        QCOMPARE(finished(manager.get(request))->error(), QNetworkReply::SslHandshakeFailedError);
        QCOMPARE(server.requests().size(), 1);
    }

    void replacesOnlyWhatHttpsRequestsBring_data()
    {
        const auto row = addColumns<SslMode, QString, bool>({"mode", "url", "isReplaced"});
        row("ignore https", SslMode::Ignore, u"https://127.0.0.1:1/"_s, true);
        row("ignore http", SslMode::Ignore, u"http://127.0.0.1:1/"_s, false);
        row("verify https", SslMode::Verify, u"https://127.0.0.1:1/"_s, false);
    }

    void replacesOnlyWhatHttpsRequestsBring()
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
