#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <array>

/// A private nginx or lighttpd with its own directory, on four ports of 127.0.0.1: plain HTTP, HTTP/2 over
/// TLS with a self-signed certificate, the same with connections that end after 10 requests, and with nginx
/// the same with one stream at a time, where others are refused. The server is terminated with this object or
/// with this process.
///
///   /text      the text "Hello from a server.\n"
///   /random    a megabyte, the same as content()
///   /long      a long text, the same as longText(), gzip-encoded
///   /closed    nginx: the connection is closed without a reply
///   /post      nginx: the text "posted"
class RealServer
{
public:
    enum Kind { Nginx, Lighttpd };
    enum Port { Plain, Tls, Limited, Refusing };

    explicit RealServer(Kind kind);
    ~RealServer();
    RealServer(const RealServer&) = delete;
    RealServer& operator=(const RealServer&) = delete;

    /// A required program that is not installed; empty if there is none.
    QString missingProgram() const;
    /// Starts the server and waits until it accepts connections. Returns an error text; empty on success.
    QString start();
    QString url(Port port, const QString& path) const;
    const QByteArray& content() const { return m_content; }
    /// How many requests for /post the server has processed at the port Refusing.
    qsizetype loggedPosts() const;
    static QByteArray longText();

private:
    QString prepareFiles();
    QString makeCertificate();
    QString configuration() const;
    bool launch();
    bool awaitPort(quint16 port);
    QString path(const QString& name) const { return m_directory.filePath(name); }

    const Kind m_kind;
    QTemporaryDir m_directory;
    QProcess m_process;
    QByteArray m_content;
    std::array<quint16, 4> m_ports{};
};
