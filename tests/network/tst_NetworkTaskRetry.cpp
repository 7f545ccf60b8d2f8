#include "NetworkTestSupport.h"

#include <RetryAfter_p.h>
#include <RetryWait_p.h>
#include <TasksQueue.h>

#include <QRandomGenerator>
#include <QTimeZone>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

/// How a failed attempt is repeated.
class tst_NetworkTaskRetry : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask()
    {
        auto task = std::make_unique<TestTask>(m_server->url());
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        return task;
    }

    void answer(std::initializer_list<int> statuses)
    {
        for (const int status : statuses)
            m_server->addReply(u"/"_s, LoopbackReply(status, "content " + QByteArray::number(status)));
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    void retriesTransientFailures_data() { addRows("status", {"408", "429", "503"}); }
    void retriesTransientFailures()
    {
        QFETCH(QString, status);
        answer({status.toInt(), status.toInt(), 200});
        auto task = makeTask();
        connect(task.get(), &NetworkTask::aboutToRetry, this, [&] {
            QVERIFY(task->isRunning());
            QCOMPARE(task->httpResponseStatusCodeNumber(), 0); // the failed attempt is forgotten
            QCOMPARE(task->networkResponseError(), QNetworkReply::NoError);
            QVERIFY(task->retriesCount() > 0);
        });
        connect(task.get(), &NetworkTask::retried, this, [&] {
            QVERIFY(task->isRunning());                   // executing again
            QVERIFY(task->data().startsWith("content ")); // looking at the old reply now ...
        });
        QVERIFY(task->succeeds());
        QCOMPARE(task->data(), "content 200"_ba); // ... does not leave it with the new one
        QCOMPARE(task->retriesCount(), 2);
        QCOMPARE(m_server->requests().size(), 3);
        QCOMPARE(task->executions, 3);
        QCOMPARE(task->log(), u"started aboutToRetry started retried aboutToRetry started retried "
                              u"finished"_s);
    }

    // The failed attempt must not affect the one that follows.
    void retriesRepliesThatCannotBeRead()
    {
        int replies = 0;
        FakeManager manager([&] {
            auto* reply = new FakeReply(200);
            reply->complete(0, ++replies > 1 ? QIODevice::ReadOnly : QIODevice::NotOpen);
            return reply;
        });
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        QVERIFY(task->succeeds());
        QCOMPARE(replies, 2);
        QCOMPARE(task->log(), u"started aboutToRetry started retried finished"_s);
    }

    void endsAfterTheLastRetry()
    {
        m_server->addReply(u"/"_s, LoopbackReply::silence());
        for (const int retries : {10, 2, 0}) {
            auto task = makeTask();
            task->setTimeout(20ms);
            if (retries == 2)
                task->setMaxRetriesCount(retries);
            task->setRetriesEnabled(retries > 0);
            connect(task.get(), &NetworkTask::aboutToRetry, this, [&] { QVERIFY(!task->hasTimedOut()); });
            QVERIFY(task->run());
            QCOMPARE(task->error().errorDetails().toInt(), 2408);
            QCOMPARE(task->error().errorMessage(), u"Network timeout"_s);
            QCOMPARE(task->networkResponseError(), QNetworkReply::NoError); // not that of the abort
            QCOMPARE(task->timeoutKind(), NetworkTask::TimeoutKind::Inactivity);
            QCOMPARE(task->retriesCount(), retries);
            QCOMPARE(task->events.count(u"retried"_s), retries);
            QCOMPARE(task->events.last(), u"finished"_s);
        }
        auto task = makeTask();
        task->setTimeout(20ms);
        task->setRetriesEnabled(false);
        task->setReplyErrorPolicy(NetworkTask::Ignore);
        task->exec();
        QVERIFY(runUntil([&] { return task->hasTimedOut(); }));
        answer({200});
        QVERIFY(task->succeeds());
        QVERIFY(!task->hasTimedOut());
    }

    void retriesOnlyRecoverableErrors()
    {
        answer({500, 500, 200, 503, 200});
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(task->error().errorDetails().toInt(), 2500);
        QVERIFY(!task->retriesEnabled()); // and stays so

        auto hopeful = makeTask();
        hopeful->registerRecoverableNetworkErrors({QNetworkReply::InternalServerError});
        QVERIFY(hopeful->succeeds());

        auto strict = makeTask();
        strict->unregisterRecoverableNetworkErrors({QNetworkReply::ServiceUnavailableError});
        QVERIFY(strict->run());
        QCOMPARE(strict->error().errorDetails().toInt(), 2503);
    }

    void repeatsInTheQueue()
    {
        class Queue : public TasksQueue
        {
        public:
            void removeTask(Task* task) override
            {
                ++removals;
                TasksQueue::removeTask(task);
            }
            int removals = 0;
        } queue;
        answer({503, 200});
        auto first = makeTask();
        auto second = makeTask();
        QStringList started;
        connect(&queue, &TasksQueue::taskStarted, this,
                [&](Task* task) { started.append(task == first.get() ? u"1"_s : u"2"_s); });
        connect(first.get(), &NetworkTask::retried, this, [&] {
            QVERIFY(!first->isRunning()); // queued again
            QCOMPARE(first->queue(), &queue);
        });
        first->setPriority(2);
        queue.append(first.get());
        queue.append(second.get());
        QTRY_VERIFY(queue.isEmpty());
        QCOMPARE(started.join(QString()), u"121"_s); // behind, with priority 0
        QCOMPARE(queue.removals, 1);
        QCOMPARE(first->log(), u"started aboutToRetry retried started finished"_s);
        QVERIFY(!first->hasError() && !second->hasError());
    }

    void waitsForTheLongerTime()
    {
        using std::chrono::hours;
        const auto most = std::chrono::seconds(2147483); // 24.8 days
        QCOMPARE((RetryWait{300s}.time()), 300s);
        QCOMPARE((RetryWait{-5s}.time()), 0s);
        QCOMPARE((RetryWait{std::chrono::seconds::max()}.time()), most);
        QCOMPARE((RetryWait{300s, 1, 0.75}.time()), 75s);
        QCOMPARE((RetryWait{300s, 0.5, 0.75}.time()), 187500ms);
        QCOMPARE((RetryWait{300s, 1, 0.75, 80s, 90s}.time()), 80s);
        QCOMPARE((RetryWait{300s, 1, 0.75, 70s, 90s}.time()), 75s);
        QCOMPARE((RetryWait{1s, 0, 0, hours(8766), 90s}.time()), 90s);
        QCOMPARE((RetryWait{1s, 0, 0, hours(8766), std::chrono::seconds::max()}.time()), most);
        QCOMPARE((RetryWait{1s, 0, 0, 80s, -90s}.time()), 1s);
    }

    void readsRetryAfter_data()
    {
        const auto row = addColumns<QByteArray, QByteArray, qint64>({"value", "date", "seconds"});
        const QByteArray none = "none";
        row("seconds", "120", none, 120);
        row("no time at all", " 0 ", none, 0);
        row("more than fits", "99999999999999999999", none, 2147483647);
        row("date", "Sun, 06 Nov 1994 08:49:37 GMT", none, 37);
        row("obsolete date", "Sunday, 06-Nov-94 08:49:37 GMT", none, 37);
        row("date of asctime()", "Sun Nov  6 08:49:37 1994", none, 37);
        row("a year away", "Mon, 06 Nov 1995 08:49:00 GMT", none, 31536000);
        row("next century", "Friday, 06-Nov-43 08:49:00 GMT", none, 1546300800);
        row("fifty-one years away counts as past", "Monday, 06-Nov-45 08:49:00 GMT", none, -1);
        row("by the clock of the server", "Sun, 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:30 GMT",
            7);
        row("server without a clock", "Sun, 06 Nov 1994 08:49:37 GMT", "today", 37);
        row("past", "Sun, 06 Nov 1994 08:48:59 GMT", none, -1);
        for (const auto* garbage : {"", "-1", "+1", "1.5", "1 s", "1, 2", "soon", "GMT", "Sun, 06 Nov",
                                    "Sun, 31 Feb 1995 08:49:37 GMT", "Sun, 06 Nov 1994 25:49:37 GMT",
                                    "Sun, 06 Nov 1994 08:49:37 CET"})
            row(garbage, garbage, none, -1);
    }
    void readsRetryAfter()
    {
        QFETCH(QByteArray, value);
        QFETCH(QByteArray, date);
        QFETCH(qint64, seconds);
        const QDateTime now(QDate(1994, 11, 6), QTime(8, 49), QTimeZone::utc());
        FakeReply reply(503);
        reply.setRawHeader("Retry-After", value);
        if (date != "none")
            reply.setRawHeader("Date", date);
        const auto expected = std::chrono::seconds(seconds);
        QCOMPARE(retryAfter(&reply, now).value_or(-1s), expected);
        QVERIFY(!retryAfter(nullptr, now));
    }

    // A wait that would not end before the deadline ends the task, which shows its length without a clock.
    void waitsForAsLongAsTheServerAsks_data()
    {
        const auto row = addColumns<int, QByteArray, std::chrono::seconds, QString>(
            {"status", "retryAfter", "longest", "wait"});
        row("429", 429, "100", 200s, u"too long"_s);
        row("503", 503, "100", 200s, u"too long"_s);
        row("408", 408, "100", 200s, u"too long"_s);
        row("another status", 500, "100", 200s, u"none"_s);
        row("shorter", 503, "3", 200s, u"short"_s);
        row("date", 503, "Fri, 31 Dec 9999 23:59:59 GMT", 200s, u"too long"_s);
        row("too long for the task", 503, "100", 5s, u"short"_s);
        row("off", 503, "100", 0s, u"none"_s);
        row("negative", 503, "100", -200s, u"none"_s);
    }
    void waitsForAsLongAsTheServerAsks()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, retryAfter);
        QFETCH(std::chrono::seconds, longest);
        QFETCH(QString, wait);
        m_server->addReply(u"/"_s, LoopbackReply(status).withField("Retry-After", retryAfter));
        auto task = makeTask();
        task->registerRecoverableNetworkErrors({QNetworkReply::InternalServerError});
        task->setMaxRetriesCount(1);
        task->setMaxRetryAfter(longest);
        task->setDeadline(60s);
        task->exec();
        QVERIFY(runUntil([&] { return task->isPaused() || task->isFinished(); }));
        QCOMPARE(task->isPaused(), wait == "short"_L1);
        QCOMPARE(task->retriesCount(), wait == "too long"_L1 ? 0 : 1);
        QCOMPARE(task->error().errorDetails().toInt(), task->isPaused() ? 0 : 2000 + status);
        QCOMPARE(task->hasTimedOut(), false); // although there was too little time
    }

    void waitsForTheServerAlsoDuringALogin()
    {
        m_server->addReply(u"/"_s, LoopbackReply(503).withField("Retry-After", "100"));
        TestAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        auto task = makeTask();
        task->setAuthenticator(&authenticator);
        task->setMaxRetryAfter(200s);
        connect(task.get(), &NetworkTask::aboutToRetry, &authenticator,
                &AbstractAuthenticator::onAuthenticationRequired);
        task->exec();
        QVERIFY(runUntil([&] { return task->isPaused(); }));
        authenticator.succeed("new");
        QTest::qWait(20);
        QVERIFY(task->isPaused());
    }

    void drawsTheWaitBeforeARetry_data()
    {
        const auto row = addColumns<double, int>({"share", "retries"});
        row("none", 0, 0);
        row("nearly all of it", 0.9, 1);
        row("more than all of it", 9, 1);
        row("not a number", qQNaN(), 0);
    }
    void drawsTheWaitBeforeARetry()
    {
        QFETCH(double, share);
        QFETCH(int, retries);
        answer({503});
        quint32 seed = 0;
        while (QRandomGenerator(seed).generateDouble() < 0.9)
            ++seed;
        QRandomGenerator generator(seed);
        TestTask task(m_server->url());
        task.setDelayPolicy(Retriable::DelayPolicy::Linear);
        task.setIncrementFactor(200);
        task.setRetryJitter(share, &generator);
        task.setDeadline(60s);
        task.exec();
        QVERIFY(runUntil([&] { return task.isPaused() || task.isFinished(); }));
        QCOMPARE(task.retriesCount(), retries);
        QCOMPARE(task.retryDelay(), retries ? 200s : 0s);
    }

    void endsAtTheDeadline_data()
    {
        addRows("phase", {"delay", "queue", "login", "sent", "streaming", "handler"});
    }
    void endsAtTheDeadline()
    {
        QFETCH(QString, phase);
        m_server->addReply(u"/silence"_s, LoopbackReply::silence());
        if (phase == "queue"_L1)
            m_server->addReply(u"/"_s, LoopbackReply(503));
        m_server->addReply(u"/"_s, phase == "sent"_L1 ? LoopbackReply::silence()
                                   : phase == "streaming"_L1
                                       ? LoopbackReply(200, QByteArray(500, 'x')).dripped(200, 1h)
                                       : LoopbackReply(404));
        TasksQueue queue;
        TestTask other(m_server->url(u"/silence"_s));
        TestAuthenticator authenticator;
        TestTask task(m_server->url());
        bool isReached = false;
        connect(&task, &NetworkTask::readyRead, this, [&] { isReached = true; });
        connect(&task, &NetworkTask::retried, this, [&] { isReached = true; });
        connect(&task, &NetworkTask::aboutToRetry, this, [&] { queue.append(&other); });
        task.setResponseHandler(HttpResponseStatusCode::NotFound, [&] { isReached = true; });
        task.setReplyErrorPolicy(NetworkTask::Ignore);
        task.setResponseErrorPolicy(NetworkTask::Ignore);
        if (phase == "delay"_L1)
            task.setDelay(300);
        if (phase == "queue"_L1)
            task.setDelayPolicy(Retriable::DelayPolicy::None);
        if (phase == "login"_L1)
            task.setAuthenticator(&authenticator);
        task.setDeadline(std::chrono::milliseconds::max());
        phase == "queue"_L1 ? queue.append(&task) : task.exec();
        QVERIFY(runUntil([&] {
            return isReached || task.isPaused() || (phase == "sent"_L1 && m_server->requests().size() == 1);
        }));
        QCOMPARE(task.isRunning(), phase != "queue"_L1);
        const auto requests = m_server->requests(u"/"_s).size();
        const auto timers = task.findChildren<QTimer*>();
        for (auto* timer : timers) { // as after the 24 days that a timer takes at most
            timer->stop();
            QMetaObject::invokeMethod(timer, "timeout");
        }
        QVERIFY(std::any_of(timers.begin(), timers.end(), [](QTimer* timer) { return timer->isActive(); }));
        QVERIFY(!task.isFinished());

        task.setDeadline(1ms); // counts from exec()
        QVERIFY(!task.isFinished());
        QVERIFY(runUntil([&] { return task.isFinished(); }));
        QCOMPARE(task.error().errorCode(), ErrorCode::Network);
        QCOMPARE(task.error().errorDetails().toInt(), NetworkErrorConstants::DEADLINE_ERROR_CODE);
        QCOMPARE(task.error().warnings().join(u';').contains("Service Unavailable"_L1), phase == "queue"_L1);
        QCOMPARE(task.timeoutKind(), NetworkTask::TimeoutKind::Deadline);
        QCOMPARE(task.httpResponseStatusCodeNumber(), 0);
        QVERIFY(!task.networkReply() || task.networkReply()->isFinished());
        QTest::qWait(20);
        QCOMPARE(task.events.count(u"finished"_s), 1);
        QCOMPARE(task.events.last(), u"finished"_s);
        QCOMPARE(m_server->requests(u"/"_s).size(), requests);
    }

    void countsTheDeadlineFromTheFirstAttempt()
    {
        m_server->addReply(u"/"_s, LoopbackReply(404).delayed(20ms));
        TestTask task(m_server->url());
        task.setResponseHandler(HttpResponseStatusCode::NotFound, [&] { task.exec(); });
        task.setDeadline(100ms);
        QVERIFY(task.run());
        QCOMPARE(task.timeoutKind(), NetworkTask::TimeoutKind::Deadline);
        QVERIFY(task.executions > 1);

        m_server->addReply(u"/late"_s, LoopbackReply(200).delayed(50ms));
        TestTask changed(m_server->url(u"/late"_s));
        changed.setDeadline(1ms);
        changed.exec();
        changed.setDeadline(-1ms);
        QVERIFY(runUntil([&] { return changed.isFinished(); }));
        QVERIFY(!changed.hasError());

        TestTask putBack(m_server->url(u"/late"_s));
        putBack.setDeadline(1ms);
        putBack.exec();
        putBack.setIdle();
        QTest::qWait(20);
        QVERIFY(!putBack.isFinished());

        connect(&putBack, &NetworkTask::canceled, this, [] { QTest::qWait(20); });
        putBack.exec();
        putBack.cancel();
        QCOMPARE(putBack.error().errorCode(), ErrorCode::Canceled);
    }

    void repeatsOnlyWhatWasNotProcessed_data()
    {
        const auto row = addColumns<QString, NetworkRequest::Method, bool>({"fault", "method", "isRepeated"});
        const auto post = NetworkRequest::Method::Post;
        row("408", u"408"_s, post, false);
        row("429", u"429"_s, post, true);
        row("503", u"503"_s, post, true);
        row("503, then time-out", u"503, stalled"_s, post, true);
        row("time-out", u"silence"_s, post, false);
        row("cut off", u"200, cut off"_s, post, false);
        row("closed", u"closed"_s, post, false);
        row("closed, no content", u"closed, empty"_s, post, false);
        row("refused", u"refused"_s, post, true);
        row("idempotent", u"408"_s, NetworkRequest::Method::Put, true);
        row("idempotent, time-out", u"silence"_s, NetworkRequest::Method::Delete, true);
    }
    void repeatsOnlyWhatWasNotProcessed()
    {
        QFETCH(QString, fault);
        QFETCH(NetworkRequest::Method, method);
        QFETCH(bool, isRepeated);
        LoopbackReply reply(fault.left(3).toInt(), QByteArray(500, 'x'));
        if (fault.endsWith("cut off"_L1))
            reply.cutAfter(300);
        if (fault.endsWith("stalled"_L1))
            reply.dripped(300, 1h);
        m_server->addReply(u"/"_s, fault == "silence"_L1           ? LoopbackReply::silence()
                                   : fault.startsWith("closed"_L1) ? LoopbackReply::raw({})
                                                                   : reply);
        TestTask task(m_server->url(), method);
        const QByteArray content = fault.endsWith("empty"_L1) ? "" : "content";
        task.change([&](auto& request) { request.postData = content; });
        task.registerRecoverableNetworkErrors({QNetworkReply::ConnectionRefusedError,
                                               QNetworkReply::RemoteHostClosedError,
                                               QNetworkReply::ContentReSendError});
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        task.setMaxRetriesCount(1);
        task.setTimeout(50ms);
        task.setUnsafeRetriesEnabled(false);
        if (fault == "refused"_L1)
            m_server->close();
        QVERIFY(task.run());
        QVERIFY(task.hasError());
        QCOMPARE(task.retriesCount(), isRepeated ? 1 : 0);
        if (fault != "refused"_L1)
            QCOMPARE(m_server->requests().size(), isRepeated ? 2 : 1);
        if (method == NetworkRequest::Method::Post && !m_server->requests().isEmpty())
            QCOMPARE(m_server->requests().constLast().content, content);
    }

    void answersAChallengeOfARequestThatIsSentOnce()
    {
        m_server->addReply(u"/"_s, LoopbackReply(401).withField("WWW-Authenticate", "Basic realm=\"here\""));
        answer({200});
        TestTask task(m_server->url().replace(u"//"_s, u"//user:password@"_s), NetworkRequest::Method::Post);
        task.change([&](auto& request) { request.postData = "content"; });
        task.setUnsafeRetriesEnabled(false);
        QVERIFY(task.succeeds());
    }

    void identifiesTheRequestsOfOneExecution()
    {
        answer({503, 404, 200});
        TestTask task(m_server->url(), NetworkRequest::Method::Post);
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        task.setIdempotencyKeyEnabled(true);
        int handled = 0;
        task.setResponseHandler(HttpResponseStatusCode::NotFound, [&] { task.exec(); });
        task.setResponseHandler(HttpResponseStatusCode::OK, [&] {
            ++handled;
            if (handled == 1)
                task.setIdle();
            else if (handled == 2)
                task.change([](auto& request) { request.rawHeaders.insert("idempotency-key", "own"); });
            if (handled == 3)
                task.finish(Error());
            else
                task.exec();
        });
        QVERIFY(task.run());
        QByteArrayList keys;
        for (const auto& request : m_server->requests())
            keys.append(request.field("Idempotency-Key"));
        QCOMPARE(keys.size(), 5);
        QCOMPARE(keys.first().size(), 38); // "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx"
        QVERIFY(keys.first().startsWith('"') && keys.first().endsWith('"'));
        QCOMPARE(keys.count(keys.first()), 3);
        QVERIFY(keys.at(3) != keys.first() && keys.at(3).size() == 38);
        QCOMPARE(keys.last(), "own");
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskRetry)

#include "tst_NetworkTaskRetry.moc"
