#include "NetworkTestSupport.h"

#include <BearerLogin.h>
#include <NetworkQueue.h>

#include <QElapsedTimer>
#include <QJsonObject>
#include <QSignalSpy>

#include <memory>
#include <stdexcept>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace orv;
using Code = AbstractAuthenticator::Error;
using State = AbstractAuthenticator::State;
using Tokens = BearerLogin::Tokens;

// clazy:excludeall=lambda-in-connect

class tst_BearerLogin : public QObject
{
    Q_OBJECT

private:
    static LoopbackReply issued(const char* token, QJsonObject content = {})
    {
        content.insert("access_token"_L1, QLatin1String(token));
        return LoopbackReply::json(content);
    }

    void answerLoginsWith(const QList<LoopbackReply>& replies)
    {
        for (const auto& reply : replies)
            m_server->addReply(u"/login"_s, reply);
    }

    // The content of all requests for a token.
    QString sent() const
    {
        QStringList contents;
        for (const auto& request : m_server->requests(u"/login"_s))
            contents.append(QString::fromLatin1(request.content));
        return contents.join(u' ');
    }

    std::unique_ptr<TestTask> makeTask()
    {
        auto task = std::make_unique<TestTask>(m_server->url(u"/data"_s));
        task->setAuthenticator(m_login);
        return task;
    }

    void logIn()
    {
        QSignalSpy authenticated(m_login, &BearerLogin::authenticated);
        m_login->onAuthenticationRequired();
        QTRY_COMPARE(authenticated.size(), 1);
    }

private Q_SLOTS:
    void init()
    {
        QSettings().setValue(u"Network/DumpData"_s, true); // read once, with the first reply
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([this](const LoopbackRequest& request) {
            return LoopbackReply(request.field("Authorization") == m_accepted ? 200 : 401, "in");
        });
        QVERIFY(!m_server->listen().hasError());
        m_accepted = "Bearer t1";
        m_password = u"s3cret"_s;
        m_login = new BearerLogin;
        m_login->setLoginRequest([this, url = m_server->url(u"/login"_s)] {
            return BearerLogin::formRequest(url, {{u"password"_s, m_password}});
        });
        m_login->setRefreshRequest([url = m_server->url(u"/login"_s)](const QString& refreshToken) {
            return BearerLogin::formRequest(url, {{u"refresh"_s, refreshToken}});
        });
        m_login->setDelayPolicy(Retriable::DelayPolicy::None);
        m_login->setMaxRetriesCount(1);
    }

    void cleanup() { delete m_login; }

    void readsTokens_data()
    {
        const auto row = addColumns<QByteArray, QString>({"content", "read"});
        row("all", R"({"access_token":"a","token":"b","refresh_token":"r","expires_in":3600})",
            u"a r 3600000"_s);
        row("text and another name", R"({"token":"b","expires_in":"0.5"})", u"b  500"_s);
        row("no number", R"({"token":"b","expires_in":"nan"})", u"b  -1"_s);
        row("huge", R"({"token":"b","expires_in":1e300})", u"b  315360000000"_s);
    }
    void readsTokens()
    {
        QFETCH(const QByteArray, content);
        const auto tokens = BearerLogin::tokensFromJson(content).value();
        const auto lifetime = QString::number(tokens.expiresIn.value_or(-1ms).count());
        QTEST(QStringList({tokens.token, tokens.refreshToken, lifetime}).join(u' '), "read");
    }

    void servesAllTasksOfAQueueWithOneLogin()
    {
        NetworkQueue queue; // with one slot, which the waiting task must not keep
        queue.setAuthenticator(m_login);
        m_login->setQueue(&queue);
        m_login->setLoginRequest(BearerLogin::jsonRequest(m_server->url(u"/login"_s), {{u"pin"_s, 7}}));
        QVERIFY(!m_login->setTokens({u"old"_s, {}, {}}).hasError());
        connect(m_login, &BearerLogin::authenticating, this, [this] { QVERIFY(m_login->token().isEmpty()); });
        answerLoginsWith({issued("t1").delayed(50ms)});
        std::vector<std::unique_ptr<TestTask>> tasks;
        for (int i = 0; i < 5; ++i)
            queue.append(tasks.emplace_back(makeTask()).get());
        QTRY_VERIFY(queue.isEmpty());
        for (const auto& task : tasks)
            QCOMPARE(task->data(), "in"_ba);
        QCOMPARE(m_server->requests().constFirst().field("Authorization"), "Bearer old"_ba);
        QCOMPARE(sent(), uR"({"pin":7})"_s);
        const auto login = m_server->requests(u"/login"_s).constFirst();
        QVERIFY(!login.hasField("Authorization"));
        QCOMPARE(login.field("Content-Type"), "application/json"_ba);
    }

    void saysWhyALoginFailed_data()
    {
        const auto row = addColumns<LoopbackReply, Code, int, QString>({"reply", "code", "number", "text"});
        row("refused", LoopbackReply(401), Code::InvalidCredentials, 2401,
            u"The server refused the credentials"_s);
        row("busy", LoopbackReply(429), Code::TemporaryFailure, 2429, u"The login failed: HTTP 429"_s);
        row("not found", LoopbackReply(404), Code::Failed, 2404, u"The login failed: HTTP 404"_s);
        row("cut", issued("t1").withField("Content-Length", "99").closing(), Code::TemporaryFailure, 3002,
            u"The login failed: Connection closed"_s);
        row("silence", LoopbackReply::silence(), Code::TemporaryFailure, 2408,
            u"The login failed: Network timeout"_s);
        row("no token", LoopbackReply(200, R"({"access_token":7})"), Code::Failed, 0,
            u"The server's answer contains no token"_s);
        row("bad token", issued("t1\nX: y"), Code::Failed, 0,
            u"The token contains characters that cannot be sent"_s);
        row("throwing reader", LoopbackReply(200, "throw"), Code::Failed, 0, u"thrown"_s);
    }
    void saysWhyALoginFailed()
    {
        QFETCH(const LoopbackReply, reply);
        QFETCH(const Code, code);
        QFETCH(const int, number);
        answerLoginsWith({reply});
        m_login->setTimeout(number == 2408 ? 30ms : 1min);
        m_login->setTokenReader([](const QByteArray& content) {
            return content == "throw" ? throw std::runtime_error("thrown")
                                      : BearerLogin::tokensFromJson(content);
        });
        const QSignalSpy errors(m_login, &BearerLogin::error);
        const auto task = makeTask();
        QVERIFY(!task->succeeds());
        QCOMPARE(errors.size(), code == Code::TemporaryFailure ? 2 : 1);
        QCOMPARE(errors.constLast().constFirst().value<Code>(), code);
        QCOMPARE(m_server->requests(u"/login"_s).size(), errors.size());
        QCOMPARE(task->error().errorDetails().toInt(), number);
        QTEST(task->error().errorMessage(), "text");
        answerLoginsWith({issued("t1")});
        QCOMPARE(makeTask()->succeeds(), code != Code::InvalidCredentials);
    }

    void sendsRefusedCredentialsOnlyOnce()
    {
        answerLoginsWith({LoopbackReply(401), LoopbackReply(401), issued("t1")});
        for (const auto& password : {u"one"_s, u"one"_s, u"two"_s, u"two"_s}) {
            m_password = password;
            QVERIFY(!makeTask()->succeeds());
        }
        QCOMPARE(sent(), u"password=one password=two"_s);
        m_login->logOut(); // forgets it
        QVERIFY(makeTask()->succeeds());
    }

    void waitsBeforeALoginIsRepeated()
    {
        SslIgnorantNetworkAccessManager manager;
        const QSignalSpy finished(&manager, &QNetworkAccessManager::finished);
        m_login->setNetworkAccessManager(&manager);
        m_login->setDelayPolicy(Retriable::DelayPolicy::Linear);
        m_login->setIncrementFactor(1);
        answerLoginsWith({LoopbackReply(503), issued("t1")});
        QElapsedTimer clock;
        clock.start();
        QVERIFY(makeTask()->succeeds());
        QVERIFY(clock.elapsed() >= 990);
        QCOMPARE(finished.size(), 2);
    }

    // A login that is needed meanwhile is served by the refresh.
    void refreshesBeforeTheTokenExpires_data() { addRows("token", {"valid", "refused"}); }
    void refreshesBeforeTheTokenExpires()
    {
        QFETCH(const QString, token);
        const bool isRefused = token == "refused"_L1;
        answerLoginsWith(
            {issued("t1", {{u"expires_in"_s, 1}, {u"refresh_token"_s, u"r&1"_s}}), issued("t2")});
        m_login->setRefreshMargin(isRefused ? 1h : 200ms); // after 500 or 800 ms
        const QSignalSpy authenticating(m_login, &BearerLogin::authenticating);
        QElapsedTimer clock;
        clock.start();
        logIn();
        QString during;
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] {
            if (isRefused)
                m_login->onAuthenticationRequired();
            during = m_login->token();
        });
        QTRY_COMPARE(m_login->token(), u"t2"_s);
        QVERIFY(clock.elapsed() >= (isRefused ? 500 : 800));
        QCOMPARE(during, isRefused ? QString() : u"t1"_s);
        QCOMPARE(authenticating.size(), isRefused ? 2 : 1);
        QCOMPARE(m_login->state(), State::Authenticated);
        QCOMPARE(sent(), u"password=s3cret refresh=r%261"_s);
        QCOMPARE(m_login->tokens().refreshToken, u"r&1"_s); // it stays valid
    }

    // The old token stays until it expires, and then the credentials are sent.
    void survivesAFailedRefresh_data() { addRows("status", {"401", "503"}); }
    void survivesAFailedRefresh()
    {
        QFETCH(const QString, status);
        answerLoginsWith({issued("t1", {{u"expires_in"_s, 1}, {u"refresh_token"_s, u"r1"_s}}),
                          LoopbackReply(status.toInt()), issued("t2", {{u"refresh_token"_s, u"r2"_s}})});
        m_login->setRefreshMargin(1h);
        const QSignalSpy errors(m_login, &BearerLogin::error);
        logIn();
        QTRY_COMPARE(sent(), u"password=s3cret refresh=r1"_s);
        QCOMPARE(m_login->token(), u"t1"_s);
        QTRY_COMPARE(m_login->token(), QString());
        QCOMPARE(m_login->tokens().refreshToken, status == "401"_L1 ? QString() : u"r1"_s);
        logIn();
        logIn(); // the new refresh token is used again
        QCOMPARE(sent(), u"password=s3cret refresh=r1 password=s3cret refresh=r2"_s);
        QCOMPARE(errors.size(), 0);
    }

    void usesStoredTokens()
    {
        QVERIFY(!m_login->setTokens({u"t1"_s, {}, std::chrono::milliseconds::max()}).hasError());
        QVERIFY(makeTask()->succeeds());
        QCOMPARE(m_login->setTokens({u"t\u0100"_s, {}, {}}).errorCode(), ErrorCode::InvalidArgument);
        QCOMPARE(m_login->token(), u"t1"_s);

        // If the refresh token does not help, the credentials follow in the same login.
        const Tokens expired{u"t1"_s, u"r1"_s, -1ms};
        QVERIFY(!m_login->setTokens(expired).hasError());
        m_login->setRetriesEnabled(false);
        answerLoginsWith({LoopbackReply(503), issued("t1")});
        QVERIFY(makeTask()->succeeds());
        QCOMPARE(sent(), u"refresh=r1 password=s3cret"_s);

        // Without credentials, it outlives a transient failure.
        QVERIFY(!m_login->setTokens(expired).hasError());
        m_login->setLoginRequest(BearerLogin::LoginRequest());
        m_login->setRetriesEnabled(true);
        answerLoginsWith({LoopbackReply(503), issued("t1")});
        QVERIFY(makeTask()->succeeds());

        m_login->logOut();
        const auto task = makeTask();
        QVERIFY(!task->succeeds());
        QCOMPARE(task->error().errorMessage(), u"There are no credentials to log in with"_s);
        QCOMPARE(sent(), u"refresh=r1 password=s3cret refresh=r1 refresh=r1"_s);
    }

    // Nothing hangs, and nothing more is sent.
    void mayBeEndedAnywhere_data()
    {
        addRowsForActions(
            {"authenticating", "request", "queued", "started", "sent", "taskFinished", "reader", "classifier",
             "authenticated", "error", "canceled"},
            {"cancel", "logOut", "setTokens", "delete", "deleteQueue", "clearQueue", "deleteTask"});
    }
    void mayBeEndedAnywhere()
    {
        QFETCH(const QString, place);
        QFETCH(const QString, action);
        auto queue = std::make_unique<NetworkQueue>();
        m_login->setQueue(queue.get());
        const auto clear = [&] {
            queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::Canceled));
        };
        const QHash<QString, std::function<void()>> actions{
            {u"cancel"_s, [&] { m_login->cancel(); }},
            {u"logOut"_s, [&] { m_login->logOut(); }},
            {u"setTokens"_s,
             [&] {
                 QVERIFY(!m_login->setTokens({u"t1"_s, {}, {}}).hasError());
             }},
            {u"delete"_s, [&] { delete m_login; }},
            {u"deleteQueue"_s, [&] { queue.reset(); }},
            {u"deleteTask"_s, [&] { delete m_login->findChild<NetworkTask*>(); }},
            {u"clearQueue"_s, clear},
        };
        int visits = 0;
        const auto visit = [&](const char* name) {
            if (place == QLatin1String(name) && visits++ == 0)
                actions.value(action)();
        };
        connect(m_login, &BearerLogin::authenticating, this, [&] { visit("authenticating"); });
        connect(m_login, &BearerLogin::authenticated, this, [&] { visit("authenticated"); });
        connect(m_login, &BearerLogin::error, this,
                [&](Code code) { visit(code == Code::Canceled ? "canceled" : "error"); });
        connect(queue.get(), &TasksQueue::taskStarted, this, [&] { visit("started"); });
        connect(queue.get(), &TasksQueue::taskFinished, this, [&] { visit("taskFinished"); });
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] { visit("sent"); });
        m_login->setLoginRequest([&, request = BearerLogin::jsonRequest(m_server->url(u"/login"_s), {})] {
            visit("request");
            return request;
        });
        m_login->setTokenReader([&](const QByteArray& content) {
            visit("reader");
            return BearerLogin::tokensFromJson(content);
        });
        m_login->setFailureClassifier([&](const BearerLogin::Failure& failure) {
            visit("classifier");
            return BearerLogin::classifyFailure(failure);
        });
        answerLoginsWith(
            {place == "error"_L1 || place == "classifier"_L1 ? LoopbackReply(401) : issued("t1")});
        TestTask blocking(m_server->url(u"/silent"_s));
        m_server->addReply(u"/silent"_s, LoopbackReply::silence());
        if (place == "queued"_L1)
            queue->append(&blocking);
        auto task = makeTask();
        task->exec();
        if (place == "canceled"_L1) {
            QTRY_COMPARE(m_login->state(), State::Authenticating);
            m_login->cancel();
        }
        QTRY_VERIFY(place != "queued"_L1 || (blocking.isRunning() && queue->pendingTasksCount() == 1));
        visit("queued");
        QTRY_VERIFY(visits > 0);
        QTRY_VERIFY(task->isFinished());
        QTRY_VERIFY(place == "queued"_L1 || !queue || queue->isEmpty());
    }

    void keepsSecretsOutOfTheLog()
    {
        const LogCatcher log("*=true");
        m_login->setRefreshMargin(1h);
        answerLoginsWith({LoopbackReply(503, "s3cret"),
                          issued("s3cret-1", {{u"refresh_token"_s, u"s3cret-r"_s}, {u"expires_in"_s, 1}}),
                          issued("s3cret-2"), LoopbackReply(400, "s3cret")});
        m_accepted = "Bearer s3cret-1";
        QVERIFY(makeTask()->succeeds());
        QTRY_COMPARE(m_login->token(), u"s3cret-2"_s);
        m_login->logOut();
        const auto refused = makeTask();
        QVERIFY(!refused->succeeds());
        const auto text = log.text();
        QVERIFY2(!text.contains("s3cret"_L1), qPrintable(text));
        for (const auto* seen : {"Server response: in", "New access token:", "******"})
            QVERIFY2(text.contains(QLatin1String(seen)), seen);
    }

private:
    const TemporarySettings m_settings;
    std::unique_ptr<LoopbackServer> m_server;
    QPointer<BearerLogin> m_login;
    QString m_password;
    QByteArray m_accepted;
};

QTEST_GUILESS_MAIN(tst_BearerLogin)

#include "tst_BearerLogin.moc"
