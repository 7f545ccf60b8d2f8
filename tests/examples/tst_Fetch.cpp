#include "FetchProcess.h"

#include <LoopbackServer.h>

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orv::LoopbackReply;
using orv::LoopbackServer;

namespace {

// Every byte value, with line ends of all kinds, and more than fits into one buffer.
QByteArray binaryContent()
{
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes.append(static_cast<char>(i));
    return bytes.append("\r\n\n\r").repeated(1000);
}

} // namespace

/// Runs the real program against a server in this process.
class tst_Fetch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void sendsWhatItIsAskedFor_data();
    void sendsWhatItIsAskedFor();
    void refusesCommandLinesThatMakeNoSense_data();
    void refusesCommandLinesThatMakeNoSense();
    void endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly_data();
    void endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly();
    void failsBeforeSendingWhenAFileIsOutOfReach();
    void failsWhenItsOutputBreaks();
    void keepsEveryByte_data();
    void keepsEveryByte();
    void trustsTheCertificateOnlyWhenTold();
    void writesTheHeadAndTheContentOfAnErrorWhenAsked();
    void logsToTheStandardError();
    void streamsBeforeTheReplyIsComplete();
    void streamsInFlatMemory();
    void retryReplacesWhatTheFailedAttemptWrote();
    void endsInOrderWhenInterrupted_data();
    void endsInOrderWhenInterrupted();

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return QDir(m_directory->path()).entryList(QDir::Files | QDir::Hidden); }

    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<QTemporaryDir> m_directory;
};

void tst_Fetch::init()
{
    m_server = std::make_unique<LoopbackServer>();
    QVERIFY(!m_server->listen().hasError());
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void tst_Fetch::sendsWhatItIsAskedFor_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QList<QByteArray>>("fields");
    QTest::addColumn<QByteArray>("content");

    const auto row = [](const char* name, const QStringList& arguments, const char* method,
                        const QList<QByteArray>& fields = {}, const QByteArray& content = {},
                        const QByteArray& input = {}) {
        QTest::newRow(name) << arguments << input << QByteArray(method) << fields << content;
    };
    row("nothing", {}, "GET", {"Accept: */*", "User-Agent: OrvLabs", "-Content-Type"});
    row("HEAD", {u"-X"_s, u"head"_s}, "HEAD", {"-Content-Type"});
    row("DELETE", {u"--request"_s, u"DELETE"_s}, "DELETE", {"-Content-Type"});
    row("data", {u"-d"_s, u"{\"a\":\"é\"}"_s}, "POST", {"Content-Type: application/json"},
        "{\"a\":\"\xc3\xa9\"}");
    row("empty data", {u"--data="_s}, "POST", {"Content-Type: application/json", "Content-Length: 0"});
    row("PUT", {u"-XPUT"_s, u"-d"_s, u"x"_s}, "PUT", {"Content-Type: application/json"}, "x");
    row("standard input", {u"-d"_s, u"@-"_s}, "POST", {}, binaryContent(), binaryContent());
    row("type by option", {u"-dx"_s, u"--content-type"_s, u"text/plain"_s}, "POST",
        {"Content-Type: text/plain"}, "x");
    row("type by field", {u"-dx"_s, u"-H"_s, u"content-type: text/csv"_s}, "POST", {"Content-Type: text/csv"},
        "x");
    row("fields",
        {u"-H"_s, u"X-One:1"_s, u"-H"_s, u"X-Two: 2 : 3"_s, u"-H"_s, u"x-one: uno"_s, u"-H"_s, u"X-No:"_s},
        "GET", {"X-One: 1, uno", "X-Two: 2 : 3", "X-No: "});
    row("accept", {u"-a"_s, u"text/html, text/plain"_s}, "GET", {"Accept: text/html, text/plain"});
    row("field before option", {u"-a"_s, u"text/html"_s, u"-H"_s, u"Accept: image/png"_s}, "GET",
        {"Accept: image/png"});
    row("user agent", {u"-A"_s, u"me/1"_s}, "GET", {"User-Agent: me/1"});
    row("empty user agent", {u"-A"_s, u""_s}, "GET", {"User-Agent: "});
}

void tst_Fetch::sendsWhatItIsAskedFor()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QByteArray, input);
    QFETCH(const QList<QByteArray>, fields);

    m_server->addReply(u"/a"_s, LoopbackReply());
    FetchProcess fetch(arguments + QStringList{m_server->url(u"/a?b=%20c"_s)});
    QCOMPARE(fetch.run(input), 0);
    QCOMPARE(fetch.messages(), QByteArray());

    QCOMPARE(m_server->requests().size(), 1);
    const auto request = m_server->requests().constFirst();
    QTEST(request.method, "method");
    QCOMPARE(request.target, QByteArray("/a?b=%20c"));
    QTEST(request.content, "content");
    for (const auto& field : fields) {
        const auto name = field.left(field.indexOf(':'));
        if (field.startsWith('-')) {
            QVERIFY2(!request.hasField(field.mid(1)), request.head.constData());
        } else {
            QVERIFY2(request.hasField(name), request.head.constData());
            QCOMPARE(name + ": " + request.field(name), field);
        }
    }
}

void tst_Fetch::refusesCommandLinesThatMakeNoSense_data()
{
    QTest::addColumn<QStringList>("arguments");

    const auto url = u"URL"_s; // replaced by one that would work
    QTest::newRow("no URL") << QStringList{};
    const auto directory = u"DIR"_s; // replaced by one that exists
    QTest::newRow("two URLs without a directory") << QStringList{url + u'a', url + u'b'};
    QTest::newRow("two URLs and a file") << QStringList{u"-o"_s, u"DIR/file"_s, url + u'a', url + u'b'};
    QTest::newRow("two URLs of one name") << QStringList{u"-o"_s, directory, url + u"a"_s, url + u"b/%61"_s};
    QTest::newRow("one bad URL of two") << QStringList{u"-o"_s, directory, url + u'a', u"file:///b"_s};
    QTest::newRow("other scheme") << QStringList{u"file:///etc/hostname"_s};
    QTest::newRow("no scheme") << QStringList{u"127.0.0.1/"_s};
    QTest::newRow("no host") << QStringList{u"http:///a"_s};
    QTest::newRow("unknown option") << QStringList{u"--frobnicate"_s, url};
    QTest::newRow("unknown method") << QStringList{u"-X"_s, u"BREW"_s, url};
    QTest::newRow("data with GET") << QStringList{u"-X"_s, u"GET"_s, u"-dx"_s, url};
    QTest::newRow("field without colon") << QStringList{u"-H"_s, u"Name"_s, url};
    QTest::newRow("field without name") << QStringList{u"-H"_s, u": value"_s, url};
    QTest::newRow("name with space") << QStringList{u"-H"_s, u"Na me: value"_s, url};
    QTest::newRow("injected field") << QStringList{u"-H"_s, u"A: b\r\nC: d"_s, url};
    QTest::newRow("time-out in words") << QStringList{u"-t"_s, u"soon"_s, url};
    QTest::newRow("time-out of 0") << QStringList{u"-t"_s, u"0"_s, url};
    QTest::newRow("negative retries") << QStringList{u"--retries=-1"_s, url};
    QTest::newRow("no parallel") << QStringList{u"-P0"_s, url};
    QTest::newRow("unknown policy") << QStringList{u"--delay-policy"_s, u"random"_s, url};
    QTest::newRow("factor of 0") << QStringList{u"--delay-factor"_s, u"0"_s, url};
    QTest::newRow("negative delay") << QStringList{u"--max-delay=-1"_s, url};
    QTest::newRow("empty token") << QStringList{u"--token="_s, url};
    QTest::newRow("token with line break") << QStringList{u"--token=a\r\nb"_s, url};
    QTest::newRow("login elsewhere") << QStringList{u"--login-url"_s, u"ftp://127.0.0.1/"_s, url};
    QTest::newRow("credentials for nobody") << QStringList{u"--login-data"_s, u"{}"_s, url};
    QTest::newRow("credentials in words")
        << QStringList{u"--login-url"_s, url, u"--login-data=secret"_s, url};
}

void tst_Fetch::refusesCommandLinesThatMakeNoSense()
{
    QFETCH(QStringList, arguments);

    m_server->addReply(u"/"_s, LoopbackReply());
    arguments.replaceInStrings(u"URL"_s, m_server->url());
    arguments.replaceInStrings(u"DIR"_s, m_directory->path());
    FetchProcess fetch(arguments);
    QCOMPARE(fetch.run(), 1);
    QVERIFY2(!fetch.messages().contains("secret"), fetch.messages().constData());
    QVERIFY2(fetch.messages().startsWith("orv-fetch: "), fetch.messages().constData());
    QCOMPARE(fetch.output(), QByteArray());
    QCOMPARE(m_server->connectionCount(), 0);
}

void tst_Fetch::endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly_data()
{
    QTest::addColumn<LoopbackReply>("reply");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("content"); // of the file, then
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QStringList>("options");

    const auto row = [](const char* name, const LoopbackReply& reply, int exitCode, const char* content,
                        const char* message, const QStringList& options = {}) {
        QTest::newRow(name) << reply << exitCode << QByteArray(content) << QByteArray(message) << options;
        QTest::addRow("%s, streaming", name) << reply << exitCode << QByteArray(content)
                                             << QByteArray(message) << options + QStringList{u"--stream"_s};
    };
    row("200", LoopbackReply(200, "new"), 0, "new", "");
    row("201", LoopbackReply(201, "new"), 0, "new", "");
    row("203", LoopbackReply(203, "new"), 0, "new", "");
    row("204", LoopbackReply(204), 0, "", "");
    row("HEAD", LoopbackReply(200, "new"), 0, "", "", {u"-XHEAD"_s});
    row("redirect", LoopbackReply(302).withField("Location", "/there"), 4, "old", "/there (HTTP 302)");
    row("304", LoopbackReply(304), 4, "old", "(HTTP 304)");
    row("400", LoopbackReply(400, "bad"), 4, "old", "(HTTP 400)");
    row("401", LoopbackReply(401, "who").withField("WWW-Authenticate", "Basic"), 6, "old", "(HTTP 401)");
    row("404", LoopbackReply(404, "bad"), 4, "old", "Not Found (HTTP 404)");
    row("408", LoopbackReply(408, "bad"), 4, "old", "(HTTP 408)");
    row("503", LoopbackReply(503, "bad"), 4, "old", "(HTTP 503)");
    row("no reply", LoopbackReply::silence(), 5, "old", "time-out", {u"-t200"_s});
    row("stalled content", LoopbackReply(200, "new").withField("Content-Length", "9"), 5, "old", "time-out",
        {u"-t200"_s});
    row("stalled error", LoopbackReply(500, "new").withField("Content-Length", "9"), 5, "old", "time-out",
        {u"-t200"_s});
    row("truncated", LoopbackReply(200, "new").withField("Content-Length", "9").closing(), 3, "old", "");
    row("truncated 203", LoopbackReply(203, "new").withField("Content-Length", "9").closing(), 3, "old", "");
    row("reset", LoopbackReply(200, "newer").resetAfter(66), 3, "old", "");
    row("closed", LoopbackReply::raw(""), 3, "old", "");
}

void tst_Fetch::endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly()
{
    QFETCH(const LoopbackReply, reply);
    QFETCH(const int, exitCode);
    QFETCH(const QByteArray, content);
    QFETCH(const QByteArray, message);
    QFETCH(const QStringList, options);

    const auto file = path(u"file"_s);
    QVERIFY(writeFile(file, "old"));
    m_server->addReply(u"/"_s, reply);
    FetchProcess fetch(options + QStringList{u"-o"_s, file, m_server->url()});
    QCOMPARE(fetch.run(), exitCode);
    QCOMPARE(readFile(file), content);
    QCOMPARE(files(), QStringList{u"file"_s});
    QCOMPARE(fetch.output(), QByteArray());
    if (exitCode != 0) {
        QVERIFY2(fetch.messages().startsWith("orv-fetch: " + m_server->url().toUtf8() + ": "),
                 fetch.messages().constData());
        QVERIFY2(fetch.messages().contains(message), fetch.messages().constData());
    }
}

void tst_Fetch::failsBeforeSendingWhenAFileIsOutOfReach()
{
    FetchProcess writing({u"-o"_s, path(u"missing/file"_s), m_server->url()});
    QCOMPARE(writing.run(), 2);
    QVERIFY2(writing.messages().contains("missing/file"), writing.messages().constData());
    FetchProcess reading({u"-d"_s, u"@"_s + path(u"missing"_s), m_server->url()});
    QCOMPARE(reading.run(), 2);
    QVERIFY2(reading.messages().contains("missing"), reading.messages().constData());
    QCOMPARE(m_server->connectionCount(), 0);
}

void tst_Fetch::failsWhenItsOutputBreaks()
{
    m_server->addReply(u"/"_s, LoopbackReply(200, binaryContent()));
    const auto shell = QStandardPaths::findExecutable(u"bash"_s);
    if (shell.isEmpty())
        QSKIP("needs bash");
    for (const auto& option : {u"--include"_s, u"--stream"_s}) {
        FetchProcess fetch({u"-c"_s, u"\"$@\" | head -c 1; exit ${PIPESTATUS[0]}"_s, shell,
                            QStringLiteral(ORV_FETCH_PROGRAM), option, m_server->url()});
        fetch.process().setProgram(shell);
        QCOMPARE(fetch.run(), 2);
        QVERIFY2(fetch.messages().contains("standard output"), fetch.messages().constData());
    }
}

void tst_Fetch::keepsEveryByte_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("toFile");

    QTest::newRow("output") << QStringList{} << false;
    QTest::newRow("file") << QStringList{} << true;
    QTest::newRow("streamed output") << QStringList{u"--stream"_s} << false;
    QTest::newRow("streamed file") << QStringList{u"--stream"_s} << true;
}

void tst_Fetch::keepsEveryByte()
{
    QFETCH(QStringList, options);
    QFETCH(const bool, toFile);

    const auto content = binaryContent();
    m_server->addReply(u"/"_s, LoopbackReply(200, content));
    m_server->addReply(u"/"_s, LoopbackReply(200, content).chunked(777));
    m_server->addReply(u"/"_s, LoopbackReply(200, content).untilClose());
    if (toFile)
        options << u"-o"_s << path(u"file"_s);
    for (int i = 0; i < 3; ++i) {
        FetchProcess fetch(options + QStringList{m_server->url()});
        QCOMPARE(fetch.run(), 0);
        const auto received = toFile ? readFile(path(u"file"_s)) : fetch.output();
        QVERIFY2(received == content, QByteArray::number(received.size()).constData());
    }
}

void tst_Fetch::trustsTheCertificateOnlyWhenTold()
{
    LoopbackServer server(LoopbackServer::Transport::Tls);
    QVERIFY(!server.listen().hasError());
    server.addReply(u"/"_s, LoopbackReply(200, "secret"));

    FetchProcess strict({server.url()});
    QCOMPARE(strict.run(), 3);
    QVERIFY2(strict.messages().contains("certificate"), strict.messages().constData());
    QCOMPARE(strict.output(), QByteArray());
    QVERIFY(server.requests().isEmpty());

    FetchProcess trusting({u"--insecure"_s, server.url()});
    QCOMPARE(trusting.run(), 0);
    QCOMPARE(trusting.output(), QByteArray("secret"));
}

void tst_Fetch::writesTheHeadAndTheContentOfAnErrorWhenAsked()
{
    m_server->addReply(u"/"_s, LoopbackReply(404, "lost").withField("X-Why", "gone"));
    const QByteArray expected("HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nX-Why: gone\r\n"
                              "Content-Length: 4\r\n\r\nlost");
    const auto sorted = [](const QByteArray& head) {
        auto lines = head.split('\n');
        std::sort(lines.begin(), lines.end() - 2);
        return lines;
    };
    for (const auto& options : {QStringList{u"-i"_s}, QStringList{u"-i"_s, u"--stream"_s}}) {
        FetchProcess fetch(options + QStringList{m_server->url()});
        QCOMPARE(fetch.run(), 4);
        QCOMPARE(sorted(fetch.output()), sorted(expected));
    }
    FetchProcess silent({m_server->url()});
    QCOMPARE(silent.run(), 4);
    QCOMPARE(silent.output(), QByteArray());
}

void tst_Fetch::logsToTheStandardError()
{
    m_server->addReply(u"/"_s, LoopbackReply(200, "content"));
    FetchProcess fetch({u"-v"_s, m_server->url()});
    QCOMPARE(fetch.run(), 0);
    QCOMPARE(fetch.output(), QByteArray("content"));
    QVERIFY2(fetch.messages().contains(m_server->url().toUtf8()), fetch.messages().constData());
}

void tst_Fetch::streamsBeforeTheReplyIsComplete()
{
    m_server->addReply(u"/"_s, LoopbackReply(200, "begin").withField("Content-Length", "9"));
    FetchProcess fetch({u"--stream"_s, m_server->url()});
    fetch.start();
    QTRY_COMPARE(fetch.output(), QByteArray("begin"));
    QCOMPARE(fetch.process().state(), QProcess::Running);
    m_server->dropConnections();
    QCOMPARE(fetch.wait(), 3);
    QCOMPARE(fetch.output(), QByteArray("begin"));
}

void tst_Fetch::streamsInFlatMemory()
{
#if !defined(Q_OS_LINUX)
    QSKIP("reads the peak from /proc");
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("a sanitizer needs memory of its own");
#endif
    constexpr qint64 size = 256 << 20;
    m_server->addReply(u"/"_s, LoopbackReply(200, QByteArray(size, 'x')).chunked(65536));
    FetchProcess fetch({u"--stream"_s, u"-o"_s, path(u"file"_s), m_server->url()});
    fetch.start();
    qint64 peak = 0;
    const auto sample = [&] {
        const auto status = readFile(u"/proc/%1/status"_s.arg(fetch.process().processId()));
        const auto begin = status.indexOf("VmHWM:") + 6;
        const auto number = status.mid(begin, status.indexOf("kB", begin) - begin).trimmed().toLongLong();
        peak = std::max(peak, number);
        return fetch.process().state() == QProcess::NotRunning;
    };
    QTRY_VERIFY_WITH_TIMEOUT(sample(), 60000);
    QCOMPARE(fetch.wait(), 0);
    QCOMPARE(QFileInfo(path(u"file"_s)).size(), size);
    QVERIFY2(peak > 0 && peak < (60 << 10), QByteArray::number(peak).constData());
}

void tst_Fetch::retryReplacesWhatTheFailedAttemptWrote()
{
    m_server->addReply(u"/"_s, LoopbackReply(200, "worthless").withField("Content-Length", "90").closing());
    m_server->addReply(u"/"_s, LoopbackReply(200, "content"));
    const auto file = path(u"file"_s);
    FetchProcess fetch({u"--stream"_s, u"--retries"_s, u"1"_s, u"-o"_s, file, m_server->url()});
    QCOMPARE(fetch.run(), 0);
    QCOMPARE(readFile(file), QByteArray("content"));
    QCOMPARE(m_server->requests().size(), 2);

    m_server->addReply(u"/stream"_s, LoopbackReply(200, "part").withField("Content-Length", "90").closing());
    FetchProcess stream({u"--stream"_s, u"--retries"_s, u"1"_s, m_server->url(u"/stream"_s)});
    QCOMPARE(stream.run(), 3);
    QCOMPARE(stream.output(), QByteArray("part"));
    QCOMPARE(m_server->requests(u"/stream"_s).size(), 1);
}

void tst_Fetch::endsInOrderWhenInterrupted_data()
{
    QTest::addColumn<int>("signal");
#ifdef Q_OS_UNIX
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
#else
    QSKIP("needs signals");
#endif
}

void tst_Fetch::endsInOrderWhenInterrupted()
{
#ifdef Q_OS_UNIX
    QFETCH(const int, signal);

    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const auto url = u"http://127.0.0.1:%1/"_s.arg(server.serverPort());
    QVERIFY(writeFile(path(u"file"_s), "old"));
    FetchProcess fetch({u"--stream"_s, u"--retries"_s, u"3"_s, u"-o"_s, path(u"file"_s), url});
    fetch.start();
    QTRY_VERIFY(server.hasPendingConnections());
    const std::unique_ptr<QTcpSocket> connection(server.nextPendingConnection());
    QTRY_VERIFY(connection->bytesAvailable() > 0);
    connection->write("HTTP/1.1 200 OK\r\nContent-Length: 90\r\n\r\nnew");

    ::kill(static_cast<pid_t>(fetch.process().processId()), signal);
    QCOMPARE(fetch.wait(), 130);
    QTRY_COMPARE(connection->state(), QAbstractSocket::UnconnectedState);
    QVERIFY2(fetch.messages().contains("interrupted"), fetch.messages().constData());
    QCOMPARE(files(), QStringList{u"file"_s});
    QCOMPARE(readFile(path(u"file"_s)), QByteArray("old"));
#endif
}

QTEST_GUILESS_MAIN(tst_Fetch)
#include "tst_Fetch.moc"
