#include "../Files.h"
#include "FileSizeLimit.h"
#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QBuffer>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <cerrno>
#include <functional>
#include <memory>

#ifdef Q_OS_UNIX
#include <sys/stat.h>

#include <unistd.h>
#endif

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

#ifdef Q_OS_WIN
constexpr bool isWindows = true;
#else
constexpr bool isWindows = false;
#endif

using Step = std::function<void(FileDownloadTask&)>;

/// Runs @p step with each piece that arrives.
static Step onReadyRead(const Step& step)
{
    return [step](FileDownloadTask& task) {
        QObject::connect(&task, &NetworkTask::readyRead, &task, [&task, step] { step(task); });
    };
}

/// Finishes the task with success on that status, after @p step.
static Step onStatus(int status, const Step& step)
{
    return [=](FileDownloadTask& task) {
        task.setResponseHandler(static_cast<HttpResponseStatusCode>(status), [&task, step] {
            step(task);
            task.finish(Error());
        });
    };
}

/// A reply from memory. Like one from a cache, it may report no progress.
class MemoryReply : public FakeReply
{
public:
    MemoryReply(const QByteArray& content, bool reportsProgress)
        : FakeReply(200)
    {
        m_content.setData(content);
        m_content.open(QIODevice::ReadOnly);
        open(QIODevice::ReadOnly);
        const auto end = [this, reportsProgress] {
            setFinished(true);
            if (bytesAvailable() > 0)
                Q_EMIT readyRead();
            if (reportsProgress)
                Q_EMIT downloadProgress(m_content.size(), -1);
            Q_EMIT finished();
        };
        QMetaObject::invokeMethod(this, end, Qt::QueuedConnection);
    }

    qint64 bytesAvailable() const override { return m_content.bytesAvailable(); }

protected:
    qint64 readData(char* data, qint64 maxSize) override { return m_content.read(data, maxSize); }

private:
    QBuffer m_content;
};

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

    void expectFileError(const FileDownloadTask& task, ErrorCode code, const QString& message, int reason)
    {
        QCOMPARE(task.error().errorCode(), code);
        QCOMPARE(task.error().errorMessage(), message);
        QCOMPARE(task.error().warnings(), QStringList{m_file + u": "_s + qt_error_string(reason)});
        QCOMPARE(filesIn(m_out), QStringList{u"file"_s});
        QCOMPARE(readFile(m_file), "old"_ba);
    }

    // The program takes a part of the content, or all of it.
    static void addRowsOfContentTakenAway()
    {
        const auto row = [](const char* name, const Step& prepare) {
            QTest::newRow(name) << LoopbackReply(200, QByteArray(1000, 'x')).dripped(400, 1ms) << prepare
                                << ErrorCode::General;
        };
        const Step readAll = [](FileDownloadTask& task) { task.read(); };
        const Step readPart = [](FileDownloadTask& task) { task.read(4); };
        row("read as it comes", onReadyRead(readAll));
        row("read in part as it comes", onReadyRead(readPart));
        row("read at the end", onStatus(200, readAll));
        row("read in part at the end", onStatus(200, readPart));
        const Step readPartAndLook = [=](FileDownloadTask& task) {
            onReadyRead(readPart)(task);
            onStatus(200, [](FileDownloadTask& judged) { QVERIFY(!judged.data().isEmpty()); })(task);
        };
        row("read in part, then collected", readPartAndLook);
        const Step stream = [](FileDownloadTask& task) {
            auto request = task.request();
            request.streaming = true;
            task.setRequest(request);
            onReadyRead([](FileDownloadTask& streaming) { streaming.chopFirstBytes(200); })(task);
        };
        row("streamed", stream);
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
        m_file = m_out + u"/file"_s;
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

    // Names come from outside: none may lead out of the directory.
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
                                 "/a%0Ab", "/%2e%2e%20"})
            row(QString::fromLatin1(path), "");
        for (const auto* device : {"NUL", "con.txt", "Lpt1 .x", "com0", "c:x"})
            row(u'/' + QString::fromLatin1(device), isWindows ? "" : device);
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
            QVERIFY(m_server->requests().isEmpty());
            QVERIFY(filesIn(m_out).isEmpty());
        } else if (name.size() < 200) { // where the temporary name is longer, it may not be possible
            QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
            QCOMPARE(filesIn(m_out), QStringList{name});
            QCOMPARE(readFile(expected), "content"_ba);
        }
    }

    void needsADestinationFromTheFirstAttemptToTheEnd()
    {
        const auto directory = m_home->filePath(u"later"_s);
        const auto target = directory + u"/file"_s;
        auto task = makeTask(u"/x"_s, target);
        QList<bool> states;
        connect(task.get(), &NetworkTask::started, this, [&] { states.append(task->isRunning()); });
        connect(task.get(), &NetworkTask::finished, this, [&] { task.reset(); });
        task->exec();
        QVERIFY(task && task->isRunning()); // ends from the event loop
        QVERIFY(runUntil([&] { return !task; }));
        QCOMPARE(states, QList<bool>{true});

        task = makeTask(u"/x"_s, target);
        connect(task.get(), &NetworkTask::started, this, [&] { QDir().mkdir(directory); });
        QVERIFY(run(*task));
        QVERIFY(!task->hasError());
        QCOMPARE(readFile(target), "content"_ba);

        task = makeTask(u"/x"_s, target);
        connect(task.get(), &NetworkTask::readyRead, this, [&] { QDir(directory).removeRecursively(); });
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorMessage(), u"Could not determine destination filename"_s);

        const LogCatcher log("orv.network.warning=true");
        task = makeTask(u"/x"_s, target);
        task->exec();
        task->cancel();
        QVERIFY(QDir().mkdir(directory));
        QCoreApplication::processEvents();
        QVERIFY2(!log.text().contains(u"the task is finished"_s), qPrintable(log.text()));
        QVERIFY(QDir(directory).removeRecursively());
        task->exec();
        QVERIFY(log.text().contains(u"the task is finished"_s));
        QCOMPARE(task->error().errorCode(), ErrorCode::Canceled);
        QCOMPARE(m_server->requests().size(), 2);
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
    }

    void runsAmongTasksOfHighPriority()
    {
        NetworkQueue queue;
        NetworkTask normal(m_server->url(u"/1"_s), NetworkTask::Priority::Normal);
        NetworkTask high(m_server->url(u"/2"_s), NetworkTask::Priority::High);
        const auto download = makeTask(u"/file"_s, m_out);
        QList<Task*> order;
        connect(&queue, &TasksQueue::taskStarted, this, [&](Task* task) { order.append(task); });
        for (Task* task :
             {static_cast<Task*>(&normal), static_cast<Task*>(&high), static_cast<Task*>(download.get())})
            queue.append(task);
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QCOMPARE(order, (QList<Task*>{&high, download.get(), &normal}));
    }

    // The code is None where the program or a policy has decided for success.
    void keepsTheOldFileWithoutAWholeSuccess_data()
    {
        const auto row = addColumns<LoopbackReply, Step, ErrorCode>({"reply", "prepare", "code"});
        const Step accept = [](FileDownloadTask& task) {
            task.setReplyErrorPolicy(NetworkTask::FinishWithSuccess);
            task.setResponseErrorPolicy(NetworkTask::FinishWithSuccess);
            task.setTimeout(500);
        };
        const Step nothing = [](FileDownloadTask&) {};
        const Step finish = [](FileDownloadTask& task) { task.finish(Error()); };
        const QByteArray content(1000, 'x');
        const auto cut = LoopbackReply(200, content).cutAfter(500);
        const auto stalled = LoopbackReply(200, content).dripped(400, 60s);
        row("404", LoopbackReply(404, "page"), accept, ErrorCode::None);
        row("204", LoopbackReply(204), accept, ErrorCode::None);
        row("203", LoopbackReply(203, content), accept, ErrorCode::None);
        row("cut off", cut, accept, ErrorCode::None);
        row("no reply", LoopbackReply(200).cutAfter(0), accept, ErrorCode::None);
        row("time-out", stalled, accept, ErrorCode::None);
        row("404, handled", LoopbackReply(404, "page"), onStatus(404, nothing), ErrorCode::None);
        row("finished early", stalled, onReadyRead(finish), ErrorCode::None);
        const auto finishBeforeJudging = onReadyRead([=](FileDownloadTask& task) {
            connect(task.networkReply(), &QNetworkReply::finished, &task, [&task, finish] { finish(task); });
        });
        row("302, not judged yet", LoopbackReply(302, "page"), finishBeforeJudging, ErrorCode::None);
        row("cut off, not judged yet", cut, finishBeforeJudging, ErrorCode::None);
        row("canceled", stalled, onReadyRead([](FileDownloadTask& task) { task.cancel(); }),
            ErrorCode::Canceled);
        addRowsOfContentTakenAway();
    }

    void keepsTheOldFileWithoutAWholeSuccess()
    {
        QFETCH(LoopbackReply, reply);
        QFETCH(Step, prepare);
        QFETCH(ErrorCode, code);
        m_server->addReply(u"/file"_s, reply);
        QVERIFY(writeFile(m_file, "old"));
        const auto task = makeTask(u"/file"_s, m_out);
        prepare(*task);
        const LogCatcher log("orv.network.warning=true");
        QVERIFY(run(*task));
        const auto error = task->error();
        QCOMPARE(error.errorCode(), code);
        QCOMPARE(error.catchTrail().size(), code == ErrorCode::None ? 0 : 1);
        if (code == ErrorCode::General) {
            QCOMPARE(error.errorMessage(), u"Could not write downloaded file"_s);
            QVERIFY(error.warnings().join(u' ').contains(u"of 1000 bytes"_s));
        }
        QCOMPARE(error.warnings().isEmpty(), code == ErrorCode::Canceled);
        QCOMPARE(log.text().contains(u"Nothing to save"_s), code == ErrorCode::None);
        QCOMPARE(filesIn(m_out), QStringList{u"file"_s});
        QCOMPARE(readFile(m_file), "old"_ba);
    }

    void savesWhatTheProgramMadeOfTheContent_data()
    {
        const auto row = addColumns<LoopbackReply, Step>({"reply", "prepare"});
        const Step nothing = [](FileDownloadTask&) {};
        const Step replace = [](FileDownloadTask& task) { task.setData("made"); };
        const QByteArray content(1000, 'x');
        row("created", LoopbackReply(201, "made"), nothing);
        // Decoded, it is shorter than what came over the wire.
        row("encoded", LoopbackReply(200, qCompress("made").mid(4)).withField("Content-Encoding", "deflate"),
            nothing);
        row("replaced", LoopbackReply(200, content), onStatus(200, replace));
        row("replaced after it was read", LoopbackReply(200, content), [=](FileDownloadTask& task) {
            onReadyRead([](FileDownloadTask& receiving) { receiving.read(); })(task);
            onStatus(200, replace)(task);
        });
        row("of another status", LoopbackReply(203, "made"), onStatus(203, [](FileDownloadTask& task) {
                task.setHttpResponseStatusCode(HttpResponseStatusCode::OK);
            }));
    }

    void savesWhatTheProgramMadeOfTheContent()
    {
        QFETCH(LoopbackReply, reply);
        QFETCH(Step, prepare);
        m_server->addReply(u"/file"_s, reply);
        const auto task = makeTask(u"/file"_s, m_out);
        prepare(*task);
        QVERIFY(run(*task));
        QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
        QCOMPARE(readFile(m_file), "made"_ba);
    }

    void judgesEachAttemptByItself()
    {
        QByteArray content;
        int attempts = 0;
        FakeManager manager([&]() -> QNetworkReply* {
            if (++attempts % 2 == 0) // nothing says how large this one is
                return new MemoryReply(content, false);
            auto* cutOff = new MemoryReply(QByteArray(900, 'x'), true);
            cutOff->setRawHeader("Content-Length", "1000");
            return cutOff;
        });
        const auto save = [&](const Step& prepare) {
            const auto task = makeTask(u"/file"_s, m_out);
            task->setNetworkAccessManager(&manager);
            task->setMaxRetriesCount(1);
            task->setDelayPolicy(Retriable::DelayPolicy::None);
            prepare(*task);
            return run(*task) && !task->hasError();
        };
        for (const auto* text : {"from memory", ""}) {
            content = text;
            QVERIFY(save([](FileDownloadTask&) {}));
            QCOMPARE(readFile(m_file), content);
        }
        QCOMPARE(attempts, 4);
        // The second attempt begins with the status 200, and with the reply of the first.
        QVERIFY(save([](FileDownloadTask& task) {
            connect(&task, &NetworkTask::retried, &task, [&task] { task.finish(Error()); });
        }));
        ++attempts;
        // Only the library has noticed that the reply was cut off.
        QVERIFY(save([](FileDownloadTask& task) {
            task.setMaxRetriesCount(0);
            task.setReplyErrorPolicy(NetworkTask::FinishWithSuccess);
        }));
        QCOMPARE(attempts, 7);
        QCOMPARE(readFile(m_file), QByteArray());
    }

#ifdef Q_OS_UNIX
    void reportsADiskThatIsFull()
    {
        QVERIFY(writeFile(m_file, "old"));
        for (const int size : {1000, 100000}) {
            m_server->addReply(u"/file"_s, LoopbackReply(200, QByteArray(size, 'x')));
            const auto task = makeTask(u"/file"_s, m_out);
            {
                const FileSizeLimit limit(700);
                QVERIFY(run(*task));
            }
            expectFileError(*task, ErrorCode::General, u"Could not write downloaded file"_s, EFBIG);
        }
    }

    void reportsADirectoryThatMayNotBeChanged_data()
    {
        const auto row = addColumns<int, bool, ErrorCode, QString, int>(
            {"mode", "needsRoot", "code", "message", "reason"});
        // The file itself may be written to, but then it could be left half written.
        row("no new files", 0555, false, ErrorCode::FileAccess, u"Could not open destination file"_s, EACCES);
        // The new file cannot take the place of the old one, which belongs to another user.
        row("sticky", 01777, true, ErrorCode::General, u"Could not write downloaded file"_s, EPERM);
    }

    void reportsADirectoryThatMayNotBeChanged()
    {
        QFETCH(int, mode);
        QFETCH(bool, needsRoot);
        QFETCH(ErrorCode, code);
        QFETCH(QString, message);
        QFETCH(int, reason);
        const bool isRoot = ::geteuid() == 0;
        if (needsRoot && !isRoot)
            QSKIP("needs two users");
        const auto setMode = [](const QString& path, int newMode) {
            return ::chmod(QFile::encodeName(path).constData(), newMode) == 0;
        };
        QVERIFY(writeFile(m_file, "old"));
        QVERIFY(setMode(m_home->path(), 0755) && setMode(m_file, 0666) && setMode(m_out, mode));
        const auto task = makeTask(u"/file"_s, m_out);
        {
            const auto restore = qScopeGuard([=] { QVERIFY(!isRoot || ::seteuid(0) == 0); });
            QVERIFY(!isRoot || ::seteuid(65534) == 0);
            QVERIFY(run(*task));
        }
        expectFileError(*task, code, message, reason);
        QVERIFY(setMode(m_out, 0755));
    }

    void refusesADestinationThatIsNeitherFileNorDirectory()
    {
        const auto pipe = m_out + u"/pipe"_s;
        QVERIFY(::mkfifo(QFile::encodeName(pipe).constData(), 0600) == 0);
        const auto task = makeTask(u"/file"_s, pipe);
        QCOMPARE(task->destinationFilePath(), QString());
        QVERIFY(run(*task)); // opening it would wait for a reader
        QCOMPARE(task->error().errorCode(), ErrorCode::FileAccess);
        QVERIFY(QFileInfo(pipe).exists() && !QFileInfo(pipe).isFile());
    }
#endif

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<LoopbackServer> m_server;
    QString m_out;
    QString m_file;
};

QTEST_GUILESS_MAIN(tst_FileDownloadTask)

#include "tst_FileDownloadTask.moc"
