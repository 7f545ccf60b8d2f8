#include "../Rows.h"
#include "FetchProcess.h"
#include "RealServer.h"

#include <NetworkQueue.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QTest>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

/// Many tasks for one resource.
struct Scenario
{
    RealServer::Kind kind = RealServer::Nginx;
    RealServer::Port port = RealServer::Plain;
    QString path = u"/text"_s;
    QByteArray content = "Hello from a server.\n";
    int count = 60;
    int inParallel = 0; ///< How many run at once through a queue; 0 for all of them, without a queue.
    NetworkRequest::Method method = NetworkRequest::Method::Get;
    bool isHttp2 = false;
    std::pair<QByteArray, QByteArray> header = {}; ///< A field that each reply must have.
};

/// Lets a task use HTTP/2 although the server closes connections (GOAWAY). Qt loses requests that are started
/// while such a connection is still in use, so only the time-out ends them.
void surviveGoAway(NetworkTask& task)
{
    task.setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, true);
    task.setTimeout(1000);
    // A busy machine may need longer.
    QObject::connect(&task, &NetworkTask::aboutToRetry, &task,
                     [&task] { task.setTimeout(task.timeout() * 2); });
}

/// Tasks that share a manager, and a count of their ends.
class Crowd
{
public:
    using Prepare = std::function<void(NetworkTask&)>;

    explicit Crowd(int inParallel = 0)
        : m_inParallel(inParallel)
    {
        m_queue.setMaxRunningTasks(inParallel);
    }

    NetworkTask& add(const QString& url, const Prepare& prepare)
    {
        auto& task = *tasks.emplace_back(std::make_unique<NetworkTask>(url));
        task.setNetworkAccessManager(&m_manager);
        prepare(task);
        QObject::connect(&task, &NetworkTask::finished, &task, [this] { ++m_ends; });
        if (m_inParallel > 0)
            m_queue.append(&task);
        else
            task.exec();
        return task;
    }

    /// Waits until all tasks have ended; false if one does not end, or ends twice.
    bool end()
    {
        const auto hasEnded = [](const auto& task) { return task->isFinished(); };
        const auto haveEnded = [&] { return std::all_of(tasks.begin(), tasks.end(), hasEnded); };
        const bool isDone = QTest::qWaitFor(haveEnded, 120000);
        QCoreApplication::processEvents(); // for a second end
        return isDone && m_ends == tasks.size();
    }

    /// The errors of the tasks that did not receive one of @p contents.
    QByteArray losses(const QByteArrayList& contents) const
    {
        QByteArray losses;
        for (const auto& task : tasks) {
            if (task->hasError() || !contents.contains(task->data()))
                losses += task->error().errorMessage().toUtf8() + '\n';
        }
        return losses;
    }

private:
    SslIgnorantNetworkAccessManager m_manager{SslIgnorantNetworkAccessManager::SslMode::Ignore};
    NetworkQueue m_queue;
    const int m_inParallel;
    std::size_t m_ends = 0;

public:
    std::vector<std::unique_ptr<NetworkTask>> tasks; ///< Last, so that they are destroyed first.
};

} // namespace

Q_DECLARE_METATYPE(Scenario)

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
        addRow("nginx: no content", nginx, u"/text"_s, u"-XHEAD"_s, 0, {});
        addRow("nginx: a method that is not allowed", nginx, u"/text"_s, u"-XDELETE"_s, 4, {});
        addRow("nginx: closed", nginx, u"/closed"_s, {}, 3, {});
        addRow("lighttpd: a megabyte", RealServer::Lighttpd, u"/random"_s, {}, 0, content);
        addRow("lighttpd: no such path", RealServer::Lighttpd, u"/missing"_s, {}, 4, {});
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

    void refusesAnUnknownCertificate()
    {
        const auto& server = m_servers.at(RealServer::Nginx);
        FetchProcess fetch({server->url(RealServer::Tls, u"/text"_s)});
        QCOMPARE(fetch.run(), 3);
        QVERIFY2(fetch.messages().contains("certificate"), fetch.messages().constData());
    }

    void losesNoTask_data()
    {
        QTest::addColumn<Scenario>("scenario");
        using enum RealServer::Port;
        constexpr auto post = NetworkRequest::Method::Post;
        const auto text = RealServer::longText();
        const auto addRow = [](const char* name, const Scenario& scenario) {
            QTest::addRow("%s: %s", scenario.kind == RealServer::Nginx ? "nginx" : "lighttpd", name)
                << scenario;
        };
        for (const auto kind : {RealServer::Nginx, RealServer::Lighttpd}) {
            addRow("HTTP/1.1", {.kind = kind});
            addRow("HTTP/1.1, short connections", {.kind = kind, .port = Limited});
            Scenario gzip{.kind = kind, .port = Tls, .path = u"/long"_s, .content = text, .isHttp2 = true};
            gzip.header = {"content-encoding", "gzip"};
            addRow("HTTP/2, gzip", gzip);
            addRow("HTTP/2, short connections", {.kind = kind, .port = Limited, .isHttp2 = true});
            addRow("HTTP/2, short connections, queued",
                   {.kind = kind, .port = Limited, .inParallel = 6, .isHttp2 = true});
        }
        addRow("HTTP/2, short connections, POST",
               {.port = Limited, .path = u"/post"_s, .content = "posted", .method = post, .isHttp2 = true});
        Scenario chunked{.kind = RealServer::Lighttpd, .path = u"/slow"_s, .count = 6};
        chunked.content = m_servers[chunked.kind]->content();
        chunked.header = {"Transfer-Encoding", "chunked"};
        addRow("HTTP/1.1, chunked", chunked);
    }

    void losesNoTask()
    {
        QFETCH(const Scenario, scenario);
        const auto& server = m_servers.at(scenario.kind);

        Crowd crowd(scenario.inParallel);
        for (int i = 0; i < scenario.count; ++i) {
            crowd.add(server->url(scenario.port, scenario.path), [&](NetworkTask& task) {
                auto request = task.request();
                request.method = scenario.method;
                request.postData = "posted";
                task.setRequest(request);
                surviveGoAway(task);
                task.setRequestAttribute(QNetworkRequest::Http2AllowedAttribute, scenario.isHttp2);
                task.setDelayPolicy(Retriable::DelayPolicy::None);
            });
        }
        QVERIFY(crowd.end());
        const auto losses = crowd.losses({scenario.content});
        QVERIFY2(losses.isEmpty(), losses.constData());
        bool isOverHttp2 = false;
        for (const auto& task : crowd.tasks) {
            const auto* const reply = task->networkReply();
            isOverHttp2 |= reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
            QCOMPARE(reply->rawHeader(scenario.header.first), scenario.header.second);
        }
        QCOMPARE(isOverHttp2, scenario.isHttp2);
    }

    void survivesAReloadOfTheServer_data()
    {
        const auto addRow = addColumns<RealServer::Kind, RealServer::Port>({"kind", "port"});
        addRow("nginx", RealServer::Nginx, RealServer::Plain);
        addRow("nginx, HTTP/2", RealServer::Nginx, RealServer::Tls);
        addRow("lighttpd", RealServer::Lighttpd, RealServer::Plain);
        addRow("lighttpd, HTTP/2", RealServer::Lighttpd, RealServer::Tls);
    }

    // Tasks are added while content is being received on a connection that the server is about to close.
    void survivesAReloadOfTheServer()
    {
        QFETCH(const RealServer::Kind, kind);
        QFETCH(const RealServer::Port, port);
        const auto& server = m_servers.at(kind);

        Crowd crowd;
        auto& first = crowd.add(server->url(port, u"/slow"_s), surviveGoAway);
        QVERIFY(QSignalSpy(&first, &NetworkTask::readyRead).wait(20000));
        QVERIFY(server->reload());
        do {
            crowd.add(server->url(port, u"/text"_s), surviveGoAway);
            QTest::qWait(20);
        } while (!first.isFinished());
        QVERIFY(crowd.end());
        const auto losses = crowd.losses({server->content(), "Hello from a server.\n"});
        QVERIFY2(losses.isEmpty(), losses.constData());
    }

private:
    std::array<std::unique_ptr<RealServer>, 2> m_servers;
};

QTEST_GUILESS_MAIN(tst_Servers)
#include "tst_Servers.moc"
