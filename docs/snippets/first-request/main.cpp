#include <NetworkTask.h>

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        QTextStream(stderr) << "Usage: first-request URL" << Qt::endl;
        return 2;
    }
    orv::NetworkTask task(QString::fromLocal8Bit(argv[1]));
    QObject::connect(&task, &orv::NetworkTask::finished, &application, [&task] {
        if (task.hasError())
            QTextStream(stderr) << task.error().errorMessage() << Qt::endl;
        else
            QTextStream(stdout) << task.data() << Qt::endl;
        QCoreApplication::exit(task.hasError() ? 1 : 0);
    });
    task.exec();
    return QCoreApplication::exec();
}
