#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QAuthenticator>
#include <QFile>
#include <QNetworkDiskCache>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>
#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;
using Code = HttpResponseStatusCode;

// clazy:excludeall=lambda-in-connect,non-pod-global-static
static const QByteArray OLD(1000, 'o');

/// An attempt that was given up does nothing more, and one that is under way is the only one.
class tst_NetworkTaskAttempts : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask(const QString& path = u"/"_s)
    {
        auto task = std::make_unique<TestTask>(m_server.url(path));
        task->setMaxRetriesCount(0);
        task->setDelayPolicy(Retriable::DelayPolicy::None);
        return task;
    }

    // A path where the first reply takes long to arrive, and the second is "new".
    QString addSlowReply()
    {
        const auto path = u"/%1"_s.arg(++m_paths);
        m_server.addReply(path, LoopbackReply(200, OLD).dripped(50, 5ms));
        m_server.addReply(path, LoopbackReply(200, "new"));
        return path;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(!m_server.listen().hasError()); }

    void abandonsItsReplyForALogin_data() { addRows("streaming", {"collected", "streamed"}); }
    void abandonsItsReplyForALogin()
    {
        QFETCH(QString, streaming);
        TestAuthenticator authenticator;
        authenticator.currentToken = u"old"_s;
        authenticator.duringToken = [&] {
            if (authenticator.tokenCalls == 2)
                QTest::qWait(30);
        };
        auto task = makeTask(addSlowReply());
        task->change([&](auto& request) { request.streaming = streaming == "streamed"_L1; });
        task->setAuthenticator(&authenticator);
        task->setTimeout(60ms);
        int readyReads = 0;
        connect(task.get(), &NetworkTask::readyRead, this, [&] {
            if (++readyReads == 1)
                task->handleUnauthorizedError();
        });
        task->exec();
        QTRY_VERIFY(task->isPaused());
        QVERIFY(task->networkReply()->isFinished()); // aborted
        QTest::qWait(200);                           // neither the reply nor the time-out acts
        QCOMPARE(readyReads, 1);
        QVERIFY(task->data().isEmpty());
        QVERIFY(task->isPaused());
        authenticator.succeed("new");
        QTRY_VERIFY(task->isFinished());
        QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
        QCOMPARE(task->data(), "new"_ba);
    }

    void abandonsItsReplyForARetry()
    {
        auto task = makeTask(addSlowReply());
        task->change([](auto& request) { request.streaming = true; });
        task->setMaxRetriesCount(1);
        connect(task.get(), &NetworkTask::readyRead, this, [&] { task->retry(); });
        QVERIFY(task->succeeds());
        QCOMPARE(task->data(), "new"_ba);
        QCOMPARE(task->log(), u"started aboutToRetry started retried finished"_s);
    }

    void runsOneAttemptAtATime_data() { addRows("phase", {"scheduled", "delayed", "sent", "receiving"}); }
    void runsOneAttemptAtATime()
    {
        QFETCH(QString, phase);
        const auto path = addSlowReply();
        auto task = makeTask(path);
        task->setDelay(phase == "delayed"_L1 ? 1 : 0);
        task->exec();
        if (phase == "sent"_L1)
            QTRY_VERIFY(task->networkReply());
        if (phase == "receiving"_L1)
            QTRY_VERIFY(task->bytesReceived() > 0);
        task->exec();
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->data(), OLD);
        QCOMPARE(m_server.requests(path).size(), 1);
        QCOMPARE(task->log(), u"started finished"_s);
    }

    void startsAgainFromAHandlerWithoutOldContent_data() { addRows("streaming", {"collected", "streamed"}); }
    void startsAgainFromAHandlerWithoutOldContent()
    {
        QFETCH(QString, streaming);
        const auto path = u"/again-"_s + streaming;
        m_server.addReply(path, LoopbackReply(403, "DENIED"));
        m_server.addReply(path, LoopbackReply(404, "MISSING"));
        m_server.addReply(path, LoopbackReply(200, "FINE"));
        auto task = makeTask(path);
        task->change([&](auto& request) { request.streaming = streaming == "streamed"_L1; });
        task->setResponseHandler({Code::Forbidden, Code::NotFound}, [&] {
            QVERIFY(!task->data().isEmpty());
            task->exec();
            QCOMPARE(task->httpResponseStatusCode(), Code::OK);
        });
        QVERIFY(task->succeeds());
        QCOMPARE(task->data(), "FINE"_ba);
        QCOMPARE(task->log(), u"started finished"_s);
    }

    void timesOutWhateverBecomesOfTheConnection_data()
    {
        addRows("action",
                {"disconnected", "disconnected at the end", "another reply", "another reply at the end"});
    }
    void timesOutWhateverBecomesOfTheConnection()
    {
        QFETCH(QString, action);
        auto task = makeTask(addSlowReply());
        task->setTimeout(300ms);
        task->exec();
        QTRY_VERIFY(task->networkReply());
        const auto lose = [&] { disconnect(*task->networkConnection()); };
        if (action == "another reply"_L1)
            task->setNetworkReply(new FakeReply(200));
        else if (action == "another reply at the end"_L1) // in front of the completion that is on its way
            connect(
                NetworkTask::defaultNetworkAccessManager(), &QNetworkAccessManager::finished, task.get(),
                [&] { task->setNetworkReply(new FakeReply(200)); }, Qt::QueuedConnection);
        else if (action == "disconnected"_L1)
            lose();
        else
            connect(task->networkReply(), &QNetworkReply::readChannelFinished, this, lose);
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->error().errorDetails().toInt(), 2408);
        QCOMPARE(task->log(), u"started finished"_s);
    }

    void abortsItsReplyWhenItEnds_data()
    {
        addRows("end", {"success", "error", "canceled", "cleared", "file download, error",
                        "file download, cleared", "file download, success"});
    }
    void abortsItsReplyWhenItEnds()
    {
        QFETCH(QString, end);
        const QTemporaryDir home;
        const auto url = m_server.url(addSlowReply());
        const bool isFile = end.startsWith("file"_L1);
        std::unique_ptr<NetworkTask> task;
        if (isFile)
            task = std::make_unique<FileDownloadTask>(url, home.filePath(u"file"_s));
        else
            task = std::make_unique<TestTask>(url);
        auto request = task->request();
        request.streaming = !isFile;
        task->setRequest(request);
        NetworkQueue queue;
        queue.append(task.get());
        QTRY_VERIFY(task->bytesReceived() > 0);
        const QPointer<QNetworkReply> reply = task->networkReply();
        const auto data = task->data();
        if (end.endsWith("cleared"_L1))
            queue.clear(TasksQueue::ClearPolicy::PendingAndRunning, Error(ErrorCode::General));
        else if (end == "canceled"_L1)
            task->cancel();
        else
            task->finish(Error(end.endsWith("success"_L1) ? ErrorCode::None : ErrorCode::General));
        QVERIFY(task->isFinished());
        QVERIFY(reply->isFinished());
        const auto received = task->bytesReceived();
        QTest::qWait(30);
        QCOMPARE(task->bytesReceived(), received);
        if (!isFile)
            QCOMPARE(task->data(), end == "canceled"_L1 ? QByteArray() : data);
    }

    void judgesByTheRequestThatWasSent()
    {
        const auto path = u"/sent"_s;
        m_server.addReply(path, LoopbackReply(200, "content").delayed(50ms));
        auto task = makeTask(path);
        task->change([](auto& request) { request.method = NetworkRequest::Method::Head; });
        task->setMaxRetriesCount(1);
        task->exec();
        QTRY_VERIFY(task->networkReply());
        task->change([](auto& request) {
            request.method = NetworkRequest::Method::Get;
            request.streaming = true;
        });
        QTRY_VERIFY(task->isFinished());
        QVERIFY(!task->hasError());
        QCOMPARE(m_server.requests(path).size(), 1);
    }

    void takesContentFromACacheForWhole()
    {
        const QTemporaryDir home;
        const auto path = u"/cached"_s;
        m_server.addReply(path, LoopbackReply(200, OLD).withField("Cache-Control", "max-age=1000"));
        SslIgnorantNetworkAccessManager manager;
        auto* cache = new QNetworkDiskCache(&manager);
        cache->setCacheDirectory(home.filePath(u"cache"_s));
        manager.setCache(cache);
        for (int i = 0; i < 2; ++i) {
            auto task = makeTask(path);
            FileDownloadTask download(m_server.url(path), home.filePath(u"file"_s));
            for (NetworkTask* each : QList<NetworkTask*>{task.get(), &download}) {
                each->setNetworkAccessManager(&manager);
                each->exec();
                QTRY_VERIFY(each->isFinished());
                QVERIFY2(!each->hasError(), qPrintable(each->error().errorMessage()));
            }
            QCOMPARE(task->data(), OLD);
        }
        QCOMPARE(m_server.requests(path).size(), 1);
        QCOMPARE(QFile(home.filePath(u"file"_s)).size(), OLD.size());
    }

    // As from memory: nobody could connect to it in time.
    void takesRepliesThatHaveFinishedAlready()
    {
        auto* reply = new FakeReply(200);
        reply->complete(0);
        QTRY_VERIFY(reply->isFinished());
        FakeManager manager([=] { return reply; });
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        QVERIFY(task->succeeds());
    }

    void cannotBeResumedWhileItWaits_data() { addRows("wait", {"delay", "login"}); }
    void cannotBeResumedWhileItWaits()
    {
        QFETCH(QString, wait);
        m_server.addReply(u"/other"_s, LoopbackReply(200));
        TestAuthenticator authenticator;
        auto task = makeTask();
        auto other = makeTask(u"/other"_s);
        if (wait == "delay"_L1)
            task->setDelay(100);
        else
            task->setAuthenticator(&authenticator);
        NetworkQueue queue; // one slot
        queue.append(task.get());
        QTRY_VERIFY(task->isPaused());
        task->resume();
        QVERIFY(task->isPaused());
        queue.append(other.get());
        QTRY_VERIFY(other->isFinished());
        task->cancel();
    }

    void keepsItsContentWhereTheManagerDeletesReplies()
    {
        m_server.addReply(u"/"_s, LoopbackReply(200, "content"));
        SslIgnorantNetworkAccessManager manager;
        manager.setAutoDeleteReplies(true);
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        QVERIFY(task->succeeds());
        QCOMPARE(task->data(), "content"_ba);
    }

    // As with a dialog for the password. Qt is still busy with the reply then, and uses it again.
    void keepsTheReplyWhileASlotOfItsManagerRunsAnEventLoop()
    {
        const auto refusal = LoopbackReply(401).withField("WWW-Authenticate", "Basic realm=\"x\"");
        m_server.addReply(u"/password"_s, refusal);
        SslIgnorantNetworkAccessManager manager;
        auto task = makeTask(u"/password"_s);
        task->setMaxRetriesCount(1);
        task->setNetworkAccessManager(&manager);
        task->setTimeout(100ms);
        QPointer<QNetworkReply> first;
        bool isAsking = false;
        const auto ask = [&](QNetworkReply* reply) {
            if (std::exchange(isAsking, true))
                return;
            first = reply;
            runUntil([&] { return task->isFinished() || task->networkReply() != reply; });
            QVERIFY(first);
        };
        connect(&manager, &QNetworkAccessManager::authenticationRequired, this, ask);
        QVERIFY(!task->succeeds());
        task.reset();
        QTRY_VERIFY(!first);
    }

    void sendsAndEmitsNothingAfterTheEnd()
    {
        class Unfinalized : public TestTask
        {
            using TestTask::TestTask;
            void finalize() override {}
        };
        m_server.clearRequests();
        Unfinalized task(m_server.url(u"/"_s));
        task.exec();
        task.cancel();
        QSignalSpy readyRead(&task, &NetworkTask::readyRead);
        auto* reply = new FakeReply(200);
        task.setNetworkReply(reply);
        Q_EMIT reply->readyRead();
        QCOMPARE(readyRead.size(), 0);
        QTest::qWait(50);
        QVERIFY(m_server.requests().isEmpty());
    }

    void endsWhenCodeOfTheProgramThrows()
    {
        auto task = makeTask();
        task->change([](auto& request) { request.method = NetworkRequest::Method::Post; });
        task->multiPartFactory = []() -> QHttpMultiPart* { throw std::runtime_error("no content"); };
        task->exec();
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, QCoreApplication::sendPostedEvents());
        QVERIFY(task->isFinished());
        QCOMPARE(task->error().errorMessage(), u"no content"_s);
    }

private:
    LoopbackServer m_server;
    int m_paths = 0;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskAttempts)

#include "tst_NetworkTaskAttempts.moc"
