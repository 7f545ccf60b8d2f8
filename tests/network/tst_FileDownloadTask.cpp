#include "../Files.h"
#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>

#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

class tst_FileDownloadTask : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FileDownloadTask> makeTask(const QString& path, const QString& destination)
    {
        auto task = std::make_unique<FileDownloadTask>(m_server->url(path), destination);
        task->setMaxRetriesCount(0);
        return task;
    }

    static bool run(FileDownloadTask& task)
    {
        task.exec();
        return runUntil([&] { return task.isFinished(); }, 10s);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_home->path()).mkdir(u"out"_s));
        m_out = m_home->filePath(u"out"_s);
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "content"); });
        QVERIFY(!m_server->listen().hasError());
    }

    void dropsOneSeparatorAtTheEnd()
    {
        const QMap<QString, QString> kept{{u"a/b"_s, u"a/b"_s},     {u"a/b/"_s, u"a/b"_s},
                                          {u"a\\b\\"_s, u"a\\b"_s}, {u"a//"_s, u"a/"_s},
                                          {u"/"_s, u""_s},          {u""_s, u""_s}};
        for (auto path = kept.begin(); path != kept.end(); ++path) {
            const FileDownloadTask task(u"http://host/x"_s, path.key());
            QCOMPARE(task.destinationPath(), *path);
            QCOMPARE(task.sourceUrl(), u"http://host/x"_s);
            QCOMPARE(task.request().acceptedContentTypes, "application/octet-stream"_ba);
            if (path->isEmpty())
                QVERIFY(task.destinationFilePath().isEmpty());
        }
    }

    // Names come from outside: none may lead out of the directory, and what is left must be a file's on any
    // system.
    void namesTheFileAfterTheUrl_data()
    {
        addColumns<QString, QString>({"path", "name"});
        const auto row = [](const QString& path, const char* name) {
            QTest::newRow(qPrintable(path.left(60))) << path << QString::fromUtf8(name);
        };
        row(u"/files/report.pdf?x=/y.txt#z"_s, "report.pdf");
        row(u"/a%20b%C3%A9"_s, "a bé");
        row(u"/.hidden"_s, ".hidden");
        row(u"/console.txt"_s, "console.txt");
        row(u"/x%2F..%2F..%2Fpasswd"_s, "passwd");
        row(u"/"_s + QString(255, u'n'), QByteArray(255, 'n').constData());
        for (const auto* path : {"/", "/files/", "/%2e%2e", "/%2e", "/x%2F%2e%2e", "/..%5Cpasswd", "/a%00b",
                                 "/a%0Ab", "/%2e%2e%20", "/NUL", "/con.txt", "/Lpt1%20.x"})
            row(QString::fromLatin1(path), "");
        row(u'/' + QString(300, u'n'), "");
        row(u'/' + u"%C3%A9"_s.repeated(128), "");
    }

    void namesTheFileAfterTheUrl()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        const auto task = makeTask(path, m_out + u'/');
        const auto expected = name.isEmpty() ? QString() : QDir::toNativeSeparators(m_out + u'/' + name);
        QCOMPARE(task->destinationFilePath(), expected);
        QVERIFY(run(*task));
        QCOMPARE(filesIn(m_home->path()), QStringList{u"out"_s});
        if (name.isEmpty()) {
            QCOMPARE(task->error().errorCode(), ErrorCode::FileAccess);
            QCOMPARE(task->error().errorMessage(), u"Could not determine destination filename"_s);
            QVERIFY(filesIn(m_out).isEmpty());
        } else if (name.size() < 200) { // a temporary name is longer and may not fit
            QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
            QCOMPARE(filesIn(m_out), QStringList{name});
            QCOMPARE(readFile(expected), "content"_ba);
        }
    }

    void writesTheFileThatIsNamed()
    {
        const auto target = m_out + u"/new.bin"_s;
        auto task = makeTask(u"/x/"_s, target);
        QCOMPARE(task->destinationFilePath(), target);
        QVERIFY(run(*task));
        QCOMPARE(readFile(target), "content"_ba);

        m_server->addReply(u"/empty"_s, LoopbackReply(200));
        task = makeTask(u"/empty"_s, target);
        QVERIFY(run(*task));
        QVERIFY(!task->hasError());
        QCOMPARE(readFile(target), QByteArray());

        task = makeTask(u"/x"_s, m_out + u"/none/new.bin"_s);
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorMessage(), u"Could not determine destination filename"_s);
        QCOMPARE(filesIn(m_out), QStringList{u"new.bin"_s});
    }

    void leavesWhatIsThereWhenItIsCanceled()
    {
        m_server->addReply(u"/file"_s, LoopbackReply(200, QByteArray(1000, 'x')).dripped(100, 5ms));
        QVERIFY(writeFile(m_out + u"/file"_s, "old"));
        const auto task = makeTask(u"/file"_s, m_out);
        connect(task.get(), &NetworkTask::readyRead, task.get(), &NetworkTask::cancel);
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorCode(), ErrorCode::Canceled);
        QCOMPARE(task->error().catchTrail().size(), 1);
        QCOMPARE(filesIn(m_out), QStringList{u"file"_s});
        QCOMPARE(readFile(m_out + u"/file"_s), "old"_ba);
    }

    void reportsADiskThatIsFull()
    {
        const auto disk = m_home->filePath(u"disk"_s);
        QVERIFY(QDir(m_home->path()).mkdir(u"disk"_s));
        if (QProcess::execute(u"mount"_s, {u"-ttmpfs"_s, u"-osize=64k"_s, u"tmpfs"_s, disk}) != 0)
            QSKIP("a disk of its own needs root");
        const auto unmount = qScopeGuard([&] { QProcess::execute(u"umount"_s, {disk}); });
        QVERIFY(writeFile(disk + u"/file"_s, "old"));
        m_server->addReply(u"/file"_s, LoopbackReply(200, QByteArray(100000, 'x')));
        const auto task = makeTask(u"/file"_s, disk);
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorMessage(), u"Could not write downloaded file"_s);
        QCOMPARE(filesIn(disk), QStringList{u"file"_s});
        QCOMPARE(readFile(disk + u"/file"_s), "old"_ba);
    }

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<LoopbackServer> m_server;
    QString m_out;
};

QTEST_GUILESS_MAIN(tst_FileDownloadTask)

#include "tst_FileDownloadTask.moc"
