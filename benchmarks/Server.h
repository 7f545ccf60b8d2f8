#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace benchmark {

/// nginx as the server for all clients: so fast that the client is what is measured, and in a separate
/// process.
class Server
{
public:
    enum class Transport {
        Plain,
        Tls, ///< With HTTP/2 for clients that want it, and a self-signed certificate.
    };

    /// Starts a server on a port that the system picks. Throws Unavailable if there is no nginx, or no
    /// openssl to make a certificate with.
    explicit Server(Transport transport = Transport::Plain);
    /// Refers to a server that another process has started.
    explicit Server(const QString& url);
    ~Server();

    const QString& url() const { return m_url; }
    quint16 port() const;
    /// The path of a small JSON object, a typical reply of a service.
    static QString smallPath();
    static qsizetype smallSize();
    QString smallUrl() const { return m_url + smallPath(); }
    /// The path of content of the given size in MB (of 1,048,576 bytes).
    QString bodyPath(int megabytes);

private:
    void makeCertificate();
    bool start();
    QByteArray configuration(quint16 port) const;

    const Transport m_transport = Transport::Plain;
    QTemporaryDir m_directory;
    QProcess m_process;
    QString m_url;
};

} // namespace benchmark
