#include "NetworkTestSupport.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using Method = NetworkRequest::Method;

namespace {

QHttpMultiPart* formWith(const char* value)
{
    auto* form = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, u"form-data; name=\"x\""_s);
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
        QCoreApplication::setOrganizationName(u"orv"_s);
        QCoreApplication::setApplicationName(u"tst_NetworkTaskSending"_s);
    }

    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "ok"); });
        QVERIFY(!m_server->listen().hasError());
    }

    void sendsEachMethod_data()
    {
        const auto row = addColumns<Method, bool>({"method", "hasContent"});
        row("HEAD", Method::Head, false);
        row("GET", Method::Get, false);
        row("POST", Method::Post, true);
        row("PUT", Method::Put, true);
        row("DELETE", Method::Delete, false);
    }

    void sendsEachMethod()
    {
        QFETCH(Method, method);
        QFETCH(bool, hasContent);
        TestTask task(m_server->url(u"/a?b=c d"_s), method);
        task.change([](auto& request) {
            request.postData = "{}";
            request.postDataContentType = "application/x-test";
        });
        QVERIFY2(task.succeeds(), qPrintable(task.error().errorMessage()));
        QCOMPARE(m_server->requests().size(), 1);
        const auto request = m_server->requests().constFirst();
        QCOMPARE(request.startLine(), QTest::currentDataTag() + " /a?b=c%20d HTTP/1.1"_ba);
        QCOMPARE(request.content, hasContent ? "{}"_ba : QByteArray());
        QCOMPARE(request.hasField("Content-Type"), hasContent);
        QCOMPARE(request.field("Content-Type"), hasContent ? "application/x-test"_ba : QByteArray());
        QCOMPARE(request.field("Accept"), "application/json"_ba);
        QCOMPARE(request.field("User-Agent"), "OrvLabs"_ba);
        QVERIFY(!request.hasField("Authorization"));
    }

    // Qt leaves empty known fields out, or puts its own in their place, and prints a warning.
    void sendsEmptyFieldsEmpty_data() { addRows("method", {"POST", "PUT"}); }
    void sendsEmptyFieldsEmpty()
    {
        QFETCH(QString, method);
        LogCatcher log("");
        TestTask task(m_server->url(), method == "PUT"_L1 ? Method::Put : Method::Post);
        task.setUserAgent({});
        task.change([](auto& request) {
            request.acceptedContentTypes.clear();
            request.rawHeaders.insert("X-Empty", "");
        });
        QVERIFY(task.run());
        const auto request = m_server->requests().constFirst();
        for (const auto* name : {"Content-Type", "User-Agent", "X-Empty"})
            QVERIFY2(request.hasField(name) && request.field(name).isEmpty(), name);
        QVERIFY(!request.hasField("Accept"));
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.text()));
    }

    void ordersFieldsByPrecedence()
    {
        TestAuthenticator authenticator;
        authenticator.currentToken = u"tok\u00e9n"_s;
        TestTask task(m_server->url(), Method::Post);
        task.setAuthenticator(&authenticator);
        task.setUserAgent("mine");
        task.change([](auto& request) {
            request.postDataContentType = "a/b";
            request.rawHeaders = {
                {"user-agent", "raw"}, {"Accept", "x/y"}, {"Authorization", "none"}, {"X-b", "2"}};
        });
        QVERIFY(task.run());
        const auto request = m_server->requests().constFirst();
        QCOMPARE(request.field("User-Agent"), "raw"_ba);
        QCOMPARE(request.field("Accept"), "x/y"_ba);
        QCOMPARE(request.field("Authorization"), "Bearer tok\xe9n"_ba);
        QCOMPARE(request.field("Content-Type"), "a/b"_ba);
        QVERIFY(request.head.contains("\r\nX-b: 2\r\n"));
        QCOMPARE(request.head.toLower().count("\r\nauthorization:"), 1);
    }

    void followsRedirectsOnlyWhenAttributesSaySo()
    {
        m_server->addReply(u"/old"_s, LoopbackReply(302).withField("Location", "/new"));
        TestTask task(m_server->url(u"/old"_s));
        task.setResponseHandler(static_cast<HttpResponseStatusCode>(302), [&] { task.finish(Error()); });
        QVERIFY(task.run());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 302);
        QCOMPARE(m_server->requests().size(), 1);

        TestTask follower(m_server->url(u"/old"_s));
        follower.setRequestAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                     QNetworkRequest::NoLessSafeRedirectPolicy);
        QVERIFY(follower.succeeds());
        QCOMPARE(m_server->requests().last().path, u"/new"_s);
    }

    void sendsMultipartContent_data()
    {
        const auto row = addColumns<Method, bool>({"method", "isSent"});
        row("post", Method::Post, true);
        row("delete", Method::Delete, true);
        row("put", Method::Put, false);
    }

    void sendsMultipartContent()
    {
        QFETCH(Method, method);
        QFETCH(bool, isSent);
        LogCatcher log("");
        TestTask task(m_server->url(), method);
        QPointer<QHttpMultiPart> form;
        task.multiPartFactory = [&] { return form = formWith("value"); };
        task.change([&](auto& request) {
            request.postData = "data";
            request.postDataContentType = isSent ? ""_ba : "a/b"_ba;
        });
        QVERIFY(task.run());
        QCOMPARE(form->parent(), &task);
        const auto request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray(QTest::currentDataTag()).toUpper());
        QCOMPARE(request.content.contains("value"), isSent);
        QCOMPARE(request.field("Content-Type").startsWith("multipart/form-data; boundary="), isSent);
        if (!isSent)
            QCOMPARE(request.content, "data"_ba);
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.text()));
    }

    void refusesFieldsThatWouldInjectOthers_data()
    {
        addColumns<QString, QByteArray>({"where", "text"});
        for (const auto* where : {"X-Test", "Accept", "User-Agent", "Authorization", "Content-Type"}) {
            for (const auto& text : {"a\r\nEvil: 1"_ba, "a\nb"_ba, QByteArray("a\0b", 3)})
                QTest::addRow("%s %s", where, text.toPercentEncoding().constData())
                    << QString::fromLatin1(where) << text;
        }
        QTest::newRow("name") << u"a%0D%0AEvil"_s << "a\r\nEvil"_ba;
    }

    void refusesFieldsThatWouldInjectOthers()
    {
        QFETCH(QString, where);
        QFETCH(QByteArray, text);
        TestAuthenticator authenticator;
        authenticator.currentToken = where == "Authorization"_L1 ? QString::fromLatin1(text) : u"token"_s;
        TestTask task(m_server->url(), Method::Post);
        task.setAuthenticator(&authenticator);
        task.change([&](auto& request) {
            if (where == "X-Test"_L1)
                request.rawHeaders.insert("X-Test", text);
            if (where == "a%0D%0AEvil"_L1)
                request.rawHeaders.insert(text, "value");
            if (where == "Accept"_L1)
                request.acceptedContentTypes = text;
            if (where == "Content-Type"_L1)
                request.postDataContentType = text;
        });
        if (where == "User-Agent"_L1)
            task.setUserAgent(text);
        QVERIFY(task.run());
        QCOMPARE(task.error().errorCode(), ErrorCode::InvalidArgument);
        QVERIFY(task.error().errorMessage().contains(where));
        QVERIFY(!task.error().errorMessage().contains(QString::fromLatin1(text)));
        QCOMPARE(m_server->connectionCount(), 0);
        QCOMPARE(task.log(), u"started finished"_s);
    }

    void sendsFromTheEventLoop()
    {
        TestTask task(m_server->url());
        task.setDelay(-5);
        task.exec();
        QVERIFY(task.isRunning() && !task.isPaused() && !task.networkReply());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 200); // until a reply has been judged
        task.exec();                                        // again, before anything was sent
        QTRY_VERIFY(task.isFinished());
        QCOMPARE(m_server->requests().size(), 1);

        LogCatcher log("orv.network.warning=true");
        task.exec();
        QCOMPARE(log.lines, QStringList{u"1|orv.network|Unable to continue, the task is finished"_s});

        TestTask canceled(m_server->url());
        canceled.exec();
        canceled.cancel();
        QTRY_VERIFY(log.lines.contains(u"1|orv.network|Task is already finished"_s));
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(canceled.log(), u"started canceled finished"_s);
    }

    void preparesRequestsFromPaths_data()
    {
        const auto row = addColumns<QString, QString, QString>({"base", "path", "url"});
        row("replaces all", u"http://h:1/api?x=1#f"_s, u"/items?page=2"_s, u"http://h:1/items?page=2"_s);
        row("encoded", u"http://h/"_s, u"/a b/%C3%A9?q=%26"_s, u"http://h/a b/\u00e9?q=%26"_s);
        row("percent sign", u"http://h/"_s, u"/100%2541"_s, u"http://h/100%2541"_s);
        row("no slash", u"http://h/"_s, u"items"_s, {});
        row("empty", u"http://h/"_s, {}, {});
    }

    void preparesRequestsFromPaths()
    {
        QFETCH(QString, base);
        QFETCH(QString, path);
        QFETCH(QString, url);
        const auto result = TestTask().prepareRequest(QUrl(base), path, Method::Delete, true);
        QCOMPARE(result.hasValue(), !url.isEmpty());
        if (url.isEmpty()) {
            QCOMPARE(result.error().errorCode(), ErrorCode::InvalidArgument);
            QCOMPARE(result.error().errorMessage(), u"relative path must start with '/'"_s);
            QCOMPARE(result.error().catchTrail().size(), 1);
            return;
        }
        QCOMPARE(result.value().url, url);
        QCOMPARE(result.value().method, Method::Delete);
        QCOMPARE(result.value().acceptedContentTypes, "application/json"_ba);
        QVERIFY(result.value().streaming && result.value().postDataContentType.isEmpty());
    }

    void preparesRequestsWithJson()
    {
        TestTask task;
        task.pathPrefix = u"/v1"_s;
        const QUrl base(m_server->url());
        const QJsonObject json{{u"a"_s, 1}};
        const auto request = task.prepareRequest(base, u"/x"_s, Method::Post, json).value();
        QCOMPARE(request.url, m_server->url(u"/v1/x"_s));
        QCOMPARE(request.postData, QJsonDocument(json).toJson(QJsonDocument::Indented));
        QCOMPARE(request.postDataContentType, "application/json"_ba);
        QVERIFY(!request.streaming);
    }

    void readsTheTimeoutSettingOnEveryAttempt()
    {
        TestTask task(m_server->url());
        m_server->addReply(u"/"_s, LoopbackReply::silence());
        task.setTimeout(60000);
        task.setMaxRetriesCount(1);
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        QSettings().setValue(u"Network/Timeout"_s, 50);
        connect(&task, &NetworkTask::aboutToRetry, this,
                [] { QSettings().setValue(u"Network/Timeout"_s, 60); });
        const bool finished = task.run();
        QCOMPARE(task.findChild<QTimer*>()->interval(), 60);
        QSettings().remove(u"Network/Timeout"_s);
        QVERIFY(finished);
        QCOMPARE(task.error().errorDetails().toInt(), 2408);
    }

private:
    QTemporaryDir m_home;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskSending)

#include "tst_NetworkTaskSending.moc"
