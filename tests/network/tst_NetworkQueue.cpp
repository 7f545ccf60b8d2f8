#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QElapsedTimer>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

// clazy:excludeall=lambda-in-connect

namespace {

class LoginTask : public Task, public Authenticable
{
};

} // namespace

class tst_NetworkQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_tasks.clear();
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    // All of them wait at the same time, and are let go at the same time.
    void keepsTheLimitAfterWaits_data() { addRows("wait", {"login", "delay"}); }
    void keepsTheLimitAfterWaits()
    {
        const bool isLogin = qstrcmp(QTest::currentDataTag(), "login") == 0;
        constexpr int slots = 4;
        int inFlight = 0, most = 0, refusals = 60;
        m_server->setHandler([&](const LoopbackRequest& request) {
            if (isLogin ? request.field("Authorization") != "Bearer new"_ba : --refusals >= 0)
                return LoopbackReply(isLogin ? 401 : 503);
            most = std::max(most, ++inFlight);
            QTimer::singleShot(20ms, this, [&] { --inFlight; });
            return LoopbackReply(200).delayed(20ms);
        });
        TestAuthenticator authenticator;
        authenticator.currentToken = u"old"_s;
        authenticator.duringLogin = [&] {
            QTimer::singleShot(20ms, this, [&] { authenticator.succeed("new"); });
        };
        NetworkQueue queue;
        queue.setMaxRunningTasks(slots);
        queue.setAuthenticator(isLogin ? &authenticator : nullptr);
        for (int i = 0; i < 60; ++i)
            append(queue, *m_server);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QCOMPARE(most, slots);
        QVERIFY(haveAllSucceeded());
        QCOMPARE(authenticator.logins, isLogin ? 1 : 0);
    }

    // Others of a higher priority are always ready, and there is one slot.
    void letsTheDelayOfARetryPassWhileOthersRun()
    {
        m_server->addReply(u"/first"_s, LoopbackReply(503));
        m_server->addReply(u"/first"_s, LoopbackReply(200));
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        NetworkQueue queue;
        auto* first = append(queue, *m_server, u"/first"_s);
        const auto appendOther = [&] { append(queue, *m_server, u"/"_s, NetworkTask::High); };
        connect(&queue, &TasksQueue::taskFinished, this, [&] {
            if (!first->isFinished())
                appendOther();
        });
        connect(first, &NetworkTask::retried, this, appendOther);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }, 5s));
        QVERIFY(!first->hasError());
        QCOMPARE(first->executions, 2);
        QVERIFY(m_tasks.size() > 3);
    }

    void startsNoTaskThatNeedsALoginInProgress_data()
    {
        const auto row = addColumns<QString>({"error"});
        row("succeeds", {});
        row("fails", u"refused"_s);
        row("fails temporarily", {});
        row("state alone", {});
        row("destroyed", u"Authentication failed"_s);
        row("replaced", {});
        row("not required", {});
    }
    void startsNoTaskThatNeedsALoginInProgress()
    {
        const auto end = QString::fromLatin1(QTest::currentDataTag());
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        auto authenticator = std::make_unique<TestAuthenticator>();
        TestAuthenticator other;
        other.currentToken = u"token"_s;
        NetworkQueue queue;
        queue.setAuthenticator(authenticator.get());
        auto* waiting = append(queue, *m_server, u"/waiting"_s);
        QTRY_COMPARE(authenticator->logins, 1);
        std::vector<TestTask*> held(3);
        for (auto& task : held)
            task = append(queue, *m_server, u"/held"_s, NetworkTask::High);
        queue.setAuthenticator(nullptr);
        auto* free = append(queue, *m_server);
        QTRY_VERIFY(free->isFinished());
        QVERIFY(std::all_of(held.begin(), held.end(), [](auto* task) { return task->executions == 0; }));

        const auto fail = [&](AbstractAuthenticator::Error code) {
            waiting->cancel();
            authenticator->fail(Error(ErrorCode::General, u"refused"_s), code);
        };
        const auto change = [&](auto call) { std::for_each(held.begin(), held.end(), call); };
        const QHash<QString, std::function<void()>> ends{
            {u"succeeds"_s, [&] { authenticator->succeed("token"); }},
            {u"fails"_s, [&] { fail(AbstractAuthenticator::Error::Failed); }},
            {u"fails temporarily"_s, [&] { fail(AbstractAuthenticator::Error::TemporaryFailure); }},
            {u"state alone"_s,
             [&] {
                 authenticator->currentToken = u"token"_s;
                 authenticator->setState(AbstractAuthenticator::State::Idle);
             }},
            {u"destroyed"_s, [&] { authenticator.reset(); }},
            {u"replaced"_s, [&] { change([&](auto* task) { task->setAuthenticator(&other); }); }},
            {u"not required"_s, [&] { change([](auto* task) { task->setRequiresAuthentication(false); }); }}};
        ends[end]();
        if (end == "fails temporarily"_L1) { // those that were held ask again
            QTRY_COMPARE(authenticator->logins, 2);
            authenticator->succeed("token");
        }
        QTRY_VERIFY(std::all_of(held.begin(), held.end(), [](auto* task) { return task->isFinished(); }));
        for (const auto* task : held)
            QTEST(task->error().errorMessage(), "error");
        if (end == "succeeds"_L1)
            QCOMPARE(m_server->requests().at(1).path, u"/waiting"_s); // before those that were held
        if (authenticator)
            QCOMPARE(authenticator->logins, end == "fails temporarily"_L1 ? 2 : 1);
    }

    void waitsForASlotAfterALogin_data()
    {
        addRows("action", {"nothing", "resume", "pause", "change authenticator", "delete queue"});
    }
    void waitsForASlotAfterALogin()
    {
        QFETCH(QString, action);
        m_server->addReply(u"/blocker"_s, LoopbackReply::silence());
        m_server->addReply(u"/task"_s, LoopbackReply(200).delayed(50ms));
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        TestAuthenticator authenticator, other;
        other.currentToken = u"other"_s;
        auto queue = std::make_unique<NetworkQueue>();
        auto* blocker = append(*queue, *m_server, u"/blocker"_s);
        queue->setAuthenticator(&authenticator);
        auto* task = append(*queue, *m_server, u"/task"_s, NetworkTask::High);
        QTRY_COMPARE(m_server->requests().size(), 1);
        append(*queue, *m_server, u"/next"_s, NetworkTask::High);
        authenticator.succeed("token");
        QVERIFY(task->isPaused());
        const QHash<QString, std::function<void()>> actions{
            {u"nothing"_s, [] {}},
            {u"resume"_s, [&] { task->resume(); }},
            {u"pause"_s, [&] { task->pause(); }},
            {u"change authenticator"_s, [&] { task->setAuthenticator(&other); }},
            {u"delete queue"_s, [&] { queue.reset(); }},
        };
        actions[action]();
        QCoreApplication::processEvents();
        QCOMPARE(m_server->requests().size(), 1);
        QVERIFY(task->isPaused() || !queue);
        blocker->cancel();
        if (queue)
            QTRY_COMPARE(m_server->requests(u"/next"_s).size(), 1);
        if (action == "pause"_L1) {
            QVERIFY(task->isPaused());
            task->resume();
        }
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(m_server->requests(u"/task"_s).size(), 1);
        if (action == "nothing"_L1)
            QCOMPARE(m_server->requests().at(1).path, u"/task"_s); // before those that were never started
    }

    void limitsTasksForOneHost()
    {
        LoopbackServer second;
        QVERIFY(!second.listen().hasError());
        for (auto* server : {m_server.get(), &second})
            server->setHandler([](const auto&) { return LoopbackReply::silence(); });
        NetworkQueue queue;
        queue.setMaxRunningTasks(10);
        for (int i = 0; i < 2; ++i)
            append(queue, *m_server);
        QTRY_COMPARE(m_server->requests().size(), 2);
        queue.setMaxTasksPerHost(2); // counts those as well
        for (int i = 0; i < 4; ++i)
            append(queue, *m_server);
        const auto arrive = [&](int atFirst, int atSecond) {
            append(queue, second); // the last to be started
            return runUntil([&] { return second.requests().size() == atSecond; }) &&
                   m_server->requests().size() == atFirst;
        };
        QVERIFY(arrive(2, 1));
        m_tasks.at(0)->pause();
        QTRY_COMPARE(m_server->requests().size(), 3);
        m_tasks.at(0)->resume(); // as many run again
        QVERIFY(m_tasks.at(0)->isPaused());
        m_tasks.at(1)->cancel();
        QTRY_VERIFY(!m_tasks.at(0)->isPaused());
        QVERIFY(arrive(3, 2));
        queue.setMaxTasksPerHost(-1);
        QTRY_COMPARE(m_server->requests().size(), 6);
    }

    void spacesStarts()
    {
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        NetworkQueue queue;
        queue.setMaxRunningTasks(10);
        queue.setMaxStartsPerSecond(20);
        QElapsedTimer sinceStart;
        sinceStart.start();
        for (int i = 0; i < 4; ++i)
            append(queue, *m_server);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QVERIFY(sinceStart.hasExpired(135));
        queue.setMaxStartsPerSecond(1e-9);
        append(queue, *m_server);
        append(queue, *m_server);
        QTRY_COMPARE(queue.pendingTasksCount(), 1);
        queue.setMaxStartsPerSecond(qQNaN());
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
    }

    void sparesAHostThatAsksForIt()
    {
        LoopbackServer second;
        QVERIFY(!second.listen().hasError());
        m_server->addReply(u"/first"_s, LoopbackReply(429).withField("Retry-After", "3600"));
        m_server->addReply(u"/first"_s, LoopbackReply(200));
        for (auto* server : {m_server.get(), &second})
            server->setHandler([](const auto&) { return LoopbackReply(200); });
        NetworkQueue queue;
        queue.setMaxCoolDown(300ms);
        QElapsedTimer sinceRefusal;
        auto* first = append(queue, *m_server, u"/first"_s);
        first->setDelayPolicy(Retriable::DelayPolicy::None);
        connect(first, &NetworkTask::aboutToRetry, this, [&] { sinceRefusal.start(); });
        for (int i = 0; i < 3; ++i) {
            append(queue, *m_server);
            append(queue, second);
        }
        QTRY_COMPARE(second.requests().size(), 3);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QVERIFY(haveAllSucceeded());
        QCOMPARE(m_server->requests().size(), 5);
        QVERIFY(sinceRefusal.hasExpired(295));
    }

    void configuresTasksThatAreAdded()
    {
        TestAuthenticator authenticator, own;
        SslIgnorantNetworkAccessManager manager;
        NetworkQueue queue;
        queue.setUserAgent("queue");
        NetworkTask plain, particular, login;
        LoginTask authenticable;
        plain.setAuthenticator(&own);
        particular.setNetworkAccessManager(&manager);
        particular.setUserAgent({});
        particular.setAuthenticator(&own);
        queue.append(&particular);
        login.setUsesQueueAuthenticator(false);
        queue.setAuthenticator(&authenticator);
        for (auto* task : std::initializer_list<Task*>{&plain, &login, &authenticable})
            queue.append(task);
        QCOMPARE(plain.authenticator(), &authenticator); // the queue's wins
        QCOMPARE(plain.networkAccessManager(), queue.networkAccessManager());
        QCOMPARE(plain.userAgent(), "queue"_ba);
        QCOMPARE(particular.networkAccessManager(), &manager);
        QCOMPARE(particular.authenticator(), &own);
        QVERIFY(particular.userAgent().isEmpty());
        QVERIFY(!login.authenticator() && !login.requiresAuthentication());
        QCOMPARE(authenticable.authenticator(), &authenticator);
    }

    // On a host that is not to see the token, the task has been given up that authenticator.
    void leavesTasksThatAreRetriedAsTheyAre()
    {
        m_server->addReply(u"/"_s, LoopbackReply(503));
        m_server->addReply(u"/"_s, LoopbackReply(200));
        TestAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        auto* task = append(queue, *m_server);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        connect(task, &NetworkTask::aboutToRetry, this, [&] {
            task->setAuthenticator(nullptr);
            task->setRequiresAuthentication(false);
        });
        QTRY_COMPARE(task->log(), u"started aboutToRetry retried started finished"_s);
        QVERIFY(!task->authenticator());
    }

    void leavesItsManagerToTheApplication()
    {
        using Manager = SslIgnorantNetworkAccessManager;
        auto queue = std::make_unique<NetworkQueue>();
        const QPointer<Manager> manager = queue->networkAccessManager();
        queue->setIgnoreSslErrors(true);
        QCOMPARE(manager->sslMode(), Manager::SslMode::Ignore);
        QCOMPARE(NetworkQueue().networkAccessManager()->sslMode(), Manager::SslMode::Verify);
        queue.reset();
        QVERIFY(manager);
    }

private:
    TestTask* append(TasksQueue& queue, const LoopbackServer& server, const QString& path = u"/"_s,
                     NetworkTask::Priority priority = NetworkTask::Normal)
    {
        m_tasks.push_back(std::make_unique<TestTask>(server.url(path)));
        auto* task = m_tasks.back().get();
        task->setPriority(priority);
        queue.append(task);
        return task;
    }

    bool haveAllSucceeded() const
    {
        return std::all_of(m_tasks.begin(), m_tasks.end(),
                           [](const auto& task) { return task->isFinished() && !task->hasError(); });
    }

    std::unique_ptr<LoopbackServer> m_server;
    std::vector<std::unique_ptr<TestTask>> m_tasks;
};

QTEST_GUILESS_MAIN(tst_NetworkQueue)

#include "tst_NetworkQueue.moc"
