#include <LoopbackServer.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <cstdint>
#include <cstdlib>

using namespace orv;
using namespace std::chrono_literals;

namespace {

// Objects that live as long as the process.
struct World
{
    World()
        : application(argc, argv)
    {
        server.setRecording(false);
        if (server.listen().hasError())
            std::abort();
    }

    int argc = 1;
    char name[5] = "fuzz";
    char* argv[2] = {name, nullptr};
    QCoreApplication application;
    LoopbackServer server;
    SslIgnorantNetworkAccessManager manager;
};

World& world()
{
    static auto* const instance = new World;
    return *instance;
}

void require(bool condition, const char* what)
{
    if (condition)
        return;
    qCritical("broken: %s", what);
    std::abort();
}

// A task succeeds only with a successful status; otherwise its error has the number of the failure. A number
// that is no status counts as none.
void requireVerdict(const NetworkTask& task)
{
    const int status = task.httpResponseStatusCodeNumber();
    const int number = task.error().errorDetails().toInt();
    if (!task.hasError())
        require(status == 200 || status == 201, "a success has a status of success");
    else
        require(number == httpErrorCode(task.httpResponseStatusCode()) ||
                    (number == 2000 && (status < 100 || status > 999)) ||
                    number == networkErrorCode(task.networkResponseError()),
                "an error has the number of what went wrong");
    constexpr qsizetype most = 64 * 1024 * 1024;
    require(task.data().size() <= most, "the content is bounded");
}

} // namespace

/// The first byte selects how the task runs, the second where the response is split; the rest is the
/// response.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size < 2)
        return 0;
    const auto mode = bytes[0];
    const auto answer =
        QByteArray(reinterpret_cast<const char*>(bytes) + 2, static_cast<qsizetype>(size) - 2);
    const auto split = answer.size() * bytes[1] / 255;
    world().server.setHandler(
        [&](const LoopbackRequest&) { return LoopbackReply::raw(answer).splitAt(split); });

    NetworkTask task;
    using Method = NetworkRequest::Method;
    constexpr Method methods[] = {Method::Get, Method::Head, Method::Post, Method::Delete};
    task.setRequest(world().server.url(), {}, methods[mode >> 1 & 3], mode & 1);
    task.setNetworkAccessManager(&world().manager);
    task.setMaxRetriesCount(1);
    task.setDelayPolicy(Retriable::DelayPolicy::None);
    task.setTimeout(30ms);

    int ends = 0;
    QEventLoop loop;
    QObject::connect(&task, &Task::finished, &task, [&] {
        ++ends;
        loop.quit();
    });
    if (mode & 8) // consume the content as it arrives and cancel in the middle of it
        QObject::connect(&task, &NetworkTask::readyRead, &task, [&] {
            if (task.read(10).isEmpty() && task.chopFirstBytes(1) == 0)
                task.cancel();
        });
    QTimer::singleShot(10s, &task, [] { require(false, "a task ends in time"); });
    task.exec();
    loop.exec();
    QCoreApplication::processEvents();
    require(ends == 1, "a task ends once");
    if (!task.isCanceled())
        requireVerdict(task);
    return 0;
}
