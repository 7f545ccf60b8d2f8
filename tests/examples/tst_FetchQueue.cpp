#include "FetchProcess.h"

#include <LoopbackServer.h>

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

#ifdef Q_OS_UNIX
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#endif

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

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

#ifdef Q_OS_UNIX
/// A terminal without a window. What a program writes to its device comes out of output().
class Terminal
{
public:
    Terminal()
        : m_handle(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        if (::grantpt(m_handle) == 0 && ::unlockpt(m_handle) == 0)
            m_device = QFile::decodeName(::ptsname(m_handle));
    }
    ~Terminal() { ::close(m_handle); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    QString device() const { return m_device; }

    const QByteArray& output()
    {
        QByteArray buffer(4096, '\0');
        for (auto size = ::read(m_handle, buffer.data(), 4096); size > 0;
             size = ::read(m_handle, buffer.data(), 4096)) {
            m_output += buffer.first(size);
        }
        return m_output;
    }

private:
    const int m_handle;
    QString m_device;
    QByteArray m_output;
};
#endif

} // namespace

/// Runs the real program with several URLs, logins and downloads, against a server in this process.
class tst_FetchQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void fetchesEveryUrlWhateverFailsAmongThem();
    void staysWithinItsParallelism_data();
    void staysWithinItsParallelism();
    void logsInOnceForEachExpiry_data();
    void logsInOnceForEachExpiry();
    void takesALateRefusalForWhatItIs();
    void triesALoginAgainThatMayPass_data();
    void triesALoginAgainThatMayPass();
    void givesUpWhenThereIsNoTokenToBeHad_data();
    void givesUpWhenThereIsNoTokenToBeHad();
    void keepsSecretsOutOfItsMessages();
    void savesUnderTheNamesInTheUrls();
    void leavesFilesAloneWhenAFetchFails_data();
    void leavesFilesAloneWhenAFetchFails();
    void leavesTheFilesOfOthersAlone();
    void drawsProgressOnATerminal();

private:
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return QDir(m_directory->path()).entryList(QDir::Files | QDir::Hidden); }
    QStringList urls(int count) const;
    QStringList login() const;
    int requestCount(const QString& path) const { return static_cast<int>(m_server->requests(path).size()); }

    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<QTemporaryDir> m_directory;
};

void tst_FetchQueue::init()
{
    m_server = std::make_unique<LoopbackServer>();
    QVERIFY(!m_server->listen().hasError());
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

// Options to save in the directory, and URLs /1 to /count.
QStringList tst_FetchQueue::urls(int count) const
{
    QStringList arguments{u"-o"_s, m_directory->path()};
    for (int i = 1; i <= count; ++i)
        arguments << m_server->url(u"/%1"_s.arg(i));
    return arguments;
}

QStringList tst_FetchQueue::login() const
{
    return {u"--login-url"_s, m_server->url(u"/login"_s), u"--login-data"_s, credentials};
}

void tst_FetchQueue::fetchesEveryUrlWhateverFailsAmongThem()
{
    m_server->addReply(u"/1"_s, LoopbackReply(200, "one"));
    // The first failure on the command line is not the first one in time.
    m_server->addReply(u"/2"_s, LoopbackReply(404).delayed(300ms));
    m_server->addReply(u"/3"_s, LoopbackReply(203, "three"));
    m_server->addReply(u"/4"_s, LoopbackReply(200, "f").withField("Content-Length", "4").closing());
    m_server->addReply(u"/5"_s, LoopbackReply(200, "five!"));

    for (const auto& option : {u"--parallel=6"_s, u"-q"_s}) {
        FetchProcess fetch(QStringList{option} + urls(5));
        QCOMPARE(fetch.run(), 4);
        QCOMPARE(fetch.output(), QByteArray());
        QCOMPARE(files(), QStringList({u"1"_s, u"3"_s, u"5"_s}));
        QCOMPARE(readFile(path(u"5"_s)), QByteArray("five!"));

        auto lines = QString::fromUtf8(fetch.messages()).split(u'\n');
        QVERIFY(lines.removeOne(QString()));
        lines.sort();
        static const QRegularExpression seconds(u" \\d+\\.\\d\\d s "_s);
        lines.replaceInStrings(seconds, u" # s "_s);
        const auto url = [this](int i) { return m_server->url(u"/%1"_s.arg(i)); };
        const bool isQuiet = option == u"-q"_s;
        QCOMPARE(lines.size(), isQuiet ? 2 : 5);
        if (!isQuiet) {
            QCOMPARE(lines.first(3),
                     QStringList({u"200 3 bytes # s "_s + url(1), u"200 5 bytes # s "_s + url(5),
                                  u"203 5 bytes # s "_s + url(3)}));
        }
        const auto failures = lines.last(2);
        QVERIFY2(failures[0].startsWith(u"orv-fetch: %1: "_s.arg(url(2))), qPrintable(failures[0]));
        QVERIFY2(failures[1].startsWith(u"orv-fetch: %1: "_s.arg(url(4))), qPrintable(failures[1]));
    }
}

void tst_FetchQueue::staysWithinItsParallelism_data()
{
    QTest::addColumn<int>("parallel");
    QTest::addColumn<bool>("withLogin");

    QTest::newRow("1") << 1 << false;
    QTest::newRow("2") << 2 << false;
    QTest::newRow("4") << 4 << false;
    QTest::newRow("1, with login") << 1 << true;
    QTest::newRow("2, with login") << 2 << true;
}

// A connection carries one request at a time and is used again, so there are as many as requests at once.
void tst_FetchQueue::staysWithinItsParallelism()
{
    QFETCH(const int, parallel);
    QFETCH(const bool, withLogin);

    m_server->addReply(u"/login"_s, tokenReply(u"token"_s).delayed(50ms));
    m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "x").delayed(30ms); });
    FetchProcess fetch(QStringList{u"-P"_s, QString::number(parallel)} +
                       (withLogin ? login() : QStringList()) + urls(12));
    QCOMPARE(fetch.run(), 0);
    QCOMPARE(files().size(), 12);
    QCOMPARE(m_server->connectionCount(), parallel);
}

void tst_FetchQueue::logsInOnceForEachExpiry_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("lives"); // requests that a token is good for
    QTest::addColumn<int>("logins");

    QTest::newRow("nothing expires") << QStringList{} << 100 << 1;
    QTest::newRow("twice") << QStringList{} << 5 << 3;
    QTest::newRow("one at a time") << QStringList{u"-P1"_s} << 5 << 3;
    QTest::newRow("all at once") << QStringList{u"-P12"_s} << 5 << 3;
    QTest::newRow("a token to begin with") << QStringList{u"--token=t0"_s} << 5 << 2;
    QTest::newRow("a token that has expired") << QStringList{u"--token=old"_s} << 100 << 1;
    QTest::newRow("streaming") << QStringList{u"--stream"_s} << 5 << 3;
}

void tst_FetchQueue::logsInOnceForEachExpiry()
{
    QFETCH(const QStringList, options);
    QFETCH(const int, lives);
    QFETCH(const int, logins);

    int loginCount = 0;
    int livesLeft = lives;
    m_server->setHandler([&](const LoopbackRequest& request) {
        if (request.path == u"/login") {
            const bool isRight = request.method == "POST" && request.content == credentials.toUtf8() &&
                                 request.field("Content-Type") == "application/json";
            livesLeft = lives;
            return isRight ? tokenReply(u"t%1"_s.arg(++loginCount)).delayed(30ms) : LoopbackReply(400);
        }
        const auto token = "Bearer t" + QByteArray::number(loginCount);
        if (livesLeft == 0 || request.field("Authorization") != token)
            return LoopbackReply(401, "no").withField("WWW-Authenticate", "Bearer");
        --livesLeft;
        return LoopbackReply(200, "yes");
    });
    FetchProcess fetch(options + login() + urls(12));
    QCOMPARE(fetch.run(), 0);
    QCOMPARE(loginCount, logins);
    QCOMPARE(files().size(), 12);
    for (int i = 1; i <= 12; ++i)
        QCOMPARE(readFile(path(QString::number(i))), QByteArray("yes"));
}

// /1 and /2 go out with the same token. By the time that the refusal of /2 is there, /1 has had a login made.
void tst_FetchQueue::takesALateRefusalForWhatItIs()
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
    FetchProcess fetch(QStringList{u"--token=old"_s} + login() + urls(2));
    QCOMPARE(fetch.run(), 0);
    QCOMPARE(sorted(events.first(2)), QStringList({u"/1 Bearer old"_s, u"/2 Bearer old"_s}));
    QCOMPARE(events.mid(2), QStringList({u"/login "_s, u"/1 Bearer new"_s, u"/2 Bearer new"_s}));
}

void tst_FetchQueue::triesALoginAgainThatMayPass_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<int>("logins");
    QTest::addColumn<int>("saved");

    QTest::newRow("enough") << 2 << 0 << 3 << 4;
    QTest::newRow("too few") << 1 << 6 << 2 << 0;
}

void tst_FetchQueue::triesALoginAgainThatMayPass()
{
    QFETCH(const int, retries);
    QFETCH(const int, exitCode);
    QFETCH(const int, logins);
    QFETCH(const int, saved);

    m_server->addReply(u"/login"_s, LoopbackReply(500));
    m_server->addReply(u"/login"_s, LoopbackReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n{"));
    m_server->addReply(u"/login"_s, tokenReply(u"token"_s));
    m_server->setHandler([](const LoopbackRequest& request) {
        return LoopbackReply(request.field("Authorization") == "Bearer token" ? 200 : 400);
    });
    FetchProcess fetch(QStringList{u"--retries"_s, QString::number(retries), u"--max-delay=0"_s} + login() +
                       urls(4));
    QCOMPARE(fetch.run(), exitCode);
    QCOMPARE(requestCount(u"/login"_s), logins);
    QCOMPARE(files().size(), saved);
}

void tst_FetchQueue::givesUpWhenThereIsNoTokenToBeHad_data()
{
    QTest::addColumn<LoopbackReply>("answer"); // to a login
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("mostLogins");
    QTest::addColumn<QByteArray>("message");

    const auto row = [](const char* name, const LoopbackReply& answer, const char* message, int logins = 1,
                        const QStringList& options = {}) {
        QTest::newRow(name) << answer << options << logins << QByteArray(message);
    };
    row("401", LoopbackReply(401).withField("WWW-Authenticate", "Basic"), "refused the credentials");
    row("403", LoopbackReply(403), "refused the credentials");
    row("403 one at a time", LoopbackReply(403), "refused the credentials", 1, {u"-P1"_s, u"--retries=3"_s});
    row("404", LoopbackReply(404), "login failed");
    row("no JSON", LoopbackReply(200, "token"), "no token");
    row("no token", LoopbackReply::json({{u"token"_s, 7}}), "no token");
    row("tokens that are not good", tokenReply(u"bad"_s), "(HTTP 401)", 12);
    row("a token with a line break", tokenReply(u"a\r\nX: b"_s), "line break");
}

void tst_FetchQueue::givesUpWhenThereIsNoTokenToBeHad()
{
    QFETCH(const LoopbackReply, answer);
    QFETCH(const QStringList, options);
    QFETCH(const int, mostLogins);
    QFETCH(const QByteArray, message);

    m_server->addReply(u"/login"_s, answer);
    m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(401); });
    FetchProcess fetch(options + login() + urls(4));
    QCOMPARE(fetch.run(), message == "line break" ? 1 : 6);
    QVERIFY2(fetch.messages().count(message) == 4 && fetch.messages().count('\n') == 4,
             fetch.messages().constData());
    QVERIFY2(requestCount(u"/login"_s) >= 1 && requestCount(u"/login"_s) <= mostLogins,
             QByteArray::number(requestCount(u"/login"_s)).constData());
    QCOMPARE(files(), QStringList());

    FetchProcess withoutLogin(QStringList{u"--token=bad"_s} + urls(4));
    QCOMPARE(withoutLogin.run(), 6);
    QCOMPARE(withoutLogin.messages().count('\n'), 4);
}

void tst_FetchQueue::keepsSecretsOutOfItsMessages()
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
    QCOMPARE(m_server->requests(u"/1"_s).constLast().field("Authorization"), QByteArray("Bearer n3w-t0ken"));
    QVERIFY2(fetch.messages().contains("******"), fetch.messages().constData());
    for (const auto* secret : {"secret", "t0ken"})
        QVERIFY2(!fetch.messages().contains(secret), fetch.messages().constData());
}

void tst_FetchQueue::savesUnderTheNamesInTheUrls()
{
    m_server->setHandler([](const LoopbackRequest& request) {
        return LoopbackReply(200, request.path.toUtf8()).withField("Content-Disposition", "filename=evil");
    });
    QVERIFY(writeFile(path(u"a b.txt"_s), "old"));
    for (const auto& options : {QStringList{}, QStringList{u"--stream"_s}}) {
        FetchProcess fetch(options + QStringList{u"-o"_s, m_directory->path() + u'/',
                                                 m_server->url(u"/x/a%20b.txt?name=c"_s),
                                                 m_server->url(u"/caf%C3%A9"_s)});
        QCOMPARE(fetch.run(), 0);
        QCOMPARE(sorted(files()), QStringList({u"a b.txt"_s, u"café"_s}));
        QCOMPARE(readFile(path(u"a b.txt"_s)), QByteArray("/x/a b.txt"));
        QVERIFY(QFile::remove(path(u"café"_s)));
    }
}

void tst_FetchQueue::leavesFilesAloneWhenAFetchFails_data()
{
    QTest::addColumn<QStringList>("options");

    QTest::newRow("whole") << QStringList{};
    QTest::newRow("streaming") << QStringList{u"--stream"_s};
    QTest::newRow("with head") << QStringList{u"--include"_s};
    QTest::newRow("streaming, with head") << QStringList{u"--stream"_s, u"--include"_s};
}

void tst_FetchQueue::leavesFilesAloneWhenAFetchFails()
{
    QFETCH(const QStringList, options);

    const QByteArray content(300000, 'x');
    m_server->addReply(u"/1"_s, LoopbackReply(200, content).cutAfter(200000));
    m_server->addReply(u"/2"_s, LoopbackReply(200, content).resetAfter(200000));
    m_server->addReply(u"/3"_s, LoopbackReply(404, content));
    m_server->addReply(u"/4"_s, LoopbackReply(200, content).withField("Content-Length", "300001"));
    m_server->addReply(u"/5"_s, LoopbackReply(200, content).chunked(5000).dripped(200000, 60s));
    for (const auto* name : {"1", "2", "3"})
        QVERIFY(writeFile(path(QString::fromLatin1(name)), "old"));
    FetchProcess fetch(QStringList{u"--timeout=500"_s, u"--retries=1"_s, u"--max-delay=0"_s} + options +
                       urls(5));
    QCOMPARE(fetch.run(), 3);
    QCOMPARE(files(), QStringList({u"1"_s, u"2"_s, u"3"_s}));
    for (const auto* name : {"1", "2", "3"})
        QCOMPARE(readFile(path(QString::fromLatin1(name))), QByteArray("old"));
}

void tst_FetchQueue::leavesTheFilesOfOthersAlone()
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
    QCOMPARE(readFile(path(u"target"_s)), QByteArray("new"));
    QVERIFY(!(QFile::permissions(path(u"target"_s)) & (QFile::ReadGroup | QFile::ReadOther)));
    QCOMPARE(readFile(path(u"target.part"_s)), QByteArray("mine"));
    QVERIFY(!QFile::exists(path(u"nowhere"_s)));
    QVERIFY(!QFile::exists(path(u"target.3.part"_s)));
#else
    QSKIP("needs links");
#endif
}

void tst_FetchQueue::drawsProgressOnATerminal()
{
#ifdef Q_OS_UNIX
    Terminal terminal;
    if (terminal.device().isEmpty())
        QSKIP("needs a pseudo-terminal");
    m_server->addReply(u"/login"_s, tokenReply(u"token"_s).delayed(600ms));
    m_server->addReply(u"/1"_s, LoopbackReply(503));
    m_server->addReply(u"/1"_s, LoopbackReply(200, QByteArray(4000, 'x')).dripped(500, 300ms));
    m_server->addReply(u"/2"_s, LoopbackReply(404).withReason("\x1b[31mRed"));
    FetchProcess fetch(QStringList{u"-P1"_s, u"--retries=1"_s, u"--max-delay=1"_s} + login() + urls(2));
    fetch.process().setStandardErrorFile(terminal.device());
    fetch.start();
    QTRY_VERIFY(terminal.output().contains("waiting for login"));
    QTRY_VERIFY(terminal.output().contains("queued"));
    QTRY_VERIFY(terminal.output().contains("waiting to retry"));
    static const QRegularExpression transfer(
        u"1 +[1-9][0-9.]* \\w+ of 4\\.0 kB  \\d+ bytes/s  0:0\\d left"_s);
    QTRY_VERIFY2(QString::fromUtf8(terminal.output()).contains(transfer), terminal.output().constData());
    m_server->dropConnections();
    QCOMPARE(fetch.wait(), 3);
    QVERIFY(terminal.output().contains("orv-fetch: " + m_server->url(u"/1"_s).toUtf8()));
    QVERIFY2(!terminal.output().contains("\x1b[31m"), terminal.output().constData());
    // The last thing that is drawn is nothing.
    QVERIFY2(terminal.output().lastIndexOf("\x1b[1A\r\x1b[J") > terminal.output().lastIndexOf("kB"),
             terminal.output().constData());
#else
    QSKIP("needs a pseudo-terminal");
#endif
}

QTEST_GUILESS_MAIN(tst_FetchQueue)
#include "tst_FetchQueue.moc"
