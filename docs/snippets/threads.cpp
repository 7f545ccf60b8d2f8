#include "Snippets.h"

#include <NetworkQueue.h>
#include <SslIgnorantNetworkAccessManager.h>
#include <TasksQueue.h>

#include <QThread>

using namespace Qt::StringLiterals;

namespace {

//! [worker]
class Fetcher : public QObject
{
    Q_OBJECT

public:
    // Must be called on the thread that this object lives on.
    void fetch(const QString& url)
    {
        auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, this);
        task->setNetworkAccessManager(&m_manager);
        task->setAutoDelete(true);
        connect(task, &orv::NetworkTask::finished, this,
                [this, task] { Q_EMIT fetched(task->data(), task->error().errorMessage()); });
        m_queue.append(task);
    }

Q_SIGNALS:
    void fetched(const QByteArray& content, const QString& error);

private:
    // Children, so that they move to the other thread together with this object.
    orv::SslIgnorantNetworkAccessManager m_manager{orv::SslIgnorantNetworkAccessManager::SslMode::Verify,
                                                   this};
    orv::TasksQueue m_queue{this};
};
//! [worker]

} // namespace

void Snippets::threadOfItsOwn()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    const auto url = m_url + u"/users"_s;
    QThread thread;

    //! [start]
    auto* fetcher = new Fetcher;
    fetcher->moveToThread(&thread);
    connect(&thread, &QThread::finished, fetcher, &QObject::deleteLater);
    connect(fetcher, &Fetcher::fetched, this, [this](const QByteArray& content, const QString& error) {
        if (error.isEmpty())
            use(content);
        else
            showError(error);
    });
    thread.start();
    QMetaObject::invokeMethod(fetcher, [fetcher, url] { fetcher->fetch(url); });
    //! [start]

    QTRY_COMPARE(m_shown, "ann");
    QVERIFY(m_errors.isEmpty());
    thread.quit();
    QVERIFY(thread.wait());
}

#include "threads.moc"
