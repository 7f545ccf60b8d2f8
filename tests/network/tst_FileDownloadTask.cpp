#include "../Files.h"
#include "FileSizeLimit.h"
#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QOperatingSystemVersion>
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

constexpr bool isWindows = QOperatingSystemVersion::currentType() == QOperatingSystemVersion::Windows;

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

class tst_FileDownloadTask : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FileDownloadTask> makeTask(const QString& path, const QString& destination)
    {
        auto task = std::make_unique<FileDownloadTask>(m_server->url(path), destination);
        task->setMaxRetriesCount(0);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        return task;
    }

    static QByteArray content() { return QByteArray(1000, 'x'); }
    static void readAll(FileDownloadTask& task) { task.read(); }

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

    void describesADownload()
    {
        QCOMPARE(FileDownloadTask(u"http://host/x"_s, u"a\\b//"_s).destinationPath(), u"a\\b/"_s);
        for (const QString& nowhere : {u""_s, u"/dev/null"_s, m_out + u"/none/x"_s})
            QCOMPARE(makeTask(u"/x"_s, nowhere)->destinationFilePath(), QString());
        NetworkQueue queue;
        NetworkTask low(m_server->url(u"/low"_s), NetworkTask::Priority::Low);
        NetworkTask normal(m_server->url(u"/normal"_s), NetworkTask::Priority::Normal);
        const auto high = makeTask(u"/x"_s, m_out);
        QCOMPARE(high->request().acceptedContentTypes, "application/octet-stream"_ba);
        queue.append(&low);
        queue.append(&normal);
        queue.append(high.get());
        QVERIFY(runUntil([&] { return queue.isEmpty(); }));
        QCOMPARE(m_server->requests().constFirst().path, u"/x"_s);
        QCOMPARE(m_server->requests().constLast().path, u"/low"_s);
    }

    // Names come from outside: none may lead out of the directory.
    void namesTheFileAfterTheUrl()
    {
        const auto longest = QString(255, u'n');
        QMap<QString, QString> names{{u"/files/report.pdf?x=/y.txt#z"_s, u"report.pdf"_s},
                                     {u"/a%20b%C3%A9"_s, u"a bé"_s},
                                     {u"/x%2F..%2F..%2Fpasswd"_s, u"passwd"_s},
                                     {u'/' + longest, longest},
                                     {u'/' + u"%C3%A9"_s.repeated(128), {}}};
        for (const auto* path : {"/", "/%2e%2e", "/x%2F%2e%2e", "/..%5Cpasswd", "/a%00b", "/%2e%2e%20"})
            names.insert(QString::fromLatin1(path), {});
        for (const auto& device : {u"NUL"_s, u"con.txt"_s, u"Lpt1 .x"_s, u"c:x"_s})
            names.insert(u'/' + device, isWindows ? QString() : device);
        for (auto name = names.begin(); name != names.end(); ++name) {
            const auto expected =
                name->isEmpty() ? QString() : QDir::toNativeSeparators(m_out + u'/' + *name);
            QCOMPARE(makeTask(name.key(), m_out + u'/')->destinationFilePath(), expected);
        }
    }

    void needsADestinationFromTheFirstAttemptToTheEnd()
    {
        const auto directory = m_home->filePath(u"later"_s);
        const auto target = directory + u"/file"_s;
        const auto message = u"Could not determine destination filename"_s;
        auto task = makeTask(u"/x"_s, target);
        connect(task.get(), &NetworkTask::finished, this, [&] {
            QCOMPARE(task->error().errorCode(), ErrorCode::FileAccess);
            QCOMPARE(task->error().errorMessage(), message);
            task.reset();
        });
        task->exec();
        QVERIFY(task && task->isRunning()); // ends from the event loop
        QVERIFY(runUntil([&] { return !task; }));

        task = makeTask(u"/x"_s, target);
        connect(task.get(), &NetworkTask::started, this, [&] { QDir().mkdir(directory); });
        QVERIFY(run(*task));
        QVERIFY(!task->hasError());
        QCOMPARE(readFile(target), "content"_ba);

        task = makeTask(u"/x"_s, target);
        connect(task.get(), &NetworkTask::readyRead, this, [&] { QDir(directory).removeRecursively(); });
        QVERIFY(run(*task));
        QCOMPARE(task->error().errorMessage(), message);
        QCOMPARE(m_server->requests().size(), 2);
    }

    // The code is None where the program or a policy has decided for success, and General where the program
    // has taken some of the content.
    void keepsTheOldFileWithoutAWholeSuccess_data()
    {
        const auto row = addColumns<LoopbackReply, Step, ErrorCode>({"reply", "prepare", "code"});
        const Step accept = [](FileDownloadTask& task) {
            task.setReplyErrorPolicy(NetworkTask::FinishWithSuccess);
            task.setResponseErrorPolicy(NetworkTask::FinishWithSuccess);
            task.setTimeout(500);
        };
        const Step finish = [](FileDownloadTask& task) { task.finish(Error()); };
        const auto cut = LoopbackReply(200, content()).cutAfter(500);
        const auto stalled = LoopbackReply(200, content()).dripped(400, 60s);
        row("404", LoopbackReply(404, "page"), accept, ErrorCode::None);
        row("cut off", cut, accept, ErrorCode::None);
        row("time-out", stalled, accept, ErrorCode::None);
        row("finished early", stalled, onReadyRead(finish), ErrorCode::None);
        const Step cancel = [](FileDownloadTask& task) { task.cancel(); };
        row("canceled", stalled, onReadyRead(cancel), ErrorCode::Canceled);

        const auto dripped = LoopbackReply(200, content()).dripped(400, 1ms);
        const Step readPart = [](FileDownloadTask& task) { task.read(4); };
        const Step stream = [](FileDownloadTask& task) {
            auto request = task.request();
            request.streaming = true;
            task.setRequest(request);
            onReadyRead([](FileDownloadTask& streaming) { streaming.chopFirstBytes(200); })(task);
        };
        row("read as it comes", dripped, onReadyRead(readAll), ErrorCode::General);
        row("read in part at the end", dripped, onStatus(200, readPart), ErrorCode::General);
        row("streamed", dripped, stream, ErrorCode::General);
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
        QVERIFY(run(*task));
        const auto error = task->error();
        QCOMPARE(error.errorCode(), code);
        QCOMPARE(error.catchTrail().size(), code == ErrorCode::None ? 0 : 1);
        const QMap<ErrorCode, QString> warnings{{ErrorCode::None, u"No file was saved"_s},
                                                {ErrorCode::General, u"of 1000 bytes"_s}};
        QVERIFY2(error.warnings().join(u' ').contains(warnings.value(code)),
                 qPrintable(error.warnings().join(u' ')));
        if (code == ErrorCode::General)
            QCOMPARE(error.errorMessage(), u"Could not write downloaded file"_s);
        QCOMPARE(filesIn(m_out), QStringList{u"file"_s});
        QCOMPARE(readFile(m_file), "old"_ba);
    }

    void savesWhatTheProgramMadeOfTheContent_data()
    {
        const auto row = addColumns<LoopbackReply, Step>({"reply", "prepare"});
        const Step nothing = [](FileDownloadTask&) {};
        const Step replace = [](FileDownloadTask& task) { task.setData("made"); };
        row("created", LoopbackReply(201, "made"), nothing);
        // Decoded, it is shorter than what came over the wire.
        row("encoded", LoopbackReply(200, qCompress("made").mid(4)).withField("Content-Encoding", "deflate"),
            nothing);
        row("replaced after it was read", LoopbackReply(200, content()), [=](FileDownloadTask& task) {
            onReadyRead(readAll)(task);
            onStatus(200, replace)(task);
        });
    }

    // In a second attempt: what a program has read in the first does not count.
    void savesWhatTheProgramMadeOfTheContent()
    {
        QFETCH(LoopbackReply, reply);
        QFETCH(Step, prepare);
        m_server->addReply(u"/file"_s, LoopbackReply(503, content()));
        m_server->addReply(u"/file"_s, reply);
        const auto task = makeTask(u"/file"_s, m_out);
        task->setMaxRetriesCount(1);
        prepare(*task);
        QVERIFY(run(*task));
        QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
        QCOMPARE(readFile(m_file), "made"_ba);
    }

#ifdef Q_OS_UNIX
    void reportsWhyItCannotWrite_data()
    {
        const auto row =
            addColumns<int, int, ErrorCode, QString, int>({"mode", "space", "code", "message", "reason"});
        row("disk full", 0777, 700, ErrorCode::General, u"Could not write downloaded file"_s, EFBIG);
        // The file itself may be written to, but then it could be left half written.
        row("no new files", 0555, 10000, ErrorCode::FileAccess, u"Could not open destination file"_s, EACCES);
    }

    void reportsWhyItCannotWrite()
    {
        QFETCH(int, mode);
        QFETCH(int, space);
        QFETCH(int, reason);
        const bool isRoot = ::geteuid() == 0;
        const auto setMode = [](const QString& path, int newMode) {
            return ::chmod(QFile::encodeName(path).constData(), newMode) == 0;
        };
        m_server->addReply(u"/file"_s, LoopbackReply(200, content()));
        QVERIFY(writeFile(m_file, "old"));
        QVERIFY(setMode(m_home->path(), 0755) && setMode(m_file, 0666) && setMode(m_out, mode));
        const auto task = makeTask(u"/file"_s, m_out);
        {
            const FileSizeLimit limit(space);
            const auto restore = qScopeGuard([=] { QVERIFY(!isRoot || ::seteuid(0) == 0); });
            QVERIFY(!isRoot || ::seteuid(65534) == 0);
            QVERIFY(run(*task));
        }
        QTEST(task->error().errorCode(), "code");
        QTEST(task->error().errorMessage(), "message");
        QCOMPARE(task->error().warnings(), QStringList{m_file + u": "_s + qt_error_string(reason)});
        QCOMPARE(filesIn(m_out), QStringList{u"file"_s});
        QCOMPARE(readFile(m_file), "old"_ba);
        QVERIFY(setMode(m_out, 0755));
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
