#pragma once

#include "ExitCode.h"
#include "Options.h"
#include "Output.h"

#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QObject>

#include <memory>

namespace fetch {

/// Carries out one set of options: sends the request and writes the reply to its output.
///
/// What is written is the content of a successful reply. On a stream and with the head included it is the
/// content of any reply, for people who want to see what the server has to say.
class Fetcher : public QObject
{
    Q_OBJECT

public:
    explicit Fetcher(const Options& options, QObject* parent = nullptr);
    ~Fetcher() override;

    /// Opens the output and sends the request. To be called once.
    void start();
    /// Ends the fetch as interrupted, unless it has ended.
    void cancel();

    ExitCode exitCode() const { return m_exitCode; }
    /// Why the fetch failed, for people; empty after a success.
    QString message() const { return m_message; }

Q_SIGNALS:
    /// The fetch has ended, exitCode() and message() are final. Emitted once.
    void finished();

private:
    void prepareTask();
    void onReadyRead();
    void onAboutToRetry();
    void onTaskFinished();

    void write(const QByteArray& content);
    void writeHead();
    bool isWanted() const;
    bool isTruncated() const;

    void judge();
    void judgeError(const orv::Error& error);
    void judgeStatus(int status);
    bool isTimeout() const;
    void end(ExitCode code, const QString& message);

    const Options m_options;
    Output m_output;
    orv::Error m_outputError;
    const std::unique_ptr<orv::SslIgnorantNetworkAccessManager> m_manager;
    orv::NetworkTask m_task;
    bool m_isHeadWritten = false;
    qint64 m_contentSize = 0;
    ExitCode m_exitCode = ExitCode::Success;
    QString m_message;
};

} // namespace fetch
