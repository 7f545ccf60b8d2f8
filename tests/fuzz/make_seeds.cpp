#include "../Files.h"

#include <LoopbackServer.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>

using namespace orv;

namespace {

// The bytes of the server's response to a GET.
QByteArray bytesOf(const LoopbackServer& server, const QString& path)
{
    QByteArray bytes;
    QTcpSocket socket;
    QEventLoop loop;
    QObject::connect(&socket, &QTcpSocket::readyRead, &loop, [&] { bytes += socket.readAll(); });
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    socket.connectToHost(QStringLiteral("127.0.0.1"), server.port());
    socket.write("GET " + path.toLatin1() + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    loop.exec();
    return bytes;
}

QList<LoopbackReply> replies()
{
    const QByteArray content(300, 'x');
    QList<LoopbackReply> all;
    for (const int status :
         {100, 101, 103, 200, 201, 204, 206, 301, 304, 400, 401, 404, 408, 429, 440, 500, 503, 599})
        all.append(LoopbackReply(status, content));
    const auto deflated = qCompress(content).mid(4);
    all.append(LoopbackReply(200, content).chunked(7));
    all.append(LoopbackReply(200, content).untilClose());
    all.append(LoopbackReply(200, content).cutAfter(200));
    all.append(LoopbackReply(200, content).withField("Content-Length", "900"));
    all.append(LoopbackReply(200, deflated).withField("Content-Encoding", "deflate").chunked(9));
    all.append(LoopbackReply(401).withField("WWW-Authenticate", "Basic realm=\"x\""));
    all.append(LoopbackReply(200, content).withField("Set-Cookie", "a=b; Path=/"));
    return all;
}

} // namespace

/// Writes seeds for fuzz_NetworkTask, responses of LoopbackServer, to the directory on the command line.
int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const auto directory = QCoreApplication::arguments().value(1);
    LoopbackServer server;
    if (directory.isEmpty() || server.listen().hasError())
        return 1;
    int number = 0;
    for (const auto& reply : replies()) {
        const auto path = QStringLiteral("/%1").arg(++number);
        server.addReply(path, reply);
        const auto bytes = bytesOf(server, path);
        const char mode = static_cast<char>(number % 16);
        if (bytes.isEmpty() || !writeFile(directory + path, QByteArray(2, mode) + bytes))
            return 1;
    }
    return 0;
}
