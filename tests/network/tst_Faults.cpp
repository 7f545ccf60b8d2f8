#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <memory>

using namespace orv;
using namespace std::chrono_literals;

// clazy:excludeall=non-pod-global-static,lambda-in-connect
namespace {

constexpr int FAILURE = -1; ///< Some error.
constexpr int VERDICT = -2; ///< Anything, as long as it comes in time.
constexpr int TIMEOUT = 2408;
constexpr int TRICKLE = -3; ///< Success after more time than the time-out.

const QByteArray CONTENT(1000, 'x');

QByteArray head(const QByteArray& fields)
{
    return "HTTP/1.1 200 OK\r\n" + fields + "\r\n\r\n";
}

QByteArray deflated(const QByteArray& bytes)
{
    return qCompress(bytes).mid(4); // without the length that Qt puts first
}

bool isVerdict(int number, int expected)
{
    if (expected == FAILURE)
        return number != 0;
    return expected == VERDICT || number == (expected == TRICKLE ? 0 : expected);
}

// Short only where the time-out may be the verdict.
std::chrono::milliseconds timeoutFor(int expected)
{
    if (expected == TRICKLE)
        return 1s;
    return expected == TIMEOUT || expected == FAILURE || expected == VERDICT ? 250ms : 15s;
}

// An application that quits while its tasks are in each phase, half of them its children.
int quitWithTasksInFlight(int& argc, char** argv)
{
    QCoreApplication application(argc, argv);
    LoopbackServer server;
    server.addReply(QStringLiteral("/"), LoopbackReply(200, CONTENT).dripped(100, 20ms));
    server.addReply(QStringLiteral("/silent"), LoopbackReply::silence());
    server.addReply(QStringLiteral("/busy"), LoopbackReply(503));
    server.addReply(QStringLiteral("/login"), LoopbackReply(401));
    if (server.listen().hasError())
        return 1;
    TestAuthenticator authenticator;
    authenticator.currentToken = QStringLiteral("old");
    NetworkQueue queue;
    queue.setMaxRunningTasks(6);
    std::vector<std::unique_ptr<TestTask>> tasks;
    for (const auto* path : {"/", "/silent", "/busy", "/login", "/"}) {
        const auto url = server.url(QLatin1String(path));
        tasks.push_back(std::make_unique<TestTask>(url));
        auto* child = new TestTask(url);
        child->setParent(&application);
        for (auto* task : {tasks.back().get(), child}) {
            task->setAuthenticator(&authenticator);
            task->change([&](NetworkRequest& request) { request.streaming = tasks.size() % 2; });
            tasks.size() > 3 ? task->exec() : queue.append(task);
        }
    }
    QTimer::singleShot(70, &application, &QCoreApplication::quit);
    return QCoreApplication::exec();
}

} // namespace

/// What servers and networks do wrong: each task ends once, with the right verdict, and nothing follows.
class tst_Faults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    void judgesEachReplyOnce_data()
    {
        QTest::addColumn<LoopbackReply>("reply");
        QTest::addColumn<int>("number");
        const auto row = [](const char* name, const LoopbackReply& reply, int number) {
            QTest::newRow(name) << reply << number;
        };
        const auto raw = [&](const char* name, const QByteArray& bytes, int number) {
            row(name, LoopbackReply::raw(bytes), number);
        };
        const LoopbackReply whole(200, CONTENT);
        const auto good = head("Content-Length: 1000") + CONTENT;
        raw("good", good, 0);

        raw("closed at once", {}, 2000);
        row("reset at once", LoopbackReply(whole).resetAfter(0), 2000);
        row("closed in the status", LoopbackReply(whole).cutAfter(10), 2000);
        row("reset in the status", LoopbackReply(whole).resetAfter(10), 2000);
        row("closed in the head", LoopbackReply(whole).cutAfter(30), 2000);
        row("reset in the head", LoopbackReply(whole).resetAfter(30), 2000);
        row("closed in the content", LoopbackReply(whole).cutAfter(500), 3002);
        row("closed late in the content", LoopbackReply(whole).cutAfter(500).dripped(100, 5ms), 3002);
        row("reset in the content", LoopbackReply(whole).resetAfter(500).dripped(100, 5ms), 3002);
        row("404 closed in the content", LoopbackReply(404, CONTENT).cutAfter(500).dripped(100, 5ms), 2404);

        row("no answer", LoopbackReply::silence(), TIMEOUT);
        row("stalled in the head", LoopbackReply(whole).dripped(20, 1h), TIMEOUT);
        row("stalled in the content", LoopbackReply(200, "x").withField("Content-Length", "9"), TIMEOUT);
        row("stalled in a chunk", LoopbackReply(whole).chunked(100).dripped(300, 1h), TIMEOUT);
        row("a trickle", LoopbackReply(whole).dripped(300, 400ms), TRICKLE);

        raw("more than announced", head("Content-Length: 1000") + CONTENT + "surplus", 0);
        raw("two lengths", head("Content-Length: 1000\r\nContent-Length: 7") + CONTENT, VERDICT);
        raw("negative length", head("Content-Length: -7") + CONTENT, VERDICT);
        raw("length beyond any", head("Content-Length: 99999999999999999999") + CONTENT, VERDICT);
        raw("huge length", head("Content-Length: 9223372036854775807") + CONTENT, FAILURE);
        raw("length and chunks",
            head("Content-Length: 7\r\nTransfer-Encoding: chunked") + "3e8\r\n" + CONTENT + "\r\n0\r\n\r\n",
            0);

        raw("garbage", "\x01\x02garbage\r\n\r\n", 2000);
        raw("HTTP/0.9", "<html>hello</html>", 2000);
        raw("status without a number", "HTTP/1.1 OK\r\n\r\n", FAILURE);
        // Qt drops the fields of such a head, and with them the length of the content, which is cut off here.
        const auto lost = [&](const char* name, const QByteArray& fields, int number) {
            raw(name, head(fields + "\r\nContent-Length: 2000") + CONTENT, number);
        };
        lost("line without a colon", "nonsense", 3002);
        lost("blank before a field", " X: y", 3002);
        lost("empty name", ": y", 3002);
        lost("NUL in a name", QByteArray("X\0: y", 5), 3002);
        lost("field of 120 kB", "X: " + QByteArray(122880, 'x'),
             FAILURE); // read byte by byte without a buffer
        lost("101 fields", QByteArray("X: y\r\n").repeated(100) + "X: y", 3002);
        raw("100 fields", head(QByteArray("X: y\r\n").repeated(99) + "Content-Length: 1000") + CONTENT, 0);
        raw("no field", "HTTP/1.1 200 OK\r\n\r\n" + CONTENT, 3002);
        raw("no field and no content", "HTTP/1.1 204 No Content\r\n\r\n", 2204);
        raw("1 MB of head", head("X: " + QByteArray(1048576, 'x') + "\r\nContent-Length: 0"), FAILURE);
        raw("20,000 fields", head(QByteArray("X: y\r\n").repeated(20000) + "Content-Length: 0"), FAILURE);
        for (const auto* status : {"99", "1000", "-5", "2147483647", "2147483648"})
            raw(status, "HTTP/1.1 " + QByteArray(status) + " x\r\nContent-Length: 1000\r\n\r\n" + CONTENT,
                2000);

        raw("100", "HTTP/1.1 100 Continue\r\n\r\n" + good, 0);
        raw("100 twice", QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(2) + good, VERDICT);
        raw("101 unasked", "HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n", 2101);
        raw("103", "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + good, isQt68 ? 0 : 2103);
        row("204 with a length", LoopbackReply(204).withField("Content-Length", "9"), 2204);
        row("304 with a length", LoopbackReply(304).withField("Content-Length", "9"), 2304);

        const auto encoded = [](const QByteArray& coding, const QByteArray& bytes) {
            return LoopbackReply(200, bytes).withField("Content-Encoding", coding);
        };
        row("deflated", encoded("deflate", deflated(CONTENT)), 0);
        row("not deflated at all", encoded("deflate", CONTENT), 3299);
        row("not gzip at all", encoded("gzip", CONTENT), 3299);
        row("bomb", encoded("deflate", deflated(QByteArray(67108864, '\0'))), 3299);
    }

    // Collected, streamed, and saved to a file where another is.
    void judgesEachReplyOnce()
    {
        QFETCH(LoopbackReply, reply);
        QFETCH(int, number);
        m_server->addReply(QStringLiteral("/file"), reply);
        const auto url = m_server->url(QStringLiteral("/file"));
        const QTemporaryDir home;
        QFile old(home.filePath(QStringLiteral("file")));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
        old.close();
        TestTask collected(url);
        TestTask streamed(url);
        streamed.change([](NetworkRequest& request) { request.streaming = true; });
        FileDownloadTask download(url, home.path());
        QVERIFY(endAs(number, {&collected, &streamed, &download}));
        if (number == 0 || number == TRICKLE) {
            QCOMPARE(collected.data(), CONTENT);
            QCOMPARE(streamed.data(), CONTENT);
        }
        QCOMPARE(collected.log(), QStringLiteral("started finished"));
        QCOMPARE(QDir(home.path()).entryList(QDir::Files | QDir::Hidden),
                 QStringList{QStringLiteral("file")});
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll() == "old", download.hasError());

        // The next exchange is not harmed by what this one left behind.
        m_server->addReply(QStringLiteral("/next"), LoopbackReply(200, "next"));
        TestTask next(m_server->url(QStringLiteral("/next")));
        QVERIFY(next.run());
        QCOMPARE(next.data(), QByteArrayLiteral("next"));
    }

    // With more tasks than connections: Qt fails those that wait for one together with the first that breaks.
    void isNotHarmedByTheFailuresOfOthers()
    {
        m_server->addReply(QStringLiteral("/cut"), LoopbackReply(200, CONTENT).cutAfter(500));
        m_server->addReply(QStringLiteral("/good"), LoopbackReply(200, CONTENT));
        std::vector<std::unique_ptr<TestTask>> tasks;
        for (int i = 0; i < 12; ++i) {
            tasks.push_back(
                std::make_unique<TestTask>(m_server->url(QLatin1String(i < 6 ? "/cut" : "/good"))));
            tasks.back()->setMaxRetriesCount(0);
            tasks.back()->exec();
        }
        for (std::size_t i = 0; i < tasks.size(); ++i) {
            QVERIFY(runUntil([&] { return tasks.at(i)->isFinished(); }));
            QCOMPARE(tasks.at(i)->networkResponseError(),
                     i < 6 ? QNetworkReply::RemoteHostClosedError : QNetworkReply::NoError);
        }
        QCOMPARE(m_server->requests(QStringLiteral("/good")).size(), 6);
    }

    void readsRepliesSplitAtAnyByte()
    {
        const auto reply = LoopbackReply::raw(head("Transfer-Encoding: chunked\r\nX-Field: y") +
                                              "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n");
        std::vector<std::unique_ptr<TestTask>> tasks;
        for (int offset = 1; offset < 105; ++offset) {
            const auto path = QStringLiteral("/%1").arg(offset);
            m_server->addReply(path, LoopbackReply(reply).splitAt(offset));
            tasks.push_back(std::make_unique<TestTask>(m_server->url(path)));
            tasks.back()->exec();
        }
        for (const auto& task : tasks) {
            QTRY_VERIFY(task->isFinished());
            QVERIFY2(!task->hasError(), qPrintable(task->request().url));
            QCOMPARE(task->data(), QByteArrayLiteral("hello world"));
        }
    }

    // Waiting is no inactivity: not for a slot, not for a login, not for the delay before an attempt.
    void doesNotTimeOutWhileItWaits()
    {
        TestAuthenticator authenticator;
        authenticator.duringLogin = [&] {
            QTimer::singleShot(1s, &authenticator, [&] { authenticator.succeed("token"); });
        };
        m_server->addReply(QStringLiteral("/long"), LoopbackReply(200).delayed(1s));
        m_server->addReply(QStringLiteral("/"), LoopbackReply(503));
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200));
        NetworkQueue queue;
        TestTask before(m_server->url(QStringLiteral("/long")));
        TestTask task(m_server->url());
        task.setAuthenticator(&authenticator);
        task.setTimeout(700ms);
        queue.append(&before);
        queue.append(&task);
        QTRY_VERIFY(task.isFinished());
        QVERIFY2(!task.hasError(), qPrintable(task.error().errorMessage()));
        QCOMPARE(task.retriesCount(), 1); // for the 503, a second later
    }

    // The server has a thread of its own and continues while this one is blocked for longer than the
    // time-out.
    void doesNotTimeOutBecauseOfABlockedEventLoop_data()
    {
        QTest::addColumn<LoopbackReply>("reply");
        const LoopbackReply whole(200, CONTENT);
        QTest::newRow("complete") << whole;
        QTest::newRow("empty") << LoopbackReply(200);
        QTest::newRow("under way") << LoopbackReply(whole).dripped(150, 20ms);
    }

    void doesNotTimeOutBecauseOfABlockedEventLoop()
    {
        QFETCH(LoopbackReply, reply);
        QThread thread;
        auto* server = new LoopbackServer;
        server->addReply(QStringLiteral("/"), reply);
        server->moveToThread(&thread);
        connect(&thread, &QThread::finished, server, &QObject::deleteLater);
        const auto stop = qScopeGuard([&] {
            thread.quit();
            thread.wait();
        });
        thread.start();
        QMetaObject::invokeMethod(
            server, [=] { server->listen(); }, Qt::BlockingQueuedConnection);
        for (int i = 0; i < 3; ++i) {
            TestTask task(server->url());
            task.setMaxRetriesCount(0);
            task.setTimeout(300ms);
            task.exec();
            QTRY_VERIFY(task.networkReply());
            QTimer::singleShot(1, &task, [] { QThread::msleep(400); });
            QTRY_VERIFY(task.isFinished());
            QVERIFY2(!task.hasError(), qPrintable(task.error().errorMessage()));
        }
    }

    // The reply completes, and its time runs out before the event loop comes to say so: what was first holds.
    void prefersACompletionToALaterTimeout()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, CONTENT));
        TestTask task(m_server->url());
        task.setTimeout(300ms);
        task.exec();
        QTRY_VERIFY(task.networkReply());
        auto* timer = task.findChild<QTimer*>();
        connect(task.networkReply(), &QNetworkReply::finished, this, [=] {
            QThread::msleep(350);
            QTimerEvent event(timer->timerId());
            QCoreApplication::sendEvent(timer, &event);
        });
        QTRY_VERIFY(task.isFinished());
        QCOMPARE(task.data(), CONTENT);
        QCOMPARE(task.log(), QStringLiteral("started finished"));
    }

    void quitsCleanlyWithTasksInFlight()
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("quit")});
        QVERIFY(process.waitForFinished());
        const auto output = process.readAll();
        // Qt's own thread may hold something to the end, with or without this library: what we allocate
        // counts.
        static const QRegularExpression ours(QStringLiteral("#1 0x[0-9a-f]+ in orv::"));
        const bool isLeakOfQt =
            output.contains("LeakSanitizer") && !QString::fromLocal8Bit(output).contains(ours);
        QVERIFY2(isLeakOfQt || (output.isEmpty() && process.exitCode() == 0), output.constData());
    }

private:
    // Runs the tasks to their ends, and lets all that might follow happen.
    bool endAs(int expected, const QList<NetworkTask*>& tasks)
    {
        int finished = 0;
        int readyReads = 0;
        for (auto* task : tasks) {
            task->setMaxRetriesCount(0);
            task->setTimeout(timeoutFor(expected));
            connect(task, &Task::finished, task, [&] { ++finished; });
            connect(task, &NetworkTask::readyRead, task, [&] { ++readyReads; });
            task->exec();
        }
        for (auto* task : tasks) {
            if (!runUntil([task] { return task->isFinished(); }))
                return false;
            const auto number = task->hasError() ? task->error().errorDetails().toInt() : 0;
            if (!isVerdict(number, expected)) {
                qWarning("%d: %s", number, qPrintable(task->error().errorMessage()));
                return false;
            }
        }
        readyReads = 0;
        m_server->dropConnections();
        QTest::qWait(5);
        return finished == tasks.size() && readyReads == 0;
    }

    std::unique_ptr<LoopbackServer> m_server;
};

int main(int argc, char** argv)
{
    if (argc == 2 && qstrcmp(argv[1], "quit") == 0)
        return quitWithTasksInFlight(argc, argv);
    QCoreApplication application(argc, argv);
    tst_Faults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_Faults.moc"
