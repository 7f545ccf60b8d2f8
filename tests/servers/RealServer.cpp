#include "RealServer.h"

#include "../Files.h"

#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#ifdef Q_OS_LINUX
#include <csignal>

#include <sys/prctl.h>
#endif

using namespace Qt::StringLiterals;

namespace {

// %1 to %4 stand for the ports, %5 for the directory.

// "user root": when started by root, workers must also run as root to be able to read the directory.
constexpr auto NGINX = R"(
daemon off;
user root;
pid nginx.pid;
error_log error.log;
events {}
http {
  access_log off;
  client_body_temp_path body;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
  ssl_certificate certificate.pem;
  ssl_certificate_key key.pem;
  root %5;
  server {
    listen 127.0.0.1:%1;
    listen 127.0.0.1:%2 ssl http2;
    location /long { gzip on; gzip_types *; }
    location /closed { return 444; }
  }
  server {
    listen 127.0.0.1:%3 ssl http2;
    keepalive_requests 10;
    location /post { return 200 posted; }
  }
  server {
    listen 127.0.0.1:%4 ssl http2;
    http2_max_concurrent_streams 1;
    location /post { return 200 posted; access_log %5/posts; }
  }
}
)";

constexpr auto LIGHTTPD = R"(
server.modules = ("mod_openssl", "mod_deflate")
server.document-root = "%5"
server.errorlog = "%5/error.log"
server.upload-dirs = ("%5")
server.bind = "127.0.0.1"
server.port = %1
$HTTP["url"] == "/long" { deflate.mimetypes = ("") deflate.allowed-encodings = ("gzip") }
ssl.pemfile = "%5/certificate.pem"
ssl.privkey = "%5/key.pem"
$SERVER["socket"] == "127.0.0.1:%2" { ssl.engine = "enable" }
$SERVER["socket"] == "127.0.0.1:%3" { ssl.engine = "enable" server.max-keep-alive-requests = 10 }
$SERVER["socket"] == "127.0.0.1:%4" { ssl.engine = "enable" }
)";

QString program(const QString& name)
{
    // Debian installs servers in a directory that is in the PATH of the administrator only.
    const auto found = QStandardPaths::findExecutable(name, {u"/usr/sbin"_s, u"/usr/local/sbin"_s});
    return found.isEmpty() ? QStandardPaths::findExecutable(name) : found;
}

// All servers exist at the same time, so the system gives them different ports.
std::array<quint16, 4> freePorts()
{
    std::array<QTcpServer, 4> servers;
    for (auto& server : servers)
        server.listen(QHostAddress::LocalHost);
    return {servers[0].serverPort(), servers[1].serverPort(), servers[2].serverPort(),
            servers[3].serverPort()};
}

} // namespace

RealServer::RealServer(Kind kind)
    : m_kind(kind)
{
#ifdef Q_OS_LINUX
    // If the test crashes, the server is terminated, together with its workers.
    m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
#endif
}

RealServer::~RealServer()
{
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
}

QString RealServer::missingProgram() const
{
    for (const auto& name : {m_kind == Nginx ? u"nginx"_s : u"lighttpd"_s, u"openssl"_s}) {
        if (program(name).isEmpty())
            return name;
    }
    return {};
}

QString RealServer::start()
{
    const auto failure = prepareFiles();
    m_ports = freePorts();
    return failure.isEmpty() && !launch() ? QString::fromUtf8(m_process.readAllStandardError()) : failure;
}

QString RealServer::url(Port port, const QString& path) const
{
    const auto scheme = port == Plain ? u"http"_s : u"https"_s;
    return u"%1://127.0.0.1:%2%3"_s.arg(scheme).arg(m_ports.at(port)).arg(path);
}

qsizetype RealServer::loggedPosts() const
{
    return readFile(path(u"posts"_s)).count('\n');
}

QByteArray RealServer::longText()
{
    return QByteArray("All work and no play.\n").repeated(20000);
}

QString RealServer::prepareFiles()
{
    m_content.resize(1 << 20);
    for (auto& byte : m_content)
        byte = static_cast<char>(QRandomGenerator::global()->generate());
    const bool isWritten = writeFile(path(u"text"_s), "Hello from a server.\n") &&
                           writeFile(path(u"random"_s), m_content) && writeFile(path(u"long"_s), longText());
    return m_directory.isValid() && isWritten ? makeCertificate() : u"cannot write the files"_s;
}

QString RealServer::makeCertificate()
{
    QProcess openssl;
    openssl.start(program(u"openssl"_s),
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                   u"-subj"_s, u"/CN=localhost"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s,
                   u"-keyout"_s, path(u"key.pem"_s), u"-out"_s, path(u"certificate.pem"_s)});
    const bool isDone = openssl.waitForFinished(30000) && openssl.exitCode() == 0;
    return isDone ? QString() : QString::fromUtf8(openssl.readAllStandardError());
}

QString RealServer::configuration() const
{
    return QString::fromLatin1(m_kind == Nginx ? NGINX : LIGHTTPD)
        .arg(m_ports[Plain])
        .arg(m_ports[Tls])
        .arg(m_ports[Limited])
        .arg(m_ports[Refusing])
        .arg(m_directory.path());
}

bool RealServer::launch()
{
    const auto file = path(u"server.conf"_s);
    if (!writeFile(file, configuration().toUtf8()))
        return false;
    if (m_kind == Nginx)
        m_process.start(program(u"nginx"_s),
                        {u"-p"_s, m_directory.path(), u"-c"_s, file, u"-e"_s, u"error.log"_s});
    else
        m_process.start(program(u"lighttpd"_s), {u"-D"_s, u"-f"_s, file});
    return std::all_of(m_ports.begin(), m_ports.end(), [this](quint16 port) { return awaitPort(port); });
}

bool RealServer::awaitPort(quint16 port)
{
    const auto isOpen = [port] {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        return socket.waitForConnected(1000);
    };
    // If another process has taken the port, the server exits, and it is that process which answers.
    return QTest::qWaitFor(isOpen, 10000) && m_process.state() == QProcess::Running;
}
