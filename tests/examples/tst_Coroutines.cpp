#include <awaitTask.h>
#include <TasksQueue.h>

#include <QTest>

#include <functional>
#include <memory>

using namespace orv;

/// A coroutine whose frame may be destroyed while it is suspended, which a QCoro::Task never does.
struct Frame
{
    struct promise_type // NOLINT(readability-identifier-naming)
    {
        Frame get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
    std::coroutine_handle<promise_type> handle;
};

/// A task that the test ends, a coroutine that waits for it, and a log of what happened.
struct Scene
{
    struct Probe : Task
    {
        void exec() override { begin(); }
        std::function<void()> begin;
    };

    static Frame wait(Scene* scene)
    {
        auto end = awaitTask(scene->task); // outlives the suspension, as in an expression with several awaits
        scene->log += QString::number(static_cast<int>((co_await end).errorCode())) + QLatin1Char(' ');
        co_await std::suspend_always();
        scene->log += QStringLiteral("resumed again");
    }

    QString log;
    TasksQueue queue;
    std::unique_ptr<Probe> owner = std::make_unique<Probe>();
    Probe* task = owner.get(); // may dangle once the owner is reset
    Frame frame;
};

class tst_Coroutines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resumesOnceHoweverTheTaskEnds_data()
    {
        using Step = std::function<void(Scene&)>;
        const Step nothing = [](Scene&) {};
        const Step append = [](Scene& s) { s.queue.append(s.task); };
        const Step succeed = [](Scene& s) { s.task->finish({}); };
        const Step fail = [](Scene& s) { s.task->finish(Error(ErrorCode::Network)); };
        const Step cancel = [](Scene& s) { s.task->cancel(); };
        const Step destroy = [](Scene& s) { s.owner.reset(), s.task = nullptr; };
        const Step destroyLater = [](Scene& s) { // during finished()
            connect(s.task, &Task::finished, &s.queue, [&s] { s.owner.reset(); });
        };
        const Step leave = [=](Scene& s) { s.frame.handle.destroy(), s.frame = {}, succeed(s); };

        QTest::addColumn<Step>("before");
        QTest::addColumn<Step>("meanwhile");
        QTest::addColumn<QString>("log");
        QTest::newRow("result") << nothing << succeed << "run | 0";
        QTest::newRow("failure") << nothing << fail << "run | 24";
        QTest::newRow("cancel") << nothing << cancel << "run | 1000";
        QTest::newRow("destroyed") << nothing << destroy << "run | 1000";
        QTest::newRow("null") << destroy << nothing << "1000 |";
        QTest::newRow("finished before") << succeed << nothing << "0 |";
        QTest::newRow("in a queue") << append << succeed << "| run 0";
        QTest::newRow("destroyed in finished(), by an earlier slot")
            << destroyLater << succeed << "run | 1000";
        QTest::newRow("coroutine destroyed") << nothing << leave << "run |";
    }

    void resumesOnceHoweverTheTaskEnds()
    {
        QFETCH(const std::function<void(Scene&)>, before);
        QFETCH(const std::function<void(Scene&)>, meanwhile);
        Scene scene;
        scene.task->begin = [&scene] { scene.log += QStringLiteral("run "), scene.task->setRunning(); };
        before(scene);
        scene.frame = Scene::wait(&scene);
        scene.log += QStringLiteral("| ");
        QCoreApplication::processEvents();
        meanwhile(scene);
        scene.owner.reset(); // must not resume it a second time
        QTEST(scene.log.trimmed(), "log");
        if (scene.frame.handle)
            scene.frame.handle.destroy();
    }
};

QTEST_GUILESS_MAIN(tst_Coroutines)
#include "tst_Coroutines.moc"
