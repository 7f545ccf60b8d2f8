#include "NetworkTestSupport.h"

#include <TasksQueue.h>

#include <QElapsedTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

/// How a failed attempt is repeated.
class tst_NetworkTaskRetry : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask()
    {
        auto task = std::make_unique<TestTask>(m_server->url());
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        return task;
    }

    void answer(std::initializer_list<int> statuses)
    {
        for (const int status : statuses)
            m_server->addReply(u"/"_s, LoopbackReply(status, "content " + QByteArray::number(status)));
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    void retriesTransientFailures_data() { addRows("status", {"408", "429", "503"}); }
    void retriesTransientFailures()
    {
        QFETCH(QString, status);
        answer({status.toInt(), status.toInt(), 200});
        auto task = makeTask();
        connect(task.get(), &NetworkTask::aboutToRetry, this, [&] {
            QVERIFY(task->isRunning());
            QCOMPARE(task->httpResponseStatusCodeNumber(), 0); // the failed attempt is forgotten
            QCOMPARE(task->networkResponseError(), QNetworkReply::NoError);
            QVERIFY(task->retriesCount() > 0);
        });
        connect(task.get(), &NetworkTask::retried, this, [&] {
            QVERIFY(task->isRunning());                   // executing again
            QVERIFY(task->data().startsWith("content ")); // looking at the old reply now ...
        });
        QVERIFY(task->succeeds());
        QCOMPARE(task->data(), "content 200"_ba); // ... does not leave it with the new one
        QCOMPARE(task->retriesCount(), 2);
        QCOMPARE(m_server->requests().size(), 3);
        QCOMPARE(task->executions, 3);
        QCOMPARE(task->log(), u"started aboutToRetry started retried aboutToRetry started retried "
                              u"finished"_s);
    }

    // The failed attempt must not affect the one that follows.
    void retriesRepliesThatCannotBeRead()
    {
        int replies = 0;
        FakeManager manager([&] {
            auto* reply = new FakeReply(200);
            reply->complete(0, ++replies > 1 ? QIODevice::ReadOnly : QIODevice::NotOpen);
            return reply;
        });
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        QVERIFY(task->succeeds());
        QCOMPARE(replies, 2);
        QCOMPARE(task->log(), u"started aboutToRetry started retried finished"_s);
    }

    void endsAfterTheLastRetry()
    {
        m_server->addReply(u"/"_s, LoopbackReply::silence());
        for (const int retries : {10, 2, 0}) {
            auto task = makeTask();
            task->setTimeout(20ms);
            if (retries == 2)
                task->setMaxRetriesCount(retries);
            task->setRetriesEnabled(retries > 0);
            QVERIFY(task->run());
            QCOMPARE(task->error().errorDetails().toInt(), 2408);
            QCOMPARE(task->error().errorMessage(), u"Network timeout"_s);
            QCOMPARE(task->networkResponseError(), QNetworkReply::NoError); // not that of the abort
            QCOMPARE(task->retriesCount(), retries);
            QCOMPARE(task->events.count(u"retried"_s), retries);
            QCOMPARE(task->events.last(), u"finished"_s);
        }
    }

    void retriesOnlyRecoverableErrors()
    {
        answer({500, 500, 200, 503, 200});
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(task->error().errorDetails().toInt(), 2500);
        QVERIFY(!task->retriesEnabled()); // and stays so

        auto hopeful = makeTask();
        hopeful->registerRecoverableNetworkErrors({QNetworkReply::InternalServerError});
        QVERIFY(hopeful->succeeds());

        auto strict = makeTask();
        strict->unregisterRecoverableNetworkErrors({QNetworkReply::ServiceUnavailableError});
        QVERIFY(strict->run());
        QCOMPARE(strict->error().errorDetails().toInt(), 2503);
    }

    void waitsForTheDelayInSeconds()
    {
        answer({503, 200});
        TestTask task(m_server->url());
        QElapsedTimer sinceFailure;
        connect(&task, &NetworkTask::aboutToRetry, this, [&] { sinceFailure.start(); });
        connect(&task, &NetworkTask::retried, this, [&] {
            QVERIFY(task.isPaused());
            QCOMPARE(task.retryDelay(), 1s);
        });
        QVERIFY(task.succeeds());
        QVERIFY(sinceFailure.hasExpired(990));
        QCOMPARE(task.log(), u"started aboutToRetry started retried finished"_s);
    }

    void repeatsInTheQueue()
    {
        class Queue : public TasksQueue
        {
        public:
            void removeTask(Task* task) override
            {
                ++removals;
                TasksQueue::removeTask(task);
            }
            int removals = 0;
        } queue;
        answer({503, 200});
        auto first = makeTask();
        auto second = makeTask();
        QStringList started;
        connect(&queue, &TasksQueue::taskStarted, this,
                [&](Task* task) { started.append(task == first.get() ? u"1"_s : u"2"_s); });
        connect(first.get(), &NetworkTask::retried, this, [&] {
            QVERIFY(!first->isRunning()); // queued again
            QCOMPARE(first->queue(), &queue);
        });
        first->setPriority(2);
        queue.append(first.get());
        queue.append(second.get());
        QTRY_VERIFY(queue.isEmpty());
        QCOMPARE(started.join(QString()), u"121"_s); // behind, with priority 0
        QCOMPARE(queue.removals, 1);
        QCOMPARE(first->log(), u"started aboutToRetry retried started finished"_s);
        QVERIFY(!first->hasError() && !second->hasError());
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskRetry)

#include "tst_NetworkTaskRetry.moc"
