#pragma once

#include "../Files.h"

#include <QProcess>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

/// One run of the program orv-fetch.
class FetchProcess
{
public:
    explicit FetchProcess(const QStringList& arguments)
    {
        m_process.setProgram(QStringLiteral(ORV_FETCH_PROGRAM));
        m_process.setArguments(arguments);
    }

    /// Runs the program until it exits and returns the exit code; -1 if there is none. The event loop runs
    /// meanwhile.
    int run(const QByteArray& input = {})
    {
        start(input);
        return wait();
    }

    void start(const QByteArray& input = {})
    {
        m_process.start();
        m_process.write(input);
        m_process.closeWriteChannel();
    }

    int wait()
    {
        QSignalSpy finished(&m_process, &QProcess::finished);
        const bool hasEnded = m_process.state() == QProcess::NotRunning || finished.wait(30000);
        m_output += m_process.readAllStandardOutput();
        m_messages += m_process.readAllStandardError();
        return hasEnded && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

    /// The standard output and the standard error, after run() or wait().
    const QByteArray& output() const { return m_output; }
    const QByteArray& messages() const { return m_messages; }

    QProcess& process() { return m_process; }

private:
    QProcess m_process;
    QByteArray m_output;
    QByteArray m_messages;
};
