#include "../Rows.h"

#include <Task.h>
#include <TasksQueue.h>

#include <QPointer>
#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

// Runs until the test finishes it, or begins with a wait.
class OpenTask : public Task
{
public:
    explicit OpenTask(const char* name, TasksQueue* queue = nullptr, int priority = 0)
    {
        setName(QString::fromLatin1(name));
        setPriority(priority);
        if (queue)
            queue->append(this);
    }

    using Task::setStartsWaiting;

    void exec() override
    {
        setRunning();
        if (isWaiting)
            pause();
    }

    bool isWaiting = false;
};

class Queue : public TasksQueue
{
    Q_OBJECT

public:
    Queue()
    {
        const auto note = [this](char sign) {
            return [this, sign](Task* task) { events.append(QLatin1Char(sign) + task->name()); };
        };
        connect(this, &TasksQueue::taskStarted, this, note('+'));
        connect(this, &TasksQueue::taskFinished, this, note('-'));
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

// The first letter of a task's name is its gate.
class GatedQueue : public Queue, private TasksQueue::Gatekeeper
{
public:
    GatedQueue() { setGatekeeper(this); }

    using Queue::openGate;
    using Queue::reconsider;
    using Queue::startTasks;

    QString closed;
    int limit = 100;
    bool isWaiting = false;
    int asked = 0;

private:
    Admission admit(Task* task) override
    {
        ++asked;
        if (isWaiting)
            return {Admission::Verdict::Wait, {}};
        const auto gate = task->name().left(1);
        const bool isHeld = closed.contains(gate) || m_running >= limit;
        return {isHeld ? Admission::Verdict::Hold : Admission::Verdict::GoOn, gate.toLatin1()};
    }
    void onSlotChanged(Task*, bool holdsSlot) override { m_running += holdsSlot ? 1 : -1; }

    int m_running = 0;
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
        connect(&queue, &Queue::taskStarted, this, [](Task* task) { task->finish(Error()); });
        OpenTask a("a", &queue), b("b", &queue, 2), c("c", &queue, -5), d("d", &queue, 9), e("e", &queue, 1);
        OpenTask first("first", nullptr, 7);
        queue.addTask(&first, TasksQueue::EnqueueMode::Front);
        QCOMPARE(queue.pendingTasksCount(), 6);
        QVERIFY(queue.events.isEmpty() && !a.isRunning()); // nothing runs inside append()
        QTRY_VERIFY(queue.events.contains(u"emptied"_s));
        QCOMPARE(queue.log(), u"+first -first +b -b +d -d +e -e +a -a +c -c emptied"_s);
        QVERIFY(!a.queue() && queue.isEmpty());
    }

    void limitsHowManyTasksRunAtOnce()
    {
        Queue queue;
        OpenTask a("a", &queue), b("b", &queue), c("c", &queue), d("d", &queue);
        queue.setMaxRunningTasks(-3); // counts as 1
        QCOMPARE(queue.log(), u"+a"_s);
        a.pause(); // its slot is for another one
        QCOMPARE(queue.log(), u"+a +b"_s);
        queue.setMaxRunningTasks(2); // starts another one
        QCOMPARE(queue.log(), u"+a +b +c"_s);
        queue.setMaxRunningTasks(1); // stops none
        connect(&a, &Task::finished, this, [&] { queue.events.append(u"a has finished"_s); });
        a.finish(Error());
        b.finish(Error());
        QCOMPARE(queue.log(), u"+a +b +c a has finished -a -b"_s);
        c.finish(Error());
        QCOMPARE(queue.log(), u"+a +b +c a has finished -a -b -c +d"_s);
    }

    void resumesTasksInOrderWithoutExceedingTheLimit()
    {
        Queue queue;
        OpenTask a("a", &queue), b("b", &queue), c("c", &queue), urgent("urgent", nullptr, 9);
        for (auto* task : {&a, &b}) {
            queue.log();
            task->pause();
        }
        QCOMPARE(queue.log(), u"+a +b +c"_s);
        queue.append(&urgent);
        b.resume(); // no slot is free
        a.setRunning();
        b.resume();
        QCOMPARE(queue.pendingTasksCount(), 1);
        queue.log();
        QVERIFY(a.isPaused() && b.isPaused());
        c.pause();
        a.resume(); // the slot is free, but it is the turn of b
        QVERIFY(a.isPaused());
        queue.log();
        QVERIFY(!b.isPaused() && a.isPaused());
        b.finish(Error());
        a.resume(); // inside the call
        QVERIFY(!a.isPaused());
        c.resume();
        c.pause(); // again: it does not wait for a slot any longer
        a.finish(Error());
        QCOMPARE(queue.log(), u"+a +b +c -b -a +urgent"_s);
        QVERIFY(c.isPaused());
    }

    void letsTasksGoThatWaitForASlot_data()
    {
        addRows("action", {"finish", "delete", "set idle", "remove", "clear", "delete queue"});
    }
    void letsTasksGoThatWaitForASlot()
    {
        QFETCH(QString, action);
        auto queue = std::make_unique<Queue>();
        auto a = std::make_unique<OpenTask>("a", queue.get());
        OpenTask b("b", queue.get()), c("c", queue.get());
        queue->log();
        a->pause();
        queue->log();
        a->resume();
        QVERIFY(a->isPaused() && b.isRunning());
        const QHash<QString, std::function<void()>> actions{
            {u"finish"_s, [&] { a->finish(Error()); }},
            {u"delete"_s, [&] { a.reset(); }},
            {u"set idle"_s, [&] { a->setIdle(); }},
            {u"remove"_s, [&] { queue->removeTask(a.get()); }},
            {u"clear"_s, [&] { queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error()); }},
            {u"delete queue"_s, [&] { queue.reset(); }},
        };
        actions[action]();
        const bool goesOn = action == "remove"_L1 || action == "delete queue"_L1;
        QVERIFY(!goesOn || a->isPaused()); // not inside the call
        b.finish(Error());
        QCoreApplication::processEvents();
        QVERIFY(!a || a->isPaused() == false);
        QCOMPARE(a && a->isRunning(), goesOn);
        QCOMPARE(c.isRunning(), action != "clear"_L1 && action != "delete queue"_L1);
    }

    // Its exec() only begins to wait.
    void startsATaskThatBeginsToWaitWithoutASlot()
    {
        Queue queue;
        OpenTask a("a", &queue);
        OpenTask retried("retried"), other("other");
        retried.isWaiting = true;
        queue.log();
        for (auto* task : {&retried, &other}) {
            task->setStartsWaiting(true);
            queue.append(task);
        }
        QCOMPARE(queue.pendingTasksCount(), 2);
        QCOMPARE(queue.log(), u"+a +retried +other"_s);
        OpenTask b("b", &queue);
        retried.resume();
        a.finish(Error());
        queue.log();
        QVERIFY(retried.isPaused()); // the slot is taken by the one that does not wait after all
        other.finish(Error());
        QCOMPARE(queue.log(), u"+a +retried +other -a -other"_s);
        QVERIFY(!retried.isPaused() && queue.pendingTasksCount() == 1);
    }

    void holdsTasksAtGatesAndKeepsTheirOrder()
    {
        GatedQueue queue;
        queue.closed = u"xy"_s;
        queue.setMaxRunningTasks(4);
        OpenTask x1("x1", &queue), y1("y1", &queue), z1("z1", &queue), x2("x2", &queue, 5), y2("y2", &queue),
            z2("z2", &queue, 9), x3("x3", &queue), y3("y3", &queue), first("xfirst"), last("zlast");
        queue.addTask(&first, TasksQueue::EnqueueMode::Front);
        QCOMPARE(queue.log(), u"+z2 +z1"_s);
        QCOMPARE(queue.pendingTasksCount(), 7);
        queue.setMaxRunningTasks(1);
        queue.closed.clear();
        queue.append(&last);
        queue.removeTask(&x3);
        y3.finish(Error());
        queue.openGate("x");
        queue.openGate("y");
        queue.openGate("unknown");
        connect(&queue, &Queue::taskStarted, this, [](Task* task) { task->finish(Error()); });
        queue.closed = u"y"_s;
        z1.finish(Error());
        z2.finish(Error());
        QCOMPARE(queue.log(), u"+z2 +z1 -y3 -z1 -z2 +x2 -x2 +xfirst -xfirst +x1 -x1 +zlast -zlast"_s);
        queue.events.clear();
        queue.closed.clear();
        queue.reconsider(&y2);
        QCOMPARE(queue.log(), u"+y2 -y2"_s);
        queue.isWaiting = true;
        queue.openGate("y");
        QCOMPARE(queue.log(), u"+y2 -y2"_s);
        queue.isWaiting = false;
        queue.startTasks();
        QCOMPARE(queue.log(), u"+y2 -y2 +y1 -y1 emptied"_s);
    }

    void resumesTasksThatWereHeldFirst()
    {
        GatedQueue queue;
        queue.setMaxRunningTasks(2);
        OpenTask x1("x1", &queue), x2("x2", &queue), y("y", &queue);
        queue.log();
        x2.pause();
        QCOMPARE(queue.log(), u"+x1 +x2 +y"_s);
        queue.closed = u"x"_s;
        y.finish(Error());
        x2.resume(); // a slot is free, but the gate is closed
        OpenTask x0("x0", &queue, 9);
        queue.log();
        QVERIFY(x2.isPaused());
        queue.closed.clear();
        queue.openGate("x");
        QCOMPARE(queue.log(), u"+x1 +x2 +y -y"_s);
        QVERIFY(!x2.isPaused() && !x0.isRunning());
    }

    // A gatekeeper is not asked again about all that it holds.
    void asksOnceAboutTasksThatAreHeld()
    {
        constexpr int count = 2000;
        GatedQueue queue;
        queue.setMaxRunningTasks(10);
        queue.limit = 2;
        std::vector<std::unique_ptr<OpenTask>> tasks;
        for (int i = 0; i < count; ++i)
            tasks.push_back(std::make_unique<OpenTask>("x", &queue));
        queue.log();
        QCOMPARE(queue.asked, count);
        for (auto& task : tasks) {
            QVERIFY(task->isRunning());
            task.reset();
            queue.openGate("x");
            queue.log();
        }
        QVERIFY2(queue.asked < 3 * count, qPrintable(QString::number(queue.asked)));
    }

    void ignoresTasksThatCannotBeAdded()
    {
        Queue queue, other;
        Task done;
        done.finish(Error());
        queue.append(&done);
        queue.removeTask(&done);
        QVERIFY(queue.isEmpty());
        OpenTask a("a", &other);
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
        OpenTask a("a", &queue), b("b", &queue), c("c", &queue), late("late");
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

    // A slot of any signal of the queue or of its tasks may change or delete any of them.
    void staysConsistentWhateverASlotDoes_data()
    {
        addRowsForActions(
            {"taskStarted", "taskFinished", "started", "finished", "emptied"},
            {"delete task", "delete queue", "delete others", "remove", "clear", "append", "nested loop"});
    }
    void staysConsistentWhateverASlotDoes()
    {
        QFETCH(QString, place);
        QFETCH(QString, action);
        QPointer<Queue> queue = new Queue;
        std::vector<QPointer<Task>> tasks(6);
        for (auto& task : tasks)
            task = new Task;
        Task late;
        const QHash<QString, std::function<void()>> actions{
            {u"delete task"_s, [&] { delete tasks[0]; }},
            {u"delete queue"_s, [&] { delete queue; }},
            {u"delete others"_s,
             [&] { std::for_each(tasks.begin() + 1, tasks.end(), [](auto& task) { delete task; }); }},
            {u"remove"_s, [&] { queue->removeTask(tasks[0]); }},
            {u"clear"_s, [&] { queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error()); }},
            {u"append"_s, [&] { queue->append(&late); }},
            {u"nested loop"_s, [&] { QCoreApplication::processEvents(); }},
        };
        bool acted = false;
        const auto actIn = [&](const char* here) {
            return [&, isHere = place == QLatin1String(here)] {
                if (isHere && !std::exchange(acted, true))
                    actions[action]();
            };
        };
        connect(queue, &TasksQueue::taskStarted, this, actIn("taskStarted"));
        connect(queue, &TasksQueue::taskFinished, this, actIn("taskFinished"));
        connect(queue, &TasksQueue::emptied, this, actIn("emptied"));
        connect(tasks[0], &Task::started, this, actIn("started"));
        connect(tasks[0], &Task::finished, this, actIn("finished"));
        for (const auto& task : tasks)
            queue->append(task);

        QTRY_VERIFY(acted && (!queue || queue->isEmpty()));
        QVERIFY(!queue || action != "append"_L1 || late.isFinished() || place == "emptied"_L1);
        for (const auto& task : tasks) {
            QVERIFY(!task || !task->queue());
            QVERIFY(!task || task->isFinished() || task == tasks[0] || !queue);
            delete task;
        }
        delete queue;
    }
};

QTEST_GUILESS_MAIN(tst_TasksQueue)

#include "tst_TasksQueue.moc"
