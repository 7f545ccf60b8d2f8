#include "NetworkTestSupport.h"

#include <QSignalSpy>
#include <QTimer>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;
using Code = HttpResponseStatusCode;

/// How a reply is read, judged and ended.
class tst_NetworkTaskReply : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask(const QString& path = u"/"_s)
    {
        auto task = std::make_unique<TestTask>(m_server->url(path));
        task->setMaxRetriesCount(0);
        return task;
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    void judgesReplies_data()
    {
        addColumns<int, int, bool>({"status", "errorCode", "retriesStayOn"});
        const auto rows = [](const QList<int>& statuses, int errorCode, bool retriesStayOn) {
            for (const int status : statuses)
                QTest::addRow("%d", status) << status << errorCode << retriesStayOn;
        };
        rows({200, 201}, 0, true);
        rows({400, 404, 408, 429, 503}, 24, true);
        rows({204, 304, 307, 401, 403, 500, 599}, 24, false);
        rows({440}, 27, false);
    }

    void judgesReplies()
    {
        QFETCH(int, status);
        QFETCH(int, errorCode);
        m_server->addReply(u"/"_s, LoopbackReply(status, "content"));
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(static_cast<int>(task->error().errorCode()), errorCode);
        QCOMPARE(task->error().errorDetails().toInt(), errorCode ? 2000 + status : 0);
        QCOMPARE(task->httpResponseStatusCodeNumber(), status);
        QCOMPARE(task->hasError(), !task->error().errorMessage().isEmpty());
        const bool hasFailed = task->networkReply()->error() != QNetworkReply::NoError;
        QCOMPARE(task->networkResponseErrorMessage(),
                 hasFailed ? task->networkReply()->errorString() : QString());
        QTEST(task->retriesEnabled(), "retriesStayOn");
        QCOMPARE(task->log(), u"started finished"_s);
        if (status == 200)
            QCOMPARE(task->data(), "content"_ba);
    }

    void detectsShortContentThatQtCallsComplete()
    {
        for (const auto code : {Code::OK, Code::Created}) {
            FakeManager manager([=] {
                auto* reply = new FakeReply(static_cast<int>(code));
                reply->setRawHeader("Content-Length", "10");
                reply->complete(code == Code::OK ? 3 : 0);
                return reply;
            });
            auto task = makeTask();
            task->setNetworkAccessManager(&manager);
            task->setMaxRetriesCount(1);
            task->setDelayPolicy(Retriable::DelayPolicy::None);
            QVERIFY(task->run());
            QCOMPARE(task->error().errorDetails().toInt(), 3002);
            QCOMPARE(task->error().errorMessage(), u"Connection closed"_s);
            QCOMPARE(task->retriesCount(), 1);
        }
    }

    void leavesStatusesToTheirHandlers()
    {
        QStringList handled;
        for (const int status : {503, 404, 201}) {
            m_server->addReply(u"/"_s, LoopbackReply(status, "content"));
            auto task = makeTask();
            const auto code = static_cast<Code>(503);
            task->setResponseHandler({code, Code::NotFound, Code::Created},
                                     [&] { handled.append(u"list"_s); });
            task->setResponseHandler(code, [&] {
                handled.append(QString::fromLatin1(task->data()));
                task->setResponseHandler(code, {}); // replaces the handler that is running
            });
            task->exec();
            QTRY_COMPARE(task->httpResponseStatusCodeNumber(), status);
            QCoreApplication::processEvents();
            QVERIFY(task->isRunning()); // the handler alone decides
            QVERIFY(task->retriesEnabled());
            task->finish(Error(ErrorCode::General, "handled"));
            QCOMPARE(task->error().errorMessage(), u"handled"_s);
            QCOMPARE(task->log(), u"started finished"_s);
        }
        QCOMPARE(handled, (QStringList{u"content"_s, u"list"_s, u"list"_s}));
    }

    void throwsForAnEmptyHandler()
    {
        QPointer<FakeReply> reply;
        FakeManager manager([&] { return reply = new FakeReply(200); });
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        task->setResponseHandler(Code::OK, {});
        task->exec();
        QTRY_VERIFY(reply);
        reply->complete(0);
        QCoreApplication::sendPostedEvents();
        QVERIFY_THROWS_EXCEPTION(std::bad_function_call, QCoreApplication::sendPostedEvents());
        QVERIFY(task->isRunning());
        task->cancel();
        QCOMPARE(task->log(), u"started canceled finished"_s);
    }

    void appliesThePolicies_data()
    {
        const auto row = addColumns<int, Code, bool>({"received", "status", "isUnderResponsePolicy"});
        row("400", 0, Code::BadRequest, true);
        row("404", 0, Code::NotFound, true);
        row("500", 0, Code::InternalServerError, false);
        row("cut content", 3, Code::OK, false);
        row("unreadable", 0, Code::OK, false);
        row("time-out", -1, Code::RequestTimeout, false);
    }

    void appliesThePolicies()
    {
        QFETCH(int, received);
        QFETCH(Code, status);
        QFETCH(bool, isUnderResponsePolicy);
        const bool isReadable = QTest::currentDataTag() != "unreadable"_ba;
        FakeManager manager([&] {
            auto* reply = new FakeReply(static_cast<int>(status));
            reply->setRawHeader("Content-Length", "10");
            if (received >= 0)
                reply->complete(received, isReadable ? QIODevice::ReadOnly : QIODevice::NotOpen);
            return reply;
        });
        using enum NetworkTask::ErrorPolicy;
        for (const auto policy : {Ignore, FinishWithError, FinishWithSuccess}) {
            auto task = makeTask();
            const auto other = policy == FinishWithSuccess ? FinishWithError : FinishWithSuccess;
            task->setReplyErrorPolicy(isUnderResponsePolicy ? other : policy);
            task->setResponseErrorPolicy(isUnderResponsePolicy ? policy : other);
            task->setTimeout(received < 0 ? 1 : 60000);
            task->setNetworkAccessManager(&manager);
            LogCatcher log("orv.network.debug=true");
            task->exec();
            QTRY_VERIFY(!log.lines.filter(u"Applying error policy"_s).isEmpty());
            QCoreApplication::processEvents();
            QCOMPARE(task->isRunning(), policy == Ignore);
            QCOMPARE(task->hasError(), policy == FinishWithError);
            QCOMPARE(task->httpResponseStatusCode(), status);
            task->cancel();
            QCOMPARE(task->log(), policy == Ignore ? u"started canceled finished"_s : u"started finished"_s);
            QCOMPARE(task->httpResponseStatusCode(), policy == Ignore ? Code::Unknown : status);
        }
    }

    void restartsTheTimeoutOnProgress_data()
    {
        addRows("progress", {"content sent", "content received", "content streamed"});
    }

    void restartsTheTimeoutOnProgress()
    {
        QFETCH(QString, progress);
        const bool isStreaming = progress == "content streamed"_L1;
        QPointer<FakeReply> reply;
        FakeManager manager([&] {
            reply = new FakeReply(200);
            reply->setOperation(QNetworkAccessManager::PostOperation);
            return reply;
        });
        const auto announce = [&] {
            if (isStreaming)
                Q_EMIT reply->readyRead();
            else if (progress == "content sent"_L1)
                Q_EMIT reply->uploadProgress(1, 2);
            else
                Q_EMIT reply->downloadProgress(1, 2);
        };
        auto task = makeTask();
        task->setNetworkAccessManager(&manager);
        task->setTimeout(10s); // is extended in steps of a hundredth
        task->change([&](auto& request) { request.streaming = isStreaming; });
        task->exec();
        QTRY_VERIFY(reply);
        auto* timer = task->findChild<QTimer*>();
        timer->setTimerType(Qt::PreciseTimer);
        QTest::qWait(150);
        QTimer other; // which ends before one that is started after it
        other.setTimerType(Qt::PreciseTimer);
        other.start(10s);
        announce();
        QVERIFY(timer->remainingTime() >= other.remainingTime());
        task->resetNetworkConnection(); // stops it
        announce();
        QCOMPARE(timer->isActive(), isStreaming);
    }

    void keepsContentInTheReplyUntilItIsRead()
    {
        m_server->addReply(u"/"_s, LoopbackReply(200, "abcdefgh").dripped(60, 2ms));
        auto task = makeTask();
        QByteArray read;
        QByteArray seen;
        connect(task.get(), &NetworkTask::readyRead, this, [&] {
            seen += task->data(); // nothing before the reply is complete
            read += task->read(3);
        });
        QVERIFY(task->run());
        QVERIFY(seen.isEmpty());
        QCOMPARE(read + task->data(), "abcdefgh"_ba);
        QVERIFY(!read.isEmpty());
        QVERIFY(task->read(-1).isEmpty() && task->read().isEmpty());
        task->clearNetworkState();
        QCOMPARE(task->bytesReceived(), 8);
    }

    void streamsContentInPieces()
    {
        QByteArray content;
        for (int i = 0; i < 3000000; ++i)
            content.append(static_cast<char>(i * 7 + i / 256));
        m_server->addReply(u"/"_s, LoopbackReply(200, content).dripped(300000, 2ms));
        auto task = makeTask();
        task->change([](auto& request) { request.streaming = true; });
        QByteArray consumed;
        int pieces = 0;
        connect(task.get(), &NetworkTask::readyRead, this, [&] {
            ++pieces;
            const auto size = static_cast<int>(task->data().size() / 2);
            consumed += task->data().left(size);
            task->chopFirstBytes(size);
        });
        QVERIFY(task->run());
        QVERIFY(pieces > 1);
        QCOMPARE(consumed + task->data(), content);
        QCOMPARE(task->bytesReceived(), content.size());
    }

    void judgesOnlyTheCompletionItAwaits()
    {
        m_server->addReply(u"/"_s, LoopbackReply(200, "late").delayed(100ms));
        auto task = makeTask();
        task->exec();
        QTRY_VERIFY(task->networkReply());
        // The reply completes, and before the event loop says so the exchange is given up.
        connect(task->networkReply(), &QNetworkReply::finished, task.get(),
                [&] { task->clearNetworkState(); });
        QSignalSpy finished(task->networkReply(), &QNetworkReply::finished);
        QVERIFY(finished.wait());
        QCoreApplication::processEvents();
        QVERIFY(task->isRunning());
        QCOMPARE(task->httpResponseStatusCode(), Code::Unknown);
        QVERIFY(!task->networkConnection());
        task->cancel();
    }

    void endsWhenItsTransportIsDestroyed()
    {
        m_server->addReply(u"/"_s, LoopbackReply::silence());
        for (const bool isManager : {true, false}) {
            auto manager = std::make_unique<SslIgnorantNetworkAccessManager>();
            auto task = makeTask();
            task->setNetworkAccessManager(manager.get());
            QSignalSpy received(m_server.get(), &LoopbackServer::requestReceived);
            task->exec();
            QTRY_COMPARE(received.size(), 1);
            if (isManager)
                manager.reset();
            else
                delete task->networkReply();
            QTRY_VERIFY(task->isFinished());
            QCOMPARE(task->error().errorCode(), ErrorCode::Network);
            QCOMPARE(networkError(task->error()), QNetworkReply::UnknownNetworkError);
            QCOMPARE(task->log(), u"started finished"_s);
        }
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskReply)

#include "tst_NetworkTaskReply.moc"
