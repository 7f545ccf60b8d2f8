#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;

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
        QCOMPARE(task->log(), u"started finished"_s);
    }

    // token() and errorMessage() are the program's, and may count their calls.
    void asksForTokensAndMessagesOnceForEachAttempt()
    {
        for (const auto* rules : {"orv.network=true", "orv.network=false"}) {
            const LogCatcher log(rules);
            m_authenticator->currentToken = u"expired"_s;
            m_authenticator->tokenCalls = 0;
            auto task = makeTask(m_authenticator.get());
            task->exec();
            QTRY_VERIFY(task->isPaused());
            m_authenticator->succeed("good");
            QTRY_VERIFY(task->isFinished());
            QCOMPARE(m_authenticator->tokenCalls, 2);
            QCOMPARE(task->errorMessageCalls, 1); // for the 401
        }
    }

    void waitsForALoginThatIsUnderWay()
    {
        m_authenticator->onAuthenticationRequired();
        auto task = makeTask(m_authenticator.get());
        task->exec();
        QVERIFY(task->isPaused());
        QCOMPARE(m_authenticator->logins, 1);
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

    void repeatsALoginAfterATemporaryFailure()
    {
        m_authenticator->setMaxRetriesCount(2);
        auto task = makeWaitingTask();
        const Error down(ErrorCode::Network, "down");
        for (int login = 2; login <= 3; ++login) {
            m_authenticator->fail(down, AbstractAuthenticator::Error::TemporaryFailure);
            QVERIFY(task->isPaused());
            QCOMPARE(m_authenticator->logins, login);
        }
        m_authenticator->fail(down, AbstractAuthenticator::Error::TemporaryFailure);
        QVERIFY(task->isFinished());
        QCOMPARE(task->error().errorMessage(), u"down"_s);
    }

    void failsWhenALoginFailsWithoutAnError()
    {
        auto task = makeWaitingTask();
        m_authenticator->fail(Error());
        QCOMPARE(task->error().errorCode(), ErrorCode::AuthenticationFailed);
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
        auto task = makeWaitingTask();
        m_authenticator.reset();
        QVERIFY(task->isFinished());
        QCOMPARE(task->error().errorCode(), ErrorCode::AuthenticationFailed);
        QCOMPARE(task->error().errorMessage(), u"Authentication failed"_s);
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

    void logsInThroughTheQueueOfTheWaitingTasks()
    {
        m_server->addReply(u"/login"_s, LoopbackReply(200, "good"));
        NetworkQueue queue; // one slot
        queue.setAuthenticator(m_authenticator.get());
        TestTask login(m_server->url(u"/login"_s));
        m_authenticator->duringLogin = [&] {
            connect(&login, &Task::finished, m_authenticator.get(),
                    [&] { m_authenticator->succeed(login.data().constData()); });
            queue.setAuthenticator(nullptr); // the login itself needs none
            queue.append(&login);
        };
        std::vector<std::unique_ptr<TestTask>> tasks;
        for (int i = 0; i < 5; ++i) {
            tasks.push_back(std::make_unique<TestTask>(m_server->url()));
            queue.append(tasks.back().get());
        }
        QTRY_VERIFY(queue.isEmpty());
        for (const auto& task : tasks)
            QVERIFY(task->isFinished() && !task->hasError());
        QCOMPARE(m_authenticator->logins, 1);
    }

private:
    QByteArray m_accepted = "Bearer good";
    std::unique_ptr<TestAuthenticator> m_authenticator;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskLogin)

#include "tst_NetworkTaskLogin.moc"
