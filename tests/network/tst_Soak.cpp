#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QRandomGenerator>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

namespace {

// Logs in a little later, as a real one would.
class LateAuthenticator : public TestAuthenticator
{
protected:
    bool authenticate() override
    {
        ++logins;
        QTimer::singleShot(1, this, [this] { succeed("token"); });
        return true;
    }
};

LoopbackReply randomReply(QRandomGenerator& random)
{
    const LoopbackReply good(200, QByteArray(200, 'x'));
    const QList<LoopbackReply> failures{LoopbackReply(503),
                                        LoopbackReply(429),
                                        LoopbackReply(401),
                                        LoopbackReply(500),
                                        LoopbackReply(good).cutAfter(random.bounded(300)),
                                        LoopbackReply(good).resetAfter(random.bounded(300)),
                                        random.bounded(10) ? good : LoopbackReply::silence()};
    return failures.value(random.bounded(20), good);
}

} // namespace

/// Many tasks against a server that fails at random, some of them deleted or cancelled on the way.
/// ORV_SOAK_TASKS in the environment sets how many.
class tst_Soak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsEachTaskOnce()
    {
        bool isSet = false;
        const int wanted = qEnvironmentVariableIntValue("ORV_SOAK_TASKS", &isSet);
        const int rounds = (isSet ? wanted : 2000) / ROUND;
        QRandomGenerator random(20261122);
        LoopbackServer server;
        server.setRecording(false);
        server.setHandler([&](const LoopbackRequest&) { return randomReply(random); });
        QVERIFY(!server.listen().hasError());
        LateAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);

        for (int round = 0; round < rounds; ++round) {
            Counts counts;
            for (int i = 0; i < ROUND; ++i)
                queue.append(makeTask(server.url(), i, &counts));
            QTRY_VERIFY_WITH_TIMEOUT(counts.destroyed == ROUND, 120000);
            QVERIFY(queue.isEmpty());
            QCOMPARE(counts.finishes.count(1), ROUND - counts.deleted);
            QCOMPARE(counts.finishes.count(0), counts.deleted);
        }
        QVERIFY(authenticator.logins > 0);
    }

private:
    static constexpr int ROUND = 500;

    struct Counts
    {
        int destroyed = 0;
        int deleted = 0;
        QList<int> finishes = QList<int>(ROUND, 0);
    };

    NetworkTask* makeTask(const QString& url, int index, Counts* counts)
    {
        auto* task = new NetworkTask(url, NetworkTask::Priority(index % 3));
        task->setAutoDelete(true);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        task->setTimeout(500ms);
        connect(task, &Task::finished, this, [counts, index] { ++counts->finishes[index]; });
        connect(task, &QObject::destroyed, this, [counts] { ++counts->destroyed; });
        if (index % 50 == 7) {
            connect(task, &NetworkTask::readyRead, this, [counts, task] {
                ++counts->deleted;
                delete task;
            });
        }
        if (index % 50 == 8)
            connect(task, &NetworkTask::aboutToRetry, task, [task] { task->cancel(); });
        if (index % 50 == 9)
            connect(task, &NetworkTask::started, task,
                    [task] { QTimer::singleShot(2, task, &NetworkTask::cancel); });
        return task;
    }
};

QTEST_GUILESS_MAIN(tst_Soak)

#include "tst_Soak.moc"
