#include "NetworkTestSupport.h"

#include <QMetaMethod>
#include <QTimer>

#include <typeinfo>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

/// Sends when the default manager is gone with its application object, and returns what happens.
QStringList sendWithoutManager(int& argc, char** argv)
{
    {
        const QCoreApplication application(argc, argv);
        NetworkTask::defaultNetworkAccessManager();
    }
    LogCatcher log("orv.network.warning=true");
    TestAuthenticator authenticator;
    authenticator.onAuthenticationRequired();
    TestTask task(u"http://127.0.0.1:1/"_s, NetworkRequest::Method::Post);
    task.multiPartFactory = [&] {
        log.lines.append(u"form made"_s);
        return nullptr;
    };
    task.setAuthenticator(&authenticator);
    task.exec();
    authenticator.succeed("token"); // sends at once: there are no events without an application
    if (task.isRunning() && !task.isPaused() && !task.networkReply())
        log.lines.append(u"running"_s);
    task.cancel();
    return log.lines + task.events;
}

// The signals and slots that a class itself declares, in order.
QStringList methodsOf(const QMetaObject& metaObject)
{
    QStringList methods;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        const auto method = metaObject.method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        methods.append((isSignal ? u"signal "_s : u"slot "_s) +
                       QString::fromLatin1(method.methodSignature()));
    }
    return methods;
}

} // namespace

class tst_NetworkTask : public QObject
{
    Q_OBJECT

public:
    QStringList withoutManager;

private Q_SLOTS:
    void declaresMembersInOrder()
    {
        QCOMPARE(
            methodsOf(NetworkTask::staticMetaObject),
            (QStringList{u"signal readyRead()"_s, u"signal retried()"_s, u"signal aboutToRetry()"_s,
                         u"slot read(qlonglong)"_s, u"slot read()"_s, u"slot exec()"_s, u"slot cancel()"_s}));
        QCOMPARE(methodsOf(AbstractAuthenticator::staticMetaObject),
                 (QStringList{u"signal authenticating()"_s, u"signal authenticated()"_s,
                              u"signal error(orv::AbstractAuthenticator::Error)"_s,
                              u"slot onAuthenticationRequired()"_s, u"slot cancel()"_s}));
    }

    void changesOnlyWhatIsSet()
    {
        TestTask task;
        task.change([](NetworkRequest& request) {
            request.postData = "data";
            request.rawHeaders.insert("X", "y");
        });
        task.setRequest(u"http://host/"_s, "text/plain", NetworkRequest::Method::Put, true);
        QCOMPARE(task.request().postData, "data"_ba);
        QCOMPARE(task.request().rawHeaders.size(), 1);
    }

    void replacesTheConnectionToTheReply()
    {
        TestTask task;
        FakeReply reply(200);
        int completions = 0;
        const auto complete = [&] { ++completions; };
        task.setNetworkConnection(connect(&reply, &QNetworkReply::finished, this, complete));
        task.setNetworkConnection(connect(&reply, &QNetworkReply::finished, this, complete));
        Q_EMIT reply.finished();
        QCOMPARE(completions, 1);
    }

    void sendsNothingWithoutAManager()
    {
        QCOMPARE(withoutManager, (QStringList{u"1|orv.network|The network access manager is null"_s,
                                              u"running"_s, u"started"_s, u"canceled"_s, u"finished"_s}));
    }

    void printsItselfMasked()
    {
        TestTask task(u"http://me@home:secret@host/"_s, NetworkRequest::Method::Put);
        task.change([](NetworkRequest& request) {
            request.postData = "secret";
            request.setMaskingFunction([](const QByteArray&) { return "***"_ba; });
        });
        task.setData("received");
        task.setNetworkResponseError(QNetworkReply::ContentNotFoundError);
        task.setNetworkResponseErrorMessage(u"not found"_s);
        task.setHttpResponseStatusCode(HttpResponseStatusCode::NotFound);
        task.setHttpResponseStatusCodeNumber(418);
        QString text;
        QDebug(&text) << task;
        QVERIFY2(text.startsWith(QLatin1String(typeid(TestTask).name())), qPrintable(text));
        for (const auto* part : {"NetworkRequest(url=\"http://me@home@host/\"", "=\"***\"", "=\"received\"",
                                 "::ContentNotFoundError", "=\"not found\"", "::NotFound", "=418)"})
            QVERIFY2(text.contains(QLatin1String(part)), qPrintable(text));
    }

    // main() has deleted an application object whose default manager was in use.
    void sharesOneDefaultManagerAndForgetsADestroyedOne()
    {
        auto* shared = NetworkTask::defaultNetworkAccessManager();
        QCOMPARE(NetworkTask::defaultNetworkAccessManager(), shared);
        QCOMPARE(shared->parent(), QCoreApplication::instance());
        QCOMPARE(shared->sslMode(), SslIgnorantNetworkAccessManager::SslMode::Verify);
        LoopbackServer server;
        server.addReply(u"/"_s, LoopbackReply(200));
        QVERIFY(!server.listen().hasError());
        TestTask task(server.url());
        QVERIFY(task.succeeds());
        auto manager = std::make_unique<SslIgnorantNetworkAccessManager>();
        task.setNetworkAccessManager(manager.get());
        manager.reset();
        QVERIFY(!task.networkAccessManager());
    }

    void dropsTheFirstBytesOfItsData()
    {
        TestTask task;
        QCOMPARE(task.chopFirstBytes(0), -1); // absent
        task.setData({});
        QCOMPARE(task.chopFirstBytes(0), -1); // present but empty
        task.setData("abcdef");
        QCOMPARE(task.chopFirstBytes(7), -1);
        const auto held = task.data();
        QCOMPARE(task.chopFirstBytes(2), 4);
        QCOMPARE(task.data(), "cdef"_ba);
        // Not copied, although the test holds a copy. QCOMPARE would compare the texts, not the pointers.
        QVERIFY(task.data().constData() == held.constData() + 2);
        QCOMPARE(held, "abcdef"_ba);
        QCOMPARE(task.chopFirstBytes(4), 0);
        QVERIFY(task.data().isEmpty() && !task.data().isNull());
        QCOMPARE(task.chopFirstBytes(0), -1);
        task.clearData();
        QVERIFY(task.data().isNull());
    }
};

int main(int argc, char** argv)
{
    tst_NetworkTask test;
    test.withoutManager = sendWithoutManager(argc, argv);
    QCoreApplication application(argc, argv);
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_NetworkTask.moc"
