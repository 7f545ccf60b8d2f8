#include "NetworkTestSupport.h"

#include <NetworkQueue.h>

#include <QHttpMultiPart>
#include <QTimer>

#include <memory>
#include <optional>

using namespace orv;
using namespace std::chrono_literals;

namespace {

// Fails once with a transient failure, then logs in; each a little later, as a real one would.
class LateAuthenticator : public TestAuthenticator
{
public:
    std::function<void()> whenAskedForTheToken;

    QString token() override
    {
        const auto answer = currentToken;
        if (const auto call = whenAskedForTheToken)
            call(); // may delete the authenticator
        return answer;
    }

protected:
    bool authenticate() override
    {
        QTimer::singleShot(1, this, [this, isFirst = logins == 0] {
            if (isFirst)
                fail(orv::Error(ErrorCode::AuthenticationFailed), Error::TemporaryFailure);
            else
                succeed("new");
        });
        return TestAuthenticator::authenticate();
    }
};

class CallingTask : public TestTask
{
public:
    using TestTask::TestTask;

    QString errorMessage() const override
    {
        const auto call = whenAskedForAMessage; // may delete the task
        call();
        return {};
    }

    std::function<void()> whenAskedForAMessage;
};

class CallingQueue : public NetworkQueue
{
public:
    std::function<void(Task*)> whenDequeued;

protected:
    Task* dequeueTask() override
    {
        auto* task = NetworkQueue::dequeueTask();
        const auto call = whenDequeued; // may delete the task, or the queue
        call(task);
        return task;
    }
};

} // namespace

/// Anything may be deleted, and anything called, in every signal, handler and phase of a task that goes
/// through all of them: refused as too busy, then for its token, whose renewal fails once, then answered
/// piece by piece.
class tst_Lifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_server.addReply(QStringLiteral("/other"), LoopbackReply(200, "other"));
        QVERIFY(!m_server.listen().hasError());
    }

    void survives_data()
    {
        QTest::addColumn<QByteArray>("place");
        QTest::addColumn<QByteArray>("action");
        QTest::addColumn<bool>("isQueued");
        const auto ownPlaces =
            QByteArray("idle|scheduled|sent|awaiting login|started|aboutToRetry|retried|readyRead|"
                       "canceled|finished|destroyed|createMultiPart|maskingFunction|errorMessage|handler|"
                       "token|refused token|empty "
                       "token|authenticate|authenticating|authenticated|error|reply finished|"
                       "reply uploadProgress|reply downloadProgress")
                .split('|');
        const auto queuePlaces =
            QByteArray("delayed|dequeueTask|taskStarted|taskFinished|emptied").split('|');
        const auto actions =
            QByteArray("delete|deleteLater|cancel|finish|exec|delete authenticator|delete manager|"
                       "drop the reply|attach the reply again|lose the connection|abort|retry|log in|resume|"
                       "start another|nested loop|change authenticator|deadline")
                .split('|');
        const auto queueActions = QByteArray("delete queue|clear queue|append again").split('|');
        for (const bool isQueued : {false, true}) {
            for (const auto& place : isQueued ? ownPlaces + queuePlaces : ownPlaces) {
                for (const auto& action : isQueued ? actions + queueActions : actions) {
                    // In the reply's own signals Qt allows little.
                    static const QList<QByteArray> harmless{"deleteLater", "cancel", "finish", "exec"};
                    if (place.startsWith("reply ") && !harmless.contains(action))
                        continue;
                    static const QList<QByteArray> ends{"delete", "cancel", "finish", "clear queue",
                                                        "delete queue"};
                    if (place == "delayed" && !ends.contains(action)) // the others wait for a second
                        continue;
                    QTest::addRow("%s: %s%s", place.constData(), action.constData(),
                                  isQueued ? ", queued" : "")
                        << place << action << isQueued;
                }
            }
        }
    }

    void survives()
    {
        QFETCH(QByteArray, place);
        QFETCH(bool, isQueued);
        build(isQueued);
        connectPlaces();
        if (place == "idle")
            act();
        if (m_task && !m_task->isFinished())
            isQueued&& m_queue ? m_queue->append(m_task) : m_task->exec();
        if (isQueued && m_queue)
            m_queue->append(m_other.get());
        else
            m_other->exec();
        reach(place);
        QVERIFY(runUntil([this] { return m_hasActed; }, 3s));

        QVERIFY(runUntil([this] { return !m_task || isOver(m_task); }));
        QVERIFY(runUntil([this] { return isOver(m_other.get()); }));
        QVERIFY(runUntil([this] { return !m_queue || m_queue->isEmpty(); }));
        QVERIFY(runUntil([this] { return !m_third || isOver(m_third.get()); }));
        const QList<QPointer<TestTask>> tasks{m_task.data(), m_other.get(), m_third.get()};
        for (const auto& task : tasks) {
            if (task)
                task->cancel(); // what was left behind by its queue
            QTest::qWait(1);
            if (!task)
                continue;
            QCOMPARE(task->events.count(QStringLiteral("finished")), 1);
            QCOMPARE(task->events.last(), QStringLiteral("finished"));
        }
        static const QList<QByteArray> concernsOthers{"delete authenticator", "change authenticator",
                                                      "delete manager", "delete queue", "clear queue"};
        if (!concernsOthers.contains(m_action))
            QVERIFY2(!m_other->hasError(), qPrintable(m_other->error().errorMessage()));
        QVERIFY(!m_third || !m_third->hasError());
    }

    void cleanup()
    {
        m_log.reset();
        delete m_task;
        m_other.reset();
        m_third.reset();
        m_queue.reset();
        delete m_queueManager;
        m_authenticator.reset();
        m_manager.reset();
        m_replacement.reset();
    }

private:
    void build(bool isQueued)
    {
        QFETCH(QByteArray, place);
        QFETCH(QByteArray, action);
        m_place = place;
        m_action = action;
        m_hasActed = false;
        const auto path = QStringLiteral("/%1").arg(++m_rows);
        m_server.addReply(path, LoopbackReply(503));
        m_server.addReply(path, LoopbackReply(401));
        m_server.addReply(path, LoopbackReply(200, QByteArray(400, 'x')).dripped(200, 1ms));
        m_manager = std::make_unique<SslIgnorantNetworkAccessManager>();
        m_authenticator = std::make_unique<LateAuthenticator>();
        if (place != "empty token")
            m_authenticator->currentToken = QStringLiteral("old");
        m_queue = std::make_unique<CallingQueue>();
        m_queueManager = m_queue->networkAccessManager();
        m_queue->setAuthenticator(m_authenticator.get());
        m_other = std::make_unique<TestTask>(m_server.url(QStringLiteral("/other")));
        m_task = new CallingTask(m_server.url(path), NetworkRequest::Method::Post);
        m_task->change([=, this](NetworkRequest& request) {
            request.streaming = isQueued;
            request.setMaskingFunction([this](const QByteArray& content) {
                actIn("maskingFunction");
                return content;
            });
        });
        m_task->setAuthenticator(m_authenticator.get());
        m_task->setNetworkAccessManager(m_manager.get());
        m_task->setDelayPolicy(Retriable::DelayPolicy::None);
        m_task->setTimeout(action == "lose the connection" || action == "attach the reply again" ? 300ms
                                                                                                 : 2s);
        if (place == "maskingFunction")
            m_log.emplace("orv.network=true");
        if (place == "delayed")
            m_task->setDelay(1);
    }

    void connectPlaces()
    {
        on(m_task.data(), &NetworkTask::started, "started");
        on(m_task.data(), &NetworkTask::aboutToRetry, "aboutToRetry");
        on(m_task.data(), &NetworkTask::retried, "retried");
        on(m_task.data(), &NetworkTask::readyRead, "readyRead");
        on(m_task.data(), &NetworkTask::canceled, "canceled");
        on(m_task.data(), &NetworkTask::finished, "finished");
        on(m_task.data(), &QObject::destroyed, "destroyed");
        on(m_queue.get(), &TasksQueue::taskStarted, "taskStarted");
        on(m_queue.get(), &TasksQueue::taskFinished, "taskFinished");
        on(m_queue.get(), &TasksQueue::emptied, "emptied");
        on(m_authenticator.get(), &AbstractAuthenticator::authenticating, "authenticating");
        on(m_authenticator.get(), &AbstractAuthenticator::authenticated, "authenticated");
        on(m_authenticator.get(), &AbstractAuthenticator::error, "error");
        m_authenticator->duringLogin = [this] { actIn("authenticate"); };
        m_authenticator->whenAskedForTheToken = [this] {
            actIn("token");
            if (m_task && m_task->httpResponseStatusCodeNumber() == 0)
                actIn("refused token");
            actIn("empty token");
        };
        m_task->whenAskedForAMessage = [this] { actIn("errorMessage"); };
        m_queue->whenDequeued = [this](Task* task) {
            if (task == m_task)
                actIn("dequeueTask");
        };
        m_task->multiPartFactory = [this] {
            actIn("createMultiPart");
            QTimer::singleShot(0, this, [this] { connectReply(); });
            auto* content = new QHttpMultiPart(QHttpMultiPart::FormDataType);
            QHttpPart part;
            part.setBody(QByteArray(5000, 'p'));
            content->append(part);
            return content;
        };
        if (m_place == "handler") {
            m_task->setResponseHandler(HttpResponseStatusCode::OK, [this] {
                const QPointer<TestTask> guard(m_task);
                actIn("handler");
                if (guard)
                    guard->finish(Error());
            });
        }
        if (m_place == "canceled" || m_place == "destroyed")
            connect(m_task, &NetworkTask::readyRead, this,
                    [this] { m_place == "canceled" ? m_task->cancel() : delete m_task; });
    }

    void connectReply()
    {
        auto* reply = m_task ? m_task->networkReply() : nullptr;
        if (!reply)
            return;
        on(reply, &QNetworkReply::finished, "reply finished");
        on(reply, &QNetworkReply::uploadProgress, "reply uploadProgress");
        on(reply, &QNetworkReply::downloadProgress, "reply downloadProgress");
    }

    template <typename Sender, typename Signal>
    void on(Sender* sender, Signal signal, const char* place)
    {
        connect(sender, signal, this, [this, place] { actIn(place); });
    }

    // Comes to the places that are none of a signal or a call, and acts there.
    void reach(const QByteArray& place)
    {
        const auto at = [this](auto condition) {
            QVERIFY(runUntil([&] { return !m_task || condition(); }));
            act();
        };
        if (place == "scheduled")
            act();
        if (place == "sent")
            at([this] { return m_task->networkReply() != nullptr; });
        if (place == "delayed" || place == "awaiting login")
            at([this] { return m_task->isPaused(); });
    }

    void actIn(const char* place)
    {
        if (m_place == place)
            act();
    }

    void act()
    {
        if (std::exchange(m_hasActed, true))
            return;
        const QHash<QByteArray, std::function<void()>> actions{
            {"delete", [this] { delete m_task; }},
            {"deleteLater", [this] { m_task->deleteLater(); }},
            {"cancel", [this] { m_task->cancel(); }},
            {"finish", [this] { m_task->finish(Error()); }},
            {"exec", [this] { m_task->exec(); }},
            {"delete authenticator", [this] { m_authenticator.reset(); }},
            {"change authenticator", [this] { changeAuthenticator(); }},
            {"delete manager", [this] { m_manager.reset(); }},
            {"drop the reply", [this] { m_task->setNetworkReply(nullptr); }},
            {"attach the reply again", [this] { m_task->setNetworkReply(m_task->networkReply()); }},
            {"lose the connection",
             [this] {
                 if (const auto connection = m_task->networkConnection())
                     disconnect(*connection);
             }},
            {"abort", [this] { m_task->abort(); }},
            {"retry", [this] { m_task->retry(); }},
            {"log in", [this] { m_task->handleUnauthorizedError(); }},
            {"resume", [this] { m_task->resume(); }},
            {"start another", [this] { startAnother(); }},
            {"deadline",
             [this] {
                 m_task->setDeadline(1ms);
                 QTest::qWait(15);
             }},
            {"nested loop", [] { QTest::qWait(15); }},
            {"delete queue", [this] { m_queue.reset(); }},
            {"clear queue",
             [this] {
                 m_queue->clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::General));
             }},
            {"append again", [this] { m_queue->append(m_task); }},
        };
        const auto action = actions.value(m_action);
        if (m_task || m_action == "start another" || m_action == "nested loop")
            action();
    }

    void changeAuthenticator()
    {
        m_replacement = std::make_unique<LateAuthenticator>();
        m_replacement->currentToken = QStringLiteral("other");
        m_task->setAuthenticator(m_replacement.get());
    }

    void startAnother()
    {
        m_third = std::make_unique<TestTask>(m_server.url(QStringLiteral("/other")));
        m_queue->append(m_third.get());
    }

    // Finished, or left behind without anybody to run it.
    static bool isOver(const TestTask* task)
    {
        return task->isFinished() || !(task->isRunning() || task->queue());
    }

    LoopbackServer m_server;
    int m_rows = 0;
    QByteArray m_place;
    QByteArray m_action;
    bool m_hasActed = false;
    std::optional<LogCatcher> m_log;
    QPointer<CallingTask> m_task;
    std::unique_ptr<TestTask> m_other;
    std::unique_ptr<TestTask> m_third;
    std::unique_ptr<CallingQueue> m_queue;
    QPointer<SslIgnorantNetworkAccessManager> m_queueManager;
    std::unique_ptr<LateAuthenticator> m_authenticator;
    std::unique_ptr<LateAuthenticator> m_replacement;
    std::unique_ptr<SslIgnorantNetworkAccessManager> m_manager;
};

QTEST_GUILESS_MAIN(tst_Lifetime)

#include "tst_Lifetime.moc"
