#include "NetworkTestSupport.h"

#include <QHttpMultiPart>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;
using Code = HttpResponseStatusCode;
using Method = NetworkRequest::Method;

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
    void initTestCase()
    {
        // The dump settings are read once, so they are set before the first task.
        QVERIFY(m_home.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_home.path());
        QCoreApplication::setOrganizationName(u"orv"_s);
        QCoreApplication::setApplicationName(u"tst_NetworkTaskReply"_s);
        QSettings().setValue(u"Network/DumpData"_s, true);
        QSettings().setValue(u"Network/MaxDumpSize"_s, 5);
    }

    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    // Each road that a reply can take, with both policies told apart.
    void judgesReplies_data()
    {
        addColumns<int, int, bool, bool>({"status", "errorCode", "underResponsePolicy", "retriesStayOn"});
        const auto rows = [](const QList<int>& statuses, int errorCode, bool policy, bool retriesStayOn) {
            for (const int status : statuses)
                QTest::addRow("%d", status) << status << errorCode << policy << retriesStayOn;
        };
        rows({200, 201}, 0, false, true);
        rows({400, 404}, 24, true, true);
        rows({408, 429, 503}, 24, false, true);
        rows({204, 304, 307, 401, 403, 500, 599}, 24, false, false);
        rows({440}, 27, false, false);
    }

    void judgesReplies()
    {
        QFETCH(int, status);
        QFETCH(int, errorCode);
        QFETCH(bool, underResponsePolicy);
        m_server->addReply(u"/"_s, LoopbackReply(status, "content"));
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(static_cast<int>(task->error().errorCode()), errorCode);
        QCOMPARE(task->error().errorDetails().toInt(), errorCode ? 2000 + status : 0);
        QCOMPARE(task->httpResponseStatusCodeNumber(), status);
        QCOMPARE(task->hasError(), !task->error().errorMessage().isEmpty());
        QTEST(task->retriesEnabled(), "retriesStayOn");
        QCOMPARE(task->log(), u"started finished"_s);
        if (status == 200)
            QCOMPARE(task->data(), "content"_ba);
        if (!errorCode)
            return;

        auto pardoned = makeTask();
        using enum NetworkTask::ErrorPolicy;
        pardoned->setReplyErrorPolicy(underResponsePolicy ? Ignore : FinishWithSuccess);
        pardoned->setResponseErrorPolicy(underResponsePolicy ? FinishWithSuccess : Ignore);
        QVERIFY(pardoned->succeeds());
        QCOMPARE(pardoned->httpResponseStatusCodeNumber(), status);
    }

    void tellsShortContentThatQtCallsComplete_data()
    {
        const auto row = addColumns<int, Method, QByteArray, int, int>(
            {"status", "method", "field", "received", "number"});
        const auto length = "Content-Length"_ba;
        row("short", 200, Method::Get, length, 3, 3002);
        row("nothing at all", 201, Method::Get, length, 0, 3002);
        row("whole", 200, Method::Get, length, 10, 0);
        row("no length", 200, Method::Get, "X"_ba, 3, 0);
        row("head", 200, Method::Head, length, 0, 0);
        row("204", 204, Method::Get, length, 0, 2204);
        row("404", 404, Method::Get, length, 3, 2404);
    }

    void tellsShortContentThatQtCallsComplete()
    {
        QFETCH(int, status);
        QFETCH(Method, method);
        QFETCH(QByteArray, field);
        QFETCH(int, received);
        FakeManager manager([&] {
            auto* reply = new FakeReply(status);
            reply->setRawHeader(field, "10");
            reply->complete(received);
            return reply;
        });
        TestTask task(u"http://host/"_s, method);
        task.setNetworkAccessManager(&manager);
        task.setMaxRetriesCount(1);
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        QVERIFY(task.run());
        QTEST(task.error().errorDetails().toInt(), "number");
        if (task.error().errorDetails().toInt() == 3002) {
            QCOMPARE(task.error().errorMessage(), u"Connection closed"_s);
            QCOMPARE(task.retriesCount(), 1);
        }
    }

    void leavesStatusesToTheirHandlers()
    {
        m_server->addReply(u"/"_s, LoopbackReply(503, "busy"));
        auto task = makeTask();
        QStringList handled;
        task->setResponseHandler({static_cast<Code>(503), Code::NotFound},
                                 [&] { handled.append(u"list"_s); });
        task->setResponseHandler(static_cast<Code>(503), [&] {
            handled.append(QString::fromLatin1(task->data()));
            task->setResponseHandler(static_cast<Code>(503), {}); // replaces the handler that is running
        });
        task->exec();
        QTRY_COMPARE(handled, QStringList{u"busy"_s});
        QCoreApplication::processEvents();
        QVERIFY(task->isRunning()); // the handler alone decides
        QVERIFY(task->retriesEnabled());
        task->finish(Error(ErrorCode::General, "handled"));
        QCOMPARE(task->error().errorMessage(), u"handled"_s);
        QCOMPARE(task->log(), u"started finished"_s);
    }

    void keepsRunningUnderThePolicyIgnore()
    {
        m_server->addReply(u"/"_s, LoopbackReply(404));
        auto task = makeTask();
        task->setResponseErrorPolicy(NetworkTask::Ignore);
        task->exec();
        QTRY_COMPARE(task->httpResponseStatusCode(), Code::NotFound);
        QVERIFY(task->isRunning());
        task->cancel();
        QCOMPARE(task->error().errorCode(), ErrorCode::Canceled);
        QCOMPARE(task->httpResponseStatusCode(), Code::Unknown);
    }

    void keepsContentWithTheReplyUntilItIsTaken()
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
        QCOMPARE(task->bytesReceived(), 8);
        QVERIFY(task->read(-1).isEmpty() && task->read().isEmpty());
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

    void timesOutWhenNothingMoves()
    {
        m_server->addReply(u"/"_s, LoopbackReply::silence());
        LogCatcher log("orv.network.warning=true");
        auto task = makeTask();
        task->setName(u"slow"_s);
        task->setTimeout(80ms);
        QVERIFY(task->run());
        QCOMPARE(task->error().errorCode(), ErrorCode::Network);
        QCOMPARE(task->error().errorDetails().toInt(), 2408);
        QCOMPARE(task->error().errorMessage(), u"Network timeout"_s);
        QVERIFY(!task->isCanceled());
        QTest::qWait(10); // for the completion of the aborted reply, which is not judged as well
        QCOMPARE(task->httpResponseStatusCodeNumber(), 408);
        QCOMPARE(task->networkResponseError(), QNetworkReply::NoError);
        QCOMPARE(task->log(), u"started finished"_s);
        QVERIFY(log.text().startsWith(u"1|orv.network|Network timeout in task \"slow\" struct "_s));
        QCOMPARE(log.lines.size(), 1);
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

    void abortsItsReplyAndEmitsNothingAfterFinished()
    {
        m_server->addReply(u"/"_s, LoopbackReply(200, QByteArray(500, 'x')).dripped(50, 5ms));
        for (const auto code : {ErrorCode::None, ErrorCode::General}) {
            auto task = makeTask();
            QSignalSpy readyRead(task.get(), &NetworkTask::readyRead);
            task->exec();
            QVERIFY(readyRead.wait());
            const QPointer<QNetworkReply> reply = task->networkReply();
            task->finish(Error(code));
            QVERIFY(reply->isFinished());
            readyRead.clear();
            QTest::qWait(10); // for what may be on its way
            QVERIFY(readyRead.isEmpty());
            QCOMPARE(task->log(), u"started finished"_s);
        }
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

    void dumpsTheConfiguredPartOfReplies()
    {
        QSettings().setValue(u"Network/MaxDumpSize"_s, 2); // too late, it has been read
        m_server->addReply(u"/"_s, LoopbackReply(404, "0123456789"));
        LogCatcher log("orv.network.debug=true\norv.network.warning=true");
        auto task = makeTask();
        task->extraMessage = u"extra"_s;
        QVERIFY(task->run());
        const auto lines = log.text();
        const QStringList inOrder{
            u"0|orv.network|Status code: "_s,
            u"1|orv.network|Network error: ContentNotFoundError  : extra"_s,
            u"0|orv.network|Server response: 01234\n"_s,
        };
        qsizetype position = 0;
        for (const auto& line : inOrder) {
            position = lines.indexOf(line, position);
            QVERIFY2(position >= 0, qPrintable(line + u" is missing or out of order in\n"_s + lines));
        }
    }

private:
    QTemporaryDir m_home;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskReply)

#include "tst_NetworkTaskReply.moc"
