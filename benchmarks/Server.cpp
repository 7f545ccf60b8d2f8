#include "Server.h"

#include "Session.h"

#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#endif

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

constexpr auto SMALL_CONTENT = R"({"id":4711,"name":"Ann","roles":["reader","writer"],"active":true})"_L1;

QString nginx()
{
    const auto found = QStandardPaths::findExecutable(u"nginx"_s);
    // Debian installs it in a directory that is in the PATH of the administrator only.
    return found.isEmpty() ? QStandardPaths::findExecutable(u"nginx"_s, {u"/usr/sbin"_s}) : found;
}

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

bool isOpen(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    return socket.waitForConnected(1000);
}

} // namespace

Server::Server(Transport transport)
    : m_transport(transport)
{
    if (nginx().isEmpty())
        throw Unavailable("nginx is missing");
    if (transport == Transport::Tls)
        makeCertificate();
#ifdef Q_OS_LINUX
    // If this process crashes, the server is terminated too.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
#endif
    // Another process may take the port before nginx does.
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (start())
            return;
    }
    throw std::runtime_error("nginx does not start: " + m_process.readAllStandardError().toStdString());
}

Server::Server(const QString& url)
    : m_url(url)
{
}

Server::~Server()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

quint16 Server::port() const
{
    return static_cast<quint16>(QUrl(m_url).port());
}

QString Server::smallPath()
{
    return u"/small"_s;
}

qsizetype Server::smallSize()
{
    return SMALL_CONTENT.size();
}

QString Server::bodyPath(int megabytes)
{
    auto path = u"/body-%1"_s.arg(megabytes);
    QFile file(m_directory.path() + path);
    if (!file.exists() && !(file.open(QIODevice::WriteOnly) && file.resize(qint64{megabytes} << 20)))
        throw std::runtime_error("cannot make the content");
    return path;
}

void Server::makeCertificate()
{
    QProcess openssl;
    openssl.start(u"openssl"_s,
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                   u"-subj"_s, u"/CN=localhost"_s, u"-keyout"_s, m_directory.filePath(u"key.pem"_s),
                   u"-out"_s, m_directory.filePath(u"certificate.pem"_s)});
    if (!openssl.waitForFinished() || openssl.exitCode() != 0)
        throw Unavailable("openssl is missing, or makes no certificate");
}

bool Server::start()
{
    const auto port = freePort();
    QFile file(m_directory.filePath(u"nginx.conf"_s));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(configuration(port));
    file.close();
    m_process.start(nginx(),
                    {u"-p"_s, m_directory.path(), u"-c"_s, file.fileName(), u"-e"_s, u"error.log"_s});
    // If another process has taken the port, nginx exits, and it is that process which answers.
    for (int i = 0; i < 500 && !m_process.waitForFinished(10); ++i) {
        if (isOpen(port) && m_process.state() == QProcess::Running) {
            const auto scheme = m_transport == Transport::Tls ? u"https"_s : u"http"_s;
            m_url = u"%1://127.0.0.1:%2"_s.arg(scheme).arg(port);
            return true;
        }
    }
    m_process.kill();
    m_process.waitForFinished();
    return false;
}

// A single process, so that terminating it leaves no workers behind. Connections stay open during a whole
// run.
QByteArray Server::configuration(quint16 port) const
{
    static const auto pattern = u"daemon off;\n"
                                "master_process off;\n"
                                "pid nginx.pid;\n"
                                "error_log error.log;\n"
                                "events {}\n"
                                "http {\n"
                                "  access_log off;\n"
                                "  client_body_temp_path body;\n"
                                "  proxy_temp_path proxy;\n"
                                "  fastcgi_temp_path fastcgi;\n"
                                "  uwsgi_temp_path uwsgi;\n"
                                "  scgi_temp_path scgi;\n"
                                "  sendfile on;\n"
                                "  keepalive_requests 1000000000;\n"
                                "  keepalive_timeout 1h;\n"
                                "  keepalive_time 24h;\n"
                                "  server {\n"
                                "    listen 127.0.0.1:%1%5;\n"
                                "    root %2;\n"
                                "    location = %3 { default_type application/json; return 200 '%4'; }\n"
                                "  }\n"
                                "}\n"_s;
    const auto tls =
        m_transport == Transport::Tls
            ? u" ssl http2;\n    ssl_certificate certificate.pem;\n    ssl_certificate_key key.pem"_s
            : QString();
    return pattern.arg(port).arg(m_directory.path(), smallPath(), SMALL_CONTENT, tls).toUtf8();
}

} // namespace benchmark
