#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
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

} // namespace

class tst_NetworkQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
};

QTEST_GUILESS_MAIN(tst_NetworkQueue)

#include "tst_NetworkQueue.moc"
