#include "NetworkTestSupport.h"

#include <BearerLogin.h>
#include <NetworkQueue.h>

#include <QJsonObject>
#include <QSignalSpy>

#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace orv;
using Code = AbstractAuthenticator::Error;

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

    // Acts if it is the place for it, once.
    void visit(QLatin1String place)
    {
        if (m_place == place && m_action)
            std::exchange(m_action, nullptr)();
    }

private Q_SLOTS:
    void init()
    {
        QSettings().setValue(u"Network/DumpData"_s, true); // read once, with the first reply
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest& request) {
            return LoopbackReply(request.field("Authorization") == "Bearer old" ? 401 : 200, "in");
        });
        QVERIFY(!m_server->listen().hasError());
        m_password = u"s3cret"_s;
        m_action = nullptr;
        m_login = new BearerLogin;
        m_login->setLoginRequest([this, url = m_server->url(u"/login"_s)] {
            visit("request"_L1);
            return BearerLogin::formRequest(url, {{u"password"_s, m_password}});
        });
        m_login->setRefreshRequest([url = m_server->url(u"/login"_s)](const QString& refreshToken) {
            return BearerLogin::formRequest(url, {{u"refresh"_s, refreshToken}});
        });
        m_login->setTokenReader([this](const QByteArray& content) {
            visit("reader"_L1);
            return BearerLogin::tokensFromJson(content);
        });
        m_login->setDelayPolicy(Retriable::DelayPolicy::None);
        m_login->setMaxRetriesCount(1);
    }

    void cleanup() { delete m_login; }

    void readsUnusualTokens()
    {
        const auto read = BearerLogin::tokensFromJson(R"({"token":"t","expires_in":"1e300"})").value();
        QCOMPARE(read.token, u"t"_s);
        QVERIFY(read.expiresIn == 10 * 365 * 24h);
        QVERIFY(!BearerLogin::tokensFromJson(R"({"token":"t","expires_in":"nan"})").value().expiresIn);
    }

    void servesAllTasksOfAQueueWithOneLogin()
    {
        NetworkQueue queue; // with one slot, which the waiting task must not keep
        queue.setAuthenticator(m_login);
        m_login->setQueue(&queue);
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
        QCOMPARE(sent(), u"password=s3cret"_s);
        QVERIFY(!m_server->requests(u"/login"_s).constFirst().hasField("Authorization"));
    }

    void saysWhyALoginFailed_data()
    {
        const auto row = addColumns<LoopbackReply, Code, int, QString>({"reply", "code", "number", "text"});
        row("refused", LoopbackReply(401), Code::InvalidCredentials, 2401,
            u"The server refused the credentials"_s);
        row("busy", LoopbackReply(503), Code::TemporaryFailure, 2503, u"The login failed: HTTP 503"_s);
        row("cut", issued("t1").withField("Content-Length", "99").closing(), Code::TemporaryFailure, 3002,
            u"The login failed: Connection closed"_s);
        row("silence", LoopbackReply::silence(), Code::TemporaryFailure, 2408,
            u"The login failed: Network timeout"_s);
        row("no token", LoopbackReply(200, R"({"access_token":7})"), Code::Failed, 0,
            u"The server's answer contains no token"_s);
        row("bad token", issued("t1\nX: y"), Code::Failed, 0,
            u"The token contains characters that cannot be sent"_s);
    }
    void saysWhyALoginFailed()
    {
        QFETCH(const LoopbackReply, reply);
        QFETCH(const Code, code);
        QFETCH(const int, number);
        answerLoginsWith({reply});
        m_login->setTimeout(number == 2408 ? 30ms : 1min);
        m_login->setDelayPolicy(Retriable::DelayPolicy::Linear);
        const QDeadlineTimer pause(990ms);
        const QSignalSpy errors(m_login, &BearerLogin::error);
        const auto task = makeTask();
        QVERIFY(!task->succeeds());
        const bool isRepeated = code == Code::TemporaryFailure;
        QCOMPARE(errors.size(), isRepeated ? 2 : 1);
        QVERIFY(!isRepeated || pause.hasExpired());
        QCOMPARE(errors.constLast().constFirst().value<Code>(), code);
        QCOMPARE(m_server->requests(u"/login"_s).size(), errors.size());
        QCOMPARE(task->error().errorDetails().toInt(), number);
        QTEST(task->error().errorMessage(), "text");
        answerLoginsWith({issued("t1")});
        QCOMPARE(makeTask()->succeeds(), code != Code::InvalidCredentials); // which are not sent again
        m_password = u"other"_s;
        QVERIFY(makeTask()->succeeds());
    }

    void refreshesBeforeTheTokenExpires_data()
    {
        const auto row = addColumns<int, QString, QString>({"status", "kept", "sent"});
        row("unneeded", 200, u"r&1"_s, u"password=s3cret refresh=r%261"_s);
        row("needed", 200, u"r&1"_s, u"password=s3cret refresh=r%261"_s); // no other login is made
        row("refused", 401, {}, u"password=s3cret refresh=r%261 password=s3cret"_s);
        row("down", 503, u"r&1"_s, u"password=s3cret refresh=r%261 password=s3cret"_s);
    }
    void refreshesBeforeTheTokenExpires()
    {
        QFETCH(const int, status);
        const bool isNeeded = QTest::currentDataTag() == "needed"_ba;
        const bool fails = status != 200; // then the old token stays until it expires
        answerLoginsWith({issued("t1", {{u"expires_in"_s, 1}, {u"refresh_token"_s, u"r&1"_s}}),
                          fails ? LoopbackReply(status) : issued("t2"), issued("t2")});
        m_login->setRefreshMargin(1h);
        const QSignalSpy authenticating(m_login, &BearerLogin::authenticating);
        const QSignalSpy errors(m_login, &BearerLogin::error);
        const QDeadlineTimer due(fails ? 990ms : 500ms);
        QVERIFY(makeTask()->succeeds());
        QString during;
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] {
            if (isNeeded)
                m_login->onAuthenticationRequired();
            during = m_login->token();
        });
        QTRY_COMPARE(m_login->token(), fails ? QString() : u"t2"_s);
        QVERIFY(due.hasExpired());
        QCOMPARE(during, isNeeded ? QString() : u"t1"_s);
        QCOMPARE(authenticating.size(), isNeeded ? 2 : 1);
        QCOMPARE(m_login->state(), BearerLogin::State::Authenticated);
        QTEST(m_login->tokens().refreshToken, "kept");
        if (fails)
            QVERIFY(makeTask()->succeeds());
        QTEST(sent(), "sent");
        QCOMPARE(errors.size(), 0);
    }

    void usesStoredTokens()
    {
        QVERIFY(!m_login->setTokens({u"t1"_s, {}, std::chrono::milliseconds::max()}).hasError());
        QVERIFY(makeTask()->succeeds());
        QCOMPARE(m_login->setTokens({u"t\u0100"_s, {}, {}}).errorCode(), ErrorCode::InvalidArgument);
        QCOMPARE(m_login->token(), u"t1"_s);

        // If the refresh token does not help, the credentials follow in the same login.
        QVERIFY(!m_login->setTokens({u"t1"_s, u"r1"_s, -1ms}).hasError());
        m_login->setRetriesEnabled(false);
        answerLoginsWith({LoopbackReply(503), issued("t1")});
        QVERIFY(makeTask()->succeeds());
        m_login->setLoginRequest(BearerLogin::LoginRequest());
        m_login->logOut();
        const auto task = makeTask();
        QVERIFY(!task->succeeds());
        QCOMPARE(task->error().errorMessage(), u"There are no credentials to log in with"_s);
        QCOMPARE(sent(), u"refresh=r1 password=s3cret"_s);
    }

    // Nothing hangs, and nothing more is sent.
    void mayBeEndedAnywhere_data()
    {
        const auto row = addColumns<QString, QString, ErrorCode>({"place", "action", "code"});
        const auto addPlaces = [&](const QString& places, const QString& action, ErrorCode code) {
            for (const auto& place : places.split(u' '))
                row(qPrintable(place + u' ' + action), place, action, code);
        };
        const auto inProgress = u"authenticating request queued started sent reader"_s;
        addPlaces(inProgress, u"cancel"_s, ErrorCode::Canceled);
        addPlaces(inProgress, u"logOut"_s, ErrorCode::Canceled);
        addPlaces(inProgress + u" error"_s, u"setTokens"_s, ErrorCode::None);
        addPlaces(inProgress + u" authenticated error"_s, u"delete"_s, ErrorCode::AuthenticationFailed);
        addPlaces(u"authenticated"_s, u"cancel"_s, ErrorCode::None);
        addPlaces(u"request reader"_s, u"throw"_s, ErrorCode::General);
        addPlaces(u"queued"_s, u"deleteQueue"_s, ErrorCode::Canceled);
        addPlaces(u"sent"_s, u"deleteQueue"_s, ErrorCode::None); // it is not needed any more
        addPlaces(u"queued sent"_s, u"deleteTask"_s, ErrorCode::Canceled);
    }
    void mayBeEndedAnywhere()
    {
        QFETCH(const QString, place);
        QFETCH(const QString, action);
        m_place = place;
        auto queue = std::make_unique<NetworkQueue>();
        m_login->setQueue(queue.get());
        const BearerLogin::Tokens valid{u"t1"_s, {}, {}};
        const QHash<QString, std::function<void()>> actions{
            {u"cancel"_s, [&] { m_login->cancel(); }},
            {u"logOut"_s, [&] { m_login->logOut(); }},
            {u"setTokens"_s, [&] { return m_login->setTokens(valid); }},
            {u"throw"_s, [] { throw std::runtime_error("thrown"); }},
            {u"delete"_s, [&] { delete m_login; }},
            {u"deleteQueue"_s, [&] { queue.reset(); }},
            {u"deleteTask"_s, [&] { delete m_login->findChild<NetworkTask*>(); }},
        };
        m_action = actions.value(action);
        connect(m_login, &BearerLogin::authenticating, this, [&] { visit("authenticating"_L1); });
        connect(m_login, &BearerLogin::authenticated, this, [&] { visit("authenticated"_L1); });
        connect(m_login, &BearerLogin::error, this, [&] { visit("error"_L1); });
        connect(queue.get(), &TasksQueue::taskStarted, this, [&] { visit("started"_L1); });
        connect(m_server.get(), &LoopbackServer::requestReceived, this, [&] { visit("sent"_L1); });
        answerLoginsWith({place == "error"_L1 ? LoopbackReply(401) : issued("t1")});
        m_server->addReply(u"/silent"_s, LoopbackReply::silence());
        TestTask blocking(m_server->url(u"/silent"_s));
        if (place == "queued"_L1)
            queue->append(&blocking);
        auto task = makeTask();
        task->exec();
        if (place == "queued"_L1)
            QTRY_VERIFY(m_login->findChild<NetworkTask*>() && blocking.isRunning());
        visit("queued"_L1);
        QTRY_VERIFY(!m_action && task->isFinished());
        QTEST(task->error().errorCode(), "code");
        const bool isUnsent = u"authenticating request queued started"_s.contains(place);
        QCOMPARE(m_server->requests(u"/login"_s).size(), isUnsent ? 0 : 1);
        QVERIFY(place == "queued"_L1 || !queue || queue->isEmpty());
    }

    void keepsSecretsOutOfTheLog()
    {
        const LogCatcher log("*=true");
        m_login->setRefreshMargin(1h);
        answerLoginsWith({LoopbackReply(503, "s3cret"),
                          issued("s3cret-1", {{u"refresh_token"_s, u"s3cret-r"_s}, {u"expires_in"_s, 1}}),
                          issued("s3cret-2")});
        QVERIFY(makeTask()->succeeds());
        QTRY_COMPARE(m_login->token(), u"s3cret-2"_s);
        qDebug() << m_login;
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
    QString m_place;
    std::function<void()> m_action;
};

QTEST_GUILESS_MAIN(tst_BearerLogin)

#include "tst_BearerLogin.moc"
