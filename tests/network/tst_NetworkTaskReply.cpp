#include "NetworkTestSupport.h"

#include <QHttpMultiPart>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

using namespace orv;
using namespace std::chrono_literals;
using Code = HttpResponseStatusCode;
using Method = NetworkRequest::Method;

/// How a reply is read, judged and ended.
class tst_NetworkTaskReply : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestTask> makeTask(const QString& path = QStringLiteral("/"))
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
        QCoreApplication::setOrganizationName(QStringLiteral("orv"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_NetworkTaskReply"));
        QSettings().setValue(QStringLiteral("Network/DumpData"), true);
        QSettings().setValue(QStringLiteral("Network/MaxDumpSize"), 5);
    }

    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    // One row for each road that a reply can take, with both policies told apart.
    void judgesReplies_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("errorCode");
        QTest::addColumn<int>("number");
        QTest::addColumn<bool>("underResponsePolicy");
        QTest::addColumn<bool>("retriesStayOn");
        QTest::newRow("200") << 200 << 0 << 0 << false << true;
        QTest::newRow("201") << 201 << 0 << 0 << false << true;
        QTest::newRow("204") << 204 << 24 << 2204 << false << false;
        QTest::newRow("304") << 304 << 24 << 2304 << false << false;
        QTest::newRow("307") << 307 << 24 << 2307 << false << false;
        QTest::newRow("400") << 400 << 24 << 2400 << true << true;
        QTest::newRow("401") << 401 << 24 << 2401 << false << false;
        QTest::newRow("403") << 403 << 24 << 2403 << false << false;
        QTest::newRow("404") << 404 << 24 << 2404 << true << true;
        QTest::newRow("408") << 408 << 24 << 2408 << false << true;
        QTest::newRow("429") << 429 << 24 << 2429 << false << true;
        QTest::newRow("440") << 440 << 27 << 2440 << false << false;
        QTest::newRow("500") << 500 << 24 << 2500 << false << false;
        QTest::newRow("503") << 503 << 24 << 2503 << false << true;
        QTest::newRow("599") << 599 << 24 << 2599 << false << false;
    }

    void judgesReplies()
    {
        QFETCH(int, status);
        QFETCH(int, errorCode);
        QFETCH(int, number);
        QFETCH(bool, underResponsePolicy);
        m_server->addReply(QStringLiteral("/"), LoopbackReply(status, "content"));
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(static_cast<int>(task->error().errorCode()), errorCode);
        QCOMPARE(task->error().errorDetails().toInt(), number);
        QCOMPARE(task->httpResponseStatusCodeNumber(), status);
        QCOMPARE(task->hasError(), !task->error().errorMessage().isEmpty());
        QTEST(task->retriesEnabled(), "retriesStayOn");
        QCOMPARE(task->log(), QStringLiteral("started finished"));
        if (status == 200)
            QCOMPARE(task->data(), QByteArrayLiteral("content"));
        if (!errorCode)
            return;

        auto pardoned = makeTask();
        pardoned->setReplyErrorPolicy(underResponsePolicy ? NetworkTask::Ignore
                                                          : NetworkTask::FinishWithSuccess);
        pardoned->setResponseErrorPolicy(underResponsePolicy ? NetworkTask::FinishWithSuccess
                                                             : NetworkTask::Ignore);
        QVERIFY(pardoned->run());
        QVERIFY(!pardoned->hasError());
        QCOMPARE(pardoned->httpResponseStatusCodeNumber(), status);
    }

    // A reply that fails below HTTP never ends as a success, whatever status it carries.
    void judgesTransportFailures_data()
    {
        QTest::addColumn<LoopbackReply>("reply");
        QTest::addColumn<int>("number");
        const LoopbackReply whole(200, QByteArray(1000, 'x'));
        QTest::newRow("closed before the status") << LoopbackReply::raw({}) << 2000;
        QTest::newRow("closed in the head") << LoopbackReply(whole).cutAfter(20) << 2000;
        QTest::newRow("reset in the head") << LoopbackReply(whole).resetAfter(20) << 2000;
        QTest::newRow("closed in the content")
            << LoopbackReply(whole).cutAfter(500).dripped(100, 5ms) << 3002;
        QTest::newRow("reset in the content")
            << LoopbackReply(whole).resetAfter(500).dripped(100, 5ms) << 3002;
        QTest::newRow("404 closed in the content")
            << LoopbackReply(404, QByteArray(1000, 'x')).cutAfter(500).dripped(100, 5ms) << 2404;
        QTest::newRow("garbage") << LoopbackReply::raw("\x01\x02garbage\r\n\r\n") << 2000;
    }

    void judgesTransportFailures()
    {
        QFETCH(LoopbackReply, reply);
        m_server->addReply(QStringLiteral("/"), reply);
        auto task = makeTask();
        QVERIFY(task->run());
        QCOMPARE(task->error().errorCode(), ErrorCode::Network);
        QTEST(task->error().errorDetails().toInt(), "number");
        QCOMPARE(task->log(), QStringLiteral("started finished"));
    }

    void tellsShortContentThatQtCallsComplete_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<Method>("method");
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<qint64>("received");
        QTest::addColumn<int>("number");
        const QByteArray length("Content-Length");
        QTest::newRow("short") << 200 << Method::Get << length << qint64(3) << 3002;
        QTest::newRow("nothing at all") << 201 << Method::Get << length << qint64(0) << 3002;
        QTest::newRow("whole") << 200 << Method::Get << length << qint64(10) << 0;
        QTest::newRow("no length") << 200 << Method::Get << QByteArray("X") << qint64(3) << 0;
        QTest::newRow("head") << 200 << Method::Head << length << qint64(0) << 0;
        QTest::newRow("204") << 204 << Method::Get << length << qint64(0) << 2204;
        QTest::newRow("404") << 404 << Method::Get << length << qint64(3) << 2404;
    }

    void tellsShortContentThatQtCallsComplete()
    {
        QFETCH(int, status);
        QFETCH(Method, method);
        QFETCH(QByteArray, field);
        QFETCH(qint64, received);
        FakeManager manager([&] {
            auto* reply = new FakeReply(status);
            reply->setRawHeader(field, "10");
            reply->complete(received);
            return reply;
        });
        TestTask task(QStringLiteral("http://host/"), method);
        task.setNetworkAccessManager(&manager);
        task.setMaxRetriesCount(1);
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        QVERIFY(task.run());
        QTEST(task.error().errorDetails().toInt(), "number");
        if (task.error().errorDetails().toInt() == 3002) {
            QCOMPARE(task.error().errorMessage(), QStringLiteral("Connection closed"));
            QCOMPARE(task.retriesCount(), 1);
        }
    }

    void failsWhenNobodyListens()
    {
        const auto url = m_server->url();
        m_server->close();
        TestTask task(url);
        QVERIFY(task.run());
        QCOMPARE(task.error().errorDetails().toInt(), 2000);
        QCOMPARE(task.networkResponseError(), QNetworkReply::ConnectionRefusedError);
        QVERIFY(!task.networkResponseErrorMessage().isEmpty());
        QCOMPARE(task.log(), QStringLiteral("started finished")); // not among the recoverable errors
    }

    void failsForUrlsThatAreNone_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("empty") << QString();
        QTest::newRow("relative") << QStringLiteral("/path");
        QTest::newRow("unknown scheme") << QStringLiteral("gopher://127.0.0.1/");
        QTest::newRow("no HTTP") << QStringLiteral("data:text/plain,hello");
    }

    void failsForUrlsThatAreNone()
    {
        QFETCH(QString, url);
        TestTask task(url);
        QVERIFY(task.run());
        QCOMPARE(task.error().errorCode(), ErrorCode::Network);
        QCOMPARE(task.httpResponseStatusCode(), Code::Unknown);
    }

    void leavesStatusesToTheirHandlers()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(503, "busy"));
        auto task = makeTask();
        QStringList handled;
        task->setResponseHandler({static_cast<Code>(503), Code::NotFound},
                                 [&] { handled.append(QStringLiteral("list")); });
        task->setResponseHandler(static_cast<Code>(503), [&] {
            handled.append(QString::fromLatin1(task->data()));
            task->setResponseHandler(static_cast<Code>(503), {}); // replaces the handler that is running
        });
        task->exec();
        QTRY_COMPARE(handled, QStringList{QStringLiteral("busy")});
        QCoreApplication::processEvents();
        QVERIFY(task->isRunning()); // the handler alone decides
        QVERIFY(task->retriesEnabled());
        task->finish(Error(ErrorCode::General, "handled"));
        QCOMPARE(task->error().errorMessage(), QStringLiteral("handled"));
        QCOMPARE(task->log(), QStringLiteral("started finished"));
    }

    void keepsRunningUnderThePolicyIgnore()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(404));
        auto task = makeTask();
        task->setResponseErrorPolicy(NetworkTask::Ignore);
        task->exec();
        QTRY_COMPARE(task->httpResponseStatusCode(), Code::NotFound);
        QVERIFY(task->isRunning());
        task->cancel();
        QCOMPARE(task->error().errorCode(), ErrorCode::Canceled);
    }

    void keepsContentWithTheReplyUntilItIsTaken()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, "abcdefgh").dripped(60, 2ms));
        auto task = makeTask();
        QByteArray read;
        QByteArray seen;
        connect(task.get(), &NetworkTask::readyRead, this, [&] {
            seen += task->data(); // nothing before the reply is complete
            read += task->read(3);
        });
        QVERIFY(task->run());
        QVERIFY(seen.isEmpty());
        QCOMPARE(read + task->data(), QByteArrayLiteral("abcdefgh"));
        QVERIFY(!read.isEmpty());
        QCOMPARE(task->bytesReceived(), 8);
        QVERIFY(task->read(-1).isEmpty() && task->read().isEmpty());
        QMetaObject::invokeMethod(task.get(), "read", Q_RETURN_ARG(QByteArray, read));
        QVERIFY(read.isEmpty());
        task->clearData();
        QVERIFY(task->data().isEmpty());
    }

    void streamsContentInPieces()
    {
        QByteArray content;
        for (int i = 0; i < 3000000; ++i)
            content.append(static_cast<char>(i * 7 + i / 256));
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, content).dripped(300000, 2ms));
        auto task = makeTask();
        task->change([](NetworkRequest& request) { request.streaming = true; });
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

    void timesOutWhenNothingMoves_data()
    {
        QTest::addColumn<LoopbackReply>("reply");
        QTest::newRow("no answer") << LoopbackReply::silence();
        QTest::newRow("stalled in the head") << LoopbackReply(200, "abc").dripped(20, 1h);
        QTest::newRow("stalled in the content") << LoopbackReply(200, "abc").withField("Content-Length", "9");
    }

    void timesOutWhenNothingMoves()
    {
        QFETCH(LoopbackReply, reply);
        m_server->addReply(QStringLiteral("/"), reply);
        LogCatcher log("orv.network.warning=true");
        auto task = makeTask();
        task->setName(QStringLiteral("slow"));
        task->setTimeout(80ms);
        QVERIFY(task->run());
        QCOMPARE(task->error().errorCode(), ErrorCode::Network);
        QCOMPARE(task->error().errorDetails().toInt(), 2408);
        QCOMPARE(task->error().errorMessage(), QStringLiteral("Network timeout"));
        QVERIFY(!task->isCanceled());
        QTest::qWait(10); // for the completion of the aborted reply, which is not judged as well
        QCOMPARE(task->httpResponseStatusCodeNumber(), 408);
        QCOMPARE(task->networkResponseError(), QNetworkReply::NoError);
        QCOMPARE(task->log(), QStringLiteral("started finished"));
        QVERIFY(log.lines.join(QLatin1Char('\n'))
                    .startsWith(QStringLiteral("1|orv.network|Network timeout in task \"slow\" struct ")));
        QCOMPARE(log.lines.size(), 1);
    }

    void outlastsTheTimeoutWhileSomethingMoves()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, QByteArray(120, 'x')).dripped(30, 200ms));
        for (const bool streaming : {false, true}) {
            auto task = makeTask();
            task->change([=](NetworkRequest& request) { request.streaming = streaming; });
            task->setTimeout(800ms);
            QVERIFY(task->run());
            QVERIFY2(!task->hasError(), qPrintable(task->error().errorMessage()));
            QCOMPARE(task->data().size(), 120);
        }
    }

    void judgesOnlyTheCompletionItAwaits()
    {
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, "late").delayed(100ms));
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

    void cancelsInEachPhase_data()
    {
        QTest::addColumn<QString>("phase");
        for (const auto* phase : {"idle", "scheduled", "delayed", "sent", "head", "content", "finished"})
            QTest::newRow(phase) << QString::fromLatin1(phase);
    }

    void cancelsInEachPhase()
    {
        QFETCH(QString, phase);
        m_server->addReply(QStringLiteral("/"),
                           phase == QLatin1String("finished")
                               ? LoopbackReply(200, "x")
                               : LoopbackReply(200, QByteArray(500, 'x')).dripped(50, 5ms));
        auto task = makeTask();
        int readyReads = 0;
        connect(task.get(), &NetworkTask::readyRead, this, [&] { ++readyReads; });
        if (phase == QLatin1String("delayed"))
            task->setDelay(1000);
        if (phase != QLatin1String("idle"))
            task->exec();
        if (phase == QLatin1String("sent"))
            QTRY_VERIFY(task->networkReply());
        if (phase == QLatin1String("head"))
            QTRY_VERIFY(m_server->requests().size() == 1);
        if (phase == QLatin1String("content"))
            QTRY_VERIFY(readyReads > 0);
        if (phase == QLatin1String("finished"))
            QTRY_VERIFY(task->isFinished());
        task->events.clear();
        readyReads = 0;
        const bool wasSent = task->networkReply() != nullptr;
        task->cancel();
        task->cancel();
        QVERIFY(task->isFinished());
        const bool wasFinished = phase == QLatin1String("finished");
        QCOMPARE(task->error().errorCode(), wasFinished ? ErrorCode::None : ErrorCode::Canceled);
        QCOMPARE(task->isCanceled(), !wasFinished);
        QCOMPARE(task->httpResponseStatusCodeNumber() == 0,
                 phase == QLatin1String("idle") || (wasSent && !wasFinished));
        const auto expected = wasFinished ? QString() : QStringLiteral("canceled finished");
        QCOMPARE(task->log(), expected);
        QVERIFY(!task->networkReply() || task->networkReply()->isFinished());
        QVERIFY(!task->findChild<QTimer*>()->isActive());
        QTest::qWait(30);
        QCOMPARE(task->log(), expected);
        QCOMPARE(readyReads, 0);
        if (!wasSent) // what has left the process arrives
            QCOMPARE(m_server->requests().size(), 0);
    }

    void hearsNothingOfItsReplyAfterTheEnd_data()
    {
        QTest::addColumn<int>("errorCode");
        QTest::newRow("success") << 0;
        QTest::newRow("error") << 1;
    }

    void hearsNothingOfItsReplyAfterTheEnd()
    {
        QFETCH(int, errorCode);
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, QByteArray(500, 'x')).dripped(50, 5ms));
        auto task = makeTask();
        QSignalSpy readyRead(task.get(), &NetworkTask::readyRead);
        task->exec();
        QVERIFY(readyRead.wait());
        QPointer<QNetworkReply> reply = task->networkReply();
        task->finish(Error(static_cast<ErrorCode>(errorCode)));
        QCOMPARE(reply->isFinished(), errorCode != 0); // what failed is aborted
        readyRead.clear();
        QTRY_VERIFY(reply->isFinished());
        QVERIFY(readyRead.isEmpty());
        QCOMPARE(task->log(), QStringLiteral("started finished"));
    }

    // Deleting, cancelling and restarting inside every signal and handler of the exchange.
    void survivesWhatASlotDoes_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("action");
        for (const auto* where : {"started", "readyRead", "streamed", "handler", "finished", "canceled",
                                  "reply readyRead aborted", "createMultiPart"})
            for (const auto* action : {"delete", "deleteLater", "cancel", "finish", "exec", "delete manager",
                                       "delete reply parts", "nested loop"})
                QTest::addRow("%s: %s", where, action)
                    << QString::fromLatin1(where) << QString::fromLatin1(action);
    }

    void survivesWhatASlotDoes()
    {
        QFETCH(QString, where);
        QFETCH(QString, action);
        m_server->addReply(QStringLiteral("/"), LoopbackReply(200, QByteArray(400, 'x')).dripped(100, 2ms));
        auto manager = std::make_unique<SslIgnorantNetworkAccessManager>();
        QPointer<TestTask> task = makeTask().release();
        task->setNetworkAccessManager(manager.get());
        task->setTimeout(3s);
        const QHash<QString, std::function<void()>> actions{
            {QStringLiteral("delete"), [&] { delete task; }},
            {QStringLiteral("deleteLater"), [&] { task->deleteLater(); }},
            {QStringLiteral("cancel"), [&] { task->cancel(); }},
            {QStringLiteral("finish"), [&] { task->finish(Error()); }},
            {QStringLiteral("exec"), [&] { task->exec(); }},
            {QStringLiteral("delete manager"), [&] { manager.reset(); }},
            {QStringLiteral("delete reply parts"), [&] { task->setNetworkReply(nullptr); }},
            {QStringLiteral("nested loop"), [&] { QTest::qWait(20); }},
        };
        bool acted = false;
        const auto actIn = [&](const char* place) {
            if (task && where == QLatin1String(place) && !std::exchange(acted, true))
                actions[action]();
        };
        connect(task, &NetworkTask::started, this, [&] { actIn("started"); });
        connect(task, &NetworkTask::finished, this, [&] { actIn("finished"); });
        connect(task, &NetworkTask::canceled, this, [&] { actIn("canceled"); });
        connect(task, &NetworkTask::readyRead, this, [&] {
            if (where == QLatin1String("reply readyRead aborted"))
                task->abort();
            actIn("reply readyRead aborted");
            actIn("readyRead");
            actIn("streamed");
        });
        if (where == QLatin1String("streamed"))
            task->change([](NetworkRequest& request) { request.streaming = true; });
        if (where == QLatin1String("handler"))
            task->setResponseHandler(Code::OK, [&] { actIn("handler"); });
        if (where == QLatin1String("createMultiPart")) {
            task->change([](NetworkRequest& request) { request.method = Method::Post; });
            task->multiPartFactory = [&] {
                actIn("createMultiPart");
                return new QHttpMultiPart;
            };
        }
        task->exec();
        if (where == QLatin1String("canceled")) {
            QTRY_VERIFY(!task || task->networkReply());
            task->cancel();
        }
        QTRY_VERIFY(acted);
        QTest::qWait(20);
        if (task && !task->isFinished() && action != QLatin1String("exec"))
            task->cancel();
        QTRY_VERIFY(!task || task->isFinished() || task->isRunning());
        const int finishes = task ? static_cast<int>(task->events.count(QStringLiteral("finished"))) : 0;
        QVERIFY(!task || finishes == (task->isFinished() ? 1 : 0));
        delete task;
    }

    void endsWhenItsTransportIsDestroyed_data()
    {
        QTest::addColumn<QString>("what");
        QTest::newRow("manager") << QStringLiteral("manager");
        QTest::newRow("reply") << QStringLiteral("reply");
    }

    void endsWhenItsTransportIsDestroyed()
    {
        QFETCH(QString, what);
        m_server->addReply(QStringLiteral("/"), LoopbackReply::silence());
        auto manager = std::make_unique<SslIgnorantNetworkAccessManager>();
        auto task = makeTask();
        task->setNetworkAccessManager(manager.get());
        task->exec();
        QTRY_COMPARE(m_server->requests().size(), 1);
        if (what == QLatin1String("manager"))
            manager.reset();
        else
            delete task->networkReply();
        QTRY_VERIFY(task->isFinished());
        QCOMPARE(task->error().errorCode(), ErrorCode::Network);
        QCOMPARE(networkError(task->error()), QNetworkReply::UnknownNetworkError);
        QCOMPARE(task->log(), QStringLiteral("started finished"));
    }

    void dumpsTheConfiguredPartOfReplies()
    {
        QSettings().setValue(QStringLiteral("Network/MaxDumpSize"), 2); // too late, it has been read
        m_server->addReply(QStringLiteral("/"), LoopbackReply(404, "0123456789"));
        LogCatcher log("orv.network.debug=true\norv.network.warning=true");
        auto task = makeTask();
        task->extraMessage = QStringLiteral("extra");
        QVERIFY(task->run());
        const auto lines = log.lines.join(QLatin1Char('\n'));
        const QStringList inOrder{
            QStringLiteral("1|orv.network|\"A task \\\"\\\" failed, error message = "),
            QStringLiteral("0|orv.network|Status code: "),
            QStringLiteral("1|orv.network|Network error: ContentNotFoundError  : extra"),
            QStringLiteral("0|orv.network|Server response: 01234\n"),
            QStringLiteral("0|orv.network|Handling status code \"NotFound\""),
            QStringLiteral("1|orv.network|Error(24, details="),
            QStringLiteral("0|orv.network|Applying error policy \"FinishWithError\""),
        };
        qsizetype position = 0;
        for (const auto& line : inOrder) {
            position = lines.indexOf(line, position);
            QVERIFY2(position >= 0,
                     qPrintable(line + QStringLiteral(" is missing or out of order in\n") + lines));
        }
        QCOMPARE(task->data(), QByteArrayLiteral("0123456789"));
    }

private:
    QTemporaryDir m_home;
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_NetworkTaskReply)

#include "tst_NetworkTaskReply.moc"
