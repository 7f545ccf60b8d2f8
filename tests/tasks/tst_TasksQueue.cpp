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

// Runs until the test finishes it.
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

    void exec() override { setRunning(); }
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

// Takes a task that the test chooses.
class MeddlingQueue : public Queue
{
public:
    Task* dequeueTask() override
    {
        Task* task = Queue::dequeueTask();
        return meddle ? std::exchange(meddle, {})(task) : task;
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

    void givesNoSlotToTasksThatWait()
    {
        Queue queue;
        OpenTask a("a", &queue), b("b", &queue), c("c", &queue);
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

        queue.events.clear();
        OpenTask waiting("waiting", &queue), next("next", &queue);
        waiting.exec();
        waiting.pause(); // before its turn comes
        QCOMPARE(queue.log(), u"+next"_s);
    }

    void limitsHowManyTasksRunAtOnce()
    {
        Queue queue;
        OpenTask a("a", &queue), b("b", &queue), c("c", &queue), d("d", &queue);
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

    void takesOnlyTasksThatItHas_data() { addRows("taken", {"none", "deleted", "foreign"}); }
    void takesOnlyTasksThatItHas()
    {
        QFETCH(QString, taken);
        MeddlingQueue queue;
        auto first = std::make_unique<OpenTask>("first");
        OpenTask second("second"), foreign("foreign");
        queue.meddle = [&](Task* task) -> Task* {
            if (taken != "foreign"_L1)
                first.reset();
            return taken == "none"_L1 ? nullptr : taken == "foreign"_L1 ? &foreign : task;
        };
        queue.append(first.get());
        queue.append(&second);
        QTRY_VERIFY(second.isRunning());
        QVERIFY(!foreign.isRunning());
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
        const QHash<QString, std::function<void()>> actions{
            {u"delete task"_s, [&] { delete tasks[0]; }},
            {u"delete queue"_s, [&] { delete queue; }},
            {u"delete others"_s,
             [&] { std::for_each(tasks.begin() + 1, tasks.end(), [](auto& task) { delete task; }); }},
            {u"remove"_s, [&] { queue->removeTask(tasks[0]); }},
            {u"cancel"_s,
             [&] { std::for_each(tasks.begin(), tasks.end(), [](auto& task) { task->cancel(); }); }},
            {u"clear"_s, [&] { queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error()); }},
            {u"append"_s, [&] { queue->append(late); }},
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
