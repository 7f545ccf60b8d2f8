#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace benchmark {

/// nginx as the peer of every client: so fast that what is measured is the client, and a process of its own.
class Server
{
public:
    /// Starts a server on a port that the system picks. Throws Unavailable where there is none to start.
    Server();
    /// Refers to the server of another process.
    explicit Server(const QString& url);
    ~Server();

    const QString& url() const { return m_url; }
    quint16 port() const;
    /// A reply as services give them: a small JSON object.
    static QString smallPath();
    static qsizetype smallSize();
    QString smallUrl() const { return m_url + smallPath(); }
    /// Content of so many MB (of 1,048,576 bytes).
    QString bodyPath(int megabytes);

private:
    bool start();
    QByteArray configuration(quint16 port) const;

    QTemporaryDir m_directory;
    QProcess m_process;
    QString m_url;
};

} // namespace benchmark
