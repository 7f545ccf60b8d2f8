#include "../Rows.h"
#include "FetchProcess.h"

#include <LoopbackServer.h>

#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orv::LoopbackReply;
using orv::LoopbackRequest;
using orv::LoopbackServer;

namespace {

const auto credentials = u"{\"user\":\"ann\",\"password\":\"secret\"}"_s;

LoopbackReply tokenReply(const QString& token)
{
    return LoopbackReply::json({{u"token"_s, token}});
}

} // namespace

/// Runs the real program with several URLs, logins and downloads, against a server in this process.
class tst_FetchQueue : public QObject
{
    Q_OBJECT

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return filesIn(m_directory->path()); }

    // Options to save in the directory, and URLs /1 to /count.
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
        QVERIFY(m_directory->isValid());
    }

    void fetchesEveryUrlWhateverFailsAmongThem()
    {
        m_server->addReply(u"/1"_s, LoopbackReply(200, "one"));
        // The first failure on the command line is not the first one in time.
        m_server->addReply(u"/2"_s, LoopbackReply(404).delayed(300ms));
        m_server->addReply(u"/3"_s, LoopbackReply(203, "three"));
        m_server->addReply(u"/4"_s, LoopbackReply(200, "f").withField("Content-Length", "4").closing());
        m_server->addReply(u"/5"_s, LoopbackReply(200, "five!"));
        const auto failure = u"orv-fetch: %1: .*"_s;
        const QStringList failures{failure.arg(m_server->url(u"/2"_s)), failure.arg(m_server->url(u"/4"_s))};
        const auto success = u"%1 bytes \\d+\\.\\d\\d s %2"_s;
        const QStringList successes{success.arg(u"200 3"_s, m_server->url(u"/1"_s)),
                                    success.arg(u"200 5"_s, m_server->url(u"/5"_s)),
                                    success.arg(u"203 5"_s, m_server->url(u"/3"_s))};

        for (const auto& option : {u"--parallel=6"_s, u"-q"_s}) {
            FetchProcess fetch(QStringList{option} + urls(5));
            QCOMPARE(fetch.run(), 4);
            QCOMPARE(fetch.output(), QByteArray());
            QCOMPARE(files(), QStringList({u"1"_s, u"3"_s, u"5"_s}));
            QCOMPARE(readFile(path(u"5"_s)), "five!"_ba);
            auto lines = QString::fromUtf8(fetch.messages()).split(u'\n', Qt::SkipEmptyParts);
            lines.sort();
            const auto expected = option == u"-q"_s ? failures : successes + failures;
            const QRegularExpression all(QRegularExpression::anchoredPattern(expected.join(u'\n')));
            QVERIFY2(all.match(lines.join(u'\n')).hasMatch(), fetch.messages().constData());
        }
    }

    // A connection carries one request at a time and is used again, so there are as many as requests at once.
    void staysWithinItsParallelism()
    {
        for (const bool withLogin : {false, true}) {
            for (const int parallel : {1, 2, 4}) {
                init();
                m_server->addReply(u"/login"_s, tokenReply(u"token"_s).delayed(50ms));
                m_server->setHandler([](const auto&) { return LoopbackReply(200, "x").delayed(30ms); });
                const auto options = withLogin ? login() : QStringList();
                FetchProcess fetch(options + QStringList{u"-P%1"_s.arg(parallel)} + urls(12));
                QCOMPARE(fetch.run(), 0);
                QCOMPARE(files().size(), 12);
                QCOMPARE(m_server->connectionCount(), parallel);
            }
        }
    }

    void logsInOnceForEachExpiry_data()
    {
        const auto row = addColumns<QString, int, int>({"option", "lives", "logins"});
        row("nothing expires", u"-P6"_s, 100, 1);
        row("one at a time", u"-P1"_s, 5, 3);
        row("all at once", u"-P12"_s, 5, 3);
        row("a token to begin with", u"--token=t0"_s, 5, 2);
        row("a token that has expired", u"--token=old"_s, 100, 1);
        row("streaming", u"--stream"_s, 5, 3);
    }

    void logsInOnceForEachExpiry()
    {
        QFETCH(const QString, option);
        QFETCH(const int, lives);
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
        for (const auto& name : files())
            QCOMPARE(readFile(path(name)), "yes"_ba);
    }

    // /1 and /2 go out with the same token. By the time that the refusal of /2 is there, /1 has had a login
    // made.
    void takesALateRefusalForWhatItIs()
    {
        QStringList events;
        m_server->setHandler([&](const LoopbackRequest& request) {
            events << request.path + u' ' + QString::fromLatin1(request.field("Authorization"));
            if (request.path == u"/login")
                return tokenReply(u"new"_s);
            if (request.field("Authorization") == "Bearer new")
                return LoopbackReply(200, "yes");
            return LoopbackReply(401).delayed(request.path == u"/2" ? 500ms : 0ms);
        });
        FetchProcess fetch(login() + QStringList{u"--token=old"_s} + urls(2));
        QCOMPARE(fetch.run(), 0);
        std::sort(events.begin(), events.begin() + 2);
        QCOMPARE(events, QStringList({u"/1 Bearer old"_s, u"/2 Bearer old"_s, u"/login "_s,
                                      u"/1 Bearer new"_s, u"/2 Bearer new"_s}));
    }

    void endsWithoutATokenWhenThereIsNone_data()
    {
        const auto row = addColumns<QList<LoopbackReply>, QString, int, int, QByteArray>(
            {"answers", "options", "exitCode", "mostLogins", "message"});
        const QList<LoopbackReply> passing{
            LoopbackReply(500), LoopbackReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{"),
            tokenReply(u"good"_s)};
        row("passes", passing, u"--retries=2"_s, 0, 3, "200 0 bytes");
        row("retried too seldom", passing, u"--retries=1"_s, 6, 2, "login failed");
        row("401", {LoopbackReply(401)}, {}, 6, 1, "refused the credentials");
        row("403", {LoopbackReply(403)}, u"-P1 --retries=3"_s, 6, 1, "refused the credentials");
        row("404", {LoopbackReply(404)}, {}, 6, 1, "login failed");
        row("no JSON", {LoopbackReply(200, "token")}, {}, 6, 1, "no token");
        row("no token", {LoopbackReply::json({{u"token"_s, 7}})}, {}, 6, 1, "no token");
        row("bad tokens", {tokenReply(u"bad"_s)}, {}, 6, 12, "(HTTP 401)");
        row("a token with a line break", {tokenReply(u"a\r\nX: b"_s)}, {}, 1, 1, "line break");
    }

    void endsWithoutATokenWhenThereIsNone()
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

        FetchProcess withoutLogin(QStringList{u"--token=bad"_s} + urls(4));
        QCOMPARE(withoutLogin.run(), 6);
        QCOMPARE(withoutLogin.messages().count('\n'), 4);
    }

    void keepsSecretsOutOfItsMessages()
    {
        QVERIFY(writeFile(path(u"credentials"_s), credentials.toUtf8()));
        m_server->addReply(u"/login"_s, tokenReply(u"n3w-t0ken"_s));
        m_server->addReply(u"/1"_s, LoopbackReply(401));
        m_server->addReply(u"/1"_s, LoopbackReply(503));
        FetchProcess fetch(QStringList{u"-v"_s, u"--token=0ld-t0ken"_s, u"--login-url"_s,
                                       m_server->url(u"/login"_s), u"--login-data"_s,
                                       u'@' + path(u"credentials"_s)} +
                           urls(1));
        QCOMPARE(fetch.run(), 4);
        QCOMPARE(m_server->requests(u"/login"_s).constLast().content, credentials.toUtf8());
        QCOMPARE(m_server->requests(u"/1"_s).constLast().field("Authorization"), "Bearer n3w-t0ken"_ba);
        for (const auto& shown : {m_server->url(u"/1"_s).toUtf8(), "******"_ba})
            QVERIFY2(fetch.messages().contains(shown), fetch.messages().constData());
        for (const auto* secret : {"secret", "t0ken"})
            QVERIFY2(!fetch.messages().contains(secret), fetch.messages().constData());
    }

    void leavesTheFilesOfOthersAlone()
    {
#ifdef Q_OS_UNIX
        m_server->addReply(u"/1"_s, LoopbackReply(200, "new"));
        QVERIFY(writeFile(path(u"target"_s), "old"));
        QVERIFY(QFile::setPermissions(path(u"target"_s), QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(QFile::link(u"target"_s, path(u"1"_s)));
        QVERIFY(writeFile(path(u"target.part"_s), "mine"));
        QVERIFY(QFile::link(u"nowhere"_s, path(u"target.2.part"_s)));
        FetchProcess fetch(QStringList{u"--stream"_s} + urls(1));
        QCOMPARE(fetch.run(), 0);
        QCOMPARE(QFile::symLinkTarget(path(u"1"_s)), path(u"target"_s));
        QCOMPARE(readFile(path(u"target"_s)), "new"_ba);
        QVERIFY(!(QFile::permissions(path(u"target"_s)) & (QFile::ReadGroup | QFile::ReadOther)));
        QCOMPARE(readFile(path(u"target.part"_s)), "mine"_ba);
        QVERIFY(!QFile::exists(path(u"nowhere"_s)) && !QFile::exists(path(u"target.3.part"_s)));
#else
        QSKIP("needs links");
#endif
    }

    void drawsProgressOnATerminal()
    {
        // A terminal without a window, all of whose output it writes down.
        const auto script = QStandardPaths::findExecutable(u"script"_s);
        if (script.isEmpty())
            QSKIP("needs a pseudo-terminal");
        m_server->addReply(u"/login"_s, tokenReply(u"token"_s).delayed(600ms));
        m_server->addReply(u"/1"_s, LoopbackReply(503));
        m_server->addReply(u"/1"_s, LoopbackReply(200, QByteArray(4000, 'x')).dripped(500, 300ms));
        m_server->addReply(u"/2"_s, LoopbackReply(404).withReason("\x1b[31mRed"));
        const auto options = QStringList{u"-P1"_s, u"--retries=1"_s, u"--max-delay=1"_s} + login() + urls(2);
        const auto command = u"'%1' '%2'"_s.arg(QStringLiteral(ORV_FETCH_PROGRAM), options.join(u"' '"_s));
        FetchProcess fetch({u"-qefc"_s, command, u"/dev/null"_s});
        fetch.process().setProgram(script);
        fetch.start();
        for (const auto* text : {"waiting for login", "queued", "waiting to retry"})
            QTRY_VERIFY2(fetch.output().contains(text), text);
        static const QRegularExpression transfer(
            u"1 +[1-9][0-9.]* \\w+ of 4\\.0 kB  \\d+ bytes/s  0:0\\d left"_s);
        QTRY_VERIFY2(QString::fromUtf8(fetch.output()).contains(transfer), fetch.output().constData());
        m_server->dropConnections();
        QCOMPARE(fetch.wait(), 3);
        QVERIFY(fetch.output().contains("orv-fetch: " + m_server->url(u"/1"_s).toUtf8()));
        QVERIFY2(!fetch.output().contains("\x1b[31m"), fetch.output().constData());
        // The last thing that is drawn is nothing.
        QVERIFY2(fetch.output().lastIndexOf("\x1b[1A\r\x1b[J") > fetch.output().lastIndexOf("kB"),
                 fetch.output().constData());
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<QTemporaryDir> m_directory;
};

QTEST_GUILESS_MAIN(tst_FetchQueue)
#include "tst_FetchQueue.moc"
