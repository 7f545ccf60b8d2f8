#include "../Rows.h"
#include "FetchProcess.h"

#include <LoopbackServer.h>

#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace orv;

namespace {

const auto credentials = u"{\"user\":\"ann\",\"password\":\"secret\"}"_s;

// The connection stays open, so the program waits for the rest.
LoopbackReply stalled()
{
    return LoopbackReply(200, "new").withField("Content-Length", "9");
}

LoopbackReply tokenReply(const QString& token)
{
    return LoopbackReply::json({{u"token"_s, token}});
}

} // namespace

/// Runs the real program against a server in this process.
class tst_Fetch : public QObject
{
    Q_OBJECT

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return filesIn(m_directory->path()); }

    // The option to save in the directory, and the URLs /1 to /count.
    QStringList urls(int count) const
    {
        QStringList arguments{u"-o"_s, m_directory->path()};
        for (int i = 1; i <= count; ++i)
            arguments << m_server->url(u"/%1"_s.arg(i));
        return arguments;
    }

    QStringList login() const
    {
        return {u"--login-url"_s, m_server->url(u"/login"_s), u"--login-data"_s, credentials};
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
        m_directory = std::make_unique<QTemporaryDir>();
    }

    void sendsTheRequestThatTheOptionsDescribe_data()
    {
        const auto row = addColumns<QByteArray, QByteArrayList, QByteArray>({"method", "fields", "content"});
        const QByteArray json = "Content-Type: application/json";
        row("", "GET", {"Accept: */*", "User-Agent: OrvLabs"}, {});
        row("-X head", "HEAD", {}, {});
        row("-d é", "POST", {json}, "é");
        row("--data=", "POST", {json, "Content-Length: 0"}, {});
        row("-XPUT -d @-", "PUT", {json}, "\r\n\xff\n");
        row("-dx --content-type text/plain", "POST", {"Content-Type: text/plain"}, "x");
        row("-H X-One:1 -H \"X-Two: 2 : 3\" -H \"x-one: uno\"", "GET", {"X-One: 1, uno", "X-Two: 2 : 3"}, {});
        row("-A me/1 -a text/html -H Accept:image/png", "GET", {"User-Agent: me/1", "Accept: image/png"}, {});
    }

    void sendsTheRequestThatTheOptionsDescribe()
    {
        QFETCH(const QByteArrayList, fields);
        m_server->addReply(u"/a"_s, LoopbackReply());
        const auto options = QString::fromUtf8(QTest::currentDataTag());
        FetchProcess fetch(QProcess::splitCommand(options) << m_server->url(u"/a?b=%20c"_s));
        QCOMPARE(fetch.run("\r\n\xff\n"), 0); // read by @-
        QCOMPARE(fetch.messages(), QByteArray());
        const auto request = m_server->requests().constFirst();
        QTEST(request.method, "method");
        QCOMPARE(request.target, "/a?b=%20c"_ba);
        QTEST(request.content, "content");
        QCOMPARE(request.hasField("Content-Type"), fields.join().contains("Content-Type"));
        for (const auto& field : fields)
            QVERIFY2(request.head.contains("\r\n" + field + "\r\n"), request.head.constData());
    }

    void refusesInvalidCommandLines_data()
    {
        // URL and DIR stand for valid ones.
        addRows("line", {"", "file:///etc/hostname", "URL/a URL/b", "-o DIR/file URL/a URL/b",
                         "-o DIR URL/a URL/b/%61", "--frobnicate URL", "-X BREW URL", "-X GET -dx URL",
                         "-H Name URL", "-H \"A: b\r\nC: d\" URL", "-t 0 URL", "--retries=-1 URL", "-P0 URL",
                         "--delay-policy random URL", "--token=\"a\r\nb\" URL", "--login-data {} URL",
                         "--login-url URL --login-data=secret URL"});
    }

    void refusesInvalidCommandLines()
    {
        QFETCH(QString, line);
        line.replace(u"URL/"_s, m_server->url()).replace(u"URL"_s, m_server->url());
        line.replace(u"DIR"_s, m_directory->path());
        FetchProcess fetch(QProcess::splitCommand(line));
        QCOMPARE(fetch.run(), 1);
        QVERIFY2(!fetch.messages().contains("secret"), fetch.messages().constData());
        QVERIFY2(fetch.messages().startsWith("orv-fetch: "), fetch.messages().constData());
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void replacesTheFileOnlyOnSuccess_data()
    {
        addColumns<QList<LoopbackReply>, int, QByteArray, QByteArray, QString>(
            {"replies", "exitCode", "content", "message", "options"});
        const auto row = [](const char* name, const QList<LoopbackReply>& replies, int exitCode,
                            const char* content, const char* message, const QString& options = {}) {
            for (const auto& more : {u""_s, u" --stream"_s})
                QTest::addRow("%s%s", name, qPrintable(more))
                    << replies << exitCode << QByteArray(content) << QByteArray(message) << options + more;
        };
        const LoopbackReply whole(200, "whole");
        const auto truncated = stalled().closing();
        row("200", {whole}, 0, "whole", "");
        row("HEAD", {whole}, 0, "", "", u"-XHEAD"_s);
        row("302", {LoopbackReply(302).withField("Location", "/there")}, 4, "old", "/there (HTTP 302)");
        row("401", {LoopbackReply(401)}, 6, "old", "(HTTP 401)");
        row("404", {LoopbackReply(404, "bad")}, 4, "old", "Not Found (HTTP 404)");
        row("stalled", {stalled()}, 5, "old", "time-out", u"-t200"_s);
        row("truncated", {truncated}, 3, "old", "");
        row("truncated, then whole", {truncated, whole}, 0, "whole", "", u"--retries=1"_s);
    }

    void replacesTheFileOnlyOnSuccess()
    {
        QFETCH(const QList<LoopbackReply>, replies);
        QFETCH(const int, exitCode);
        QFETCH(const QByteArray, message);
        QFETCH(const QString, options);
        const auto file = path(u"file"_s);
        QVERIFY(writeFile(file, "old"));
        for (const auto& reply : replies)
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

#ifdef Q_OS_UNIX
    void removesThePartialFileWhenInterrupted()
    {
        m_server->addReply(u"/"_s, stalled());
        QVERIFY(writeFile(path(u"file"_s), "old"));
        FetchProcess fetch({u"--stream"_s, u"--retries=3"_s, u"-o"_s, path(u"file"_s), m_server->url()});
        fetch.start();
        QTRY_COMPARE(readFile(path(u"file.part"_s)), "new"_ba);
        ::kill(static_cast<pid_t>(fetch.process().processId()), SIGINT);
        QCOMPARE(fetch.wait(), 130);
        QCOMPARE(files(), QStringList{u"file"_s});
        QCOMPARE(readFile(path(u"file"_s)), "old"_ba);
    }
#endif

    void fetchesAllUrlsDespiteFailures()
    {
        m_server->addReply(u"/1"_s, LoopbackReply(200, "one"));
        // The first failure on the command line is not the first one in time.
        m_server->addReply(u"/2"_s, LoopbackReply(404).delayed(300ms));
        m_server->addReply(u"/3"_s, stalled().closing());
        m_server->addReply(u"/4"_s, LoopbackReply(203, "four"));
        for (const auto& option : {u"--parallel=6"_s, u"-q"_s}) {
            FetchProcess fetch(QStringList{option} + urls(4));
            QCOMPARE(fetch.run(), 4);
            QCOMPARE(files(), QStringList({u"1"_s, u"4"_s}));
            QCOMPARE(readFile(path(u"4"_s)), "four"_ba);
            QCOMPARE(fetch.messages().count("orv-fetch: http://"), 2);
            QCOMPARE(fetch.messages().count("203 4 bytes"), option == u"-q" ? 0 : 1);
            QCOMPARE(fetch.messages().count('\n'), option == u"-q" ? 2 : 4);
        }
    }

    void logsInOncePerExpiredToken_data()
    {
        const auto row = addColumns<int>({"logins"});
        row("-P1", 3);
        row("-P12", 3);
        row("--token=t0", 2);
    }

    void logsInOncePerExpiredToken()
    {
        const auto option = QString::fromLatin1(QTest::currentDataTag());
        constexpr int lives = 5;
        int logins = 0;
        int livesLeft = lives;
        m_server->setHandler([&](const LoopbackRequest& request) {
            if (request.path == u"/login") {
                const bool isRight = request.method == "POST" && request.content == credentials.toUtf8() &&
                                     request.field("Content-Type") == "application/json";
                livesLeft = lives;
                return isRight ? tokenReply(u"t%1"_s.arg(++logins)).delayed(30ms) : LoopbackReply(400);
            }
            if (livesLeft == 0 || request.field("Authorization") != "Bearer t" + QByteArray::number(logins))
                return LoopbackReply(401, "no").withField("WWW-Authenticate", "Bearer");
            --livesLeft;
            return LoopbackReply(200, "yes");
        });
        FetchProcess fetch(login() + QStringList{option} + urls(12));
        QCOMPARE(fetch.run(), 0);
        QTEST(logins, "logins");
        QCOMPARE(files().size(), 12);
        if (option == u"-P1")
            QCOMPARE(m_server->connectionCount(), 1);
        for (const auto& name : files())
            QCOMPARE(readFile(path(name)), "yes"_ba);
    }

    void failsAfterLoginsWithoutAUsableToken_data()
    {
        const auto row = addColumns<QList<LoopbackReply>, QString, int, int, QByteArray>(
            {"answers", "options", "exitCode", "mostLogins", "message"});
        const QList<LoopbackReply> passing{LoopbackReply(500), stalled().closing(), tokenReply(u"good"_s)};
        row("passes", passing, u"--retries=2"_s, 0, 3, "200 0 bytes");
        row("retried too seldom", passing, u"--retries=1"_s, 6, 2, "login failed");
        row("401", {LoopbackReply(401)}, {}, 6, 1, "refused the credentials");
        row("no token", {LoopbackReply::json({{u"token"_s, 7}})}, {}, 6, 1, "no token");
        row("bad tokens", {tokenReply(u"bad"_s)}, {}, 6, 12, "(HTTP 401)");
        row("a token with a line break", {tokenReply(u"a\r\nX: b"_s)}, {}, 1, 1, "control character");
    }

    void failsAfterLoginsWithoutAUsableToken()
    {
        QFETCH(const QList<LoopbackReply>, answers);
        QFETCH(const QString, options);
        QFETCH(const int, exitCode);
        QFETCH(const int, mostLogins);
        QFETCH(const QByteArray, message);
        for (const auto& answer : answers)
            m_server->addReply(u"/login"_s, answer);
        m_server->setHandler([](const LoopbackRequest& request) {
            return LoopbackReply(request.field("Authorization") == "Bearer good" ? 200 : 401);
        });
        FetchProcess fetch(QProcess::splitCommand(options) << u"--max-delay=0"_s << login() << urls(4));
        QCOMPARE(fetch.run(), exitCode);
        QVERIFY2(fetch.messages().count(message) == 4 && fetch.messages().count('\n') == 4,
                 fetch.messages().constData());
        const auto logins = m_server->requests(u"/login"_s).size();
        QVERIFY2(logins >= 1 && logins <= mostLogins, QByteArray::number(logins).constData());
        QCOMPARE(files().size(), exitCode == 0 ? 4 : 0);
    }

    void keepsSecretsOutOfItsMessages()
    {
        m_server->addReply(u"/login"_s, tokenReply(u"n3w-t0ken"_s));
        m_server->addReply(u"/1"_s, LoopbackReply(401));
        m_server->addReply(u"/1"_s, LoopbackReply(503));
        FetchProcess fetch(QStringList{u"-v"_s, u"--token=0ld-t0ken"_s} + login() + urls(1));
        QCOMPARE(fetch.run(), 4);
        QCOMPARE(m_server->requests(u"/1"_s).constLast().field("Authorization"), "Bearer n3w-t0ken"_ba);
        QVERIFY2(fetch.messages().contains("******"), fetch.messages().constData());
        for (const auto* secret : {"secret", "t0ken"})
            QVERIFY2(!fetch.messages().contains(secret), fetch.messages().constData());
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<QTemporaryDir> m_directory;
};

QTEST_GUILESS_MAIN(tst_Fetch)
#include "tst_Fetch.moc"
