// clazy:excludeall=lambda-in-connect
#include "Clients.h"

#include "Countdown.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

using orv::NetworkQueue;
using orv::NetworkTask;

// Sends requests one after the other, a number of them at a time. @p Send gets manager, URL and a function to
// call with whether the reply is as expected.
template <typename Send>
class ParallelGets
{
public:
    ParallelGets(QString url, int parallel, Send send, int transferTimeout = 0)
        : m_url(std::move(url))
        , m_parallel(parallel)
        , m_send(std::move(send))
    {
        m_manager.setTransferTimeout(transferTimeout);
    }

    void run(int count)
    {
        Countdown countdown(count);
        for (int i = 0; i < m_parallel; ++i)
            startNext(countdown);
        countdown.wait();
    }

private:
    void startNext(Countdown& countdown)
    {
        if (!countdown.take())
            return;
        m_send(m_manager, m_url, [this, &countdown](bool isComplete) {
            startNext(countdown);
            countdown.finish(isComplete);
        });
    }

    QNetworkAccessManager m_manager;
    const QString m_url;
    const int m_parallel;
    const Send m_send;
};

const auto sendBare = [](QNetworkAccessManager& manager, const QString& url, auto done) {
    auto* reply = manager.get(bareRequest(url));
    QObject::connect(reply, &QNetworkReply::finished, &manager, [reply, done] {
        reply->deleteLater();
        done(reply->error() == QNetworkReply::NoError && reply->readAll().size() == Server::smallSize());
    });
};

// What a careful program does around a reply by hand: an inactivity time-out, the status and the transport
// error told apart, content compared with its stated length, an outcome from the event loop in any case, also
// if the manager is deleted, and nothing after the end.
class HandWrittenGet : public QObject
{
public:
    using Done = std::function<void(bool isComplete, const QByteArray& content)>;

    HandWrittenGet(QNetworkAccessManager& manager, const QString& url, Done done)
        : m_done(std::move(done))
        , m_reply(manager.get(bareRequest(url)))
    {
        m_reply->setParent(this);
        m_timer.setSingleShot(true);
        connect(&m_timer, &QTimer::timeout, this, [this] { m_reply->abort(); });
        connect(m_reply, &QNetworkReply::downloadProgress, this, [this] { m_timer.start(); });
        connect(m_reply, &QNetworkReply::finished, this, &HandWrittenGet::finish, Qt::QueuedConnection);
        connect(&manager, &QObject::destroyed, this, [this] { end(false); });
        m_timer.start(network::DEFAULT_TIMEOUT);
    }

private:
    void finish()
    {
        m_timer.stop();
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const auto length = m_reply->header(QNetworkRequest::ContentLengthHeader);
        m_content = m_reply->readAll();
        const bool isWhole = !length.isValid() || length.toLongLong() == m_content.size();
        end(m_reply->error() == QNetworkReply::NoError && (status == 200 || status == 201) && isWhole);
    }

    void end(bool isComplete)
    {
        m_reply->disconnect(this);
        deleteLater();
        const auto done = std::exchange(m_done, nullptr);
        if (done)
            done(isComplete, m_content);
    }

    Done m_done;
    QNetworkReply* const m_reply;
    QTimer m_timer;
    QByteArray m_content;
};

const auto sendWithCare = [](QNetworkAccessManager& manager, const QString& url, auto done) {
    new HandWrittenGet(manager, url, [done](bool isComplete, const QByteArray& content) {
        done(isComplete && content.size() == Server::smallSize());
    });
};

template <typename Send>
Contender parallelGets(const QString& name, Server& server, int parallel, Send send, int transferTimeout = 0)
{
    const auto gets =
        std::make_shared<ParallelGets<Send>>(server.smallUrl(), parallel, std::move(send), transferTimeout);
    return {name, [gets](int count) { gets->run(count); }};
}

QString nameOfTasks(const QString& name, Connections connections)
{
    return connections == Connections::Buffered ? name : name + u", unbuffered"_s;
}

bool isComplete(const NetworkTask& task)
{
    return !task.hasError() && task.data().size() == Server::smallSize();
}

std::function<void(int)> runThrough(const std::shared_ptr<NetworkQueue>& queue, const QString& url,
                                    Version version)
{
    return [queue, url, version](int count) {
        Countdown countdown(count);
        while (countdown.take()) {
            auto* task = new NetworkTask(url);
            task->setAutoDelete(true);
            if (version == Version::Http2)
                task->setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, true);
            QObject::connect(task, &NetworkTask::finished, task,
                             [task, &countdown] { countdown.finish(isComplete(*task)); });
            queue->append(task);
        }
        countdown.wait();
    };
}

void runNextTask(const QString& url, orv::SslIgnorantNetworkAccessManager* manager, Countdown& countdown)
{
    if (!countdown.take())
        return;
    auto* task = new NetworkTask(url);
    task->setNetworkAccessManager(manager);
    task->setAutoDelete(true);
    QObject::connect(task, &NetworkTask::finished, task, [task, url, manager, &countdown] {
        const bool isAsExpected = isComplete(*task);
        runNextTask(url, manager, countdown);
        countdown.finish(isAsExpected);
    });
    task->exec();
}

// Gets content of a given size in MB and passes it to a function as it arrives.
class BareBody
{
public:
    /// Returns how many bytes it took from the reply.
    using Consume = std::function<qint64(QNetworkReply& reply)>;

    BareBody(Server& server, Consume onReadyRead)
        : m_server(server)
        , m_onReadyRead(std::move(onReadyRead))
    {
    }

    void run(int megabytes)
    {
        Countdown countdown(1);
        const std::unique_ptr<QNetworkReply> reply(
            m_manager.get(bareRequest(m_server.url() + m_server.bodyPath(megabytes))));
        qint64 consumed = 0;
        if (m_onReadyRead) {
            QObject::connect(reply.get(), &QNetworkReply::readyRead, &m_manager,
                             [&] { consumed += m_onReadyRead(*reply); });
        }
        QObject::connect(reply.get(), &QNetworkReply::finished, &m_manager, [&] {
            consumed += reply->readAll().size();
            countdown.finish(reply->error() == QNetworkReply::NoError && consumed == qint64{megabytes} << 20);
        });
        countdown.wait();
    }

private:
    QNetworkAccessManager m_manager;
    Server& m_server;
    const Consume m_onReadyRead;
};

class TaskBody
{
public:
    /// Returns how many bytes it took from the task.
    using Consume = std::function<qint64(NetworkTask& task)>;

    TaskBody(Server& server, Connections connections, bool isStreaming, Consume onReadyRead)
        : m_server(server)
        , m_isStreaming(isStreaming)
        , m_onReadyRead(std::move(onReadyRead))
    {
        m_manager.setConnectionBufferingEnabled(connections == Connections::Buffered);
    }

    void run(int megabytes)
    {
        Countdown countdown(1);
        NetworkTask task;
        task.setNetworkAccessManager(&m_manager);
        task.setRequest(m_server.url() + m_server.bodyPath(megabytes),
                        orv::NetworkRequest::defaultContentType, orv::NetworkRequest::Method::Get,
                        m_isStreaming);
        qint64 consumed = 0;
        if (m_onReadyRead)
            QObject::connect(&task, &NetworkTask::readyRead, &task, [&] { consumed += m_onReadyRead(task); });
        QObject::connect(&task, &NetworkTask::finished, &task, [&] {
            consumed += task.data().size();
            countdown.finish(!task.hasError() && consumed == qint64{megabytes} << 20);
        });
        task.exec();
        countdown.wait();
    }

private:
    orv::SslIgnorantNetworkAccessManager m_manager;
    Server& m_server;
    const bool m_isStreaming;
    const Consume m_onReadyRead;
};

Contender bareBodyContender(const QString& name, Server& server, BareBody::Consume consume)
{
    const auto body = std::make_shared<BareBody>(server, std::move(consume));
    return {name, [body](int megabytes) { body->run(megabytes); }};
}

Contender taskBodyContender(const QString& name, Server& server, bool isStreaming, TaskBody::Consume consume,
                            Connections connections = Connections::Unbuffered)
{
    const auto body = std::make_shared<TaskBody>(server, connections, isStreaming, std::move(consume));
    return {nameOfTasks(name, connections), [body](int megabytes) { body->run(megabytes); }};
}

} // namespace

QNetworkRequest bareRequest(const QString& url)
{
    QNetworkRequest request{QUrl(url)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setRawHeader("Accept", orv::NetworkRequest::defaultContentType);
    request.setRawHeader("User-Agent", network::DEFAULT_USER_AGENT);
    return request;
}

Contender bareGets(Server& server, int parallel)
{
    return parallelGets(u"QNetworkAccessManager"_s, server, parallel, sendBare);
}

Contender watchedBareGets(Server& server, int parallel)
{
    const auto milliseconds = static_cast<int>(network::DEFAULT_TIMEOUT.count());
    return parallelGets(u"QNetworkAccessManager with a time-out"_s, server, parallel, sendBare, milliseconds);
}

Contender handWrittenGets(Server& server, int parallel)
{
    return parallelGets(u"QNetworkAccessManager with the same care by hand"_s, server, parallel,
                        sendWithCare);
}

Contender directGets(Server& server, Connections connections)
{
    const auto manager = std::make_shared<orv::SslIgnorantNetworkAccessManager>();
    manager->setConnectionBufferingEnabled(connections == Connections::Buffered);
    return {nameOfTasks(u"NetworkTask"_s, connections), [manager, url = server.smallUrl()](int count) {
                Countdown countdown(count);
                runNextTask(url, manager.get(), countdown);
                countdown.wait();
            }};
}

Contender queuedGets(Server& server, int slots, Connections connections)
{
    const auto queue = std::make_shared<NetworkQueue>();
    queue->setMaxRunningTasks(slots);
    queue->networkAccessManager()->setConnectionBufferingEnabled(connections == Connections::Buffered);
    const auto run = runThrough(queue, server.smallUrl(), Version::Http1);
    return {nameOfTasks(u"NetworkTask in a NetworkQueue"_s, connections), run};
}

Contender secureGets(Server& server, int slots, Version version)
{
    const auto queue = std::make_shared<NetworkQueue>();
    queue->setMaxRunningTasks(slots);
    queue->setIgnoreSslErrors(true);
    const auto name = version == Version::Http2 ? u"HTTP/2"_s : u"HTTP/1.1 over TLS"_s;
    return {u"%1, %2 slots"_s.arg(name).arg(slots), runThrough(queue, server.smallUrl(), version)};
}

Contender bareBody(Server& server)
{
    return bareBodyContender(u"QNetworkAccessManager, readAll at the end"_s, server, {});
}

Contender bareStream(Server& server, int step)
{
    if (step == 0) {
        return bareBodyContender(u"QNetworkAccessManager, readAll as it comes"_s, server,
                                 [](QNetworkReply& reply) { return reply.readAll().size(); });
    }
    return bareBodyContender(u"QNetworkAccessManager, read(%1)"_s.arg(step), server,
                             [step](QNetworkReply& reply) {
                                 qint64 consumed = 0;
                                 while (const auto size = reply.read(step).size())
                                     consumed += size;
                                 return consumed;
                             });
}

Contender directBody(Server& server, Connections connections)
{
    return taskBodyContender(u"NetworkTask, data at the end"_s, server, false, {}, connections);
}

Contender streamedBody(Server& server, Connections connections)
{
    const auto consume = [](NetworkTask& task) {
        const auto size = task.data().size();
        task.clearData();
        return size;
    };
    return taskBodyContender(u"NetworkTask, streaming"_s, server, true, consume, connections);
}

Contender readBody(Server& server, int step)
{
    const auto name = step > 0 ? u"NetworkTask, read(%1)"_s.arg(step) : u"NetworkTask, read()"_s;
    return taskBodyContender(name, server, false, [step](NetworkTask& task) {
        qint64 consumed = 0;
        for (;;) {
            const auto size = step > 0 ? task.read(step).size() : task.read().size();
            if (size == 0)
                return consumed;
            consumed += size;
        }
    });
}

Contender choppedBody(Server& server, int step)
{
    const auto name = u"NetworkTask, data() and chopFirstBytes(%1)"_s.arg(step);
    return taskBodyContender(name, server, true, [step](NetworkTask& task) {
        qint64 consumed = 0;
        while (task.data().size() >= step) {
            task.chopFirstBytes(step);
            consumed += step;
        }
        return consumed;
    });
}

Contender bareFile(Server& server)
{
    const auto directory = std::make_shared<QTemporaryDir>();
    const auto manager = std::make_shared<QNetworkAccessManager>();
    return {u"QNetworkAccessManager into a QFile"_s, [&server, directory, manager](int megabytes) {
                Countdown countdown(1);
                QFile file(directory->filePath(u"file"_s));
                bool isWritten = file.open(QIODevice::WriteOnly);
                auto request = bareRequest(server.url() + server.bodyPath(megabytes));
                const std::unique_ptr<QNetworkReply> reply(manager->get(request));
                const auto write = [&] {
                    const auto content = reply->readAll();
                    isWritten = isWritten && file.write(content) == content.size();
                };
                QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(), write);
                QObject::connect(reply.get(), &QNetworkReply::finished, reply.get(), [&] {
                    write();
                    countdown.finish(isWritten && file.flush() && file.size() == qint64{megabytes} << 20);
                });
                countdown.wait();
            }};
}

Contender downloadedFile(Server& server, Connections connections)
{
    const auto directory = std::make_shared<QTemporaryDir>();
    const auto manager = std::make_shared<orv::SslIgnorantNetworkAccessManager>();
    manager->setConnectionBufferingEnabled(connections == Connections::Buffered);
    return {nameOfTasks(u"FileDownloadTask"_s, connections), [&server, directory, manager](int megabytes) {
                Countdown countdown(1);
                const auto path = directory->filePath(u"file"_s);
                orv::FileDownloadTask task(server.url() + server.bodyPath(megabytes), path);
                task.setNetworkAccessManager(manager.get());
                QObject::connect(&task, &NetworkTask::finished, &task, [&] {
                    countdown.finish(!task.hasError() && QFileInfo(path).size() == qint64{megabytes} << 20);
                });
                task.exec();
                countdown.wait();
            }};
}

} // namespace benchmark
