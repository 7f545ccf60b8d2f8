#include "NetworkTestSupport.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using Method = NetworkRequest::Method;

// clazy:excludeall=lambda-in-connect
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

/// Which requests are sent, and when.
class tst_NetworkTaskSending : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
        task.change([=](auto& request) {
            request.postData = "{}";
            // What is not sent is not checked either.
            request.postDataContentType = hasContent ? "application/x-test"_ba : "a\r\nEvil: 1"_ba;
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

    // Qt leaves empty known fields out or replaces them, takes an empty type of content for a missing one and
    // adds its own, and prints warnings.
    void sendsEmptyFieldsEmpty_data()
    {
        const auto row = addColumns<Method, QString, QByteArray>({"method", "path", "content"});
        row("POST", Method::Post, u"/"_s, "");
        row("POST with content", Method::Post, u"/"_s, "{}");
        row("POST with a query", Method::Post, u"/?a=b"_s, "");
        row("PUT", Method::Put, u"/"_s, "");
        row("PUT with content and a query", Method::Put, u"/?a=b"_s, "{}");
    }

    void sendsEmptyFieldsEmpty()
    {
        QFETCH(Method, method);
        QFETCH(QString, path);
        QFETCH(QByteArray, content);
        LogCatcher log("");
        TestTask task(m_server->url(path), method);
        task.setUserAgent({});
        task.change([&](auto& request) {
            request.acceptedContentTypes.clear();
            request.postData = content;
            request.rawHeaders.insert("X-Empty", "");
        });
        QVERIFY(task.run());
        const auto request = m_server->requests().constFirst();
        QHash<QByteArray, QByteArray> replaced;
        if (isQt68)
            replaced.insert("User-Agent", "Mozilla/5.0");
        if (isQt68 && method == Method::Post && !(content.isEmpty() && path == u"/"_s))
            replaced.insert("Content-Type", "application/octet-stream");
        for (const auto* name : {"Content-Type", "User-Agent", "X-Empty"}) {
            QVERIFY2(request.hasField(name), name);
            QCOMPARE(request.field(name), replaced.value(name));
            QCOMPARE(request.head.toLower().count("\r\n" + QByteArray(name).toLower() + ':'), 1);
        }
        QCOMPARE(request.content, content);
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
        QCOMPARE(request.field("X-b"), "2"_ba);
        QCOMPARE(request.head.toLower().count("\r\nauthorization:"), 1);
    }

    void letsAttributesAllowRedirectsAndHttp2()
    {
        m_server->addReply(u"/old"_s, LoopbackReply(302).withField("Location", "/new"));
        TestTask task(m_server->url(u"/old"_s));
        task.setResponseHandler(static_cast<HttpResponseStatusCode>(302), [&] { task.finish(Error()); });
        QVERIFY(task.run());
        QCOMPARE(m_server->requests().size(), 1);

        TestTask follower(m_server->url(u"/old"_s));
        follower.setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, true);
        follower.setRequestAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                     QNetworkRequest::NoLessSafeRedirectPolicy);
        QVERIFY(follower.succeeds());
        QCOMPARE(m_server->requests().last().path, u"/new"_s);
        const auto sent = follower.networkReply()->request();
        QVERIFY(sent.attribute(QNetworkRequest::Http2AllowedAttribute, false).toBool());
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

    void refusesFieldsThatAreNotValid_data()
    {
        const auto row = addColumns<QByteArray, QByteArray, bool>({"name", "value", "isValid"});
        for (const auto& name : {"X-Test"_ba, "Accept"_ba, "User-Agent"_ba, "Authorization"_ba,
                                 "Content-Type"_ba, "boundary"_ba}) {
            for (const auto& value :
                 {"a\r\nEvil: 1"_ba, "a\nb"_ba, QByteArray("a\0b", 3), "\x1f"_ba, "a\x7f"_ba})
                row(name + ' ' + value.toPercentEncoding(), name, value, false);
            row(name + " with a tab", name, "a\tb", true);
        }
        for (const auto& name :
             {""_ba, "a\r\nEvil"_ba, "a b"_ba, "a:"_ba, "a\t"_ba, "\xc3\xa9"_ba, "a(b)"_ba})
            row("name " + name.toPercentEncoding(), name, "value", false);
        row("name with every other sign", "!#$%&'*+-.^_`|~09azAZ", "value", true);
    }

    void refusesFieldsThatAreNotValid()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, value);
        QFETCH(bool, isValid);
        TestAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        TestTask task(m_server->url(), Method::Post);
        task.setAuthenticator(&authenticator);
        QPointer<QHttpMultiPart> form;
        task.change([&](auto& request) {
            if (name == "Accept")
                request.acceptedContentTypes = value;
            else if (name == "Content-Type")
                request.postDataContentType = value;
            else if (name == "User-Agent")
                task.setUserAgent(value);
            else if (name == "Authorization")
                authenticator.currentToken = QString::fromLatin1(value);
            else if (name != "boundary")
                request.rawHeaders.insert(name, value);
        });
        if (name == "boundary") {
            task.multiPartFactory = [&] {
                form = formWith("value");
                form->setBoundary(value);
                return form;
            };
        }
        QVERIFY(task.run());
        QCOMPARE(m_server->requests().size(), isValid ? 1 : 0);
        if (isValid)
            return;
        QCOMPARE(task.error().errorCode(), ErrorCode::InvalidArgument);
        const auto message = task.error().errorMessage();
        const auto field = name == "boundary" ? "Content-Type"_ba : name;
        if (value != "value")
            QVERIFY(message.contains(QLatin1String(field)) && !message.contains(QLatin1String(value)));
        QCOMPARE(m_server->connectionCount(), 0);
        QVERIFY(!form);
    }

    void sendsFromTheEventLoop()
    {
        TestTask task(m_server->url());
        task.setDelay(-5);
        task.setNetworkResponseError(QNetworkReply::TimeoutError);
        task.setNetworkResponseErrorMessage(u"earlier"_s);
        task.exec();
        QVERIFY(task.isRunning() && !task.isPaused() && !task.networkReply());
        QCOMPARE(task.networkResponseError(), QNetworkReply::NoError);
        QCOMPARE(task.networkResponseErrorMessage(), QString());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 200); // until a reply has been judged
        task.cancel();
        QTest::qWait(20);
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void preparesRequestsFromPaths_data()
    {
        const auto row = addColumns<QString, QString, QString>({"base", "path", "url"});
        row("replaces all", u"http://h:1/api?x=1#f"_s, u"/items?page=2"_s, u"http://h:1/items?page=2"_s);
        row("encoded", u"http://h/"_s, u"/a b/%C3%A9?q=%26"_s, u"http://h/a b/\u00e9?q=%26"_s);
        row("percent sign", u"http://h/"_s, u"/100%2541"_s, u"http://h/100%2541"_s);
        row("host and port", u"http://h:1/"_s, u"//other.host:2/x?y"_s, u"http://h:1/x?y"_s);
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
        for (const auto& json : {QJsonObject{{u"a"_s, 1}}, QJsonObject()}) {
            const auto request = task.prepareRequest(base, u"/x"_s, Method::Post, json).value();
            QCOMPARE(request.url, m_server->url(u"/v1/x"_s));
            QCOMPARE(request.postData, QJsonDocument(json).toJson(QJsonDocument::Indented));
            QCOMPARE(request.postDataContentType, "application/json"_ba);
            QVERIFY(!request.streaming);
        }
    }

    void readsTheTimeoutSettingOnEveryAttempt()
    {
        m_server->addReply(u"/"_s, LoopbackReply(503));
        LogCatcher log("orv.network.warning=true");
        TestTask task(m_server->url());
        QCOMPARE(task.timeout(), std::chrono::minutes(5));
        task.setTimeout(std::chrono::milliseconds((qint64{1} << 32) + 60000)); // is truncated to 32 bits
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        const QVariantList settings{u"abc"_s, 70000, 80000};
        QList<int> intervals;
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] {
            intervals.append(task.findChild<QTimer*>()->interval());
            QSettings().setValue(u"Network/Timeout"_s, settings.value(intervals.size() - 1));
            if (intervals.size() > settings.size())
                task.cancel();
        });
        const bool isFinished = task.run();
        QSettings().remove(u"Network/Timeout"_s);
        QVERIFY(isFinished);
        QCOMPARE(intervals, (QList<int>{60000, 60000, 70000, 80000}));
        QCOMPARE(log.lines.filter(u"The setting Network/Timeout is not a number"_s).size(), 1);
    }

private:
    const TemporarySettings m_settings;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskSending)

#include "tst_NetworkTaskSending.moc"
