#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// A private nginx in a directory of its own: plain HTTP on one port, HTTP/2 over TLS with a self-signed
/// certificate on another, both on 127.0.0.1. It ends with this object, or with this process.
///
///   /text     the text "Hello from nginx.\n"
///   /random   a megabyte, the same as content()
///   /closed   the connection is closed without an answer
class Nginx
{
public:
    Nginx();
    ~Nginx();
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    /// Whether the programs that are needed are installed.
    static bool isAvailable();

    /// Starts the server and waits until it accepts connections. Returns what went wrong; empty for nothing.
    QString start();

    QString httpUrl(const QString& path) const;
    QString httpsUrl(const QString& path) const;
    const QByteArray& content() const { return m_content; }

private:
    QString prepareFiles();
    QString makeCertificate();
    QByteArray configuration() const;
    bool launch();
    bool awaitPort(quint16 port);
    QString path(const QString& name) const { return m_directory.filePath(name); }

    QTemporaryDir m_directory;
    QProcess m_process;
    QByteArray m_content;
    quint16 m_httpPort = 0;
    quint16 m_httpsPort = 0;
};
