#include "../Rows.h"
#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QRandomGenerator>
#include <QTestEventLoop>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

namespace {

// Logs in a little later, as a real one would, with the number of the present session.
class LateAuthenticator : public TestAuthenticator
{
public:
    int session = 1;

protected:
    bool authenticate() override
    {
        ++logins;
        QTimer::singleShot(1, this, [this] { succeed(QByteArray::number(session).constData()); });
        return true;
    }
};

LoopbackReply randomReply(QRandomGenerator& random, bool isSlow)
{
    auto good = LoopbackReply(200, QByteArray(200, 'x'));
    if (isSlow)
        good.delayed(std::chrono::milliseconds(random.bounded(1, 4)));
    const QList<LoopbackReply> failures{LoopbackReply(503),
                                        LoopbackReply(429),
                                        LoopbackReply(401),
                                        LoopbackReply(500),
                                        LoopbackReply(good).cutAfter(random.bounded(300)),
                                        LoopbackReply(good).resetAfter(random.bounded(300)),
                                        isSlow || random.bounded(10) ? good : LoopbackReply::silence()};
    return failures.value(random.bounded(20), good);
}

} // namespace

/// Many tasks against a server that fails at random, some of them deleted or cancelled on the way.
/// ORV_SOAK_TASKS in the environment sets how many.
class tst_Soak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsEachTaskOnce_data()
    {
        const auto addRow = addColumns<bool>({"isSlow"});
        addRow("the client gives up tasks", false);
        addRow("the server takes its time", true);
    }

    // Where clients give up, a server may see their next request before it notices.
    void endsEachTaskOnce()
    {
        QFETCH(const bool, isSlow);
        constexpr int limit = 4; // Qt itself has no more than six connections
        bool isSet = false;
        const int wanted = qEnvironmentVariableIntValue("ORV_SOAK_TASKS", &isSet);
        const int rounds = (isSet ? wanted : 2000) / ROUND;
        QRandomGenerator random(20261122);
        LoopbackServer server;
        server.setRecording(false);
        LateAuthenticator authenticator;
        int mostRunning = 0;
        int mostServed = 0;
        server.setHandler([&](const LoopbackRequest& request) {
            mostRunning = std::max(mostRunning, countRunning());
            mostServed = std::max(mostServed, server.openRequestCount());
            authenticator.session += random.bounded(50) == 0 ? 1 : 0;
            const bool isValid =
                request.field("Authorization") == "Bearer " + QByteArray::number(authenticator.session);
            return isValid ? randomReply(random, isSlow) : LoopbackReply(401);
        });
        QVERIFY(!server.listen().hasError());
        NetworkQueue queue;
        queue.setAuthenticator(&authenticator);
        queue.setMaxRunningTasks(limit);

        for (int round = 0; round < rounds; ++round) {
            Counts counts;
            for (int i = 0; i < ROUND; ++i)
                queue.append(makeTask(server.url(), i, isSlow, &counts));
            QTestEventLoop::instance().enterLoop(120); // QTRY_VERIFY() would sleep between events
            QCOMPARE(counts.destroyed, ROUND);
            QVERIFY(queue.isEmpty());
            QCOMPARE(counts.finishes.count(1), ROUND - counts.deleted);
            QCOMPARE(counts.finishes.count(0), counts.deleted);
        }
        QVERIFY(authenticator.logins > rounds);
        QCOMPARE(mostRunning, limit);
        if (isSlow)
            QCOMPARE(mostServed, limit);
    }

private:
    static constexpr int ROUND = 500;

    struct Counts
    {
        int destroyed = 0;
        int deleted = 0;
        QList<int> finishes = QList<int>(ROUND, 0);
    };

    int countRunning()
    {
        m_tasks.removeIf([](const auto& task) { return !task; });
        return static_cast<int>(std::count_if(m_tasks.begin(), m_tasks.end(), [](const auto& task) {
            return task->isRunning() && !task->isPaused();
        }));
    }

    NetworkTask* makeTask(const QString& url, int index, bool isPatient, Counts* counts)
    {
        auto* task = new NetworkTask(url, NetworkTask::Priority(index % 3));
        m_tasks.append(task);
        task->setAutoDelete(true);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        task->setTimeout(500ms);
        connect(task, &Task::finished, this, [counts, index] { ++counts->finishes[index]; });
        connect(task, &QObject::destroyed, this, [counts] {
            if (++counts->destroyed == ROUND)
                QTestEventLoop::instance().exitLoop();
        });
        if (isPatient)
            return task;
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

    QList<QPointer<NetworkTask>> m_tasks;
};

QTEST_GUILESS_MAIN(tst_Soak)

#include "tst_Soak.moc"
