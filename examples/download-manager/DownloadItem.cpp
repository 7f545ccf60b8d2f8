#include "DownloadItem.h"

#include <AbstractAuthenticator.h>
#include <NetworkQueue.h>

#include <QNetworkReply>

#include <algorithm>

namespace downloads {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

int statusOf(const QNetworkReply* reply)
{
    return reply ? reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() : 0;
}

// A short description of the last reply. Qt's texts are not used for error statuses since they repeat the
// whole URL; for a success status, only they say why the reply has failed.
QString describe(const QNetworkReply* reply, const QString& otherwise)
{
    const int status = statusOf(reply);
    if (status == 0)
        return otherwise;
    if (status < 300)
        return reply->errorString();
    if (status < 400 && reply->hasRawHeader("Location"))
        return DownloadItem::tr("Moved to %1").arg(QString::fromUtf8(reply->rawHeader("Location")));
    const auto reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    return DownloadItem::tr("HTTP %1 %2").arg(QString::number(status), reason).trimmed();
}

} // namespace

DownloadItem::DownloadItem(const QUrl& url, const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_url(url)
    , m_filePath(filePath)
{
    m_clock.start();
}

DownloadItem::~DownloadItem() = default;

QString DownloadItem::message() const
{
    if (m_state != State::WaitingToRetry || m_nextAttempt.isForever())
        return m_message;
    const auto left = std::max<qint64>((m_nextAttempt.remainingTime() + 999) / 1000, 1);
    return tr("%1, again in %n s", nullptr, static_cast<int>(left)).arg(m_message);
}

qint64 DownloadItem::bytesPerSecond() const
{
    return m_state == State::Downloading ? m_rate.bytesPerSecond(now()) : 0;
}

std::optional<seconds> DownloadItem::timeLeft() const
{
    const auto rate = bytesPerSecond();
    if (rate <= 0 || m_total < m_received)
        return {};
    return seconds((m_total - m_received + rate - 1) / rate);
}

void DownloadItem::start(orv::NetworkQueue& queue, orv::AbstractAuthenticator* authenticator)
{
    if (m_task || m_state == State::Done)
        return;
    m_task = std::make_unique<DownloadTask>(m_url.toString(QUrl::FullyEncoded), m_filePath, authenticator);
    connect(m_task.get(), &DownloadTask::started, this, &DownloadItem::onStarted);
    connect(m_task.get(), &DownloadTask::waitChanged, this, &DownloadItem::onWaitChanged);
    connect(m_task.get(), &DownloadTask::readyRead, this, &DownloadItem::onReadyRead);
    connect(m_task.get(), &DownloadTask::aboutToRetry, this, &DownloadItem::onAboutToRetry);
    connect(m_task.get(), &DownloadTask::finished, this, &DownloadItem::onFinished);
    m_received = 0;
    queue.append(m_task.get());
    setState(State::Queued);
}

void DownloadItem::stop()
{
    if (m_task)
        m_task->cancel();
}

void DownloadItem::setState(State state, const QString& message)
{
    m_state = state;
    m_message = message;
    Q_EMIT changed();
}

void DownloadItem::onStarted()
{
    m_received = 0;
    m_rate.start(now());
    setState(State::Downloading);
}

void DownloadItem::onWaitChanged()
{
    switch (m_task->wait()) {
    case DownloadTask::Wait::None:
        m_rate.start(now());
        setState(State::Downloading);
        break;
    case DownloadTask::Wait::Retry:
        m_nextAttempt.setRemainingTime(milliseconds(m_task->retryDelay()));
        setState(State::WaitingToRetry, m_failedAttempt);
        break;
    case DownloadTask::Wait::Login:
        setState(State::WaitingForLogin, tr("%1 asks for a login").arg(m_url.host()));
        break;
    }
}

// Each attempt has its own reply; readyRead() is the first signal at which it exists.
void DownloadItem::onReadyRead()
{
    connect(m_task->networkReply(), &QNetworkReply::downloadProgress, this, &DownloadItem::onProgress,
            Qt::UniqueConnection);
}

// The content of an error reply does not count as progress.
void DownloadItem::onProgress(qint64 received, qint64 total)
{
    const int status = m_task ? statusOf(m_task->networkReply()) : 0;
    if (status < 200 || status > 299)
        return;
    m_received = received;
    m_total = total;
    m_rate.add(now(), received);
    Q_EMIT changed();
}

// The task is in the queue again from here until its delay starts.
void DownloadItem::onAboutToRetry()
{
    m_failedAttempt = describe(m_task->networkReply(), tr("No connection, or no answer in time"));
    m_nextAttempt = QDeadlineTimer(QDeadlineTimer::Forever);
    m_received = 0;
    setState(State::WaitingToRetry, m_failedAttempt);
}

void DownloadItem::onFinished()
{
    // Deleted, since a finished task keeps the content that it has saved in memory.
    auto* task = m_task.release();
    task->deleteLater();
    const auto error = task->error();
    if (!error.hasError()) {
        m_received = m_total = task->bytesReceived();
        setState(State::Done);
        return;
    }
    m_received = 0;
    const bool isStatus = error.errorCode() == orv::ErrorCode::Network;
    if (task->isCanceled())
        setState(State::Paused);
    else
        setState(State::Failed,
                 isStatus ? describe(task->networkReply(), error.errorMessage()) : error.errorMessage());
}

milliseconds DownloadItem::now() const
{
    return milliseconds(m_clock.elapsed());
}

} // namespace downloads
