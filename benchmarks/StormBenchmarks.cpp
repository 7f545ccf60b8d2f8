// Counts what a server sees when many tasks meet an expired token, or an overload, at the same time.

#include "Benchmarks.h"
#include "Memory.h"

#include <AbstractAuthenticator.h>
#include <LoopbackServer.h>
#include <NetworkQueue.h>
#include <NetworkTask.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace benchmark {

namespace {

using orv::AbstractAuthenticator;
using orv::LoopbackReply;
using orv::LoopbackRequest;
using orv::NetworkQueue;
using orv::NetworkTask;
using std::chrono::milliseconds;

constexpr int parallelTasks = 6;

/// A server on which each login ends the session before it. Its replies take 50 to 500 ms, so a refusal of an
/// old token may arrive after other tasks have logged in again.
class SessionServer
{
public:
    SessionServer(milliseconds tokenLifetime, milliseconds outage)
        : m_tokenLifetime(tokenLifetime)
        , m_outage(outage)
    {
        m_server.setRecording(false);
        m_server.setHandler([this](const LoopbackRequest& request) { return reply(request); });
        if (m_server.listen().hasError())
            throw Unavailable("cannot listen on 127.0.0.1");
        m_clock.start();
    }

    QString url(const QString& path) const { return m_server.url(path); }

    int logins = 0;
    int refusals = 0;
    int requests = 0; // without the logins
    std::function<void()> onRequest;

private:
    milliseconds now() const { return milliseconds(m_clock.elapsed()); }

    LoopbackReply reply(const LoopbackRequest& request)
    {
        if (request.path == u"/login"_s)
            return logIn();
        const milliseconds delay(m_random.bounded(50, 500));
        ++requests;
        onRequest();
        if (now() < m_outage)
            return LoopbackReply(503).withField("Retry-After", "1").delayed(delay);
        const bool isValid = request.field("Authorization") == "Bearer " + token().toLatin1() &&
                             now() < m_loggedInAt + m_tokenLifetime;
        refusals += isValid ? 0 : 1;
        return LoopbackReply(isValid ? 200 : 401, "content").delayed(delay);
    }

    LoopbackReply logIn()
    {
        ++logins;
        m_loggedInAt = now();
        return LoopbackReply::json({{u"access_token"_s, token()}}).delayed(200ms);
    }

    QString token() const { return u"token-%1"_s.arg(logins); }

    const milliseconds m_tokenLifetime;
    const milliseconds m_outage;
    orv::LoopbackServer m_server;
    QElapsedTimer m_clock;
    QRandomGenerator m_random{1};
    milliseconds m_loggedInAt{0};
};

/// Has a token that the server does not accept, and gets others from it.
class Login : public AbstractAuthenticator
{
public:
    explicit Login(QString url)
        : m_url(std::move(url))
    {
    }

    QString token() override { return m_token; }

protected:
    bool authenticate() override
    {
        auto* task = new NetworkTask(m_url, NetworkTask::High, this);
        connect(task, &NetworkTask::finished, this, [this, task] {
            m_token = QJsonDocument::fromJson(task->data())[u"access_token"].toString();
            setError(task->error());
            setState(task->hasError() ? State::Failed : State::Authenticated);
            task->deleteLater();
            if (authenticationError().hasError())
                Q_EMIT error(Error::TemporaryFailure);
            else
                Q_EMIT authenticated();
        });
        task->exec();
        return true;
    }

private:
    const QString m_url;
    QString m_token = u"expired"_s;
};

/// Has no token, and never gets one.
class EndlessLogin : public AbstractAuthenticator
{
public:
    QString token() override { return {}; }

protected:
    bool authenticate() override { return true; }
};

/// Runs tasks through one queue until all have finished.
class Storm
{
public:
    explicit Storm(SessionServer& server, int count)
        : m_login(server.url(u"/login"_s))
        , m_server(server)
        , m_left(count)
    {
        m_queue.setMaxRunningTasks(parallelTasks);
        m_queue.setAuthenticator(&m_login);
        m_queue.setMaxCoolDown(10s);
        m_server.onRequest = [this] { countRunning(); };
    }

    NetworkQueue& queue() { return m_queue; }

    void run()
    {
        for (int i = m_left; i > 0; --i)
            append();
        m_loop.exec();
    }

    int failures = 0;
    int mostRunning = 0;

private:
    void append()
    {
        const auto& task = m_tasks.emplace_back(std::make_unique<NetworkTask>(m_server.url(u"/item"_s)));
        QObject::connect(task.get(), &NetworkTask::finished, &m_loop, [this, &task = *task] {
            failures += task.hasError() ? 1 : 0;
            if (--m_left == 0)
                m_loop.quit();
        });
        m_queue.append(task.get());
    }

    // The server cannot tell: Qt opens six connections at most.
    void countRunning()
    {
        const auto isActive = [](const auto& task) { return task->isRunning() && !task->isPaused(); };
        const auto running = std::count_if(m_tasks.begin(), m_tasks.end(), isActive);
        mostRunning = std::max(mostRunning, static_cast<int>(running));
    }

    Login m_login;
    SessionServer& m_server;
    NetworkQueue m_queue;
    std::vector<std::unique_ptr<NetworkTask>> m_tasks;
    QEventLoop m_loop;
    int m_left;
};

void recordStorm(Session& session, const QString& name, milliseconds tokenLifetime, milliseconds outage,
                 int count, std::optional<double> mostLogins)
{
    SessionServer server(tokenLifetime, outage);
    Storm storm(server, count);
    storm.run();
    const auto record = [&](const QString& text, const QString& unit, int value,
                            std::optional<double> limit) {
        session.record({u"%1: %2"_s.arg(name, text), unit, limit}, {{u"NetworkQueue"_s, {double(value)}}});
    };
    record(u"tasks that failed"_s, u"tasks"_s, storm.failures, 0);
    record(u"logins"_s, u"logins"_s, server.logins, mostLogins);
    record(u"most running at once"_s, u"tasks"_s, storm.mostRunning, parallelTasks);
    record(u"requests that were refused"_s, u"requests"_s, server.refusals, {});
    record(u"requests"_s, u"requests"_s, server.requests, {});
}

} // namespace

void measureStorm(Session& session)
{
    const int count = session.count();
    recordStorm(session, u"%1 tasks, one expired token"_s.arg(count), 24h, 0ms, count, 1);
    recordStorm(session, u"%1 tasks, tokens that live 1.5 s"_s.arg(count), 1500ms, 0ms, count, {});
    recordStorm(session, u"%1 tasks, 503 for 5 s"_s.arg(5 * count), 24h, 5s, 5 * count, 1);
}

void measureWaiting(Session& session)
{
    EndlessLogin login;
    NetworkQueue queue;
    queue.setAuthenticator(&login);
    std::vector<std::unique_ptr<NetworkTask>> tasks(static_cast<size_t>(session.count()));
    for (auto& task : tasks)
        task = std::make_unique<NetworkTask>(u"http://127.0.0.1/"_s);
    const auto before = allocatedBytes();
    for (const auto& task : tasks)
        queue.append(task.get());
    login.onAuthenticationRequired();
    for (int turn = 0; turn < 10; ++turn)
        QCoreApplication::processEvents();
    session.record({u"Task in a queue that waits for a login"_s, u"bytes beyond an idle task"_s, 600},
                   {{u"NetworkTask"_s, {(allocatedBytes() - before) / session.count()}}});
}

} // namespace benchmark
