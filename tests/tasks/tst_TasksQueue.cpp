#include "../Rows.h"

#include <Task.h>
#include <TasksQueue.h>

#include <QPointer>
#include <QTest>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

// Runs until the test finishes it.
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
                [this](Task* task) { events.append(u'+' + task->name()); });
        connect(this, &TasksQueue::taskFinished, this,
                [this](Task* task) { events.append(u'-' + task->name()); });
        connect(this, &TasksQueue::emptied, this, [this] { events.append(u"emptied"_s); });
    }

    using TasksQueue::addTask;

    QString log()
    {
        // Two turns: one for what is scheduled, one for what that schedules.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        return events.join(u' ');
    }

    QStringList events;
};

// Passes the first task that it takes through a function of the test.
class MeddlingQueue : public Queue
{
public:
    Task* dequeueTask() override
    {
        Task* task = Queue::dequeueTask();
        const auto change = std::exchange(meddle, {}); // outlives the queue
        return change ? change(task) : task;
    }

    std::function<Task*(Task*)> meddle;
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
        OpenTask a("a", 0), b("b", 2), c("c", -5), d("d", 9), e("e", 1), first("first", 7);
        for (auto* task : {&a, &b, &c, &d, &e}) {
            connect(task, &Task::started, task, [task] { task->finish(Error()); });
            queue.append(task);
        }
        connect(&first, &Task::started, &first, [&] { first.finish(Error()); });
        queue.addTask(&first, TasksQueue::EnqueueMode::Front);
        QCOMPARE(queue.pendingTasksCount(), 6);
        QVERIFY(queue.events.isEmpty() && !a.isRunning()); // nothing runs inside append()
        QTRY_VERIFY(queue.events.contains(u"emptied"_s));
        QCOMPARE(queue.log(), u"+first -first +b -b +d -d +e -e +a -a +c -c emptied"_s);
        QVERIFY(!a.queue() && queue.isEmpty());
    }

    void givesNoSlotToTasksThatWait()
    {
        Queue queue;
        OpenTask a("a"), b("b"), c("c");
        for (auto* task : {&a, &b, &c})
            queue.append(task);
        QCOMPARE(queue.log(), u"+a"_s);
        a.pause();
        QCOMPARE(queue.log(), u"+a +b"_s);
        a.resume(); // although the slot is taken
        b.finish(Error());
        QCOMPARE(queue.log(), u"+a +b -b"_s);
        a.finish(Error());
        QCOMPARE(queue.log(), u"+a +b -b -a +c"_s);
        queue.setMaxRunningTasks(-3); // counts as 1
        c.finish(Error());
        QCOMPARE(queue.log(), u"+a +b -b -a +c -c emptied"_s);

        OpenTask waiting("waiting"), next("next");
        queue.events.clear();
        queue.append(&waiting);
        queue.append(&next);
        waiting.exec();
        waiting.pause(); // before its turn comes
        QCOMPARE(queue.log(), u"+next"_s);
    }

    void limitsHowManyTasksRunAtOnce()
    {
        Queue queue;
        OpenTask a("a"), b("b"), c("c"), d("d");
        for (auto* task : {&a, &b, &c, &d})
            queue.append(task);
        queue.setMaxRunningTasks(2);
        QCOMPARE(queue.log(), u"+a +b"_s);
        queue.setMaxRunningTasks(3); // starts another one
        QCOMPARE(queue.log(), u"+a +b +c"_s);
        queue.setMaxRunningTasks(1); // stops none
        connect(&a, &Task::finished, this, [&] { queue.events.append(u"a has finished"_s); });
        a.finish(Error());
        b.finish(Error());
        QCOMPARE(queue.log(), u"+a +b +c a has finished -a -b"_s);
        c.finish(Error());
        QCOMPARE(queue.log(), u"+a +b +c a has finished -a -b -c +d"_s);
    }

    void ignoresTasksThatCannotBeAdded()
    {
        Queue queue, other;
        Task done;
        done.finish(Error());
        queue.append(&done);
        queue.removeTask(&done);
        QVERIFY(queue.isEmpty());
        OpenTask a("a");
        other.append(&a);
        queue.append(&a);
        queue.append(&a);
        QCOMPARE(a.queue(), &queue);
        QVERIFY(other.isEmpty());
        QCOMPARE(queue.pendingTasksCount(), 1);
        a.exec(); // from outside, while it is pending
        QCOMPARE(queue.log(), QString());
        a.cancel();
        QCOMPARE(queue.log(), u"-a emptied"_s);
    }

    void finishesTheTasksThatThePolicySelects()
    {
        Queue queue;
        OpenTask a("a"), b("b"), c("c"), late("late");
        for (auto* task : {&a, &b, &c})
            queue.append(task);
        queue.log();
        connect(&b, &Task::finished, &queue, [&] { queue.append(&late); });
        queue.clear(TasksQueue::ClearPolicy::PendingOnly, Error(ErrorCode::General, "cleared"));
        QVERIFY(!a.isFinished());
        QCOMPARE(c.error().errorMessage(), u"cleared"_s);
        QCOMPARE(queue.pendingTasksCount(), 1);
        queue.clear(TasksQueue::ClearPolicy::PendingAndRunning, Error());
        QVERIFY(a.isFinished() && late.isFinished() && !a.hasError());
        QCOMPARE(queue.log(), u"+a -b -c -late -a emptied"_s);
    }

    void allowsDeletionsInDequeueTask_data()
    {
        addRows("action", {"delete queue", "delete task", "delete task, return null", "return foreign task"});
    }
    void allowsDeletionsInDequeueTask()
    {
        QFETCH(QString, action);
        QPointer<MeddlingQueue> queue = new MeddlingQueue;
        auto first = std::make_unique<OpenTask>("first");
        OpenTask second("second"), foreign("foreign");
        queue->meddle = [&](Task* task) {
            if (action == "delete queue"_L1)
                delete queue;
            if (action.startsWith(u"delete task"_s))
                first.reset();
            return action.endsWith(u"null"_s)           ? nullptr
                   : action.endsWith(u"foreign task"_s) ? &foreign
                                                        : task;
        };
        queue->append(first.get());
        queue->append(&second);
        QTRY_VERIFY(!queue || second.isRunning());
        QVERIFY(!foreign.isRunning());
        delete queue;
        QVERIFY(!second.queue());
    }

    // A slot of any signal of the queue or of its tasks may change or delete any of them.
    void staysConsistentWhateverASlotDoes_data()
    {
        addRowsForActions({"taskStarted", "taskFinished", "started", "finished", "emptied"},
                          {"delete task", "delete queue", "delete others", "remove", "cancel", "clear",
                           "append", "nested loop"});
    }

    void staysConsistentWhateverASlotDoes()
    {
        QFETCH(QString, place);
        QFETCH(QString, action);
        QPointer<Queue> queue = new Queue;
        std::vector<QPointer<Task>> tasks(6);
        for (auto& task : tasks)
            task = new Task;
        auto* late = new Task;
        const auto deleteOthers = [&] {
            for (std::size_t i = 1; i < tasks.size(); ++i)
                delete tasks[i];
        };
        const auto cancelAll = [&] {
            for (const auto& task : tasks)
                task->cancel();
        };
        const auto clear = [&] {
            queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::General));
        };
        const QHash<QString, std::function<void()>> actions{
            {u"delete task"_s, [&] { delete tasks[0]; }},
            {u"delete queue"_s, [&] { delete queue; }},
            {u"delete others"_s, deleteOthers},
            {u"remove"_s, [&] { queue->removeTask(tasks[0]); }},
            {u"cancel"_s, cancelAll},
            {u"clear"_s, clear},
            {u"append"_s, [&] { queue->append(late); }},
            {u"nested loop"_s, [&] { QCoreApplication::processEvents(); }},
        };
        bool acted = false;
        const auto actIn = [&](QLatin1String here) {
            if (place == here && !std::exchange(acted, true))
                actions[action]();
        };
        connect(queue, &TasksQueue::taskStarted, this, [&] { actIn("taskStarted"_L1); });
        connect(queue, &TasksQueue::taskFinished, this, [&] { actIn("taskFinished"_L1); });
        connect(queue, &TasksQueue::emptied, this, [&] { actIn("emptied"_L1); });
        connect(tasks[0], &Task::started, this, [&] { actIn("started"_L1); });
        connect(tasks[0], &Task::finished, this, [&] { actIn("finished"_L1); });
        for (const auto& task : tasks)
            queue->append(task);

        QTRY_VERIFY(acted && (!queue || queue->isEmpty()));
        for (std::size_t i = 1; i < tasks.size(); ++i)
            QVERIFY(!tasks[i] || tasks[i]->isFinished() || !queue);
        QVERIFY(!queue || action != "append"_L1 || late->isFinished() || place == "emptied"_L1);
        for (const auto& task : tasks) {
            QVERIFY(!task || !task->queue());
            delete task;
        }
        delete queue;
        delete late;
    }
};

QTEST_GUILESS_MAIN(tst_TasksQueue)

#include "tst_TasksQueue.moc"
