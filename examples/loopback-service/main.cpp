#include "Service.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

// Runs on a thread of its own, the only portable way to detect the end of the standard input.
void quitAtEndOfInput()
{
    while (std::getchar() != EOF) {
    }
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

// The number N of "--token-lives N"; -1 if the command line is invalid.
int tokenLives(const QStringList& arguments)
{
    bool isNumber = false;
    const int lives = arguments.size() == 3 ? arguments.at(2).toInt(&isNumber) : -1;
    return isNumber && arguments.at(1) == u"--token-lives"_s ? lives : -1;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    service::Service service;
    if (argc > 1) {
        const int lives = tokenLives(QCoreApplication::arguments());
        if (lives < 0) {
            std::fputs("Usage: orv-loopback-service [--token-lives REQUESTS]\n", stderr);
            return 1;
        }
        service.setTokenLives(lives);
    }
    const auto error = service.listen();
    if (error.hasError()) {
        std::fprintf(stderr, "orv-loopback-service: %s\n", qPrintable(error.errorMessage()));
        return 1;
    }
    std::printf("http %d\nhttps %d\n", service.httpPort(), service.httpsPort());
    std::fflush(stdout);
    std::thread input(quitAtEndOfInput);
    QCoreApplication::exec();
    input.join();
    return 0;
}
