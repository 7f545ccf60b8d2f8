#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QRandomGenerator>
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
        LateAuthenticator authenticator;
        server.setHandler([&](const LoopbackRequest& request) {
            m_mostRunning = std::max(m_mostRunning, countRunning());
            authenticator.session += random.bounded(50) == 0 ? 1 : 0;
            const bool isValid =
                request.field("Authorization") == "Bearer " + QByteArray::number(authenticator.session);
            return isValid ? randomReply(random) : LoopbackReply(401);
        });
        QVERIFY(!server.listen().hasError());
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
        QVERIFY(authenticator.logins > rounds);
        QCOMPARE(m_mostRunning, network::MAX_PARALLEL_REQUESTS);
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

    NetworkTask* makeTask(const QString& url, int index, Counts* counts)
    {
        auto* task = new NetworkTask(url, NetworkTask::Priority(index % 3));
        m_tasks.append(task);
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

    QList<QPointer<NetworkTask>> m_tasks;
    int m_mostRunning = 0; // whenever the server receives a request
};

QTEST_GUILESS_MAIN(tst_Soak)

#include "tst_Soak.moc"
