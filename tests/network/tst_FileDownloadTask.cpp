#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>

#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

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
        return QTest::qWaitFor([&] { return task.isFinished(); }, 10000);
    }

    QStringList filesIn(const QString& path) const
    {
        return QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }

    static void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        QVERIFY(QDir(m_home->path()).mkdir(QStringLiteral("out")));
        m_out = m_home->filePath(QStringLiteral("out"));
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "content"); });
        QVERIFY(!m_server->listen().hasError());
    }

    void addsNothingToTheMetaObject()
    {
        QCOMPARE(methodsOf(FileDownloadTask::staticMetaObject), QStringList());
        QCOMPARE(FileDownloadTask::staticMetaObject.superClass(), &NetworkTask::staticMetaObject);
    }

    void dropsOneSeparatorAtTheEnd_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("kept");
        QTest::newRow("none") << QStringLiteral("a/b") << QStringLiteral("a/b");
        QTest::newRow("slash") << QStringLiteral("a/b/") << QStringLiteral("a/b");
        QTest::newRow("backslash") << QStringLiteral("a\\b\\") << QStringLiteral("a\\b");
        QTest::newRow("two") << QStringLiteral("a//") << QStringLiteral("a/");
        QTest::newRow("only") << QStringLiteral("/") << QString();
        QTest::newRow("empty") << QString() << QString();
    }

    void dropsOneSeparatorAtTheEnd()
    {
        QFETCH(QString, given);
        FileDownloadTask task(QStringLiteral("http://host/x"), given);
        QTEST(task.destinationPath(), "kept");
        QCOMPARE(task.sourceUrl(), QStringLiteral("http://host/x"));
        QCOMPARE(task.request().acceptedContentTypes, QByteArrayLiteral("application/octet-stream"));
        if (task.destinationPath().isEmpty())
            QVERIFY(task.destinationFilePath().isEmpty());
    }

    // Names come from outside: none may lead out of the directory, and what is left must be a file's on any
    // system.
    void namesTheFileAfterTheUrl_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        const auto row = [](const QString& path, const char* name) {
            QTest::newRow(qPrintable(path.left(60))) << path << QString::fromUtf8(name);
        };
        row(QStringLiteral("/files/report.pdf?x=/y.txt#z"), "report.pdf");
        row(QStringLiteral("/a%20b%C3%A9"), "a bé");
        row(QStringLiteral("/.hidden"), ".hidden");
        row(QStringLiteral("/console.txt"), "console.txt");
        row(QStringLiteral("/x%2F..%2F..%2Fpasswd"), "passwd");
        row(QStringLiteral("/") + QString(255, QLatin1Char('n')), QByteArray(255, 'n').constData());
        const QStringList hostile{QStringLiteral("/"),
                                  QStringLiteral("/files/"),
                                  QStringLiteral("/%2e%2e"),
                                  QStringLiteral("/%2e"),
                                  QStringLiteral("/x%2F%2e%2e"),
                                  QStringLiteral("/..%5Cpasswd"),
                                  QStringLiteral("/a%00b"),
                                  QStringLiteral("/a%0Ab"),
                                  QStringLiteral("/%2e%2e%20"),
                                  QStringLiteral("/NUL"),
                                  QStringLiteral("/con.txt"),
                                  QStringLiteral("/Lpt1%20.x"),
                                  QStringLiteral("/") + QString(300, QLatin1Char('n')),
                                  QStringLiteral("/") + QStringLiteral("%C3%A9").repeated(128)};
        for (const auto& path : hostile)
            row(path, "");
    }

    void namesTheFileAfterTheUrl()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        const auto task = makeTask(path, m_out + QLatin1Char('/'));
        const auto expected =
            name.isEmpty() ? QString() : QDir::toNativeSeparators(m_out + QLatin1Char('/') + name);
        QCOMPARE(task->destinationFilePath(), expected);
        QVERIFY(run(*task));
        QCOMPARE(filesIn(m_home->path()), QStringList{QStringLiteral("out")});
        if (name.isEmpty()) {
            QCOMPARE(task->error().errorCode(), ErrorCode::FileAccess);
            QCOMPARE(task->error().errorMessage(),
                     QStringLiteral("Could not determine destination filename"));
            QVERIFY(filesIn(m_out).isEmpty());
        } else if (name.size() < 200) { // a temporary name is longer and may not fit
            QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
            QCOMPARE(filesIn(m_out), QStringList{name});
            QCOMPARE(contentOf(expected), QByteArrayLiteral("content"));
        }
    }

    void writesTheFileThatIsNamed()
    {
        const auto target = m_out + QStringLiteral("/new.bin");
        auto task = makeTask(QStringLiteral("/x/"), target);
        QCOMPARE(task->destinationFilePath(), target);
        QVERIFY(run(*task));
        QCOMPARE(contentOf(target), QByteArrayLiteral("content"));

        m_server->addReply(QStringLiteral("/empty"), LoopbackReply(200));
        task = makeTask(QStringLiteral("/empty"), target);
        QVERIFY(run(*task));
        QVERIFY(!task->hasError());
        QCOMPARE(contentOf(target), QByteArray());

        task = makeTask(QStringLiteral("/x"), m_out + QStringLiteral("/none/new.bin"));
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorMessage(), QStringLiteral("Could not determine destination filename"));
        QCOMPARE(filesIn(m_out), QStringList{QStringLiteral("new.bin")});
    }

    void leavesWhatIsThereWhenItFails_data()
    {
        QTest::addColumn<LoopbackReply>("reply");
        QTest::addColumn<bool>("isCanceled");
        const LoopbackReply whole(200, QByteArray(1000, 'x'));
        QTest::newRow("404") << LoopbackReply(404, "no") << false;
        QTest::newRow("204") << LoopbackReply(204) << false;
        QTest::newRow("cut in the head") << LoopbackReply(whole).cutAfter(20) << false;
        QTest::newRow("cut in the content") << LoopbackReply(whole).cutAfter(700) << false;
        QTest::newRow("reset in the content") << LoopbackReply(whole).resetAfter(700) << false;
        QTest::newRow("stalled") << LoopbackReply(200, "x").withField("Content-Length", "9") << false;
        QTest::newRow("canceled before the head") << LoopbackReply::silence() << true;
        QTest::newRow("canceled in the content") << LoopbackReply(whole).dripped(100, 5ms) << true;
    }

    void leavesWhatIsThereWhenItFails()
    {
        QFETCH(LoopbackReply, reply);
        QFETCH(bool, isCanceled);
        m_server->addReply(QStringLiteral("/file"), reply);
        write(m_out + QStringLiteral("/file"), "old");
        const auto task = makeTask(QStringLiteral("/file"), m_out);
        task->setTimeout(isCanceled ? 10s : 100ms);
        if (isCanceled) {
            connect(task.get(), &NetworkTask::readyRead, task.get(), &NetworkTask::cancel);
            connect(m_server.get(), &LoopbackServer::requestReceived, task.get(),
                    [&] { QTimer::singleShot(100, task.get(), &NetworkTask::cancel); });
        }
        QVERIFY(run(*task));
        QVERIFY(task->hasError());
        QCOMPARE(task->error().errorCode(), isCanceled ? ErrorCode::Canceled : ErrorCode::Network);
        QCOMPARE(task->error().catchTrail().size(), 1);
        QCOMPARE(filesIn(m_out), QStringList{QStringLiteral("file")});
        QCOMPARE(contentOf(m_out + QStringLiteral("/file")), QByteArrayLiteral("old"));
    }

    void neverSavesShortContent()
    {
        FakeManager manager([] {
            auto* reply = new FakeReply(200);
            reply->setRawHeader("Content-Length", "10");
            reply->complete(3);
            return reply;
        });
        const auto task = makeTask(QStringLiteral("/file"), m_out);
        task->setNetworkAccessManager(&manager);
        QVERIFY(run(*task));
        QCOMPARE(networkError(task->error()), QNetworkReply::RemoteHostClosedError);
        QVERIFY(filesIn(m_out).isEmpty());
    }

    void reportsDisksThatCannotBeWritten_data()
    {
        QTest::addColumn<QString>("options");
        QTest::addColumn<int>("errorCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("full") << QStringLiteral("remount,size=64k") << int(ErrorCode::General)
                              << QStringLiteral("Could not write downloaded file");
        QTest::newRow("read-only") << QStringLiteral("remount,ro") << int(ErrorCode::FileAccess)
                                   << QStringLiteral("Could not open destination file");
    }

    void reportsDisksThatCannotBeWritten()
    {
        QFETCH(QString, options);
        QFETCH(int, errorCode);
        const auto disk = m_home->filePath(QStringLiteral("disk"));
        QVERIFY(QDir(m_home->path()).mkdir(QStringLiteral("disk")));
        const auto mount = [&](const QString& how) {
            const QStringList arguments{QStringLiteral("-t"),    QStringLiteral("tmpfs"),
                                        QStringLiteral("-o"),    how,
                                        QStringLiteral("tmpfs"), disk};
            return QProcess::execute(QStringLiteral("mount"), arguments) == 0;
        };
        if (!mount(QStringLiteral("size=64k")))
            QSKIP("a disk of its own needs root");
        const auto unmount = qScopeGuard([&] { QProcess::execute(QStringLiteral("umount"), {disk}); });
        write(disk + QStringLiteral("/file"), "old");
        QVERIFY(mount(options));

        m_server->addReply(QStringLiteral("/file"), LoopbackReply(200, QByteArray(100000, 'x')));
        const auto task = makeTask(QStringLiteral("/file"), disk);
        QVERIFY(run(*task));
        QCOMPARE(static_cast<int>(task->error().errorCode()), errorCode);
        QTEST(task->error().errorMessage(), "message");
        QCOMPARE(filesIn(disk), QStringList{QStringLiteral("file")});
        QCOMPARE(contentOf(disk + QStringLiteral("/file")), QByteArrayLiteral("old"));
    }

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<LoopbackServer> m_server;
    QString m_out;
};

QTEST_GUILESS_MAIN(tst_FileDownloadTask)

#include "tst_FileDownloadTask.moc"
