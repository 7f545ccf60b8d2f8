#include "../Rows.h"

#include <Task.h>
#include <TasksQueue.h>

#include <QLoggingCategory>
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
        note("doFinish");
        return verdict ? *verdict : Task::doFinish();
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
        co_return Error(ErrorCode::General);
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
        QTest::failOnWarning(QRegularExpression(u"."_s)); // silent until the application enables the category
        RecordingTask task;
        task.reactions[u"started"_s] = [&] { task.exec(); };
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

    void isCanceledInEveryState_data() { addRows("state", {"idle", "running", "paused"}); }
    void isCanceledInEveryState()
    {
        QFETCH(QString, state);
        RecordingTask task;
        if (state != "idle"_L1)
            task.setRunning();
        if (state == "paused"_L1)
            task.pause();
        task.events.clear();
        task.setCanceled(state == "running"_L1); // the flag alone stops nothing
        task.reactions[u"canceled"_s] = [&] { task.cancel(); };
        task.cancel();
        QVERIFY(task.isCanceled());
        QCOMPARE(task.log(), u"canceled doFinish finalize finished"_s);
        QCOMPARE(task.error().errorCode(), ErrorCode::Canceled);
    }

    void endsWithItsCoroutineOrBefore()
    {
        std::make_unique<SuspendedTask>()->exec();
        SuspendedTask::handle.resume(); // ends the coroutine of a task that is gone, and frees it

        for (const auto code : {ErrorCode::General, ErrorCode::Canceled}) {
            SuspendedTask task;
            task.exec();
            QVERIFY(task.isRunning());
            if (code == ErrorCode::Canceled)
                task.cancel();
            SuspendedTask::handle.resume();
            QCOMPARE(task.error().errorCode(), code);
        }
    }

    // Whichever step throws, the task ends, announces it once and leaves its queue.
    void endsAlthoughAStepThrows_data()
    {
        const auto row = addColumns<bool, ErrorCode, QString>({"isRethrown", "code", "text"});
        row("doExec", false, ErrorCode::General, u"thrown"_s);
        row("doExec: 1", false, ErrorCode::General, u"Unknown exception"_s);
        row("doFinish", false, ErrorCode::General, u"thrown"_s);
        row("doFinish: 1", false, ErrorCode::General, u"Unknown exception"_s);
        row("finalize", false, ErrorCode::FileAccess, u"outcome"_s);
        row("finished", true, ErrorCode::FileAccess, u"outcome"_s);
        row("canceled", true, ErrorCode::Canceled, u"Canceled"_s);
    }
    void endsAlthoughAStepThrows()
    {
        const auto tag = QString::fromLatin1(QTest::currentDataTag());
        const auto step = tag.section(u':', 0, 0);
        TasksQueue queue;
        RecordingTask task;
        task.outcome = Error(ErrorCode::FileAccess, "outcome");
        queue.append(&task);
        task.reactions[step] = [&] { tag == step ? throw std::runtime_error("thrown") : throw 1; };
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
};

QTEST_GUILESS_MAIN(tst_Task)

#include "tst_Task.moc"
