#include "../Rows.h"
#include "FetchProcess.h"
#include "RealServer.h"

#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QTest>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

/// A resource, and how many tasks fetch it.
struct Scenario
{
    RealServer::Kind kind = RealServer::Nginx;
    RealServer::Port port = RealServer::Plain;
    QString path = u"/text"_s;
    QByteArray content = "Hello from a server.\n";
    NetworkRequest::Method method = NetworkRequest::Method::Get;
    bool isHttp2 = false;
    bool isCareful = false;
};

/// Lets a task use HTTP/2 although the server closes connections (GOAWAY). Qt loses requests that are started
/// while such a connection is still in use, so only the time-out ends them.
void surviveGoAway(NetworkTask& task)
{
    task.setTimeout(1000);
    // A busy machine may need longer.
    QObject::connect(&task, &NetworkTask::aboutToRetry, &task,
                     [&task] { task.setTimeout(task.timeout() * 2); });
}

} // namespace

/// The library, on its own and in the program orv-fetch, against nginx and lighttpd.
class tst_Servers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        for (const auto kind : {RealServer::Nginx, RealServer::Lighttpd}) {
            auto& server = m_servers.at(kind);
            server = std::make_unique<RealServer>(kind);
            const auto missing = server->missingProgram();
            if (!missing.isEmpty())
                QSKIP(qPrintable(missing + u" is not installed"_s));
            const auto failure = server->start();
            QVERIFY2(failure.isEmpty(), qPrintable(failure));
        }
    }

    void cleanupTestCase() { m_servers = {}; }

    void fetches_data()
    {
        const auto addRow = addColumns<RealServer::Kind, QString, QString, int, QByteArray>(
            {"kind", "path", "options", "exitCode", "content"});
        const auto content = m_servers.at(RealServer::Lighttpd)->content();
        const auto nginx = RealServer::Nginx;
        addRow("nginx: gzip", nginx, u"/long"_s, {}, 0, RealServer::longText());
        addRow("nginx: a range", nginx, u"/text"_s, u"-HRange:bytes=6-9"_s, 0, "from");
        addRow("nginx: a range beyond the end", nginx, u"/text"_s, u"-HRange:bytes=100-"_s, 4, {});
        addRow("nginx: closed", nginx, u"/closed"_s, {}, 3, {});
        addRow("lighttpd: a megabyte", RealServer::Lighttpd, u"/random"_s, {}, 0, content);
    }

    void fetches()
    {
        QFETCH(const RealServer::Kind, kind);
        QFETCH(const QString, path);
        QFETCH(const QString, options);
        QFETCH(const int, exitCode);
        QFETCH(const QByteArray, content);
        const auto& server = m_servers.at(kind);

        for (const auto port : {RealServer::Plain, RealServer::Tls}) {
            const auto mode = port == RealServer::Plain ? u"--stream"_s : u"--insecure"_s;
            FetchProcess fetch(options.split(u' ', Qt::SkipEmptyParts) << mode << server->url(port, path));
            QVERIFY2(fetch.run() == exitCode, fetch.messages().constData());
            QVERIFY2(fetch.output() == content, QByteArray::number(fetch.output().size()).constData());
        }
    }

    void losesNoTask_data()
    {
        const auto row = addColumns<Scenario>({"scenario"});
        using enum RealServer::Port;
        for (const auto kind : {RealServer::Nginx, RealServer::Lighttpd}) {
            const auto* name = kind == RealServer::Nginx ? "nginx: " : "lighttpd: ";
            const auto addRow = [&](const char* what, const Scenario& scenario) {
                row((name + QByteArray(what)).constData(), scenario);
            };
            addRow("HTTP/1.1, short connections", {.kind = kind, .port = Limited});
            addRow("HTTP/2, gzip", {.kind = kind,
                                    .port = Tls,
                                    .path = u"/long"_s,
                                    .content = RealServer::longText(),
                                    .isHttp2 = true});
            addRow("HTTP/2, short connections", {.kind = kind, .port = Limited, .isHttp2 = true});
        }
        row("nginx: HTTP/2, short connections, POST", {.port = Limited,
                                                       .path = u"/post"_s,
                                                       .content = "posted",
                                                       .method = NetworkRequest::Method::Post,
                                                       .isHttp2 = true});
        row("nginx: HTTP/2, refused streams, careful POST", {.port = Refusing,
                                                             .path = u"/post"_s,
                                                             .content = "posted",
                                                             .method = NetworkRequest::Method::Post,
                                                             .isHttp2 = true,
                                                             .isCareful = true});
    }

    void losesNoTask()
    {
        QFETCH(const Scenario, scenario);
        const auto url = m_servers.at(scenario.kind)->url(scenario.port, scenario.path);
        SslIgnorantNetworkAccessManager manager(SslIgnorantNetworkAccessManager::SslMode::Ignore);
        std::vector<std::unique_ptr<NetworkTask>> tasks(60);
        std::size_t ends = 0;
        for (auto& task : tasks) {
            task = std::make_unique<NetworkTask>(url);
            auto request = task->request();
            request.method = scenario.method;
            request.postData = "posted";
            task->setRequest(request);
            task->setNetworkAccessManager(&manager);
            task->setDelayPolicy(Retriable::DelayPolicy::None);
            if (scenario.isHttp2)
                task->setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, true);
            task->setUnsafeRetriesEnabled(!scenario.isCareful);
            if (scenario.port == RealServer::Limited)
                surviveGoAway(*task);
            connect(task.get(), &NetworkTask::finished, this, [&] { ++ends; });
            task->exec();
        }
        QTRY_COMPARE_WITH_TIMEOUT(ends, tasks.size(), 120000);
        QCoreApplication::processEvents(); // for a second end
        QCOMPARE(ends, tasks.size());
        bool isOverHttp2 = false;
        for (const auto& task : tasks) {
            QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
            QVERIFY(task->data() == scenario.content);
            const auto* const reply = task->networkReply();
            QCOMPARE(reply->hasRawHeader("content-encoding"), scenario.path == u"/long");
            isOverHttp2 |= reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
        }
        QCOMPARE(isOverHttp2, scenario.isHttp2);
        if (scenario.isCareful)
            QTRY_COMPARE(m_servers.at(scenario.kind)->loggedPosts(), static_cast<qsizetype>(tasks.size()));
    }

private:
    std::array<std::unique_ptr<RealServer>, 2> m_servers;
};

QTEST_GUILESS_MAIN(tst_Servers)
#include "tst_Servers.moc"
