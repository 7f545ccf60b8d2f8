#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QRandomGenerator>

#include <array>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

/// How tasks log in.
class tst_NetworkTaskLogin : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask(AbstractAuthenticator* authenticator)
    {
        auto task = std::make_unique<TestTask>(m_server->url());
        task->setAuthenticator(authenticator);
        return task;
    }

    std::unique_ptr<TestTask> makeWaitingTask()
    {
        auto task = makeTask(m_authenticator.get());
        task->exec();
        [&] { QTRY_VERIFY(task->isPaused()); }();
        return task;
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([this](const LoopbackRequest& request) {
            return request.field("Authorization") == m_accepted
                       ? LoopbackReply(200, "in")
                       : LoopbackReply(401, "out").withField("WWW-Authenticate", "Basic realm=\"x\"");
        });
        QVERIFY(!m_server->listen().hasError());
        m_authenticator = std::make_unique<TestAuthenticator>();
    }

    void logsInBeforeSending()
    {
        auto task = makeWaitingTask();
        QCOMPARE(m_authenticator->logins, 1);
        QCOMPARE(m_server->connectionCount(), 0);
        m_authenticator->succeed("good");
        QVERIFY(task->networkReply()); // sent at once
        QVERIFY(!task->isPaused());
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->data(), "in"_ba);
        QCOMPARE(task->retriesCount(), 0);
    }

    void logsInAgainWhenTheTokenIsRefused()
    {
        const LogCatcher log("orv.network=true");
        m_authenticator->currentToken = u"expired"_s;
        auto task = makeTask(m_authenticator.get());
        task->setDelay(0);
        task->exec();
        for (int round = 1; round <= 2; ++round) {
            QTRY_COMPARE(m_authenticator->logins, round);
            QVERIFY(task->isPaused());
            QCOMPARE(task->httpResponseStatusCodeNumber(), 0);
            QCOMPARE(task->data(), "out"_ba); // looked at while it waits ...
            m_authenticator->succeed(round == 1 ? "wrong again" : "good");
        }
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->data(), "in"_ba); // ... and gone with the new reply
        QCOMPARE(m_server->requests().size(), 3);
        QCOMPARE(m_authenticator->tokenCalls, 5); // for each request and refusal: a program may count them
        QCOMPARE(task->errorMessageCalls, 2);
        QCOMPARE(task->log(), u"started finished"_s);
    }

    void waitsForALoginThatIsUnderWay()
    {
        m_authenticator->onAuthenticationRequired();
        auto task = makeTask(m_authenticator.get());
        task->exec();
        QVERIFY(task->isPaused());
        QCOMPARE(m_authenticator->logins, 1);
        auto open = makeTask(m_authenticator.get());
        open->setRequiresAuthentication(false);
        m_accepted.clear();
        QVERIFY(open->succeeds());
        m_accepted = "Bearer good";
    }

    void endsWithTheAuthenticatorsError()
    {
        for (const auto policy : {NetworkTask::FinishWithError, NetworkTask::FinishWithSuccess}) {
            auto task = makeWaitingTask();
            task->setResponseErrorPolicy(policy);
            task->setReplyErrorPolicy(NetworkTask::Ignore);
            m_authenticator->fail(Error(ErrorCode::SessionTimedOut, "no such user"),
                                  AbstractAuthenticator::Error::InvalidCredentials);
            QVERIFY(task->isFinished());
            const bool isSuccess = policy == NetworkTask::FinishWithSuccess;
            QCOMPARE(task->error().errorCode(), isSuccess ? ErrorCode::None : ErrorCode::SessionTimedOut);
        }
        QCOMPARE(m_authenticator->logins, 2);
    }

    // One failure takes one retry, however many tasks wait, and whatever becomes of that login.
    void retriesALoginOnceForAllWaitingTasks_data()
    {
        const auto row = addColumns<int, int, QString>({"maxRetries", "logins", "error"});
        row("succeeds", 1, 2, {});
        row("fails", 1, 2, u"down"_s);
        row("refused", 9, 2, u"down"_s);
        row("refused for no reason", 9, 2, u"Authentication failed"_s);
        row("fails at once, then succeeds", 2, 3, {});
        row("begun by the program", 0, 2, {});
    }
    void retriesALoginOnceForAllWaitingTasks()
    {
        const auto outcome = QString::fromLatin1(QTest::currentDataTag());
        QFETCH(int, maxRetries);
        QFETCH(int, logins);
        m_authenticator->setMaxRetriesCount(maxRetries);
        if (outcome == "begun by the program"_L1)
            connect(m_authenticator.get(), &AbstractAuthenticator::error, m_authenticator.get(),
                    &AbstractAuthenticator::onAuthenticationRequired);
        const std::array tasks{makeWaitingTask(), makeWaitingTask(), makeWaitingTask()};
        const Error down(outcome == "refused for no reason"_L1 ? ErrorCode::None : ErrorCode::Network,
                         "down");
        const auto fail = [&] {
            m_authenticator->fail(down, AbstractAuthenticator::Error::TemporaryFailure);
        };
        m_authenticator->startsLogins = !outcome.startsWith("refused"_L1);
        if (outcome == "fails at once, then succeeds"_L1)
            m_authenticator->duringLogin = [&] {
                if (m_authenticator->logins == 2)
                    fail();
            };
        fail();
        QCOMPARE(m_authenticator->logins, logins);
        QCOMPARE(m_authenticator->retriesCount(), maxRetries ? logins - 1 : 0);
        for (const auto& task : tasks)
            QCOMPARE(task->isFinished(), !m_authenticator->startsLogins);
        outcome == "fails"_L1 ? fail() : m_authenticator->succeed("good");
        for (const auto& task : tasks) {
            QTRY_VERIFY(task->isFinished());
            QTEST(task->error().errorMessage(), "error");
        }
        QCOMPARE(m_authenticator->logins, logins);
    }

    // As an authenticator should not: the login goes on for the task.
    void waitsOnWhenALoginFailsThatStaysUnderWay()
    {
        m_authenticator->startsLogins = false; // it begins the login later
        auto task = makeWaitingTask();
        m_authenticator->setState(AbstractAuthenticator::State::Authenticating);
        for (const int maxRetries : {1, 0}) {
            m_authenticator->setMaxRetriesCount(maxRetries);
            Q_EMIT m_authenticator->error(AbstractAuthenticator::Error::TemporaryFailure);
            QCOMPARE(task->isFinished(), maxRetries == 0);
            QCOMPARE(m_authenticator->logins, 1);
            QCOMPARE(m_authenticator->retriesCount(), 0);
        }
    }

    void sendsANewerTokenWithoutALogin_data()
    {
        const auto row = addColumns<QString, int, int, int>({"token", "status", "logins", "requests"});
        row("newer", u"good"_s, 401, 0, 2);
        row("newer, another status", u"good"_s, 403, 0, 2);
        row("newer, login under way", u"good"_s, 401, 1, 2);
        row("newer, login begun before it is sent", u"better"_s, 401, 1, 2);
        row("newer, and refused as well", u"better"_s, 401, 1, 3);
        row("unchanged", u"old"_s, 401, 1, 2);
        row("none", {}, 401, 1, 2);
        row("not sent last time", u"good"_s, 401, 0, 3);
    }
    void sendsANewerTokenWithoutALogin()
    {
        const QString what = QString::fromLatin1(QTest::currentDataTag());
        const bool isUnderWay = what.endsWith("under way"_L1);
        QFETCH(QString, token);
        QFETCH(int, status);
        QFETCH(int, logins);
        auto task = makeTask(m_authenticator.get());
        m_server->setHandler([&](const LoopbackRequest& request) {
            const auto sent = request.field("Authorization");
            if (what == "not sent last time"_L1 && sent == "Bearer old") {
                task->setRequiresAuthentication(false);
                return LoopbackReply(503);
            }
            m_authenticator->currentToken = token;
            task->setRequiresAuthentication(true);
            if (isUnderWay)
                m_authenticator->onAuthenticationRequired();
            return sent == m_accepted ? LoopbackReply(200) : LoopbackReply(status);
        });
        m_authenticator->currentToken = u"old"_s;
        m_authenticator->duringToken = [&] {
            if (what.contains("begun"_L1) && m_authenticator->tokenCalls == 2)
                QTimer::singleShot(0, m_authenticator.get(), &TestAuthenticator::onAuthenticationRequired);
        };
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        task->setResponseHandler(HttpResponseStatusCode::Forbidden, [&] { task->handleUnauthorizedError(); });
        task->exec();
        QTRY_VERIFY(task->isPaused() || task->isFinished());
        QCOMPARE(m_authenticator->logins, logins);
        QVERIFY(!isUnderWay || m_authenticator->tokenCalls == 1);
        if (logins)
            m_authenticator->succeed("good");
        QTRY_VERIFY(task->isFinished() && !task->hasError());
        QTEST(int(m_server->requests().size()), "requests");
    }

    void endsWhenFreshTokensAreRefused_data()
    {
        const auto row = addColumns<QString, QList<int>, int, int, int>(
            {"tokens", "statuses", "max", "logins", "requests"});
        row("first login", u",x"_s, {401}, 10, 10, 10);
        row("never a token", u","_s, {401}, 10, 10, 0);
        row("another at every call", u"*"_s, {401}, 10, 5, 11);
        row("other statuses", u",x"_s, {403, 200}, 10, 10, 10);
        row("retries in between", u",x"_s, {401, 503}, 10, 10, 19);
        row("two", u"old,x"_s, {401}, 2, 2, 3);
        row("zero", u"old,x"_s, {401}, 0, 1, 2);
        row("negative", u"old,x"_s, {401}, std::numeric_limits<int>::min(), 1, 2);
    }
    void endsWhenFreshTokensAreRefused()
    {
        QFETCH(QString, tokens);
        QFETCH(QList<int>, statuses);
        QFETCH(int, max);
        m_server->setHandler([&, n = 0](const LoopbackRequest&) mutable {
            return LoopbackReply(statuses.at(n++ % statuses.size()));
        });
        m_authenticator->currentToken = tokens.section(u',', 0, 0);
        m_authenticator->duringToken = [&] {
            if (tokens == "*"_L1)
                m_authenticator->currentToken = QString::number(m_authenticator->tokenCalls);
        };
        m_authenticator->duringLogin = [&] {
            QTimer::singleShot(0, m_authenticator.get(),
                               [&] { m_authenticator->succeed(qPrintable(tokens.section(u',', 1))); });
        };
        auto task = makeTask(m_authenticator.get());
        if (max != 10)
            task->setMaxTokenRefusals(max);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        task->setResponseHandler({HttpResponseStatusCode::OK, HttpResponseStatusCode::Forbidden},
                                 [&] { task->handleUnauthorizedError(); });
        QVERIFY(task->run());
        QCOMPARE(task->error().errorCode(), ErrorCode::AuthenticationFailed);
        const bool isRefused = statuses.first() == 401 && tokens != ","_L1;
        QCOMPARE(task->error().errorDetails().toInt(), isRefused ? 2401 : 0);
        QTEST(m_authenticator->logins, "logins");
        QTEST(int(m_server->requests().size()), "requests");
    }

    // The end is decided by then. A login would be started, and the task would leave its queue.
    void startsNothingWhileItFinishes()
    {
        NetworkQueue queue;
        queue.setAuthenticator(m_authenticator.get());
        m_authenticator->currentToken = u"good"_s;
        m_server->addReply(u"/end"_s, LoopbackReply(404));
        TestTask task(m_server->url(u"/end"_s));
        task.duringEnd = [&] {
            task.handleUnauthorizedError();
            QVERIFY(!task.retry());
            task.exec();
            QVERIFY(task.queue());
        };
        const LogCatcher log("orv.network.warning=true");
        queue.append(&task);
        QTRY_VERIFY(task.isFinished());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 404);
        QCOMPARE(task.log(), u"started finished"_s);
        QCOMPARE(m_authenticator->logins, 0);
        QCOMPARE(log.lines.filter(u"Unable to"_s).size(), 3);
    }

    void sendsOnlyTasksThatWait()
    {
        m_authenticator->currentToken = u"good"_s;
        auto task = makeTask(m_authenticator.get());
        m_accepted = "Bearer better";
        task->exec();
        QTRY_VERIFY(task->isPaused());
        m_authenticator->succeed("better");
        m_authenticator->succeed("better"); // for another task's sake, while this one is running ...
        QTRY_VERIFY(task->isFinished());
        m_authenticator->succeed("better"); // ... and when it has finished
        m_authenticator->fail(Error(ErrorCode::General));
        task->handleUnauthorizedError();
        auto idle = makeTask(m_authenticator.get());
        idle->handleUnauthorizedError();
        QCOMPARE(m_authenticator->logins, 1);
        m_authenticator->succeed("better");
        QTest::qWait(20);
        QCOMPARE(m_server->requests().size(), 2);
        QVERIFY(!task->hasError());
        QCOMPARE(task->httpResponseStatusCodeNumber(), 200);
        QCOMPARE(task->data(), "in"_ba);
        m_accepted = "Bearer good";
    }

    void endsWhenItsAuthenticatorIsDestroyed()
    {
        using Policy = NetworkTask::ErrorPolicy;
        const std::array policies{Policy::FinishWithError, Policy::FinishWithSuccess, Policy::Ignore};
        std::array tasks{makeWaitingTask(), makeWaitingTask(), makeWaitingTask()};
        for (std::size_t i = 0; i < tasks.size(); ++i)
            tasks[i]->setResponseErrorPolicy(policies[i]);
        m_authenticator.reset();
        QVERIFY(tasks[0]->isFinished() && tasks[1]->isFinished() && !tasks[2]->isFinished());
        QCOMPARE(tasks[0]->error().errorCode(), ErrorCode::AuthenticationFailed);
        QCOMPARE(tasks[0]->error().errorMessage(), u"Authentication failed"_s);
        QVERIFY(!tasks[1]->hasError());
        TestAuthenticator other;
        other.currentToken = u"good"_s;
        tasks[2]->setAuthenticator(&other);
        QTRY_COMPARE(tasks[2]->data(), "in"_ba);
    }

    void continuesWithANewAuthenticator_data() { addRows("replacement", {"token", "no token", "null"}); }
    void continuesWithANewAuthenticator()
    {
        QFETCH(QString, replacement);
        const bool isNull = replacement == "null"_L1;
        TestAuthenticator other;
        auto task = makeWaitingTask();
        if (replacement == "token"_L1)
            other.currentToken = u"good"_s;
        task->setAuthenticator(isNull ? nullptr : &other);
        m_authenticator->fail(Error(ErrorCode::General, "old")); // no task is connected to it any more
        if (replacement == "no token"_L1) {
            QTRY_COMPARE(other.logins, 1);
            other.succeed("good");
        }
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->error().errorCode(), isNull ? ErrorCode::AuthenticationFailed : ErrorCode::None);
        QCOMPARE(m_server->requests().size(), isNull ? 0 : 1);
    }

private:
    QByteArray m_accepted = "Bearer good";
    std::unique_ptr<TestAuthenticator> m_authenticator;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskLogin)

#include "tst_NetworkTaskLogin.moc"
