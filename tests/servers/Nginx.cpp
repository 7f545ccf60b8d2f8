#include "Nginx.h"

#include <QFile>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <array>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#endif

using namespace Qt::StringLiterals;

namespace {

QString program(const QString& name)
{
    const auto found = QStandardPaths::findExecutable(name);
    // Debian keeps it where only the administrator looks.
    return found.isEmpty() ? QStandardPaths::findExecutable(name, {u"/usr/sbin"_s, u"/usr/local/sbin"_s})
                           : found;
}

// Two servers that are alive at the same time cannot be given the same port.
std::array<quint16, 2> freePorts()
{
    std::array<QTcpServer, 2> servers;
    for (auto& server : servers)
        server.listen(QHostAddress::LocalHost);
    return {servers[0].serverPort(), servers[1].serverPort()};
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (auto& byte : bytes)
        byte = static_cast<char>(QRandomGenerator::global()->generate());
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

Nginx::Nginx()
{
#ifdef Q_OS_LINUX
    // Where the test dies before it comes to its end, so does the server.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
#endif
}

Nginx::~Nginx()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (m_process.waitForFinished(5000))
        return;
    m_process.kill();
    m_process.waitForFinished();
}

bool Nginx::isAvailable()
{
    return !program(u"nginx"_s).isEmpty() && !program(u"openssl"_s).isEmpty();
}

QString Nginx::start()
{
    auto failure = prepareFiles();
    if (!failure.isEmpty())
        return failure;
    // Somebody else may take a port between its choice and its use.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const auto ports = freePorts();
        m_httpPort = ports[0];
        m_httpsPort = ports[1];
        if (launch())
            return {};
        m_process.kill();
        m_process.waitForFinished();
    }
    return QString::fromUtf8(m_process.readAllStandardError());
}

QString Nginx::httpUrl(const QString& path) const
{
    return u"http://127.0.0.1:%1%2"_s.arg(m_httpPort).arg(path);
}

QString Nginx::httpsUrl(const QString& path) const
{
    return u"https://127.0.0.1:%1%2"_s.arg(m_httpsPort).arg(path);
}

QString Nginx::prepareFiles()
{
    m_content = randomBytes(1 << 20);
    const bool isWritten =
        writeFile(path(u"text"_s), "Hello from nginx.\n") && writeFile(path(u"random"_s), m_content);
    return m_directory.isValid() && isWritten ? makeCertificate() : u"cannot write the files"_s;
}

QString Nginx::makeCertificate()
{
    QProcess openssl;
    openssl.start(program(u"openssl"_s),
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                   u"-subj"_s, u"/CN=localhost"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s,
                   u"-keyout"_s, path(u"key.pem"_s), u"-out"_s, path(u"certificate.pem"_s)});
    const bool isDone = openssl.waitForFinished(30000) && openssl.exitCode() == 0;
    return isDone ? QString() : QString::fromUtf8(openssl.readAllStandardError());
}

// One process, so that ending it leaves no worker behind.
QByteArray Nginx::configuration() const
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
                                "  server {\n"
                                "    listen 127.0.0.1:%1;\n"
                                "    listen 127.0.0.1:%2 ssl http2;\n"
                                "    ssl_certificate certificate.pem;\n"
                                "    ssl_certificate_key key.pem;\n"
                                "    root %3;\n"
                                "    location /closed { return 444; }\n"
                                "  }\n"
                                "}\n"_s;
    return pattern.arg(m_httpPort).arg(m_httpsPort).arg(m_directory.path()).toUtf8();
}

bool Nginx::launch()
{
    if (!writeFile(path(u"nginx.conf"_s), configuration()))
        return false;
    m_process.start(program(u"nginx"_s), {u"-p"_s, m_directory.path(), u"-c"_s, path(u"nginx.conf"_s),
                                          u"-e"_s, path(u"error.log"_s)});
    return awaitPort(m_httpPort) && awaitPort(m_httpsPort);
}

bool Nginx::awaitPort(quint16 port)
{
    const auto isOpen = [port] {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        return socket.waitForConnected(1000);
    };
    bool isAccepting = false;
    const auto isDecided = [&] {
        isAccepting = isOpen();
        return isAccepting || m_process.state() == QProcess::NotRunning;
    };
    // If another program has the port, nginx ends by itself, and whoever answers is not ours.
    return QTest::qWaitFor(isDecided, 10000) && isAccepting && m_process.state() == QProcess::Running;
}
