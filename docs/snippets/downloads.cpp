#include "Snippets.h"

#include <DownloadOutput.h>
#include <FileDownloadTask.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

using namespace Qt::StringLiterals;

void Snippets::downloadToFile()
{
    m_server->addReply(u"/files/a.zip"_s, orv::LoopbackReply(200, "zip"));
    const QTemporaryDir temporary;
    const auto url = m_url + u"/files/a.zip?version=2"_s;
    const auto directory = temporary.path();
    QString saved;
    const auto showFile = [&saved](const QString& path) { saved = path; };

    //! [file]
    auto* task = new orv::FileDownloadTask(url, directory);
    connect(task, &orv::NetworkTask::finished, this, [this, task, showFile] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else
            showFile(task->destinationFilePath());
        task->deleteLater();
    });
    task->exec();
    //! [file]

    QTRY_COMPARE(saved, directory + u"/a.zip"_s);
    QFile file(saved);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), "zip");
}

void Snippets::downloadWithProgress()
{
    using namespace std::chrono_literals;
    const QTemporaryDir temporary;
    m_server->addReply(u"/a.zip"_s, orv::LoopbackReply(200, QByteArray(200000, 'z')).dripped(10000, 30ms));
    orv::FileDownloadTask whole(m_url + u"/a.zip"_s, temporary.path());
    auto* task = &whole;
    qint64 done = 0;
    qint64 ofTotal = 0;
    const auto showProgress = [&](qint64 received, qint64 total) {
        done = received;
        ofTotal = total;
    };

    //! [progress]
    auto* timer = new QTimer(task);
    connect(timer, &QTimer::timeout, this, [task, showProgress] {
        if (!task->networkReply())
            return; // no attempt has been started yet
        const auto total = task->networkReply()->header(QNetworkRequest::ContentLengthHeader);
        showProgress(task->bytesReceived(), total.isValid() ? total.toLongLong() : -1);
    });
    connect(task, &orv::NetworkTask::finished, timer, &QTimer::stop);
    timer->start(100);
    //! [progress]

    task->exec();
    QVERIFY(succeeds(task));
    QVERIFY(done > 0 && done <= ofTotal);
    QCOMPARE(ofTotal, 200000);
}

void Snippets::downloadIntoOutput()
{
    const QTemporaryDir temporary;
    const auto path = temporary.filePath(u"image.iso"_s);
    m_server->addReply(u"/image.iso"_s, orv::LoopbackReply(200, QByteArray(3000000, 'a')).cutAfter(1500000));
    m_server->addReply(u"/image.iso"_s, orv::LoopbackReply(200, QByteArray(3000000, 'b')));
    const auto url = m_url + u"/image.iso"_s;

    //! [output]
    const auto output = orv::FileDownloadOutput::createAndOpen(path);
    if (output.hasError()) {
        showError(output.error().errorMessage());
        return;
    }
    auto* task = new orv::NetworkTask(orv::NetworkTask::Priority::Normal, this);
    task->setRequest(url, orv::NetworkRequest::octetStreamContentType, orv::NetworkRequest::Method::Get,
                     true); // streaming
    connect(task, &orv::NetworkTask::readyRead, task, [task, file = output.value()] {
        const orv::Error error = file->writeNewData(task->data());
        task->clearData();
        if (error.hasError())
            task->finish(error);
    });
    connect(task, &orv::NetworkTask::aboutToRetry, task, [file = output.value()] { file->clear(); });
    connect(task, &orv::NetworkTask::finished, task, [file = output.value()] { file->finalize(); });
    task->exec();
    //! [output]

    QVERIFY(succeeds(task));
    QCOMPARE(m_server->requests().size(), 2);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray(3000000, 'b'));
    delete task;
}
