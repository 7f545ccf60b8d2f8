#include <LoopbackServer.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <thread>

// A server with files to try the download manager with: some slow, one that requires a login, some that fail.
// It prints their URLs and exits when its standard input ends.

namespace {

using namespace std::chrono_literals;
using orv::LoopbackReply;
using orv::LoopbackRequest;
using orv::LoopbackServer;

LoopbackReply file(qsizetype size)
{
    return LoopbackReply(200, QByteArray(size, 'x'), "application/octet-stream");
}

LoopbackReply login(const LoopbackRequest& request)
{
    const auto credentials = QJsonDocument::fromJson(request.content).object();
    if (credentials.value(QLatin1String("password")).toString() != QLatin1String("secret"))
        return LoopbackReply(401);
    return LoopbackReply::json({{QStringLiteral("token"), QStringLiteral("sample-token")}});
}

LoopbackReply answer(const LoopbackRequest& request)
{
    if (request.path == QLatin1String("/login"))
        return login(request);
    if (request.path == QLatin1String("/private/accounts.xlsx"))
        return request.field("Authorization") == "Bearer sample-token" ? file(350'000) : LoopbackReply(401);
    return LoopbackReply(404);
}

void print(const LoopbackServer& server, std::initializer_list<const char*> paths)
{
    for (const auto* path : paths)
        std::puts(qPrintable(server.url(QLatin1String(path))));
}

// Runs on a thread of its own, the only portable way to detect the end of the standard input.
void quitAtEndOfInput()
{
    while (std::getchar() != EOF) {
    }
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    LoopbackServer plain;
    LoopbackServer encrypted(LoopbackServer::Transport::Tls);
    if (plain.listen().hasError() || encrypted.listen().hasError())
        return 1;

    plain.setHandler(answer);
    plain.addReply(QStringLiteral("/handbook.pdf"), file(2'400'000));
    plain.addReply(QStringLiteral("/disk-image.iso"), file(48'000'000).dripped(48'000, 30ms));
    plain.addReply(QStringLiteral("/measurements.csv"), file(9'600'000).dripped(20'000, 40ms));
    plain.addReply(QStringLiteral("/catalogue.json"), LoopbackReply(503));
    plain.addReply(QStringLiteral("/source.tar.gz"), file(20'000'000).dripped(40'000, 50ms));
    plain.addReply(QStringLiteral("/backup.tar"), file(120'000'000).dripped(60'000, 50ms));
    encrypted.addReply(QStringLiteral("/intranet.zip"), file(1'000'000));

    print(plain, {"/handbook.pdf", "/private/accounts.xlsx", "/catalogue.json", "/missing.png"});
    print(encrypted, {"/intranet.zip"});
    print(plain, {"/disk-image.iso", "/measurements.csv", "/source.tar.gz", "/backup.tar"});
    std::fflush(stdout);

    std::thread input(quitAtEndOfInput);
    QCoreApplication::exec();
    input.join();
    return 0;
}
