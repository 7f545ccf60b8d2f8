#include <AbstractAuthenticator.h>
#include <Authenticable.h>
#include <BaseTask.h>
#include <BearerLogin.h>
#include <Cancelable.h>
#include <DownloadOutput.h>
#include <Error.h>
#include <ErrorCancelable.h>
#include <ErrorCode.h>
#include <ErrorWarningMessagesUtils.h>
#include <FileDownloadTask.h>
#include <HttpResponseStatusCodesUtils.h>
#include <LoopbackProxy.h>
#include <LoopbackReply.h>
#include <LoopbackRequest.h>
#include <LoopbackServer.h>
#include <NetworkConstants.h>
#include <NetworkQueue.h>
#include <NetworkRequest.h>
#include <NetworkTask.h>
#include <Result.h>
#include <Retriable.h>
#include <Settings.h>
#include <SslIgnorantNetworkAccessManager.h>
#include <Task.h>
#include <TasksQueue.h>
#include <TextUtils.h>
#include <Warnings.h>

#include <QCoreApplication>

// Something of each library: a fetch from the loopback server, the title of which must arrive.
int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    orv::LoopbackServer server;
    server.addReply(QStringLiteral("/title"), orv::LoopbackReply(200, "OrvNetwork"));
    const orv::Error error = server.listen();
    if (error.hasError())
        return 1;

    orv::TasksQueue queue;
    orv::NetworkTask task(server.url(QStringLiteral("/title")));
    task.setTimeout(as::value(QStringLiteral("Missing"), 10000).toInt());
    QObject::connect(&queue, &orv::TasksQueue::emptied, &application, &QCoreApplication::quit);
    queue.append(&task);
    QCoreApplication::exec();
    const auto title = orv::TextUtils::separateCamelCase(QString::fromLatin1(task.data()), QLatin1Char(' '));
    return title == QLatin1String("Orv Network") ? 0 : 2;
}
