#include "Snippets.h"

#include <NetworkConstants.h>
#include <NetworkQueue.h>

using namespace Qt::StringLiterals;

void Snippets::queueRunsByPriority()
{
    m_server->setHandler([](const auto&) { return orv::LoopbackReply(200); });
    const QStringList thumbnails{m_url + u"/thumb/1"_s, m_url + u"/thumb/2"_s};
    const auto picture = m_url + u"/picture"_s;
    orv::NetworkQueue queue;
    const QSignalSpy emptied(&queue, &orv::TasksQueue::emptied);

    //! [limits]
    queue.setMaxRunningTasks(6);
    queue.setMaxTasksPerHost(2);
    queue.setMaxStartsPerSecond(20);
    queue.setMaxCoolDown(std::chrono::minutes(5));
    //! [limits]
    queue.setMaxRunningTasks(1);

    //! [priorities]
    for (const auto& url : thumbnails) {
        auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Low, this);
        task->setAutoDelete(true);
        queue.append(task);
    }
    auto* task = new orv::NetworkTask(picture, orv::NetworkTask::Priority::High, this);
    task->setAutoDelete(true);
    queue.append(task); // runs first, although it was appended last
    //! [priorities]

    QTRY_COMPARE(emptied.size(), 1);
    const auto requests = m_server->requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(requests.at(0).path, u"/picture"_s);
    QCOMPARE(requests.at(1).path, u"/thumb/1"_s);
}

void Snippets::queueCountsProgress()
{
    m_server->setHandler(
        [](const auto& request) { return orv::LoopbackReply(request.path.endsWith(u'3') ? 404 : 200); });
    QStringList urls;
    for (int i = 0; i < 12; ++i)
        urls.append(m_url + u"/users/%1"_s.arg(i));
    int shownDone = 0;
    const auto showProgress = [&shownDone](int done, qsizetype /*of*/) { shownDone = done; };
    bool isDone = false;
    const auto showDone = [&isDone] { isDone = true; };

    //! [progress]
    auto* queue = new orv::NetworkQueue(this);
    queue->setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
    connect(queue, &orv::TasksQueue::taskFinished, this,
            [this, showProgress, done = 0, total = urls.size()](orv::Task* task) mutable {
                showProgress(++done, total);
                if (task->hasError())
                    showError(tr("%1: %2").arg(task->name(), task->error().errorMessage()));
            });
    connect(queue, &orv::TasksQueue::emptied, this, showDone);
    for (const auto& url : urls) {
        auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, queue);
        task->setName(url);
        task->setAutoDelete(true);
        queue->append(task);
    }
    //! [progress]

    QTRY_VERIFY(isDone);
    QCOMPARE(shownDone, 12);
    QCOMPARE(m_errors.size(), 1);
    QVERIFY(m_errors.constFirst().startsWith(urls.at(3)));
    delete queue;
}

void Snippets::queueIsCleared()
{
    m_server->setHandler([](const auto&) { return orv::LoopbackReply::silence(); });
    orv::NetworkQueue queue;
    std::vector<std::unique_ptr<orv::NetworkTask>> tasks;
    for (int i = 0; i < 3; ++i) {
        tasks.push_back(std::make_unique<orv::NetworkTask>(m_url));
        queue.append(tasks.back().get());
    }
    QTRY_COMPARE(m_server->requests().size(), 1);

    //! [clear]
    queue.clear(orv::TasksQueue::ClearPolicy::PendingAndRunning,
                orv::Error(orv::ErrorCode::Canceled, tr("The program is closing")));
    //! [clear]

    for (const auto& task : tasks)
        QCOMPARE(task->error().errorMessage(), u"The program is closing"_s);
    QVERIFY(queue.isEmpty());
}
