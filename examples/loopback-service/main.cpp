#include "Service.h"

#include <QCoreApplication>

#include <cstdio>
#include <thread>

namespace {

// Its own thread, since that is the one way to notice the end of the standard input on every system.
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
    service::Service service;
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
