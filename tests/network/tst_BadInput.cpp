#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <limits>

using namespace orv;
using namespace Qt::StringLiterals;

/// Wrong calls and values: each has a defined outcome, and none crashes or hangs.
class tst_BadInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<LoopbackServer>();
        m_server->setHandler([](const LoopbackRequest&) { return LoopbackReply(200, "content"); });
        QVERIFY(!m_server->listen().hasError());
    }

    void failsForUrlsWithoutAServer_data()
    {
        QTest::addColumn<QString>("url");
        const QString tooLong(300, u'h');
        for (const auto& url :
             {QString(), u"/path"_s, u"//127.0.0.1/path"_s, u"no url at all"_s, u"http:"_s,
              u"http://127.0.0.1:1/"_s, u"http:///path"_s, u"http://[::1/"_s, u"http://127.0.0.1:99999/"_s,
              u"http://127.0.0.1:-1/"_s, u"http://a b/"_s, u"http://a\r\nb/"_s, u"http://%1/"_s.arg(tooLong),
              u"http://none.invalid/"_s, u"javascript:alert(1)"_s, u"data:text/plain,hello"_s,
              u"file:///etc/hostname"_s, u"qrc:/orv_network"_s, u"data:,"_s + QString(5'000'000, u'x')})
            QTest::newRow(url.isEmpty() ? "empty" : qPrintable(url.left(40))) << url;
    }

    // Nor does content that Qt reads from other schemes ever count as a success.
    void failsForUrlsWithoutAServer()
    {
        QFETCH(QString, url);
        TestTask task(url);
        const QTemporaryDir home;
        FileDownloadTask download(url, home.filePath(u"file"_s));
        download.exec();
        QVERIFY(task.run());
        QTRY_VERIFY(download.isFinished());
        QCOMPARE(task.error().errorDetails().toInt(), 2000);
        QVERIFY(!task.error().errorMessage().isEmpty());
        QCOMPARE(task.httpResponseStatusCodeNumber(), 0);
        QCOMPARE(task.log(), u"started finished"_s);
        QVERIFY(download.hasError());
        QVERIFY(QDir(home.path()).isEmpty());
    }

    void sendsNoFieldsFromUrls_data()
    {
        const auto row = addColumns<QString>({"path"});
        row("line break", u"/a HTTP/1.1\r\nEvil: 1\r\nX: "_s);
        row("NUL", u"/a"_s + QChar(0) + u"b"_s);
        row("controls", u"/a\x01\x1f\x7f?b\n#c\r"_s);
        row("half a million characters", u"/"_s + QString(500'000, u'p'));
    }

    void sendsNoFieldsFromUrls()
    {
        QFETCH(QString, path);
        TestTask task(m_server->url() + path);
        QVERIFY(task.run());
        QCOMPARE(task.log(), u"started finished"_s);
        for (const auto& request : m_server->requests()) {
            QVERIFY(request.field("Evil").isEmpty());
            QVERIFY(request.startLine().endsWith(" HTTP/1.1"));
            QCOMPARE(request.startLine().count(' '), 2);
        }
        QCOMPARE(task.hasError(), m_server->requests().isEmpty());
    }

    void toleratesNull()
    {
        NetworkQueue queue;
        queue.append(nullptr);
        queue.removeTask(nullptr);
        queue.setAuthenticator(nullptr);
        QVERIFY(queue.isEmpty());
        delete queue.networkAccessManager();
        queue.setIgnoreSslErrors(true);

        class Call : public TestTask
        {
        public:
            using NetworkTask::doAuthenticateRequest;
            using TestTask::TestTask;
        } task(m_server->url());
        TestAuthenticator authenticator;
        authenticator.currentToken = u"token"_s;
        task.setAuthenticator(&authenticator);
        QVERIFY(!task.doAuthenticateRequest(nullptr));
        task.setAuthenticator(nullptr);
        task.setRequiresAuthentication(false);
        task.setNetworkAccessManager(nullptr);
        task.setNetworkReply(nullptr);
        queue.append(&task); // its manager is gone, so the default one sends
        QTRY_VERIFY(task.isFinished());
        QVERIFY2(!task.hasError(), qPrintable(task.error().errorMessage()));
        QCOMPARE(task.read(-1), QByteArray());
        QCOMPARE(task.data(), "content"_ba);
        QCOMPARE(task.chopFirstBytes(-1), -1);
        QCOMPARE(task.chopFirstBytes(std::numeric_limits<int>::max()), -1);
    }

    void toleratesNumbersOutOfRange()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        m_server->addReply(u"/"_s, LoopbackReply(503));
        m_server->addReply(u"/"_s, LoopbackReply(200));
        NetworkQueue queue;
        queue.setMaxRunningTasks(-1);
        queue.setMaxPriority(-1);
        TestTask task(m_server->url());
        task.setPriority(1 << 30);
        task.setTimeout(-1);
        task.setDelay(std::chrono::seconds::min());
        task.setDelayPolicy(Retriable::DelayPolicy::None);
        queue.append(&task);
        QVERIFY(runUntil([&] { return task.isFinished(); }));
        QVERIFY(!task.hasError());
        QCOMPARE(task.retriesCount(), 1);
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(tst_BadInput)

#include "tst_BadInput.moc"
