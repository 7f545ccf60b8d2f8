#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QElapsedTimer>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;
using SslMode = SslIgnorantNetworkAccessManager::SslMode;

namespace {

class LoginTask : public Task, public Authenticable
{
};

class Queue : public NetworkQueue
{
public:
    using NetworkQueue::addTask;
};

// Logs in a little later, as a real one would.
class LateAuthenticator : public TestAuthenticator
{
public:
    LateAuthenticator()
    {
        duringLogin = [this] { QTimer::singleShot(20ms, this, [this] { succeed("new"); }); };
    }
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
        QFETCH(QString, wait);
        constexpr int slots = 4;
        int inFlight = 0, most = 0, refusals = 60;
        m_server->setHandler([&](const LoopbackRequest& request) {
            const bool isRefused =
                wait == "login"_L1 ? request.field("Authorization") != "Bearer new"_ba : --refusals >= 0;
            if (isRefused)
                return LoopbackReply(wait == "login"_L1 ? 401 : 503);
            most = std::max(most, ++inFlight);
            QTimer::singleShot(20ms, this, [&] { --inFlight; });
            return LoopbackReply(200).delayed(20ms);
        });
        LateAuthenticator authenticator;
        authenticator.currentToken = u"old"_s;
        NetworkQueue queue;
        queue.setMaxRunningTasks(slots);
        if (wait == "login"_L1)
            queue.setAuthenticator(&authenticator);
        for (int i = 0; i < 60; ++i)
            append(queue, *m_server);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QCOMPARE(most, slots);
        QVERIFY(haveAllSucceeded());
        QCOMPARE(authenticator.logins, wait == "login"_L1 ? 1 : 0);
    }

    // Others of a higher priority are always ready, and there is one slot.
    void letsTheDelayOfARetryPassWhileOthersRun()
    {
        m_server->addReply(u"/first"_s, LoopbackReply(503));
        m_server->addReply(u"/first"_s, LoopbackReply(200));
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        NetworkQueue queue;
        auto* first = append(queue, *m_server, u"/first"_s);
        QStringList started;
        connect(&queue, &TasksQueue::taskStarted, this,
                [&](Task* task) { started.append(task == first ? u"first"_s : u"other"_s); });
        connect(&queue, &TasksQueue::taskFinished, this, [&] {
            if (!first->isFinished())
                append(queue, *m_server);
        });
        append(queue, *m_server);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }, 5s));
        QVERIFY(!first->hasError());
        QCOMPARE(started.mid(0, 3), (QStringList{u"first"_s, u"first"_s, u"other"_s})); // to wait
        QCOMPARE(started.count(u"first"_s), 2);
        QVERIFY(started.size() > 3);
    }

    void startsNoTaskThatNeedsALoginInProgress_data()
    {
        addRows("end", {"succeeds", "fails", "fails temporarily", "state alone", "destroyed", "replaced",
                        "removed", "not required"});
    }
    void startsNoTaskThatNeedsALoginInProgress()
    {
        QFETCH(QString, end);
        m_server->setHandler([](const auto&) { return LoopbackReply(200); });
        auto authenticator = std::make_unique<TestAuthenticator>();
        TestAuthenticator other;
        other.currentToken = u"other"_s;
        NetworkQueue queue;
        queue.setAuthenticator(authenticator.get());
        auto* waiting = append(queue, *m_server, u"/waiting"_s);
        QTRY_COMPARE(authenticator->logins, 1);
        std::vector<TestTask*> held;
        for (int i = 0; i < 3; ++i)
            held.push_back(append(queue, *m_server, u"/held"_s, NetworkTask::High));
        queue.setAuthenticator(nullptr);
        auto* free = append(queue, *m_server);
        QTRY_VERIFY(free->isFinished());
        QCOMPARE(queue.pendingTasksCount(), 3);
        QVERIFY(std::all_of(held.begin(), held.end(), [](auto* task) { return task->executions == 0; }));

        const bool isHeldAlone = end == "replaced"_L1 || end == "removed"_L1 || end == "not required"_L1;
        const Error error(ErrorCode::General, u"refused"_s);
        const QHash<QString, std::function<void()>> ends{
            {u"succeeds"_s, [&] { authenticator->succeed("token"); }},
            {u"fails"_s, [&] { authenticator->fail(error); }},
            {u"fails temporarily"_s,
             [&] {
                 waiting->cancel();
                 authenticator->fail(error, AbstractAuthenticator::Error::TemporaryFailure);
             }},
            {u"state alone"_s,
             [&] {
                 authenticator->currentToken = u"token"_s;
                 authenticator->setState(AbstractAuthenticator::State::Idle);
             }},
            {u"destroyed"_s, [&] { authenticator.reset(); }},
            {u"replaced"_s,
             [&] { std::for_each(held.begin(), held.end(), [&](auto* t) { t->setAuthenticator(&other); }); }},
            {u"removed"_s,
             [&] { std::for_each(held.begin(), held.end(), [](auto* t) { t->setAuthenticator(nullptr); }); }},
            {u"not required"_s, [&] {
                 std::for_each(held.begin(), held.end(),
                               [](auto* t) { t->setRequiresAuthentication(false); });
             }}};
        ends[end]();
        if (end == "fails temporarily"_L1) { // those that were held ask again
            QTRY_COMPARE(authenticator->logins, 2);
            QCOMPARE(held.at(0)->executions, 1);
            return;
        }
        QTRY_VERIFY(std::all_of(held.begin(), held.end(), [](auto* task) { return task->isFinished(); }));
        const auto requests = m_server->requests();
        for (auto* task : held) {
            QCOMPARE(task->error().errorMessage(), end == "fails"_L1 ? u"refused"_s
                                                   : end == "destroyed"_L1 || end == "removed"_L1
                                                       ? u"Authentication failed"_s
                                                       : QString());
        }
        QCOMPARE(waiting->isFinished(), !isHeldAlone && end != "state alone"_L1);
        if (end == "succeeds"_L1)
            QCOMPARE(requests.at(1).path, u"/waiting"_s); // before those that were held
        else if (authenticator)
            QCOMPARE(authenticator->logins, 1);
    }

    void waitsForASlotAfterALogin_data()
    {
        addRows("action", {"nothing", "resume", "pause", "delete", "cancel", "retry", "log in",
                           "change authenticator", "delete queue"});
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
        QPointer<TestTask> task = append(*queue, *m_server, u"/task"_s, NetworkTask::High);
        QTRY_COMPARE(m_server->requests().size(), 1);
        auto* next = append(*queue, *m_server, u"/next"_s, NetworkTask::High);
        authenticator.succeed("token");
        QVERIFY(task->isPaused());
        const QHash<QString, std::function<void()>> actions{
            {u"nothing"_s, [] {}},
            {u"resume"_s, [&] { task->resume(); }},
            {u"pause"_s, [&] { task->pause(); }},
            {u"delete"_s, [&] { remove(task); }},
            {u"cancel"_s, [&] { task->cancel(); }},
            {u"retry"_s, [&] { task->retry(); }},
            {u"log in"_s, [&] { task->handleUnauthorizedError(); }},
            {u"change authenticator"_s, [&] { task->setAuthenticator(&other); }},
            {u"delete queue"_s, [&] { queue.reset(); }},
        };
        actions[action]();
        QCoreApplication::processEvents();
        QCOMPARE(m_server->requests().size(), 1);
        QVERIFY(!task || task->isFinished() || task->isPaused() || action == "retry"_L1 || !queue);
        blocker->cancel();
        if (action == "log in"_L1)
            authenticator.succeed("again");
        if (action == "nothing"_L1) { // its wait was over before it sent
            QTRY_COMPARE(m_server->requests().size(), 2);
            task->pause();
            task->resume();
        }
        if (queue)
            QTRY_VERIFY(next->isFinished());
        if (action == "pause"_L1) {
            QVERIFY(task->isPaused());
            task->resume();
        }
        QTRY_VERIFY(!task || task->isFinished());
        const auto requests = m_server->requests(u"/task"_s);
        QCOMPARE(requests.size(), action == "delete"_L1 || action == "cancel"_L1 ? 0 : 1);
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
        QVERIFY(haveAllSucceeded());
        queue.setMaxStartsPerSecond(1e-9);
        append(queue, *m_server);
        append(queue, *m_server);
        QTRY_COMPARE(queue.pendingTasksCount(), 1);
        queue.setMaxStartsPerSecond(qQNaN());
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
    }

    void sparesAHostThatAsksForIt_data() { addRows("cool-down", {"on", "off"}); }
    void sparesAHostThatAsksForIt()
    {
        const bool isOn = qstrcmp(QTest::currentDataTag(), "on") == 0;
        LoopbackServer second;
        QVERIFY(!second.listen().hasError());
        m_server->addReply(u"/first"_s, LoopbackReply(429).withField("Retry-After", "3600"));
        m_server->addReply(u"/first"_s, LoopbackReply(200));
        for (auto* server : {m_server.get(), &second})
            server->setHandler([](const auto&) { return LoopbackReply(200); });
        NetworkQueue queue;
        queue.setMaxCoolDown(isOn ? 300ms : 0ms);
        QElapsedTimer sinceRefusal;
        auto* first = append(queue, *m_server, u"/first"_s);
        first->setDelayPolicy(Retriable::DelayPolicy::None);
        connect(first, &NetworkTask::aboutToRetry, this, [&] { sinceRefusal.start(); });
        for (int i = 0; i < 3; ++i) {
            append(queue, *m_server);
            append(queue, second);
        }
        if (isOn) {
            QTRY_COMPARE(second.requests().size(), 3);
            QVERIFY(m_server->requests().size() == 1 || sinceRefusal.hasExpired(295));
        }
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QVERIFY(haveAllSucceeded());
        QCOMPARE(m_server->requests().size(), 5);
        QVERIFY(!isOn || sinceRefusal.hasExpired(295));
        QVERIFY(isOn || !sinceRefusal.hasExpired(20000));
    }

    void configuresTasksThatAreAdded()
    {
        TestAuthenticator authenticator;
        TestAuthenticator own;
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        queue.setUserAgent("queue");
        NetworkTask plain;
        plain.setAuthenticator(&own);
        queue.append(&plain);
        QCOMPARE(plain.authenticator(), &authenticator); // the queue's wins
        QCOMPARE(plain.networkAccessManager(), queue.networkAccessManager());
        QVERIFY(queue.networkAccessManager() != NetworkTask::defaultNetworkAccessManager());
        QCOMPARE(plain.userAgent(), "queue"_ba);

        SslIgnorantNetworkAccessManager manager;
        NetworkTask particular;
        particular.setNetworkAccessManager(&manager);
        particular.setUserAgent({});
        particular.setAuthenticator(&own);
        queue.setAuthenticator(nullptr);
        queue.setUserAgent("later");
        queue.append(&particular);
        QCOMPARE(particular.authenticator(), &own);
        QCOMPARE(particular.networkAccessManager(), &manager);
        QVERIFY(particular.userAgent().isEmpty());
        QCOMPARE(plain.userAgent(), "queue"_ba);

        queue.setAuthenticator(&authenticator);
        LoginTask authenticable;
        queue.append(&authenticable);
        QCOMPARE(authenticable.authenticator(), &authenticator);
    }

    // On a host that is not to see the token, the task has been given up that authenticator.
    void leavesTasksThatAreRetriedAsTheyAre()
    {
        LoopbackServer server;
        server.addReply(u"/"_s, LoopbackReply(503));
        server.addReply(u"/"_s, LoopbackReply(200));
        QVERIFY(!server.listen().hasError());
        TestAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        TestTask task(server.url());
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        connect(&task, &NetworkTask::aboutToRetry, &task, [&] {
            task.setAuthenticator(nullptr);
            task.setRequiresAuthentication(false);
        });
        connect(&task, &NetworkTask::retried, &task, [&] {
            QVERIFY(!task.authenticator());
            queue.removeTask(&task);
            queue.append(&task); // by the program
            QCOMPARE(task.authenticator(), &authenticator);
        });
        queue.append(&task);
        QTRY_COMPARE(task.log(), u"started aboutToRetry retried started finished"_s);

        NetworkTask login;
        login.setUsesQueueAuthenticator(false);
        queue.append(&login);
        QVERIFY(!login.authenticator() && !login.requiresAuthentication());
        QCOMPARE(login.networkAccessManager(), queue.networkAccessManager());
    }

    void ordersThreePriorities()
    {
        Queue queue;
        Task low, normal, high, higher, front;
        QList<Task*> started;
        connect(&queue, &TasksQueue::taskStarted, this, [&](Task* task) { started.append(task); });
        normal.setPriority(NetworkTask::Priority::Normal);
        high.setPriority(NetworkTask::Priority::High);
        higher.setPriority(NetworkTask::Priority::High + 1); // counts as High
        front.setPriority(NetworkTask::Priority::High);
        for (auto* task : {&low, &normal, &high, &higher})
            queue.append(task);
        queue.addTask(&front, TasksQueue::EnqueueMode::Front);
        QTRY_COMPARE(started, (QList<Task*>{&front, &high, &higher, &normal, &low}));
    }

    void leavesItsManagerToTheApplication()
    {
        auto queue = std::make_unique<NetworkQueue>();
        NetworkQueue second;
        QPointer<SslIgnorantNetworkAccessManager> manager = queue->networkAccessManager();
        QVERIFY(manager != second.networkAccessManager());
        queue->setIgnoreSslErrors(true);
        QCOMPARE(manager->sslMode(), SslMode::Ignore);
        QCOMPARE(second.networkAccessManager()->sslMode(), SslMode::Verify);
        queue->setIgnoreSslErrors(false);
        QCOMPARE(manager->sslMode(), SslMode::Verify);
        queue.reset();
        QVERIFY(manager);
        QCOMPARE(manager->parent(), QCoreApplication::instance());
        delete manager;
        delete second.networkAccessManager();
        second.setIgnoreSslErrors(true); // does nothing
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

    void remove(const TestTask* task)
    {
        std::erase_if(m_tasks, [task](const auto& one) { return one.get() == task; });
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
