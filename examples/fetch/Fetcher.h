#pragma once

#include "Options.h"
#include "Outcome.h"
#include "Output.h"

#include <NetworkTask.h>

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <memory>

namespace fetch {

/// The fetch of one URL: its task, its output and its outcome.
///
/// Only the content of a successful reply is written, except to a stream with the head included: there it is
/// the content of any reply, for users who want to see the server's response to a failed request.
class Fetcher : public QObject
{
    Q_OBJECT

public:
    Fetcher(const QString& url, const Options& options, QObject* parent = nullptr);
    ~Fetcher() override;

    /// The task, to be run by a queue.
    orv::NetworkTask* task() const { return m_task.get(); }
    /// Ends the fetch as interrupted. Does nothing if it has ended.
    void cancel();

    bool hasEnded() const { return m_hasEnded; }
    /// How the fetch ended. Only valid once hasEnded().
    const Outcome& outcome() const { return m_outcome; }

    /// The URL to show to users, without the password.
    QString displayUrl() const;
    /// A short name to show to users.
    QString displayName() const;
    /// One line that describes a success: status, bytes, seconds, URL.
    QString summary() const;
    /// The time since the last attempt began; 0 before the first.
    qint64 attemptMilliseconds() const;

Q_SIGNALS:
    /// The fetch has ended and outcome() is valid. Emitted once.
    void finished();

private:
    void prepareTask();
    void onStarted();
    void onReadyRead();
    void onFinished();

    QString destination() const;
    orv::Error open();
    void write(const QByteArray& content);
    void writeHead();
    bool isWanted() const;

    const QString m_url;
    const Options& m_options;
    const std::unique_ptr<orv::NetworkTask> m_task;
    std::unique_ptr<Output> m_output; // null before the first attempt, and for a FileDownloadTask
    orv::Error m_outputError;
    bool m_isHeadWritten = false;
    bool m_hasEnded = false;
    QElapsedTimer m_clock; // since the first attempt began
    QElapsedTimer m_attemptClock;
    Outcome m_outcome;
};

} // namespace fetch
