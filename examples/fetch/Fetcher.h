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

/// The fetch of one URL: its task, where the content goes, and how it ended.
///
/// What is written is the content of a successful reply. On a stream and with the head included it is the
/// content of any reply, for people who want to see what the server has to say.
class Fetcher : public QObject
{
    Q_OBJECT

public:
    Fetcher(const QString& url, const Options& options, QObject* parent = nullptr);
    ~Fetcher() override;

    /// To be run by a queue.
    orv::NetworkTask* task() const { return m_task.get(); }
    /// Ends the fetch as interrupted, unless it has ended.
    void cancel();

    bool hasEnded() const { return m_hasEnded; }
    /// How it ended; a success until then.
    const Outcome& outcome() const { return m_outcome; }

    /// The URL for people, without a password.
    QString displayUrl() const;
    /// A short name for people.
    QString displayName() const;
    /// One line about a success: status, bytes, seconds, URL.
    QString summary() const;
    /// Since the last attempt began; 0 before the first.
    qint64 attemptMilliseconds() const;

Q_SIGNALS:
    /// The fetch has ended, outcome() is final. Emitted once.
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
    std::unique_ptr<Output> m_output; // null while there is none, and for a task that saves by itself
    orv::Error m_outputError;
    bool m_isHeadWritten = false;
    bool m_hasEnded = false;
    QElapsedTimer m_clock; // of all attempts
    QElapsedTimer m_attemptClock;
    Outcome m_outcome;
};

} // namespace fetch
