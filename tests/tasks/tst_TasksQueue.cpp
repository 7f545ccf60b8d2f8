#include <Task.h>
#include <TasksQueue.h>

#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>
#include <vector>

using namespace orv;

namespace {

// Runs until it is finished from outside.
class OpenTask : public Task
{
public:
    explicit OpenTask(const char* name, int priority = 0)
    {
        setName(QString::fromLatin1(name));
        setPriority(priority);
    }

    void exec() override { setRunning(); }
};

class Queue : public TasksQueue
{
    Q_OBJECT

public:
    Queue()
    {
        connect(this, &TasksQueue::taskStarted, this,
                [this](Task* task) { events.append(QLatin1Char('+') + task->name()); });
        connect(this, &TasksQueue::taskFinished, this,
                [this](Task* task) { events.append(QLatin1Char('-') + task->name()); });
        connect(this, &TasksQueue::emptied, this, [this] { events.append(QStringLiteral("emptied")); });
    }

    using TasksQueue::addTask;

    QString log()
    {
        // Two turns: one for what is scheduled, one for what that schedules.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        return events.join(QLatin1Char(' '));
    }

    QStringList events;
};

} // namespace

class tst_TasksQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runsByPriorityAndThenInOrder()
    {
        Queue queue;
        queue.setMaxPriority(2);
        Task a, b, c, d, e;
        int i = 0;
        for (auto [task, priority] : {std::pair{&a, 0}, {&b, 2}, {&c, -5}, {&d, 9}, {&e, 1}}) {
            task->setName(QString(QLatin1Char(char('a' + i++))));
            task->setPriority(priority);
            queue.append(task);
        }
        Task first;
        first.setName(QStringLiteral("first"));
        first.setPriority(7);
        queue.addTask(&first, TasksQueue::EnqueueMode::Front);
        QCOMPARE(queue.pendingTasksCount(), 6);
        QVERIFY(queue.events.isEmpty() && !a.isRunning()); // nothing runs inside append()
        QTRY_VERIFY(queue.events.contains(QStringLiteral("emptied")));
        QCOMPARE(queue.log(), QStringLiteral("+first -first +b -b +d -d +e -e +a -a +c -c emptied"));
        QVERIFY(!a.queue() && queue.isEmpty());
    }

    void givesNoSlotToTasksThatWait()
    {
        Queue queue;
        OpenTask a("a"), b("b"), c("c");
        for (auto* task : {&a, &b, &c})
            queue.append(task);
        QCOMPARE(queue.log(), QStringLiteral("+a"));
        a.pause();
        QCOMPARE(queue.log(), QStringLiteral("+a +b"));
        a.resume(); // goes on though the slot is taken
        b.finish(Error());
        QCOMPARE(queue.log(), QStringLiteral("+a +b -b"));
        a.finish(Error());
        QCOMPARE(queue.log(), QStringLiteral("+a +b -b -a +c"));
        queue.setMaxRunningTasks(-3); // counts as 1
        c.finish(Error());
        QCOMPARE(queue.log(), QStringLiteral("+a +b -b -a +c -c emptied"));
    }

    void runsATaskAgainThatIsRemovedAndAppended()
    {
        Queue queue;
        OpenTask a("a"), b("b");
        queue.append(&a);
        queue.append(&b);
        queue.log();
        a.setIdle();
        queue.removeTask(&a);
        QVERIFY(!a.queue());
        queue.append(&a);
        QCOMPARE(queue.log(), QStringLiteral("+a +b"));
        b.finish(Error());
        QCOMPARE(queue.log(), QStringLiteral("+a +b -b +a"));
        queue.removeTask(&a); // goes on alone
        QVERIFY(a.isRunning());
        QCOMPARE(queue.log(), QStringLiteral("+a +b -b +a emptied"));
    }

    void refusesWhatItCannotRun()
    {
        Queue queue, other;
        Task done;
        done.finish(Error());
        queue.append(nullptr);
        queue.append(&done);
        queue.removeTask(nullptr);
        queue.removeTask(&done);
        QVERIFY(queue.isEmpty());
        OpenTask a("a");
        other.append(&a);
        queue.append(&a);
        queue.append(&a);
        QCOMPARE(a.queue(), &queue);
        QVERIFY(other.isEmpty());
        QCOMPARE(queue.pendingTasksCount(), 1);
        a.exec(); // by somebody else, while it is pending
        QCOMPARE(queue.log(), QString());
        a.cancel();
        QCOMPARE(queue.log(), QStringLiteral("-a emptied"));
    }

    void clearsWhatThePolicyNames()
    {
        Queue queue;
        OpenTask a("a"), b("b"), c("c"), late("late");
        for (auto* task : {&a, &b, &c})
            queue.append(task);
        queue.log();
        connect(&b, &Task::finished, &queue, [&] { queue.append(&late); });
        queue.clear(TasksQueue::ClearPolicy::PendingOnly, Error(ErrorCode::General, "cleared"));
        QVERIFY(!a.isFinished());
        QCOMPARE(c.error().errorMessage(), QStringLiteral("cleared"));
        QCOMPARE(queue.pendingTasksCount(), 1);
        queue.clear(TasksQueue::ClearPolicy::PendingAndRunning, Error());
        QVERIFY(a.isFinished() && late.isFinished() && !a.hasError());
        QCOMPARE(queue.log(), QStringLiteral("+a -b -c -late -a emptied"));
    }

    // What a slot may do to the queue that is calling it, in each of its signals and in those of its tasks.
    void staysConsistentWhateverASlotDoes_data()
    {
        QTest::addColumn<QString>("signal");
        QTest::addColumn<QString>("action");
        for (const auto* signal : {"taskStarted", "taskFinished", "started", "finished", "emptied"})
            for (const auto* action : {"delete task", "delete queue", "delete others", "remove", "cancel",
                                       "clear", "append", "nested loop"})
                QTest::addRow("%s: %s", signal, action)
                    << QString::fromLatin1(signal) << QString::fromLatin1(action);
    }

    void staysConsistentWhateverASlotDoes()
    {
        QFETCH(QString, signal);
        QFETCH(QString, action);
        QPointer<Queue> queue = new Queue;
        std::vector<QPointer<Task>> tasks(6);
        for (auto& task : tasks)
            task = new Task;
        auto* late = new Task;
        bool acted = false;
        const auto act = [&] {
            if (std::exchange(acted, true))
                return;
            const QHash<QString, std::function<void()>> actions{
                {QStringLiteral("delete task"), [&] { delete tasks[0]; }},
                {QStringLiteral("delete queue"), [&] { delete queue; }},
                {QStringLiteral("delete others"),
                 [&] {
                     for (std::size_t i = 1; i < tasks.size(); ++i)
                         delete tasks[i];
                 }},
                {QStringLiteral("remove"), [&] { queue->removeTask(tasks[0]); }},
                {QStringLiteral("cancel"),
                 [&] {
                     for (const auto& task : tasks)
                         task->cancel();
                 }},
                {QStringLiteral("clear"),
                 [&] {
                     queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::General));
                 }},
                {QStringLiteral("append"), [&] { queue->append(late); }},
                {QStringLiteral("nested loop"), [&] { QCoreApplication::processEvents(); }},
            };
            actions[action]();
        };
        connect(queue, &TasksQueue::taskStarted, this,
                [&] { signal == QLatin1String("taskStarted") ? act() : void(); });
        connect(queue, &TasksQueue::taskFinished, this,
                [&] { signal == QLatin1String("taskFinished") ? act() : void(); });
        connect(queue, &TasksQueue::emptied, this,
                [&] { signal == QLatin1String("emptied") ? act() : void(); });
        connect(tasks[0], &Task::started, this, [&] { signal == QLatin1String("started") ? act() : void(); });
        connect(tasks[0], &Task::finished, this,
                [&] { signal == QLatin1String("finished") ? act() : void(); });
        for (const auto& task : tasks)
            queue->append(task);

        QTRY_VERIFY(acted && (!queue || queue->isEmpty()));
        for (std::size_t i = 1; i < tasks.size(); ++i)
            QVERIFY(!tasks[i] || tasks[i]->isFinished() || !queue);
        QVERIFY(!queue || action != QLatin1String("append") || late->isFinished() ||
                signal == QLatin1String("emptied"));
        for (const auto& task : tasks) {
            QVERIFY(!task || !task->queue());
            delete task;
        }
        delete queue;
        delete late;
    }

    void carriesAHundredThousandTasks()
    {
        constexpr int count = 100000;
        std::vector<std::unique_ptr<Task>> tasks(count);
        Queue queue;
        queue.disconnect(&queue);
        int finished = 0;
        for (int i = 0; i < count; ++i) {
            tasks[i] = std::make_unique<Task>();
            tasks[i]->setPriority(i % 3 == 0 ? i : 0); // many priorities as well as many tasks
            queue.append(tasks[i].get());
        }
        for (int i = 0; i < count; i += 10)
            queue.removeTask(tasks[i].get());
        connect(&queue, &TasksQueue::taskFinished, this, [&] { ++finished; });
        QSignalSpy emptied(&queue, &TasksQueue::emptied);
        QVERIFY(emptied.wait(30000));
        QCOMPARE(finished, count - count / 10);
    }
};

QTEST_GUILESS_MAIN(tst_TasksQueue)

#include "tst_TasksQueue.moc"
