#include "Snippets.h"

using namespace Qt::StringLiterals;

namespace {

//! [statuses]
class PatientTask : public orv::NetworkTask
{
public:
    explicit PatientTask(const QString& url, QObject* parent = nullptr)
        : NetworkTask(url, Priority::Normal, parent)
    {
        using orv::HttpResponseStatusCode;
        setResponseHandler({HttpResponseStatusCode::InternalServerError, HttpResponseStatusCode(502),
                            HttpResponseStatusCode(504)},
                           [this] { processFailedReply({}); });
    }
};
//! [statuses]

} // namespace

void Snippets::retrySettings()
{
    orv::NetworkTask whole(m_url + u"/missing"_s);
    auto* task = &whole;

    //! [settings]
    task->setMaxRetriesCount(3);                               // 10 by default; 0 for none
    task->setDelayPolicy(orv::Retriable::DelayPolicy::Linear); // Exponential by default
    task->setIncrementFactor(5);                               // seconds to add; 2 by default
    //! [settings]

    QList<std::chrono::seconds> delays;
    for (; task->canRetry(); task->incrementRetries())
        delays.append(task->retryDelay());
    delays.append(task->retryDelay());
    using std::chrono::seconds;
    QCOMPARE(delays, (QList<seconds>{seconds(0), seconds(5), seconds(10), seconds(15)}));

    orv::NetworkTask standard;
    delays.clear();
    for (; standard.canRetry(); standard.incrementRetries())
        delays.append(standard.retryDelay());
    delays.append(standard.retryDelay());
    QList<seconds> expected;
    for (const int delay : {0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 300})
        expected.append(seconds(delay));
    QCOMPARE(delays, expected);

    //! [never]
    task->setRetriesEnabled(false);
    //! [never]
    QCOMPARE(task->canRetry(), false);
}

void Snippets::retryOtherErrors()
{
    m_server->addReply(u"/cut"_s,
                       orv::LoopbackReply::raw("HTTP/1.1 502 Bad Gateway\r\nContent-Le").resetAfter(5));
    m_server->addReply(u"/cut"_s, orv::LoopbackReply(200, "whole"));
    orv::NetworkTask whole(m_url + u"/cut"_s);
    whole.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    auto* task = &whole;

    //! [errors]
    task->registerRecoverableNetworkErrors({QNetworkReply::ConnectionRefusedError,
                                            QNetworkReply::RemoteHostClosedError,
                                            QNetworkReply::HostNotFoundError});
    task->unregisterRecoverableNetworkErrors({QNetworkReply::UnknownNetworkError});
    //! [errors]

    task->exec();
    QVERIFY(succeeds(task));
    QCOMPARE(task->data(), "whole");
}

void Snippets::retryServerErrors()
{
    for (const int status : {500, 502, 504})
        m_server->addReply(u"/users"_s, orv::LoopbackReply(status));
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    PatientTask task(m_url + u"/users"_s);
    task.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    task.exec();
    QVERIFY(succeeds(&task));
    QCOMPARE(m_server->requests().size(), 4);

    PatientTask failing(m_url + u"/users"_s);
    m_server->addReply(u"/users"_s, orv::LoopbackReply(502));
    failing.setMaxRetriesCount(1);
    failing.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    failing.exec();
    QVERIFY(!succeeds(&failing));
    QCOMPARE(m_server->requests().size(), 6);
    QCOMPARE(failing.error().errorDetails().toInt(), 2502);
}

void Snippets::retryAfter()
{
    m_server->addReply(u"/busy"_s, orv::LoopbackReply(429).withField("Retry-After", "90"));
    orv::NetworkTask whole(m_url + u"/busy"_s);
    auto* task = &whole;

    //! [jitter]
    task->setRetryJitter(1);
    //! [jitter]
    //! [after]
    task->setMaxRetryAfter(std::chrono::minutes(10));
    //! [after]
    //! [deadline]
    task->setDeadline(std::chrono::minutes(1));
    //! [deadline]

    task->exec();
    QTRY_VERIFY(task->isFinished()); // the server asks for more time than there is
    QCOMPARE(task->error().errorDetails().toInt(), 2429);
    QVERIFY(!task->hasTimedOut());
}

void Snippets::retryUnsafeRequests()
{
    m_server->addReply(u"/orders"_s, orv::LoopbackReply::silence());
    orv::NetworkTask whole(m_url + u"/orders"_s);
    whole.setRequest(m_url + u"/orders"_s, {}, orv::NetworkRequest::Method::Post, false);
    whole.setTimeout(50);
    auto* task = &whole;

    //! [unsafe]
    task->setUnsafeRetriesEnabled(false);
    //! [unsafe]
    //! [key]
    task->setIdempotencyKeyEnabled(true);
    //! [key]

    task->exec();
    QTRY_VERIFY(task->isFinished());
    QCOMPARE(task->timeoutKind(), orv::NetworkTask::TimeoutKind::Inactivity);
    QCOMPARE(m_server->requests().size(), 1);
    QVERIFY(m_server->requests().constFirst().hasField("Idempotency-Key"));
}

void Snippets::retrySignals()
{
    m_server->addReply(u"/busy"_s, orv::LoopbackReply(503));
    m_server->addReply(u"/busy"_s, orv::LoopbackReply(200));
    orv::NetworkTask whole(m_url + u"/busy"_s);
    auto* task = &whole;
    QStringList shown;
    const auto showState = [&shown](const QString& text) { shown.append(text); };

    //! [signals]
    connect(task, &orv::NetworkTask::retried, this, [task, showState] {
        showState(
            tr("Attempt %1 begins in %2 s").arg(task->retriesCount() + 1).arg(task->retryDelay().count()));
    });
    //! [signals]

    task->exec();
    QVERIFY(succeeds(task));
    QCOMPARE(shown, QStringList(u"Attempt 2 begins in 1 s"_s));
}
