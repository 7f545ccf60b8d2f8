#include "../Rows.h"
#include "FetchProcess.h"

#include <LoopbackProxy.h>
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

LoopbackReply token(const QString& value)
{
    return LoopbackReply::json({{u"token"_s, value}});
}

} // namespace

/// Runs the real program against a server in this process.
class tst_Fetch : public QObject
{
    Q_OBJECT

private:
    // DIR and URL stand for the directory and for the address of the server.
    QStringList arguments(QString line) const
    {
        line.replace(u"DIR"_s, m_directory->path());
        return QProcess::splitCommand(line.replace(u"URL"_s, m_server->url()));
    }

    // The arguments, and those for a login.
    QStringList loggingIn(const QString& line) const
    {
        return arguments(line + u" --login-url URLlogin --login-data"_s) << credentials;
    }

    QStringList files() const { return filesIn(m_directory->path()); }
    QByteArray contentOf(const QString& name) const { return readFile(m_directory->filePath(name)); }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
        m_directory = std::make_unique<QTemporaryDir>();
    }

    void replacesTheFileOnlyOnSuccess_data()
    {
        const auto row =
            addColumns<QList<LoopbackReply>, int, QByteArray>({"replies", "exitCode", "message"});
        const auto truncated = stalled().closing();
        row("401", {LoopbackReply(401)}, 6, "(HTTP 401)");
        row("404", {LoopbackReply(404, "bad")}, 4, "Not Found (HTTP 404)");
        row("stalled", {truncated, stalled()}, 5, "time-out");
        row("truncated, then whole", {truncated, LoopbackReply(200, "whole")}, 0, "");
    }

    void replacesTheFileOnlyOnSuccess()
    {
        QFETCH(const QList<LoopbackReply>, replies);
        QFETCH(const int, exitCode);
        QFETCH(const QByteArray, message);
        for (const auto& mode : {u"--max-delay=0"_s, u"--stream"_s}) {
            QVERIFY(writeFile(m_directory->filePath(u"file"_s), "old"));
            for (const auto& reply : replies)
                m_server->addReply(u"/"_s, reply);
            FetchProcess fetch(arguments(mode + u" -t500 --retries=1 -o DIR/file URL"_s));
            QCOMPARE(fetch.run(), exitCode);
            QCOMPARE(contentOf(u"file"_s), exitCode == 0 ? "whole"_ba : "old"_ba);
            QCOMPARE(files(), QStringList{u"file"_s});
            QVERIFY2(fetch.messages().contains(message), fetch.messages().constData());
        }
    }

#ifdef Q_OS_UNIX
    void removesThePartialFileWhenInterrupted()
    {
        m_server->addReply(u"/"_s, stalled());
        FetchProcess fetch(arguments(u"--stream --retries=3 -o DIR/file URL"_s));
        fetch.start();
        QTRY_COMPARE(contentOf(u"file.part"_s), "new"_ba);
        ::kill(static_cast<pid_t>(fetch.process().processId()), SIGINT);
        QCOMPARE(fetch.wait(), 130);
        QCOMPARE(files(), QStringList());
    }
#endif

    void usesTheProxyOfTheEnvironment()
    {
        LoopbackProxy proxy;
        m_server->addReply(u"/direct"_s, LoopbackReply(200, "content"));
        m_server->addReply(u"/proxied"_s, LoopbackReply(200, "content"));
        QVERIFY(!proxy.listen().hasError());
        FetchProcess fetch(arguments(u"-o DIR URLdirect"_s)
                           << u"http://server.test:%1/proxied"_s.arg(m_server->port()));
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"http_proxy"_s, u"http://127.0.0.1:%1"_s.arg(proxy.port()));
        fetch.process().setProcessEnvironment(environment);
        QVERIFY2(fetch.run() == 0, fetch.messages().constData());
        QCOMPARE(contentOf(u"direct"_s) + contentOf(u"proxied"_s), "contentcontent"_ba);
        QCOMPARE(proxy.requests(), QStringList{u"GET http://server.test:%1/proxied"_s.arg(m_server->port())});
    }

    void keepsSecretsOutOfItsMessages()
    {
        m_server->addReply(u"/login"_s, token(u"n3w-t0ken"_s));
        m_server->addReply(u"/"_s, LoopbackReply(401));
        m_server->addReply(u"/"_s, LoopbackReply(503));
        FetchProcess fetch(loggingIn(u"-v --token=0ld-t0ken URL"_s));
        QCOMPARE(fetch.run(), 4);
        QCOMPARE(m_server->requests(u"/"_s).constLast().field("Authorization"), "Bearer n3w-t0ken"_ba);
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
