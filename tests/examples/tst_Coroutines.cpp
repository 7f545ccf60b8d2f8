#include "../Rows.h"

#include <awaitTask.h>
#include <Task.h>

#include <QTest>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
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
        scene->log += QString::number(static_cast<int>((co_await end).errorCode())) + u' ';
        co_await std::suspend_always();
        scene->log += u"resumed again"_s;
    }

    QString log;
    QObject context;
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
        const Step succeed = [](Scene& s) { s.task->finish({}); };
        const Step destroy = [](Scene& s) { s.owner.reset(), s.task = nullptr; };
        const Step destroyLater = [](Scene& s) { // during finished()
            connect(s.task, &Task::finished, &s.context, [&s] { s.owner.reset(); });
        };
        const Step leave = [=](Scene& s) { s.frame.handle.destroy(), s.frame = {}, succeed(s); };

        const auto row = addColumns<Step, Step, QString>({"before", "meanwhile", "log"});
        row("result", nothing, succeed, u"run | 0"_s);
        row("destroyed", nothing, destroy, u"run | 1000"_s);
        row("null", destroy, nothing, u"1000 |"_s);
        row("finished before", succeed, nothing, u"0 |"_s);
        row("destroyed in finished(), by an earlier slot", destroyLater, succeed, u"run | 1000"_s);
        row("coroutine destroyed", nothing, leave, u"run |"_s);
    }

    void resumesOnceHoweverTheTaskEnds()
    {
        QFETCH(const std::function<void(Scene&)>, before);
        QFETCH(const std::function<void(Scene&)>, meanwhile);
        Scene scene;
        scene.task->begin = [&scene] { scene.log += u"run "_s, scene.task->setRunning(); };
        before(scene);
        scene.frame = Scene::wait(&scene);
        scene.log += u"| "_s;
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
