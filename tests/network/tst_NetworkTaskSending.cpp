#include "NetworkTestSupport.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

using namespace orv;
using Method = NetworkRequest::Method;

namespace {

QHttpMultiPart* formWith(const char* value)
{
    auto* form = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, QStringLiteral("form-data; name=\"x\""));
    part.setBody(value);
    form->append(part);
    return form;
}

} // namespace

/// What goes over the wire, and when.
class tst_NetworkTaskSending : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_home.path());
        QCoreApplication::setOrganizationName(QStringLiteral("orv"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_NetworkTaskSending"));
    }

    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "ok"); });
        QVERIFY(!m_server->listen().hasError());
    }

    void sendsEachMethod_data()
    {
        QTest::addColumn<Method>("method");
        QTest::addColumn<QByteArray>("startLine");
        QTest::addColumn<bool>("hasContent");
        QTest::newRow("head") << Method::Head << QByteArray("HEAD /a?b=c%20d HTTP/1.1") << false;
        QTest::newRow("get") << Method::Get << QByteArray("GET /a?b=c%20d HTTP/1.1") << false;
        QTest::newRow("post") << Method::Post << QByteArray("POST /a?b=c%20d HTTP/1.1") << true;
        QTest::newRow("put") << Method::Put << QByteArray("PUT /a?b=c%20d HTTP/1.1") << true;
        QTest::newRow("delete") << Method::Delete << QByteArray("DELETE /a?b=c%20d HTTP/1.1") << false;
    }

    void sendsEachMethod()
    {
        QFETCH(Method, method);
        QFETCH(bool, hasContent);
        TestTask task(m_server->url(QStringLiteral("/a?b=c d")), method);
        task.change([](NetworkRequest& request) {
            request.postData = "{}";
            request.postDataContentType = "application/x-test";
        });
        QVERIFY(task.run());
        QVERIFY2(!task.hasError(), qPrintable(task.error().errorMessage()));
        QCOMPARE(m_server->requests().size(), 1);
        const auto request = m_server->requests().constFirst();
        QTEST(request.startLine(), "startLine");
        QCOMPARE(request.content, hasContent ? QByteArray("{}") : QByteArray());
        QCOMPARE(request.hasField("Content-Type"), hasContent);
        QCOMPARE(request.field("Content-Type"), hasContent ? QByteArray("application/x-test") : QByteArray());
        QCOMPARE(request.field("Accept"), QByteArray("application/json"));
        QCOMPARE(request.field("User-Agent"), QByteArray("OrvLabs"));
        QVERIFY(!request.hasField("Authorization"));
    }

    void sendsEmptyFieldsEmpty_data()
    {
        QTest::addColumn<Method>("method");
        QTest::addColumn<QByteArray>("empty");
        for (const auto& empty : {QByteArray(), QByteArray("")}) {
            QTest::addRow("post, %s", empty.isNull() ? "null" : "empty") << Method::Post << empty;
            QTest::addRow("put, %s", empty.isNull() ? "null" : "empty") << Method::Put << empty;
        }
    }

    // Qt leaves empty known fields out, or puts its own in their place, and prints a warning.
    void sendsEmptyFieldsEmpty()
    {
        QFETCH(Method, method);
        QFETCH(QByteArray, empty);
        LogCatcher log("");
        TestTask task(m_server->url(), method);
        task.setUserAgent(empty);
        task.change([&](NetworkRequest& request) {
            request.acceptedContentTypes = empty;
            request.postDataContentType = empty;
            request.postData = empty;
            request.rawHeaders.insert("X-Empty", empty);
        });
        QVERIFY(task.run());
        const auto request = m_server->requests().constFirst();
        QVERIFY(request.hasField("Content-Type") && request.field("Content-Type").isEmpty());
        QVERIFY(request.hasField("User-Agent") && request.field("User-Agent").isEmpty());
        QVERIFY(request.hasField("X-Empty") && request.field("X-Empty").isEmpty());
        QVERIFY(!request.hasField("Accept"));
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.lines.join(QLatin1Char('\n'))));
    }

    void ordersFieldsByPrecedence()
    {
        TestAuthenticator authenticator;
        authenticator.currentToken = QStringLiteral("tok\u00e9n");
        TestTask task(m_server->url(), Method::Post);
        task.setAuthenticator(&authenticator);
        task.setUserAgent("mine");
        task.change([](NetworkRequest& request) {
            request.postDataContentType = "a/b";
            request.rawHeaders = {
                {"user-agent", "raw"}, {"Accept", "x/y"}, {"Authorization", "none"}, {"X-b", "2"}};
        });
        QVERIFY(task.run());
        const auto request = m_server->requests().constFirst();
        QCOMPARE(request.field("User-Agent"), QByteArray("raw"));
        QCOMPARE(request.field("Accept"), QByteArray("x/y"));
        QCOMPARE(request.field("Authorization"), QByteArray("Bearer tok\xe9n"));
        QCOMPARE(request.field("Content-Type"), QByteArray("a/b"));
        QVERIFY(request.head.contains("\r\nX-b: 2\r\n"));
        int authorizations = 0;
        for (const auto& [name, value] : request.fields)
            authorizations += name.toLower() == "authorization";
        QCOMPARE(authorizations, 1);
    }

    void followsRedirectsOnlyWhenAttributesSaySo()
    {
        m_server->addReply(QStringLiteral("/old"), LoopbackReply(302).withField("Location", "/new"));
        TestTask task(m_server->url(QStringLiteral("/old")));
        task.setResponseHandler(static_cast<HttpResponseStatusCode>(302), [&] { task.finish(Error()); });
        QVERIFY(task.run());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 302);
        QCOMPARE(m_server->requests().size(), 1);

        TestTask follower(m_server->url(QStringLiteral("/old")));
        follower.setRequestAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                     QNetworkRequest::NoLessSafeRedirectPolicy);
        QVERIFY(follower.run());
        QVERIFY(!follower.hasError());
        QCOMPARE(m_server->requests().last().path, QStringLiteral("/new"));
    }

    void sendsMultipartContent_data()
    {
        QTest::addColumn<Method>("method");
        QTest::addColumn<QByteArray>("contentType");
        QTest::addColumn<bool>("isSent");
        QTest::newRow("post") << Method::Post << QByteArray() << true;
        QTest::newRow("delete") << Method::Delete << QByteArray() << true;
        QTest::newRow("put") << Method::Put << QByteArray("a/b") << false;
    }

    void sendsMultipartContent()
    {
        QFETCH(Method, method);
        QFETCH(QByteArray, contentType);
        QFETCH(bool, isSent);
        LogCatcher log("");
        TestTask task(m_server->url(), method);
        QPointer<QHttpMultiPart> form;
        task.multiPartFactory = [&] { return form = formWith("value"); };
        task.change([&](NetworkRequest& request) {
            request.postData = "data";
            request.postDataContentType = contentType;
        });
        QVERIFY(task.run());
        QCOMPARE(form->parent(), &task);
        const auto request = m_server->requests().constFirst();
        QCOMPARE(request.content.contains("value"), isSent);
        QCOMPARE(request.field("Content-Type").startsWith("multipart/form-data; boundary="), isSent);
        if (!isSent)
            QCOMPARE(request.content, QByteArray("data"));
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.lines.join(QLatin1Char('\n'))));
    }

    void refusesFieldsThatWouldInjectOthers_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QByteArray>("text");
        for (const auto* where : {"X-Test", "Accept", "User-Agent", "Authorization", "Content-Type"}) {
            for (const auto& text : {QByteArray("a\r\nEvil: 1"), QByteArray("a\nb"), QByteArray("a\0b", 3)})
                QTest::addRow("%s %s", where, text.toPercentEncoding().constData())
                    << QString::fromLatin1(where) << text;
        }
        QTest::newRow("name") << QStringLiteral("name") << QByteArray("a\r\nEvil");
    }

    void refusesFieldsThatWouldInjectOthers()
    {
        QFETCH(QString, where);
        QFETCH(QByteArray, text);
        TestAuthenticator authenticator;
        authenticator.currentToken =
            where == QLatin1String("Authorization") ? QString::fromLatin1(text) : QStringLiteral("token");
        TestTask task(m_server->url(), Method::Post);
        task.setAuthenticator(&authenticator);
        task.change([&](NetworkRequest& request) {
            if (where == QLatin1String("X-Test"))
                request.rawHeaders.insert("X-Test", text);
            if (where == QLatin1String("name"))
                request.rawHeaders.insert(text, "value");
            if (where == QLatin1String("Accept"))
                request.acceptedContentTypes = text;
            if (where == QLatin1String("Content-Type"))
                request.postDataContentType = text;
        });
        if (where == QLatin1String("User-Agent"))
            task.setUserAgent(text);
        QVERIFY(task.run());
        QCOMPARE(task.error().errorCode(), ErrorCode::InvalidArgument);
        QVERIFY(task.error().errorMessage().contains(
            where == QLatin1String("name") ? QStringLiteral("a%0D%0AEvil") : where));
        QVERIFY(!task.error().errorMessage().contains(QString::fromLatin1(text)));
        QCOMPARE(m_server->connectionCount(), 0);
        QCOMPARE(task.log(), QStringLiteral("started finished"));
    }

    void sendsFromTheEventLoop()
    {
        TestTask task(m_server->url());
        task.exec();
        QVERIFY(task.isRunning() && !task.networkReply());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 200); // until a reply has been judged
        task.exec();                                        // again, before anything was sent
        QTRY_VERIFY(task.isFinished());
        QCOMPARE(m_server->requests().size(), 1);

        LogCatcher log("orv.network.warning=true");
        task.exec();
        QCOMPARE(log.lines,
                 QStringList{QStringLiteral("1|orv.network|Unable to continue, the task is finished")});

        TestTask canceled(m_server->url());
        canceled.exec();
        canceled.cancel();
        QTRY_VERIFY(log.lines.contains(QStringLiteral("1|orv.network|Task is already finished")));
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(canceled.log(), QStringLiteral("started canceled finished"));
    }

    void waitsForItsDelayPaused()
    {
        TestTask task(m_server->url());
        task.setDelay(1);
        task.exec();
        QVERIFY(task.isRunning() && task.isPaused());
        QTRY_VERIFY(task.isFinished());
        QVERIFY(!task.hasError());

        TestTask negative(m_server->url());
        negative.setDelay(-5);
        negative.exec();
        QVERIFY(!negative.isPaused());
        QTRY_VERIFY(negative.isFinished());
    }

    void failsWithoutAnAuthenticator()
    {
        TestTask task(m_server->url());
        task.setRequiresAuthentication(true);
        QVERIFY(task.run());
        QCOMPARE(task.error().errorCode(), ErrorCode::AuthenticationFailed);
        QCOMPARE(task.error().errorMessage(), QStringLiteral("Authentication failed"));
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void preparesRequestsFromPaths_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("url");
        QTest::newRow("replaces all")
            << QStringLiteral("http://h:1/api?x=1#f") << QStringLiteral("/items?page=2")
            << QStringLiteral("http://h:1/items?page=2");
        QTest::newRow("fragment") << QStringLiteral("http://h/") << QStringLiteral("/a#b")
                                  << QStringLiteral("http://h/a#b");
        QTest::newRow("encoded") << QStringLiteral("http://h/") << QStringLiteral("/a b/%C3%A9?q=%26")
                                 << QStringLiteral("http://h/a b/\u00e9?q=%26");
        QTest::newRow("percent sign")
            << QStringLiteral("http://h/") << QStringLiteral("/100%25") << QStringLiteral("http://h/100%25");
        QTest::newRow("no slash") << QStringLiteral("http://h/") << QStringLiteral("items") << QString();
        QTest::newRow("empty") << QStringLiteral("http://h/") << QString() << QString();
    }

    void preparesRequestsFromPaths()
    {
        QFETCH(QString, base);
        QFETCH(QString, path);
        QFETCH(QString, url);
        TestTask task;
        const auto result = task.prepareRequest(QUrl(base), path, Method::Delete, true);
        QCOMPARE(result.hasValue(), !url.isEmpty());
        if (url.isEmpty()) {
            QCOMPARE(result.error().errorCode(), ErrorCode::InvalidArgument);
            QCOMPARE(result.error().errorMessage(), QStringLiteral("relative path must start with '/'"));
            QCOMPARE(result.error().catchTrail().size(), 1);
            return;
        }
        QCOMPARE(result.value().url, url);
        QCOMPARE(result.value().method, Method::Delete);
        QCOMPARE(result.value().acceptedContentTypes, QByteArray("application/json"));
        QVERIFY(result.value().streaming && result.value().postDataContentType.isEmpty());
    }

    void preparesRequestsWithJson()
    {
        TestTask task;
        task.pathPrefix = QStringLiteral("/v1");
        const QJsonObject json{{QStringLiteral("a"), 1}};
        const auto request =
            task.prepareRequest(QUrl(m_server->url()), QStringLiteral("/x"), Method::Post, json).value();
        QCOMPARE(request.url, m_server->url(QStringLiteral("/v1/x")));
        QCOMPARE(request.postData, QJsonDocument(json).toJson(QJsonDocument::Indented));
        QCOMPARE(request.postDataContentType, QByteArray("application/json"));
        QVERIFY(!request.streaming);
        const auto empty =
            task.prepareRequest(QUrl(m_server->url()), QStringLiteral("/x"), Method::Post, QJsonObject());
        QCOMPARE(empty.value().postDataContentType, QByteArray("application/json"));
        QVERIFY(task.prepareRequest(QUrl(), QStringLiteral("/x"), Method::Get)
                    .value()
                    .postDataContentType.isEmpty());
    }

    void readsTheTimeoutSettingOnEveryAttempt()
    {
        TestTask task(m_server->url());
        m_server->addReply(QStringLiteral("/"), LoopbackReply::silence());
        task.setTimeout(60000);
        task.setMaxRetriesCount(1);
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        QSettings().setValue(QStringLiteral("Network/Timeout"), 50);
        connect(&task, &NetworkTask::aboutToRetry, this,
                [] { QSettings().setValue(QStringLiteral("Network/Timeout"), 60); });
        const bool finished = task.run();
        QCOMPARE(task.findChild<QTimer*>()->interval(), 60);
        QSettings().remove(QStringLiteral("Network/Timeout"));
        QVERIFY(finished);
        QCOMPARE(task.error().errorDetails().toInt(), 2408);
    }

    void narrowsTheTimeout_data()
    {
        QTest::addColumn<qint64>("timeout");
        QTest::addColumn<int>("interval");
        QTest::newRow("32 bits") << qint64(5000) << 5000;
        QTest::newRow("more") << (qint64(1) << 32) + 7000 << 7000;
        QTest::newRow("negative") << qint64(-3) << -3;
    }

    void narrowsTheTimeout()
    {
        QFETCH(qint64, timeout);
        LogCatcher log("");
        TestTask task(m_server->url());
        task.setTimeout(std::chrono::milliseconds(timeout));
        QVERIFY(task.run());
        QTEST(task.findChild<QTimer*>()->interval(), "interval");
        QVERIFY(!task.hasError() && log.lines.isEmpty());
    }

    void logsWhatItSendsMasked()
    {
        LogCatcher log("orv.network.info=true");
        TestTask task(m_server->url(), Method::Post);
        task.setName(QStringLiteral("upload"));
        task.change([](NetworkRequest& request) {
            request.postData = "secret";
            request.postDataContentType = "a/b";
            request.setMaskingFunction([](const QByteArray&) { return QByteArray(3000, 'm'); });
        });
        QVERIFY(task.run());
        const auto lines = log.lines.join(QLatin1Char('\n'));
        QVERIFY2(
            lines.contains(QStringLiteral("Sending request: QUrl(\"%1\") Method::Post acceptedContentTypes: "
                                          "\"application/json\" for task \"upload\"")
                               .arg(m_server->url())),
            qPrintable(lines));
        QVERIFY(lines.contains(QStringLiteral("Using dataContentType \"a/b\" (6bytes): \"%1\"\n")
                                   .arg(QString(2000, QLatin1Char('m')))));
        QVERIFY(!lines.contains(QStringLiteral("secret")));
    }

private:
    QTemporaryDir m_home;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskSending)

#include "tst_NetworkTaskSending.moc"
