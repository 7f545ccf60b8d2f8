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

// clazy:excludeall=lambda-in-connect

namespace {

LoopbackReply issued(const char* token, const QJsonObject& others = {})
{
    auto content = others;
    content.insert("access_token"_L1, QLatin1String(token));
    return LoopbackReply::json(content);
}

} // namespace

class tst_BearerLogin : public QObject
{
    Q_OBJECT

private:
    QList<LoopbackRequest> logins() const { return m_server->requests(u"/login"_s); }

    NetworkRequest loginRequest() const
    {
        return BearerLogin::jsonRequest(m_server->url(u"/login"_s), {{u"password"_s, m_password}});
    }

    std::unique_ptr<TestTask> makeTask()
    {
        auto task = std::make_unique<TestTask>(m_server->url(u"/data"_s));
        task->setAuthenticator(m_login);
        return task;
    }

    // Lets a refresh token be used, by a request to /login.
    void allowRefresh()
    {
        m_login->setRefreshRequest([url = m_server->url(u"/login"_s)](const QString& refreshToken) {
            return BearerLogin::formRequest(url, {{u"refresh_token"_s, refreshToken}});
        });
    }

    void logIn()
    {
        QSignalSpy authenticated(m_login, &BearerLogin::authenticated);
        m_login->onAuthenticationRequired();
        QTRY_COMPARE(authenticated.size(), 1);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QSettings().setValue(u"Network/DumpData"_s, true); // read once, with the first reply
    }

    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([this](const LoopbackRequest& request) {
            return request.field("Authorization") == m_accepted ? LoopbackReply(200, "in")
                                                                : LoopbackReply(401);
        });
        QVERIFY(!m_server->listen().hasError());
        m_password = u"s3cret"_s;
        m_login = new BearerLogin;
        m_login->setLoginRequest([this] { return loginRequest(); });
        m_login->setDelayPolicy(Retriable::DelayPolicy::None);
        m_login->setMaxRetriesCount(1);
        m_accepted = "Bearer t1";
    }

    void cleanup() { delete m_login; }

    void readsTokens_data()
    {
        const auto row = addColumns<QByteArray, QString>({"content", "read"});
        row("all", R"({"access_token":"a","token":"b","refresh_token":"r","expires_in":3600})",
            u"a r 3600000"_s);
        row("text and another name", R"({"token":"b","expires_in":"0.5"})", u"b  500"_s);
        row("zero", R"({"token":"b","expires_in":0})", u"b  -1"_s);
        row("no number", R"({"token":"b","expires_in":"nan"})", u"b  -1"_s);
        row("huge", R"({"token":"b","expires_in":1e300})", u"b  315360000000"_s);
        row("no token", R"({"access_token":7,"token":""})", u"25"_s);
        row("no JSON", "token", u"25"_s);
    }
    void readsTokens()
    {
        QFETCH(QByteArray, content);
        const auto tokens = BearerLogin::tokensFromJson(content);
        auto read = QString::number(int(tokens.error().errorCode()));
        if (tokens.hasValue()) {
            read = tokens.value().token + u' ' + tokens.value().refreshToken + u' ' +
                   QString::number(tokens.value().expiresIn.value_or(-1ms).count());
        }
        QTEST(read, "read");
    }

    // Also if all requests share a queue with one slot, which the waiting task must not keep.
    void servesAllTasksWithOneLogin()
    {
        NetworkQueue queue;
        queue.setAuthenticator(m_login);
        queue.setUserAgent("of the queue");
        m_login->setQueue(&queue);
        QVERIFY(!m_login->setTokens({u"old"_s, {}, {}}).hasError());
        m_login->setDelay(200); // of an earlier failure: only a retry waits for it
        m_login->setTokenReader([](const QByteArray& content) { // a lifetime that is not known
            return BearerLogin::Tokens{BearerLogin::tokensFromJson(content).value().token, {}, -1ms};
        });
        m_server->addReply(u"/login"_s, issued("t1").delayed(50ms));
        connect(m_login, &BearerLogin::authenticating, this, [this] { QVERIFY(m_login->token().isEmpty()); });
        std::vector<std::unique_ptr<TestTask>> tasks;
        for (int i = 0; i < 5; ++i)
            queue.append(tasks.emplace_back(makeTask()).get());
        QTRY_VERIFY(queue.isEmpty());
        for (const auto& task : tasks)
            QCOMPARE(task->data(), "in"_ba);
        QCOMPARE(m_server->requests(u"/data"_s).constFirst().field("Authorization"), "Bearer old"_ba);
        const auto login = logins().constFirst();
        QCOMPARE(logins().size(), 1);
        QVERIFY(!login.hasField("Authorization"));
        QCOMPARE(login.field("Content-Type"), "application/json"_ba);
        QCOMPARE(login.field("User-Agent"), "of the queue"_ba);
        QCOMPARE(login.content, R"({"password":"s3cret"})"_ba);
    }

    void saysWhyALoginFailed_data()
    {
        const auto row = addColumns<LoopbackReply, Code, int, QString>({"reply", "code", "number", "text"});
        const auto refused = u"The server refused the credentials"_s;
        const auto failed = u"The login failed: "_s;
        for (const int status : {400, 401, 403})
            row(qPrintable(QString::number(status)), LoopbackReply(status), Code::InvalidCredentials,
                2000 + status, refused);
        for (const int status : {429, 503})
            row(qPrintable(QString::number(status)), LoopbackReply(status), Code::TemporaryFailure,
                2000 + status, failed + u"HTTP %1"_s.arg(status));
        row("404", LoopbackReply(404), Code::Failed, 2404, failed + u"HTTP 404"_s);
        row("401, temporary", LoopbackReply(401).withReason("Later"), Code::TemporaryFailure, 2401,
            failed + u"HTTP 401"_s);
        row("cut", issued("t1").withField("Content-Length", "99").closing(), Code::TemporaryFailure, 3002,
            failed + u"Connection closed"_s);
        row("silence", LoopbackReply::silence(), Code::TemporaryFailure, 2408, failed + u"Network timeout"_s);
        row("no token", LoopbackReply(200, "{}"), Code::Failed, 0,
            u"The server's answer contains no token"_s);
        row("empty token", LoopbackReply(200, "empty"), Code::Failed, 0,
            u"The server's answer contains no token"_s);
        row("bad token", issued("t1\nX: y"), Code::Failed, 0,
            u"The token contains characters that cannot be sent"_s);
        row("throwing reader", LoopbackReply(200, "throw"), Code::Failed, 0, u"thrown"_s);
    }
    void saysWhyALoginFailed()
    {
        const auto tag = QString::fromLatin1(QTest::currentDataTag());
        QFETCH(LoopbackReply, reply);
        QFETCH(Code, code);
        m_server->addReply(u"/login"_s, reply);
        m_login->setTimeout(tag == "silence"_L1 ? 30ms : 1min);
        m_login->setFailureClassifier([&](const BearerLogin::Failure& failure) {
            return tag == "401, temporary"_L1 ? Code::TemporaryFailure
                                              : BearerLogin::classifyFailure(failure);
        });
        m_login->setTokenReader([](const QByteArray& content) -> Result<BearerLogin::Tokens> {
            if (content == "throw")
                throw std::runtime_error("thrown");
            return content == "empty" ? BearerLogin::Tokens() : BearerLogin::tokensFromJson(content);
        });
        QList<Code> codes;
        connect(m_login, &BearerLogin::error, this, [&](Code reported) { codes.append(reported); });
        auto task = makeTask();
        QVERIFY(!task->succeeds());
        const bool isTemporary = code == Code::TemporaryFailure;
        QCOMPARE(codes, QList<Code>(isTemporary ? 2 : 1, code));
        QCOMPARE(logins().size(), codes.size());
        QCOMPARE(m_login->state(), State::Failed);
        const auto error = task->error();
        const bool isThrown = tag == "throwing reader"_L1;
        QCOMPARE(error.errorCode(), isThrown ? ErrorCode::General : ErrorCode::AuthenticationFailed);
        QTEST(error.errorDetails().toInt(), "number");
        QTEST(error.errorMessage(), "text");

        auto next = makeTask(); // credentials that were refused are not sent again, until they are replaced
        QVERIFY(!next->succeeds());
        const bool isRefused = code == Code::InvalidCredentials;
        QCOMPARE(logins().size(), codes.size() - (isRefused ? 1 : 0));
        QCOMPARE(next->error().errorMessage(), error.errorMessage());
        if (isRefused) {
            m_password = u"other"_s;
            QVERIFY(!makeTask()->succeeds());
            QCOMPARE(logins().size(), 2);
        }
        m_login->setLoginRequest(loginRequest());
        m_server->addReply(u"/login"_s, issued("t1"));
        QVERIFY(makeTask()->succeeds());
    }

    void waitsBeforeALoginIsRepeated()
    {
        m_login->setDelayPolicy(Retriable::DelayPolicy::Linear);
        m_login->setIncrementFactor(1);
        m_server->addReply(u"/login"_s, LoopbackReply(503));
        m_server->addReply(u"/login"_s, issued("t1"));
        SslIgnorantNetworkAccessManager manager;
        m_login->setNetworkAccessManager(&manager);
        const QSignalSpy finished(&manager, &QNetworkAccessManager::finished);
        QElapsedTimer clock;
        qint64 pause = 0;
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&](const LoopbackRequest& request) {
            if (request.path == "/login"_L1)
                pause = clock.isValid() ? clock.elapsed() : (clock.start(), 0);
        });
        QVERIFY(makeTask()->succeeds());
        QVERIFY2(pause >= 990, qPrintable(QString::number(pause)));
        QCOMPARE(finished.size(), 2);
    }

    // A login that is needed meanwhile is served by the refresh.
    void refreshesBeforeTheTokenExpires_data()
    {
        addRows("means", {"refresh token", "credentials", "refused"});
    }
    void refreshesBeforeTheTokenExpires()
    {
        QFETCH(const QString, means);
        const bool isRefused = means == "refused"_L1;
        if (means != "credentials"_L1)
            allowRefresh();
        m_server->addReply(u"/login"_s, issued("t1", {{u"expires_in"_s, 1}, {u"refresh_token"_s, u"r&1"_s}}));
        m_server->addReply(u"/login"_s, issued("t2"));
        m_login->setRefreshMargin(isRefused ? 1h : 200ms); // after 500 or 800 ms
        QSignalSpy authenticating(m_login, &BearerLogin::authenticating);
        QSignalSpy authenticated(m_login, &BearerLogin::authenticated);
        QElapsedTimer clock;
        clock.start();
        logIn();
        QVERIFY(m_login->tokens().expiresIn > 0ms && m_login->tokens().expiresIn <= 1s);
        QString during;
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] {
            if (isRefused)
                m_login->onAuthenticationRequired();
            during = m_login->token() + QString::number(int(m_login->state()));
        });
        QTRY_COMPARE(authenticated.size(), 2);
        QVERIFY(clock.elapsed() >= (isRefused ? 500 : 800));
        QCOMPARE(during, isRefused ? u"2"_s : u"t11"_s);
        QCOMPARE(m_login->token(), u"t2"_s);
        QCOMPARE(authenticating.size(), isRefused ? 2 : 1);
        QCOMPARE(logins().size(), 2);
        QCOMPARE(logins().constLast().content,
                 means == "credentials"_L1 ? logins().constFirst().content : "refresh_token=r%261"_ba);
        QCOMPARE(m_login->tokens().refreshToken, means == "credentials"_L1 ? QString() : u"r&1"_s);
        QVERIFY(!m_login->tokens().expiresIn);
    }

    // The old token stays until it expires, and then the credentials are sent.
    void survivesAFailedRefresh_data() { addRows("reason", {"401", "503", "short life"}); }
    void survivesAFailedRefresh()
    {
        QFETCH(const QString, reason);
        const int status = reason.toInt(); // 0: there is no refresh
        allowRefresh();
        const bool isShort = reason == "short life"_L1;
        m_login->setRefreshMargin(isShort ? 50ms : 1h);
        const auto life = isShort ? 0.2 : 1.0;
        m_server->addReply(u"/login"_s,
                           issued("t1", {{u"expires_in"_s, life}, {u"refresh_token"_s, u"r1"_s}}));
        if (status > 0)
            m_server->addReply(u"/login"_s, LoopbackReply(status));
        m_server->addReply(u"/login"_s, issued("t2", {{u"refresh_token"_s, u"r2"_s}}));
        logIn();
        QSignalSpy errors(m_login, &BearerLogin::error);
        if (status > 0)
            QTRY_COMPARE(logins().size(), 2);
        QCOMPARE(m_login->token(), u"t1"_s);
        QTRY_COMPARE(m_login->token(), QString());
        QCOMPARE(logins().size(), status > 0 ? 2 : 1);
        QCOMPARE(m_login->tokens().refreshToken, status == 401 ? QString() : u"r1"_s);
        QCOMPARE(m_login->state(), State::Authenticated);
        logIn();
        QCOMPARE(errors.size(), 0);
        QCOMPARE(logins().constLast().content,
                 status > 0 ? logins().constFirst().content : "refresh_token=r1"_ba);
        logIn(); // the new refresh token is used again
        QCOMPARE(logins().constLast().content, "refresh_token=r2"_ba);
    }

    void usesStoredTokens()
    {
        BearerLogin::Tokens stored{u"t1"_s, u"r1"_s, std::chrono::milliseconds::max()};
        QVERIFY(!m_login->setTokens(stored).hasError());
        QVERIFY(makeTask()->succeeds());
        m_login->cancel(); // nothing is in progress
        QCOMPARE(m_login->state(), State::Authenticated);
        QCOMPARE(m_login->setTokens({u"t\u0100"_s, {}, {}}).errorCode(), ErrorCode::InvalidArgument);
        QCOMPARE(m_login->token(), u"t1"_s);

        // If the refresh token does not help, the credentials follow in the same login.
        stored.expiresIn = -1ms;
        m_login->onAuthenticationRequired();
        QVERIFY(!m_login->setTokens(stored).hasError());
        allowRefresh();
        m_server->addReply(u"/login"_s, LoopbackReply(503));
        m_server->addReply(u"/login"_s, issued("t1"));
        m_login->setRetriesEnabled(false);
        QVERIFY(makeTask()->succeeds());
        QCOMPARE(logins().constFirst().content, "refresh_token=r1"_ba);

        // Without credentials, the refresh token outlives a transient failure.
        QVERIFY(!m_login->setTokens(stored).hasError());
        QCOMPARE(m_login->state(), State::Idle);
        m_login->setLoginRequest(BearerLogin::LoginRequest());
        m_login->setRetriesEnabled(true);
        m_server->addReply(u"/login"_s, LoopbackReply(503));
        m_server->addReply(u"/login"_s, issued("t1", {{u"refresh_token"_s, u"r2"_s}}));
        QVERIFY(makeTask()->succeeds());
        QCOMPARE(m_login->tokens().refreshToken, u"r2"_s);

        m_login->logOut();
        QCOMPARE(m_login->state(), State::Idle);
        auto task = makeTask();
        QVERIFY(!task->succeeds());
        QCOMPARE(task->error().errorMessage(), u"There are no credentials to log in with"_s);
        QCOMPARE(logins().size(), 4);
    }

    // At each place that a login can be, whatever ends it: nothing hangs, and nothing more is sent.
    void endsALoginInProgress_data()
    {
        addRowsForActions({"scheduled", "queued", "sent"}, {"cancel", "logOut", "setTokens", "delete",
                                                            "deleteQueue", "clearQueue", "deleteTask"});
    }
    void endsALoginInProgress()
    {
        QFETCH(const QString, place);
        QFETCH(const QString, action);
        auto queue = std::make_unique<NetworkQueue>();
        TestTask blocking(m_server->url(u"/silent"_s));
        m_server->addReply(u"/silent"_s, LoopbackReply::silence());
        m_server->addReply(u"/login"_s, place == "sent"_L1 ? LoopbackReply::silence() : issued("t1"));
        if (place == "queued"_L1) {
            queue->append(&blocking);
            QTRY_VERIFY(blocking.isRunning());
        }
        m_login->setQueue(queue.get());
        auto task = makeTask();
        m_login->onAuthenticationRequired();
        task->exec();
        if (place == "queued"_L1)
            QTRY_COMPARE(queue->pendingTasksCount(), 1);
        else if (place == "sent"_L1)
            QTRY_COMPARE(logins().size(), 1);

        QList<State> states;
        connect(m_login, &BearerLogin::error, this, [&](Code code) {
            QCOMPARE(code, Code::Canceled);
            states.append(m_login->state());
        });
        const QHash<QString, std::function<void()>> actions{
            {u"cancel"_s, [&] { m_login->cancel(); }},
            {u"logOut"_s, [&] { m_login->logOut(); }},
            {u"setTokens"_s,
             [&] {
                 static_cast<void>(m_login->setTokens({u"t1"_s, {}, {}}));
             }},
            {u"delete"_s, [&] { delete m_login; }},
            {u"deleteQueue"_s, [&] { queue.reset(); }},
            {u"deleteTask"_s, [&] { delete m_login->findChild<NetworkTask*>(); }},
            {u"clearQueue"_s,
             [&] { queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::Canceled)); }},
        };
        actions.value(action)();
        // No queue is needed before the request is made, nor after it has been sent.
        const bool isOfRequest = action.endsWith("Queue"_L1) || action == "deleteTask"_L1;
        const bool goesOn =
            (place == "scheduled"_L1 && isOfRequest) || (place == "sent"_L1 && action == "deleteQueue"_L1);
        if (goesOn)
            QTRY_COMPARE(logins().size(), 1);
        if (goesOn && place == "sent"_L1)
            m_login->cancel();
        QTRY_VERIFY(task->isFinished());
        if (!goesOn)
            QCOMPARE(logins().size(), place == "sent"_L1 ? 1 : 0);
        if (queue)
            QCOMPARE(queue->pendingTasksCount(), 0);
        if (action == "setTokens"_L1 || (goesOn && place == "scheduled"_L1)) {
            QCOMPARE(task->data(), "in"_ba);
            return;
        }
        QCOMPARE(task->error().errorCode(),
                 action == "delete"_L1 ? ErrorCode::AuthenticationFailed : ErrorCode::Canceled);
        QCOMPARE(states, QList<State>(action == "delete"_L1 ? 0 : 1, State::Idle));
    }

    void mayBeDeletedAnywhere_data()
    {
        addRows("place", {"authenticating", "authenticated", "error", "canceled", "taskStarted",
                          "taskFinished", "request", "reader", "classifier"});
    }
    void mayBeDeletedAnywhere()
    {
        QFETCH(const QString, place);
        int deletions = 0;
        const auto deleteIf = [&](const char* name) {
            if (place == QLatin1String(name)) {
                delete m_login;
                ++deletions;
            }
        };
        NetworkQueue queue;
        m_login->setQueue(&queue);
        connect(m_login, &BearerLogin::authenticating, this, [&] { deleteIf("authenticating"); });
        connect(m_login, &BearerLogin::authenticated, this, [&] { deleteIf("authenticated"); });
        connect(m_login, &BearerLogin::error, this,
                [&](Code code) { deleteIf(code == Code::Canceled ? "canceled" : "error"); });
        connect(&queue, &TasksQueue::taskStarted, this, [&] { deleteIf("taskStarted"); });
        connect(&queue, &TasksQueue::taskFinished, this, [&] { deleteIf("taskFinished"); });
        m_login->setLoginRequest([&, url = m_server->url(u"/login"_s)] {
            deleteIf("request");
            return BearerLogin::jsonRequest(url, {});
        });
        m_login->setTokenReader([&](const QByteArray& content) {
            deleteIf("reader");
            return BearerLogin::tokensFromJson(content);
        });
        m_login->setFailureClassifier([&](const BearerLogin::Failure& failure) {
            deleteIf("classifier");
            return BearerLogin::classifyFailure(failure);
        });
        const bool fails = place == "error"_L1 || place == "classifier"_L1;
        m_server->addReply(u"/login"_s, fails ? LoopbackReply(401) : issued("t1"));
        auto task = makeTask();
        task->exec();
        if (place == "canceled"_L1) {
            QTRY_COMPARE(m_login->state(), State::Authenticating);
            m_login->cancel();
        }
        QTRY_COMPARE(deletions, 1);
        QTRY_VERIFY(task->isFinished());
        QTRY_VERIFY(queue.isEmpty());
        QVERIFY(place != "request"_L1 || logins().isEmpty());
    }

    void keepsSecretsOutOfTheLog()
    {
        LogCatcher log("*=true");
        allowRefresh();
        m_login->setRefreshMargin(1h);
        m_server->addReply(u"/login"_s, LoopbackReply(503, "s3cret"));
        m_server->addReply(u"/login"_s,
                           issued("s3cret-1", {{u"refresh_token"_s, u"s3cret-r"_s}, {u"expires_in"_s, 1}}));
        m_server->addReply(u"/login"_s, issued("s3cret-2"));
        m_accepted = "Bearer s3cret-1";
        QVERIFY(makeTask()->succeeds());
        QTRY_COMPARE(m_login->token(), u"s3cret-2"_s);
        m_accepted = "Bearer s3cret-3";
        m_server->addReply(u"/login"_s, issued("s3cret-3"));
        QVERIFY(makeTask()->succeeds());
        m_server->addReply(u"/login"_s, LoopbackReply(400, "s3cret"));
        m_login->logOut();
        auto refused = makeTask();
        QVERIFY(!refused->succeeds());
        qDebug() << m_login << refused->error() << m_login->authenticationError();
        TestTask secret;
        secret.setData("s3cret");
        secret.setContentLogged(false);
        qDebug() << secret;
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
