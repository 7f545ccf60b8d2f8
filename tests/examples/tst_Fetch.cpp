#include "../Rows.h"
#include "FetchProcess.h"

#include <LoopbackServer.h>

#include <QStandardPaths>
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

LoopbackReply truncated(int status)
{
    return LoopbackReply(status, "new").withField("Content-Length", "9").closing();
}

LoopbackReply stalled(int status)
{
    return LoopbackReply(status, "new").withField("Content-Length", "9");
}

} // namespace

/// Runs the real program with one URL, against a server in this process.
class tst_Fetch : public QObject
{
    Q_OBJECT

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return filesIn(m_directory->path()); }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
        m_directory = std::make_unique<QTemporaryDir>();
        QVERIFY(m_directory->isValid());
    }

    void sendsWhatItIsAskedFor_data()
    {
        addColumns<QString, QByteArray, QByteArrayList, QByteArray>(
            {"options", "method", "fields", "content"});
        const auto row = [](const char* options, const char* method, const QByteArrayList& fields = {},
                            const QByteArray& content = {}) {
            QTest::newRow(options) << QString::fromUtf8(options) << QByteArray(method) << fields << content;
        };
        row("", "GET", {"Accept: */*", "User-Agent: OrvLabs"});
        row("-X head", "HEAD");
        row("--request DELETE", "DELETE");
        row("-d é", "POST", {"Content-Type: application/json"}, "é");
        row("--data=", "POST", {"Content-Type: application/json", "Content-Length: 0"});
        row("-XPUT -d @-", "PUT", {"Content-Type: application/json"}, binaryContent());
        row("-dx --content-type text/plain", "POST", {"Content-Type: text/plain"}, "x");
        row("-dx -H content-type:text/csv", "POST", {"Content-Type: text/csv"}, "x");
        row("-H X-One:1 -H \"X-Two: 2 : 3\" -H \"x-one: uno\" -H X-No:", "GET",
            {"X-One: 1, uno", "X-Two: 2 : 3", "X-No: "});
        row("-A me/1 -a text/html,text/plain", "GET", {"User-Agent: me/1", "Accept: text/html,text/plain"});
        row("--user-agent= -a text/html -H Accept:image/png", "GET", {"User-Agent: ", "Accept: image/png"});
    }

    void sendsWhatItIsAskedFor()
    {
        QFETCH(const QString, options);
        QFETCH(const QByteArrayList, fields);
        m_server->addReply(u"/a"_s, LoopbackReply());
        FetchProcess fetch(QProcess::splitCommand(options) << m_server->url(u"/a?b=%20c"_s));
        QCOMPARE(fetch.run(options.contains(u"@-") ? binaryContent() : QByteArray()), 0);
        QCOMPARE(fetch.messages(), QByteArray());

        QCOMPARE(m_server->requests().size(), 1);
        const auto request = m_server->requests().constFirst();
        QTEST(request.method, "method");
        QCOMPARE(request.target, "/a?b=%20c"_ba);
        QTEST(request.content, "content");
        QCOMPARE(request.hasField("Content-Type"), fields.join().contains("Content-Type"));
        for (const auto& field : fields) {
            const auto name = field.left(field.indexOf(':'));
            QVERIFY2(request.hasField(name), request.head.constData());
            QCOMPARE(name + ": " + request.field(name), field);
        }
    }

    void refusesCommandLinesThatMakeNoSense_data()
    {
        QTest::addColumn<QString>("line"); // URL and DIR stand for some that would work
        const auto rows = [](std::initializer_list<const char*> lines) {
            for (const auto* line : lines)
                QTest::newRow(line) << QString::fromLatin1(line);
        };
        rows({"", "file:///etc/hostname", "127.0.0.1/", "http:///a"});
        rows({"URL/a URL/b", "-o DIR/file URL/a URL/b", "-o DIR URL/a URL/b/%61", "-o DIR URL/a file:///b"});
        rows({"--frobnicate URL", "-X BREW URL", "-X GET -dx URL"});
        rows({"-H Name URL", "-H \": value\" URL", "-H \"Na me: value\" URL", "-H \"A: b\r\nC: d\" URL"});
        rows({"-t soon URL", "-t 0 URL", "--retries=-1 URL", "-P0 URL"});
        rows({"--delay-policy random URL", "--delay-factor 0 URL", "--max-delay=-1 URL"});
        rows({"--token= URL", "--token=\"a\r\nb\" URL"});
        rows({"--login-url ftp://127.0.0.1/ URL", "--login-data {} URL"});
        rows({"--login-url URL --login-data=secret URL"});
    }

    void refusesCommandLinesThatMakeNoSense()
    {
        QFETCH(QString, line);
        m_server->addReply(u"/"_s, LoopbackReply());
        line.replace(u"URL/"_s, m_server->url()).replace(u"URL"_s, m_server->url());
        line.replace(u"DIR"_s, m_directory->path());
        FetchProcess fetch(QProcess::splitCommand(line));
        QCOMPARE(fetch.run(), 1);
        QVERIFY2(!fetch.messages().contains("secret"), fetch.messages().constData());
        QVERIFY2(fetch.messages().startsWith("orv-fetch: "), fetch.messages().constData());
        QCOMPARE(fetch.output(), QByteArray());
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly_data()
    {
        addColumns<LoopbackReply, int, QByteArray, QByteArray, QString>(
            {"reply", "exitCode", "content", "message", "options"});
        const auto row = [](const char* name, const LoopbackReply& reply, int exitCode, const char* content,
                            const char* message, const QString& options = {}) {
            for (const auto& more : {u""_s, u" --stream"_s})
                QTest::addRow("%s%s", name, qPrintable(more))
                    << reply << exitCode << QByteArray(content) << QByteArray(message) << options + more;
        };
        const auto redirect = LoopbackReply(302).withField("Location", "/there");
        row("200", LoopbackReply(200, "new"), 0, "new", "");
        row("203", LoopbackReply(203, "new"), 0, "new", "");
        row("204", LoopbackReply(204), 0, "", "");
        row("HEAD", LoopbackReply(200, "new"), 0, "", "", u"-XHEAD"_s);
        row("302", redirect, 4, "old", "/there (HTTP 302)");
        const auto refusal = LoopbackReply(401, "who").withField("WWW-Authenticate", "Basic");
        row("401", refusal, 6, "old", "(HTTP 401)");
        row("404", LoopbackReply(404, "bad"), 4, "old", "Not Found (HTTP 404)");
        row("408", LoopbackReply(408, "bad"), 4, "old", "(HTTP 408)");
        row("503", LoopbackReply(503, "bad"), 4, "old", "(HTTP 503)");
        row("no reply", LoopbackReply::silence(), 5, "old", "time-out", u"-t200"_s);
        row("stalled", stalled(200), 5, "old", "time-out", u"-t200"_s);
        row("stalled error", stalled(500), 5, "old", "time-out", u"-t200"_s);
        row("truncated", truncated(200), 3, "old", "");
        row("truncated 203", truncated(203), 3, "old", "");
        row("closed", LoopbackReply::raw(""), 3, "old", "");
    }

    void endsWithAnExitCodeAndReplacesTheFileOnSuccessOnly()
    {
        QFETCH(const LoopbackReply, reply);
        QFETCH(const int, exitCode);
        QFETCH(const QByteArray, message);
        QFETCH(const QString, options);
        const auto file = path(u"file"_s);
        QVERIFY(writeFile(file, "old"));
        m_server->addReply(u"/"_s, reply);
        FetchProcess fetch(QProcess::splitCommand(options) << u"-o"_s << file << m_server->url());
        QCOMPARE(fetch.run(), exitCode);
        QTEST(readFile(file), "content");
        QCOMPARE(files(), QStringList{u"file"_s});
        QCOMPARE(fetch.output(), QByteArray());
        if (exitCode != 0) {
            const auto begin = "orv-fetch: " + m_server->url().toUtf8() + ": ";
            QVERIFY2(fetch.messages().startsWith(begin), fetch.messages().constData());
            QVERIFY2(fetch.messages().contains(message), fetch.messages().constData());
        }
    }

    void failsBeforeSendingWhenAFileIsOutOfReach()
    {
        for (const auto& option : {u"-o"_s + path(u"missing/file"_s), u"-d@"_s + path(u"missing"_s)}) {
            FetchProcess fetch({option, m_server->url()});
            QCOMPARE(fetch.run(), 2);
            QVERIFY2(fetch.messages().contains("missing"), fetch.messages().constData());
        }
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void failsWhenItsOutputBreaks()
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

    void keepsEveryByte()
    {
        const auto content = binaryContent();
        m_server->addReply(u"/"_s, LoopbackReply(200, content).chunked(777));
        for (const auto& options : {QStringList{}, QStringList{u"--stream"_s}}) {
            FetchProcess toOutput(options + QStringList{m_server->url()});
            QCOMPARE(toOutput.run(), 0);
            QVERIFY(toOutput.output() == content);
            FetchProcess toFile(options + QStringList{u"-o"_s, path(u"file"_s), m_server->url()});
            QCOMPARE(toFile.run(), 0);
            QVERIFY(readFile(path(u"file"_s)) == content);
            QVERIFY(QFile::remove(path(u"file"_s)));
        }
    }

    void trustsTheCertificateOnlyWhenTold()
    {
        LoopbackServer server(LoopbackServer::Transport::Tls);
        QVERIFY(!server.listen().hasError());
        server.addReply(u"/"_s, LoopbackReply(200, "secret"));
        FetchProcess strict({server.url()});
        QCOMPARE(strict.run(), 3);
        QVERIFY2(strict.messages().contains("certificate"), strict.messages().constData());
        QVERIFY(server.requests().isEmpty());

        FetchProcess trusting({u"--insecure"_s, server.url()});
        QCOMPARE(trusting.run(), 0);
        QCOMPARE(trusting.output(), "secret"_ba);
    }

    void writesTheHeadAndTheContentOfAnErrorWhenAsked()
    {
        m_server->addReply(u"/"_s, LoopbackReply(404, "lost").withField("X-Why", "gone"));
        for (const auto& options : {u"-i"_s, u"-i --stream"_s}) {
            FetchProcess fetch(options.split(u' ') << m_server->url());
            QCOMPARE(fetch.run(), 4);
            auto lines = fetch.output().split('\n');
            std::sort(lines.begin() + 1, lines.end() - 2);
            QCOMPARE(lines.join('\n'), "HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n"
                                       "Content-Type: text/plain\r\nX-Why: gone\r\n\r\nlost"_ba);
        }
        FetchProcess silent({m_server->url()});
        QCOMPARE(silent.run(), 4);
        QCOMPARE(silent.output(), QByteArray());
    }

    void streamsInFlatMemory()
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
        int peak = 0; // in kilobytes
        const auto hasEnded = [&] {
            const auto status = readFile(u"/proc/%1/status"_s.arg(fetch.process().processId()));
            const auto words = status.mid(status.indexOf("VmHWM:")).simplified().split(' ');
            peak = std::max(peak, words.value(1).toInt());
            return fetch.process().state() == QProcess::NotRunning;
        };
        QTRY_VERIFY_WITH_TIMEOUT(hasEnded(), 60000);
        QCOMPARE(fetch.wait(), 0);
        QCOMPARE(QFileInfo(path(u"file"_s)).size(), size);
        QVERIFY2(peak > 0 && peak < (60 << 10), QByteArray::number(peak).constData());
    }

    void retryReplacesWhatTheFailedAttemptWrote()
    {
        const QStringList options{u"--stream"_s, u"--retries=1"_s};
        m_server->addReply(u"/"_s, truncated(200));
        m_server->addReply(u"/"_s, LoopbackReply(200, "content"));
        FetchProcess toFile(options + QStringList{u"-o"_s, path(u"file"_s), m_server->url()});
        QCOMPARE(toFile.run(), 0);
        QCOMPARE(readFile(path(u"file"_s)), "content"_ba);

        m_server->addReply(u"/stream"_s, truncated(200)); // what is written cannot be taken back
        FetchProcess toOutput(options + QStringList{m_server->url(u"/stream"_s)});
        QCOMPARE(toOutput.run(), 3);
        QCOMPARE(toOutput.output(), "new"_ba);
        QCOMPARE(m_server->requests(u"/stream"_s).size(), 1);
    }

    void endsInOrderWhenInterrupted()
    {
#ifdef Q_OS_UNIX
        m_server->addReply(u"/"_s, stalled(200));
        QVERIFY(writeFile(path(u"file"_s), "old"));
        for (const int signal : {SIGINT, SIGTERM}) {
            FetchProcess fetch({u"--stream"_s, u"--retries=3"_s, u"-o"_s, path(u"file"_s), m_server->url()});
            fetch.start();
            QTRY_COMPARE(readFile(path(u"file.part"_s)), "new"_ba);
            ::kill(static_cast<pid_t>(fetch.process().processId()), signal);
            QCOMPARE(fetch.wait(), 130);
            QVERIFY2(fetch.messages().contains("interrupted"), fetch.messages().constData());
            QCOMPARE(files(), QStringList{u"file"_s});
            QCOMPARE(readFile(path(u"file"_s)), "old"_ba);
        }
#else
        QSKIP("needs signals");
#endif
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<QTemporaryDir> m_directory;
};

QTEST_GUILESS_MAIN(tst_Fetch)
#include "tst_Fetch.moc"
