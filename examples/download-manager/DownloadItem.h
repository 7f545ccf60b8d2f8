#pragma once

#include "DownloadTask.h"
#include "RateMeter.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QObject>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

namespace orv {
class NetworkQueue;
}

namespace downloads {

/// One download as its user sees it: it lasts, while a task of its own does the work of each start.
class DownloadItem : public QObject
{
    Q_OBJECT

public:
    enum class State {
        Queued,
        Downloading,
        WaitingToRetry,
        WaitingForLogin,
        Paused, ///< Stopped by the user.
        Done,
        Failed,
    };
    Q_ENUM(State)

    DownloadItem(const QUrl& url, const QString& filePath, QObject* parent = nullptr);
    ~DownloadItem() override;

    QUrl url() const { return m_url; }
    /// The file to be written.
    QString filePath() const { return m_filePath; }
    State state() const { return m_state; }
    /// Whether there is a task at work, or about to be.
    bool isActive() const { return m_task != nullptr; }
    /// Why the download failed or waits; empty when there is nothing to tell.
    QString message() const;

    qint64 received() const { return m_received; }
    /// The size of the whole, -1 as long as it is not known.
    qint64 total() const { return m_total; }
    qint64 bytesPerSecond() const;
    std::optional<std::chrono::seconds> timeLeft() const;

    /// Puts a new task into @p queue, from the first byte on. Without effect while one is active, and once
    /// done.
    void start(orv::NetworkQueue& queue, orv::AbstractAuthenticator* authenticator);
    /// Cancels the task; the download can be started again.
    void stop();

Q_SIGNALS:
    /// Anything but speed and remaining times has changed; those change by themselves.
    void changed();

private:
    void setState(State state, const QString& message = {});
    void onStarted();
    void onWaitChanged();
    void onReadyRead();
    void onProgress(qint64 received, qint64 total);
    void onAboutToRetry();
    void onFinished();
    std::chrono::milliseconds now() const;

    const QUrl m_url;
    const QString m_filePath;
    std::unique_ptr<DownloadTask> m_task;
    State m_state = State::Paused;
    QString m_message;
    QString m_failedAttempt;
    QDeadlineTimer m_nextAttempt;
    qint64 m_received = 0;
    qint64 m_total = -1;
    QElapsedTimer m_clock;
    RateMeter m_rate;
};

} // namespace downloads
