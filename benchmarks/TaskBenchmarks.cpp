// clazy:excludeall=lambda-in-connect
#include "Benchmarks.h"
#include "Clients.h"
#include "Countdown.h"
#include "Memory.h"

#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>
#include <TasksQueue.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

using orv::NetworkTask;
using orv::Task;
using orv::TasksQueue;

// The objects that a program without this library would need for the same purpose.
struct Parts
{
    std::unique_ptr<QNetworkRequest> request = std::make_unique<QNetworkRequest>();
    std::unique_ptr<QTimer> timer = std::make_unique<QTimer>();
    std::unique_ptr<QObject> first = std::make_unique<QObject>();
    std::unique_ptr<QObject> second = std::make_unique<QObject>();
};

Contender parts()
{
    return {u"QNetworkRequest, QTimer, two QObjects"_s, [](int count) {
                for (int i = 0; i < count; ++i)
                    const Parts made;
            }};
}

Contender construction()
{
    return {u"NetworkTask"_s, [](int count) {
                for (int i = 0; i < count; ++i)
                    const auto task = std::make_unique<NetworkTask>();
            }};
}

Contender singleShots()
{
    return {u"QTimer::singleShot(0)"_s, [](int count) {
                QEventLoop loop;
                int left = count;
                for (int i = 0; i < count; ++i) {
                    QTimer::singleShot(0, &loop, [&] {
                        if (--left == 0)
                            loop.quit();
                    });
                }
                loop.exec();
            }};
}

class NoOpTasks
{
public:
    explicit NoOpTasks(int length)
        : m_name(u"TasksQueue with %1"_s.arg(length))
    {
    }

    Contender contender(const std::shared_ptr<NoOpTasks>& self) const
    {
        return {m_name, [self](int) { self->run(); }, [self](int count) { self->prepare(count); },
                [self] { self->m_tasks.clear(); }};
    }

private:
    void prepare(int count)
    {
        for (int i = 0; i < count; ++i)
            m_tasks.push_back(std::make_unique<Task>());
    }

    void run()
    {
        TasksQueue queue;
        QEventLoop loop;
        QObject::connect(&queue, &TasksQueue::emptied, &loop, &QEventLoop::quit);
        for (const auto& task : m_tasks)
            queue.append(task.get());
        loop.exec();
    }

    const QString m_name;
    std::vector<std::unique_ptr<Task>> m_tasks;
};

Contender noOpTasks(int length)
{
    const auto tasks = std::make_shared<NoOpTasks>(length);
    return tasks->contender(tasks);
}

std::unique_ptr<QNetworkReply> bareGet(QNetworkAccessManager& manager, const QString& url,
                                       Countdown& countdown)
{
    std::unique_ptr<QNetworkReply> reply(manager.get(bareRequest(url)));
    QObject::connect(reply.get(), &QNetworkReply::finished, reply.get(), [reply = reply.get(), &countdown] {
        countdown.finish(reply->readAll().size() == Server::smallSize());
    });
    return reply;
}

} // namespace

void measureMemory(Session& session)
{
    std::vector<std::unique_ptr<NetworkTask>> tasks;
    tasks.reserve(static_cast<size_t>(session.count()));
    const auto before = allocatedBytes();
    for (int i = 0; i < session.count(); ++i)
        tasks.push_back(std::make_unique<NetworkTask>());
    session.record({u"Idle task"_s, u"bytes"_s, 1050},
                   {{u"NetworkTask"_s, {(allocatedBytes() - before) / session.count()}}});
}

void measureHold(Session& session)
{
    auto& server = session.server();
    const int count = session.count();
    QNetworkAccessManager bareManager;
    orv::SslIgnorantNetworkAccessManager manager;
    std::vector<std::unique_ptr<QNetworkReply>> replies(static_cast<size_t>(count));
    std::vector<std::unique_ptr<NetworkTask>> idle(replies.size());
    std::vector<std::unique_ptr<NetworkTask>> tasks(replies.size());
    const auto bytesPer = [&](auto& objects, const std::function<void(size_t)>& make) {
        const auto before = allocatedBytes();
        for (size_t i = 0; i < objects.size(); ++i)
            make(i);
        QCoreApplication::processEvents();
        return (allocatedBytes() - before) / count;
    };
    const auto holdReply = [&](size_t i) {
        Countdown countdown(1);
        replies[i] = bareGet(bareManager, server.smallUrl(), countdown);
        countdown.wait();
    };
    const auto holdTask = [&](size_t i) {
        Countdown countdown(1);
        tasks[i] = std::make_unique<NetworkTask>(server.smallUrl());
        auto* task = tasks[i].get();
        task->setNetworkAccessManager(&manager);
        QObject::connect(task, &NetworkTask::finished, task, [task, &countdown] {
            const bool isComplete = task->data().size() == Server::smallSize();
            task->clearData();
            countdown.finish(isComplete);
        });
        task->exec();
        countdown.wait();
    };
    holdReply(0); // fills all caches
    holdTask(0);
    const auto ofIdle =
        bytesPer(idle, [&](size_t i) { idle[i] = std::make_unique<NetworkTask>(server.smallUrl()); });
    const auto ofReplies = bytesPer(replies, holdReply);
    const auto ofTasks = bytesPer(tasks, holdTask);
    session.record(
        {u"Finished, content taken"_s, u"bytes"_s, {}},
        {{u"QNetworkReply"_s, {ofReplies}}, {u"NetworkTask, beyond an idle one"_s, {ofTasks - ofIdle}}});
    session.record({u"Finished task, content taken"_s, u"bytes beyond an idle task and a reply"_s, 1500},
                   {{u"NetworkTask"_s, {ofTasks - ofIdle - ofReplies}}});
}

void measureConstruction(Session& session)
{
    const QList<Contender> contenders{parts(), construction()};
    session.record({u"Making and deleting a task"_s, u"instructions"_s, 2.0},
                   session.instructions(contenders, session.count()).all);
    session.record({u"The same, in time"_s, u"ns"_s, {}}, session.times(contenders, session.count()).wall);
}

void measureQueue(Session& session)
{
    QList<Series> counts;
    QList<Series> times;
    for (const int part : {100, 10, 1}) {
        const int length = std::max(session.count() / part, 1);
        const QList<Contender> contenders{singleShots(), noOpTasks(length)};
        const auto instructions = session.instructions(contenders, length).all;
        session.record(
            {u"Task that does nothing, in a queue of %1"_s.arg(length), u"instructions per task"_s, 3.0},
            instructions);
        counts.append(instructions.last());
        const auto wall = session.times(contenders, length).wall;
        session.record({u"The same, in time"_s, u"ns per task"_s, {}}, wall);
        times.append(wall.last());
    }
    session.record({u"Flat per task"_s, u"instructions per task"_s, 1.05}, counts);
    session.record({u"The same, in time"_s, u"ns per task"_s, {}}, times);
}

void measureGrowth(Session& session)
{
    constexpr int pieces = 10;
    const auto gets = queuedGets(session.server(), 6, Connections::Buffered);
    const int piece = std::max(session.count() / pieces, 1);
    const auto memoryAfter = [&](const QString& name) {
        Series memory{name, {}};
        for (int i = 0; i < pieces; ++i) {
            gets.run(piece);
            // The last tasks are deleted by the event loop.
            QCoreApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            memory.rounds.append(allocatedBytes());
        }
        return memory;
    };
    memoryAfter({}); // fills all caches
    const auto before = memoryAfter(u"first tasks"_s);
    const auto after = memoryAfter(u"as many again"_s);
    session.record({u"Memory of the process"_s, u"bytes"_s, {}}, {before, after});
    // The memory that allocators keep varies by some KB. A leak would be at least 16 bytes per task.
    session.record({u"Growth with finished tasks"_s, u"bytes per task"_s, 1.0},
                   {{u"NetworkTask in a NetworkQueue"_s,
                     {(after.median() - before.median()) / static_cast<double>(piece * pieces)}}});
}

} // namespace benchmark
