#include "Snippets.h"

#include <NetworkConstants.h>
#include <NetworkQueue.h>
#include <SslIgnorantNetworkAccessManager.h>

using namespace Qt::StringLiterals;

void Snippets::queueSendsManyRequests()
{
    m_server->setHandler([](const auto&) { return orv::LoopbackReply(200, "{}"); });
    QStringList urls;
    for (int i = 0; i < 100; ++i)
        urls.append(m_url + u"/%1"_s.arg(i));
    int done = 0;
    const auto use = [&](const QByteArray& content) { done += content == "{}" ? 1 : 0; };

    //! [many]
    orv::NetworkQueue queue;
    queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
    for (const auto& url : urls) {
        auto* task = new orv::NetworkTask(url);
        task->setAutoDelete(true);
        connect(task, &orv::NetworkTask::finished, this, [task, use] { use(task->data()); });
        queue.append(task);
    }
    //! [many]
    QTRY_COMPARE(done, urls.size());

    //! [http2]
    queue.setMaxRunningTasks(100);
    auto* task = new orv::NetworkTask(urls.first());
    task->setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, true);
    //! [http2]
    task->setAutoDelete(true);
    task->exec();

    //! [own]
    auto* manager =
        new orv::SslIgnorantNetworkAccessManager(orv::SslIgnorantNetworkAccessManager::SslMode::Verify, this);
    manager->setConnectionBufferingEnabled(true);
    //! [own]
    QVERIFY(manager->connectionBufferingEnabled());
}
