#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QRandomGenerator>
#include <QTimer>

#include <memory>
#include <vector>

using namespace orv;
using namespace std::chrono_literals;
using SslMode = SslIgnorantNetworkAccessManager::SslMode;

class tst_NetworkQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void addsNothingToTheMetaObject()
    {
        QCOMPARE(methodsOf(NetworkQueue::staticMetaObject), QStringList());
        QCOMPARE(NetworkQueue::staticMetaObject.superClass(), &TasksQueue::staticMetaObject);
    }

    void handsOutWhatTasksShare()
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
        QCOMPARE(plain.userAgent(), QByteArrayLiteral("queue"));

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
        QCOMPARE(plain.userAgent(), QByteArrayLiteral("queue"));

        Task other;
        queue.append(&other);
        QCOMPARE(queue.pendingTasksCount(), 3);
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
        second.setIgnoreSslErrors(true); // nobody left to tell
    }

    void runsOthersWhileOneWaits()
    {
        LoopbackServer server;
        server.addReply(QStringLiteral("/slow"), LoopbackReply(503));
        server.addReply(QStringLiteral("/slow"), LoopbackReply(200));
        server.addReply(QStringLiteral("/"), LoopbackReply(200));
        QVERIFY(!server.listen().hasError());
        NetworkQueue queue; // one slot
        TestTask slow(server.url(QStringLiteral("/slow")));
        queue.append(&slow);
        std::vector<std::unique_ptr<TestTask>> tasks;
        bool doneFirst = true;
        for (int i = 0; i < 10; ++i) {
            tasks.push_back(std::make_unique<TestTask>(server.url()));
            connect(tasks.back().get(), &Task::finished, this, [&] { doneFirst &= !slow.isFinished(); });
            queue.append(tasks.back().get());
        }
        QTRY_VERIFY(queue.isEmpty());
        QVERIFY(doneFirst && !slow.hasError());
        QCOMPARE(server.connectionCount(), 1); // never two at once
    }

    // Many tasks against a server that fails at random, with their users deleting and cancelling some.
    void losesNoTask()
    {
        LoopbackServer server;
        server.setRecording(false);
        QRandomGenerator random(20261122);
        server.setHandler([&](const LoopbackRequest&) {
            LoopbackReply good(200, QByteArray(200, 'x'));
            switch (random.bounded(20)) {
            case 0:
                return LoopbackReply(503);
            case 1:
                return LoopbackReply(429);
            case 2:
                return LoopbackReply(401);
            case 3:
                return LoopbackReply(500);
            case 4:
                return LoopbackReply(good).cutAfter(random.bounded(300));
            case 5:
                return LoopbackReply(good).resetAfter(random.bounded(300));
            case 6:
                return LoopbackReply::silence();
            default:
                return good;
            }
        });
        QVERIFY(!server.listen().hasError());
        TestAuthenticator authenticator;
        authenticator.currentToken = QStringLiteral("token");
        connect(&authenticator, &AbstractAuthenticator::authenticating, this,
                [&] { QTimer::singleShot(1, &authenticator, [&] { authenticator.succeed("token"); }); });
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
        constexpr int count = 1000;
        struct
        {
            int ended = 0;
            int deleted = 0;
            QList<int> finishes = QList<int>(count, 0);
        } seen;
        auto* const counts = &seen;
        for (int i = 0; i < count; ++i) {
            auto* task = new NetworkTask(server.url(), NetworkTask::Priority(i % 3));
            task->setAutoDelete(true);
            task->setDelayPolicy(Retriable::DelayPolicy::None);
            task->setTimeout(100ms);
            connect(task, &Task::finished, this, [counts, i] { ++counts->finishes[i]; });
            connect(task, &QObject::destroyed, this, [counts] { ++counts->ended; });
            if (i % 50 == 7)
                connect(task, &NetworkTask::readyRead, this, [counts, task] {
                    ++counts->deleted;
                    delete task;
                });
            if (i % 50 == 8)
                connect(task, &NetworkTask::aboutToRetry, task, [task] { task->cancel(); });
            queue.append(task);
        }
        QTRY_VERIFY_WITH_TIMEOUT(seen.ended == count, 60000);
        QVERIFY(queue.isEmpty());
        QCOMPARE(seen.finishes.count(1), count - seen.deleted);
        QCOMPARE(seen.finishes.count(0), seen.deleted);
    }
};

QTEST_GUILESS_MAIN(tst_NetworkQueue)

#include "tst_NetworkQueue.moc"
