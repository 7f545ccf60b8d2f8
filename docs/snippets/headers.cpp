// The examples in the doc comments of the headers. Each region has the name of its header.

#include "Snippets.h"

#include <AbstractAuthenticator.h>
#include <BearerLogin.h>
#include <DownloadOutput.h>
#include <FileDownloadTask.h>
#include <LoopbackProxy.h>
#include <NetworkConstants.h>
#include <NetworkQueue.h>
#include <NetworkRequest.h>
#include <Result.h>
#include <SslIgnorantNetworkAccessManager.h>
#include <Task.h>
#include <TasksQueue.h>

#include <QCoro/QCoroFuture>
#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QPointer>
#include <QtConcurrent>
#include <QTemporaryDir>

using namespace orv;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

//! [Error.h]
Error save(const QString& path)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        return Error(ErrorCode::None);
    return Error(ErrorCode::FileAccess, QObject::tr("Cannot open %1").arg(path))
        .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}
//! [Error.h]

Result<NetworkRequest> prepare(const QString& url)
{
    if (url.isEmpty())
        return Error(ErrorCode::InvalidArgument);
    return NetworkRequest(url, {}, NetworkRequest::Method::Get);
}

Error sendTo(const QString& url)
{
    QString sent;
    const auto send = [&sent](const NetworkRequest& request) { sent = request.url; };
    //! [Result.h]
    Result<NetworkRequest> request = prepare(url);
    if (request.hasError())
        return request.error().ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    send(request.value());
    //! [Result.h]
    return sent == url ? Error() : Error(ErrorCode::General);
}

QByteArray sha256(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

class ChecksumTask : public Task
{
    Q_OBJECT

public:
    explicit ChecksumTask(const QString& path)
        : m_path(path)
    {
    }
    QByteArray sum() const { return m_sum; }

protected:
    QCoro::Task<Error> co_doExec() override;

private:
    const QString m_path;
    QByteArray m_sum;
};

//! [Task.h]
QCoro::Task<Error> ChecksumTask::co_doExec()
{
    const QPointer<ChecksumTask> self(this);
    const QByteArray sum = co_await QtConcurrent::run(sha256, m_path);
    if (self)
        m_sum = sum;
    co_return sum.isEmpty() ? Error(ErrorCode::FileAccess, tr("Cannot read the file")) : Error();
}
//! [Task.h]

class LoginForm : public AbstractAuthenticator
{
    Q_OBJECT

public:
    explicit LoginForm(const QString& url)
        : m_url(url)
    {
    }
    QString token() override { return m_token; }

protected:
    bool authenticate() override;

private:
    NetworkRequest loginRequest() const
    {
        return NetworkRequest(m_url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    }
    static QString tokenFrom(const QByteArray& answer)
    {
        return QJsonDocument::fromJson(answer).object().value("token"_L1).toString();
    }

    const QString m_url;
    QString m_token;
};

//! [AbstractAuthenticator.h]
bool LoginForm::authenticate()
{
    auto* login = new NetworkTask(loginRequest(), NetworkTask::Priority::High, this);
    connect(login, &NetworkTask::finished, this, [this, login] {
        m_token = tokenFrom(login->data());
        setError(login->error());
        setState(login->hasError() ? State::Failed : State::Authenticated);
        login->deleteLater();
        if (authenticationError().hasError())
            Q_EMIT error(Error::TemporaryFailure);
        else
            Q_EMIT authenticated();
    });
    login->exec();
    return true;
}
//! [AbstractAuthenticator.h]

class Window : public QObject
{
    Q_OBJECT

public:
    void load(const QString& url)
    {
        //! [NetworkTask.h]
        auto* task = new NetworkTask(url, NetworkTask::Priority::Normal, this);
        connect(task, &NetworkTask::finished, this, [this, task] {
            if (task->hasError())
                showError(task->error().errorMessage());
            else
                show(task->data());
            task->deleteLater();
        });
        task->exec();
        //! [NetworkTask.h]
    }

    void download(const QString& url, const QString& directory, TasksQueue& queue)
    {
        //! [FileDownloadTask.h]
        auto* task = new FileDownloadTask(url, directory);
        connect(task, &NetworkTask::finished, this, [this, task] {
            showResult(task->hasError() ? task->error().errorMessage() : task->destinationFilePath());
            task->deleteLater();
        });
        queue.append(task);
        //! [FileDownloadTask.h]
        waitFor(queue);
    }

    void stream(NetworkTask* task, const QSharedPointer<DownloadOutput>& output)
    {
        //! [DownloadOutput.h]
        connect(task, &NetworkTask::readyRead, task, [task, output] {
            const Error error = output->writeNewData(task->data());
            task->clearData();
            if (error.hasError())
                task->finish(error);
        });
        connect(task, &NetworkTask::finished, task, [output] { output->finalize(); });
        //! [DownloadOutput.h]
    }

    void sum(const QStringList& paths)
    {
        //! [TasksQueue.h]
        TasksQueue queue;
        queue.setMaxRunningTasks(4);
        for (const auto& path : paths) {
            auto* task = new ChecksumTask(path);
            task->setAutoDelete(true);
            queue.append(task);
        }
        connect(&queue, &TasksQueue::emptied, this, &Window::showSums);
        //! [TasksQueue.h]
        waitFor(queue);
    }

    void loadAll(const QStringList& urls, LoginForm& login)
    {
        //! [NetworkQueue.h]
        NetworkQueue queue;
        queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
        queue.setAuthenticator(&login);
        for (const auto& url : urls)
            queue.append(new NetworkTask(url, NetworkTask::Priority::Normal, this));
        //! [NetworkQueue.h]
        waitFor(queue);
    }

    void logIn(const QString& url, NetworkQueue& queue)
    {
        //! [BearerLogin.h]
        auto* login = new BearerLogin(
            BearerLogin::jsonRequest(url, {{u"user"_s, u"ann"_s}, {u"password"_s, u"secret"_s}}), this);
        login->setRefreshRequest([url](const QString& refreshToken) {
            return BearerLogin::formRequest(
                url, {{u"grant_type"_s, u"refresh_token"_s}, {u"refresh_token"_s, refreshToken}});
        });
        queue.setAuthenticator(login);
        //! [BearerLogin.h]
        NetworkTask task(url);
        queue.append(&task);
        waitFor(queue);
        events.append(login->token());
    }

    void showSums() { events.append(u"sums"_s); }

    QStringList events;

private:
    static void waitFor(TasksQueue& queue)
    {
        const QSignalSpy emptied(&queue, &TasksQueue::emptied);
        QTRY_COMPARE(emptied.size(), 1);
    }
    void show(const QByteArray& content) { events.append(QString::fromUtf8(content)); }
    void showError(const QString& text) { events.append(text); }
    void showResult(const QString& text) { events.append(text); }
};

QByteArray tokenOfSecond(const std::function<void(QString)>& send)
{
    QByteArray seen;
    const auto run = [&] {
        //! [LoopbackServer.h]
        LoopbackServer server;
        server.addReply(QStringLiteral("/users"), LoopbackReply(503));
        server.addReply(QStringLiteral("/users"), LoopbackReply::json({{QStringLiteral("count"), 2}}));
        if (server.listen().hasError())
            return;
        send(server.url(QStringLiteral("/users"))); // and again after the 503
        const QByteArray token = server.requests().constLast().field("Authorization");
        //! [LoopbackServer.h]
        seen = token;
    };
    run();
    return seen;
}

QStringList requestsThroughProxy(QNetworkAccessManager& manager, const std::function<void(QString)>& send,
                                 const LoopbackServer& server)
{
    QStringList requests;
    const auto run = [&] {
        //! [LoopbackProxy.h]
        LoopbackProxy proxy(LoopbackProxy::Protocol::Socks5);
        if (proxy.listen().hasError())
            return;
        manager.setProxy(proxy.proxy());
        send(QStringLiteral("http://server.test:%1/hello").arg(server.port()));
        requests = proxy.requests(); // "SOCKS server.test:" and the port
        //! [LoopbackProxy.h]
    };
    run();
    return requests;
}

} // namespace

void Snippets::headerSnippets()
{
    const QTemporaryDir directory;
    const auto file = directory.filePath(u"file"_s);
    QVERIFY(!save(file).hasError());
    QCOMPARE(save(directory.path()).errorCode(), ErrorCode::FileAccess);
    QVERIFY(!sendTo(m_url).hasError());
    QCOMPARE(sendTo({}).catchTrail().size(), 1);

    Window window;
    window.sum({file, file});
    ChecksumTask task(file);
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QCOMPARE(task.sum().size(), 32);
    m_server->addReply(u"/hello"_s, LoopbackReply(200, "hello"));
    window.load(m_url + u"/hello"_s);
    QTRY_COMPARE(window.events.size(), 2);
    NetworkQueue downloads;
    window.download(m_url + u"/hello"_s, directory.path(), downloads);
    QCOMPARE(window.events, QStringList({u"sums"_s, u"hello"_s, directory.filePath(u"hello"_s)}));

    const auto output = MemoryDownloadOutput::create();
    NetworkTask streaming;
    streaming.setRequest(m_url + u"/hello"_s, {}, NetworkRequest::Method::Get, true);
    window.stream(&streaming, output);
    streaming.exec();
    QVERIFY(succeeds(&streaming));
    QCOMPARE(output->data(), "hello");

    m_server->addReply(u"/login"_s, LoopbackReply::json({{u"token"_s, u"t"_s}}));
    LoginForm login(m_url + u"/login"_s);
    window.loadAll({m_url + u"/hello"_s}, login);
    QCOMPARE(m_server->requests().constLast().field("Authorization"), "Bearer t");
    NetworkQueue users;
    window.logIn(m_url + u"/login"_s, users);
    QCOMPARE(window.events.takeLast(), u"t"_s);

    const QByteArray content(200, 'x');
    LoopbackServer server;
    //! [LoopbackReply.h]
    server.addReply(QStringLiteral("/slow"), LoopbackReply(200, content).dripped(1, 20ms).cutAfter(90));
    //! [LoopbackReply.h]

    const auto sendThrough = [this, &login](const QString& url) {
        NetworkTask get(url);
        get.setAuthenticator(&login);
        get.setDelayPolicy(Retriable::DelayPolicy::None);
        get.exec();
        QVERIFY(succeeds(&get));
    };
    QCOMPARE(tokenOfSecond(sendThrough), "Bearer t");

    SslIgnorantNetworkAccessManager manager;
    const auto sendByManager = [this, &manager](const QString& url) {
        NetworkTask get(url);
        get.setNetworkAccessManager(&manager);
        get.exec();
        QVERIFY(succeeds(&get));
    };
    QCOMPARE(requestsThroughProxy(manager, sendByManager, *m_server),
             QStringList(u"SOCKS server.test:%1"_s.arg(m_server->port())));
}

#include "headers.moc"
