#include "../Rows.h"

#include <Task.h>
#include <TasksQueue.h>

#include <QLoggingCategory>
#include <QPointer>
#include <QRegularExpression>
#include <QTest>

#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

// Records its signals and calls in order, and reacts to them as the test asks.
class RecordingTask : public Task
{
    Q_OBJECT

public:
    RecordingTask()
    {
        connect(this, &Task::started, this, [this] { note("started"); });
        connect(this, &Task::canceled, this, [this] { note("canceled"); });
        connect(this, &Task::finished, this,
                [this] { note(isFinished() ? "finished" : "finished too early"); });
    }

    void note(const char* event)
    {
        events.append(QLatin1String(event));
        if (events.size() < 50 && reactions.contains(events.last()))
            reactions[events.last()]();
    }

    Error doExec() override
    {
        note("doExec");
        return outcome;
    }
    Error doFinish() override
    {
        QPointer<RecordingTask> self(this);
        note("doFinish");
        return self ? (verdict ? *verdict : Task::doFinish()) : Error();
    }
    void finalize() override { note(isFinished() ? "finalize" : "finalize too early"); }

    QString log() const { return events.join(u' '); }

    QStringList events;
    QHash<QString, std::function<void()>> reactions;
    Error outcome;
    std::optional<Error> verdict;
};

// Its coroutine is suspended until the test resumes the handle.
class SuspendedTask : public Task
{
public:
    struct Suspension : std::suspend_always
    {
        std::coroutine_handle<>* handle;
        void await_suspend(std::coroutine_handle<> suspended) const noexcept { *handle = suspended; }
    };

    QCoro::Task<Error> co_doExec() override
    {
        co_await Suspension{{}, &handle};
        co_return Error(ErrorCode::General, "resumed");
    }

    static inline std::coroutine_handle<> handle; // outlives the task
};

} // namespace

class tst_Task : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QLoggingCategory::setFilterRules({}); }

    void finishesStepByStep()
    {
        RecordingTask task;
        task.outcome = Error(ErrorCode::General, "stored");
        task.reactions[u"doFinish"_s] = [&] {
            QCOMPARE(task.error().errorMessage(), u"stored"_s);
            QVERIFY(task.isRunning() && !task.isFinished());
        };
        task.verdict = Error(ErrorCode::FileAccess, "final");
        task.reactions[u"finalize"_s] = [&] { QCOMPARE(task.error().errorMessage(), u"final"_s); };
        task.exec();
        QCOMPARE(task.log(), u"started doExec doFinish finalize finished"_s);
        QCOMPARE(task.error().errorCode(), ErrorCode::FileAccess);
    }

    void finishesOnlyOnce_data() { addRows("event", {"doFinish", "finalize", "finished"}); }
    void finishesOnlyOnce()
    {
        QFETCH(QString, event);
        RecordingTask task;
        const auto continueAnyway = [&] {
            task.finish(Error(ErrorCode::General, "second"));
            task.cancel();
            task.setRunning();
            task.setIdle();
            task.exec();
        };
        task.reactions[event] = continueAnyway;
        task.exec();
        continueAnyway();
        QCOMPARE(task.log(), u"started doExec doFinish finalize finished"_s);
        QVERIFY(task.isFinished() && !task.isRunning() && !task.isCanceled() && !task.hasError());
    }

    void isCanceledInEveryState_data() { addRows("state", {"idle", "running", "paused", "idle again"}); }
    void isCanceledInEveryState()
    {
        QFETCH(QString, state);
        RecordingTask task;
        if (state != "idle"_L1)
            task.setRunning();
        if (state == "paused"_L1)
            task.pause();
        if (state == "idle again"_L1)
            task.setIdle();
        QCOMPARE(task.isPaused(), state == "paused"_L1);
        QCOMPARE(task.isRunning(), state == "paused"_L1 || state == "running"_L1);
        task.events.clear();
        task.setCanceled(state == "running"_L1); // the flag alone stops nothing
        task.reactions[u"canceled"_s] = [&] { task.cancel(); };
        task.cancel();
        QVERIFY(task.isCanceled());
        QCOMPARE(task.log(), u"canceled doFinish finalize finished"_s);
        QCOMPARE(task.error().errorCode(), ErrorCode::Canceled);
    }

    void deletesItselfAfterFinishing()
    {
        QPointer<RecordingTask> task = new RecordingTask;
        task->setAutoDelete(true);
        task->exec();
        QVERIFY(task);
        QTRY_VERIFY(!task);
    }

    void endsWithItsCoroutine()
    {
        SuspendedTask task;
        task.exec();
        task.exec();
        QVERIFY(task.isRunning());
        SuspendedTask::handle.resume();
        QCOMPARE(task.error().errorMessage(), u"resumed"_s);
    }

    void mayEndBeforeItsCoroutine()
    {
        std::make_unique<SuspendedTask>()->exec();
        SuspendedTask::handle.resume(); // ends the coroutine of a task that is gone, and frees it

        SuspendedTask canceled;
        canceled.exec();
        canceled.cancel();
        SuspendedTask::handle.resume();
        QCOMPARE(canceled.error().errorCode(), ErrorCode::Canceled);
    }

    void warnsInsteadOfRunningAgain()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        Task task;
        task.setRunning();
        task.exec();
        QVERIFY(!task.isFinished()); // neither run nor warned about
        task.finish(Error());
        task.exec(); // silent until the application enables the category
        QLoggingCategory::setFilterRules(u"orv.tasks.warning=true"_s);
        QTest::ignoreMessage(QtWarningMsg, "Unable to continue, the task is finished");
        task.exec();
    }

    // Whichever step throws, the task ends, announces it once and leaves its queue.
    void endsAlthoughAStepThrows_data()
    {
        const auto row = addColumns<bool, ErrorCode, QString>({"isRethrown", "code", "text"});
        row("doExec", false, ErrorCode::General, u"thrown"_s);
        row("doFinish", false, ErrorCode::General, u"thrown"_s);
        row("finalize", false, ErrorCode::FileAccess, u"outcome"_s);
        row("finished", true, ErrorCode::FileAccess, u"outcome"_s);
        row("canceled", true, ErrorCode::Canceled, u"Canceled"_s);
    }
    void endsAlthoughAStepThrows()
    {
        const auto step = QString::fromLatin1(QTest::currentDataTag());
        TasksQueue queue;
        RecordingTask task;
        task.outcome = Error(ErrorCode::FileAccess, "outcome");
        queue.append(&task);
        task.reactions[step] = [] { throw std::runtime_error("thrown"); };
        QLoggingCategory::setFilterRules(u"orv.tasks.warning=true"_s);
        if (step == "finalize"_L1) // reported nowhere else
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"finalized: .*thrown"_s));
        bool isThrown = false;
        try {
            step == "canceled"_L1 ? task.cancel()
            : step == "doExec"_L1 ? task.exec()
                                  : task.finish(task.outcome);
        } catch (const std::runtime_error&) {
            isThrown = true;
        }
        QTEST(isThrown, "isRethrown");
        QVERIFY(task.isFinished() && queue.isEmpty());
        QVERIFY2(task.log().endsWith(u"doFinish finalize finished"_s), qPrintable(task.log()));
        QTEST(task.error().errorCode(), "code");
        QTEST(task.error().errorMessage(), "text");
    }

    void endsWithGeneralAfterAnExceptionOfAnyType()
    {
        for (const auto& step : {u"doExec"_s, u"doFinish"_s}) {
            RecordingTask task;
            task.reactions[step] = [] { throw 1; };
            task.exec();
            QCOMPARE(task.error().errorCode(), ErrorCode::General);
            QCOMPARE(task.error().errorMessage(), u"Unknown exception"_s);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Task)

#include "tst_Task.moc"
