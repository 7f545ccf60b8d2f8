#include <NetworkTask.h>

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    orv::NetworkTask task(QStringLiteral("data:,text"));
    QObject::connect(&task, &orv::NetworkTask::finished, &application, &QCoreApplication::quit);
    task.exec();
    QCoreApplication::exec();
    return task.isFinished() ? 0 : 1;
}
