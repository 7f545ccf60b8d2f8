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

/// One download as the user sees it. It outlives its tasks: each start() creates a new one.
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
    /// Where the file is saved.
    QString filePath() const { return m_filePath; }
    State state() const { return m_state; }
    /// Whether there is a task, queued or running.
    bool isActive() const { return m_task != nullptr; }
    /// Why the download has failed or is waiting; otherwise empty.
    QString message() const;

    qint64 received() const { return m_received; }
    /// The total size, or -1 if unknown.
    qint64 total() const { return m_total; }
    qint64 bytesPerSecond() const;
    std::optional<std::chrono::seconds> timeLeft() const;

    /// Appends a new task to @p queue, which downloads from the first byte. Does nothing if the download is
    /// active or done.
    void start(orv::NetworkQueue& queue, orv::AbstractAuthenticator* authenticator);
    /// Cancels the task. The download can be started again.
    void stop();

Q_SIGNALS:
    /// Something has changed, other than the speed and the remaining times, which change all the time.
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
