#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QMetaEnum>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace orv;

class tst_NetworkTask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void declaresMembersInOrder()
    {
        QCOMPARE(methodsOf(NetworkTask::staticMetaObject),
                 (QStringList{u"signal readyRead() const"_s, u"signal retried() const"_s,
                              u"signal aboutToRetry()"_s, u"slot read(qlonglong)"_s, u"slot read()"_s,
                              u"slot exec()"_s, u"slot cancel()"_s}));
        QCOMPARE(methodsOf(AbstractAuthenticator::staticMetaObject),
                 (QStringList{u"signal authenticating()"_s, u"signal authenticated()"_s,
                              u"signal error(orv::AbstractAuthenticator::Error)"_s,
                              u"slot onAuthenticationRequired()"_s, u"slot cancel()"_s}));
        QCOMPARE(AbstractAuthenticator::staticMetaObject.enumeratorCount(), 0);
        const auto policy = QMetaEnum::fromType<NetworkTask::ErrorPolicy>();
        QCOMPARE(NetworkTask::staticMetaObject.enumeratorCount(), 1);
        QCOMPARE(policy.keyCount(), 3);
        QCOMPARE(policy.keyToValue("FinishWithSuccess"), 2);
        for (const auto* meta : {&FileDownloadTask::staticMetaObject, &NetworkQueue::staticMetaObject})
            QCOMPARE(methodsOf(*meta), QStringList());
        QCOMPARE(NetworkTask::staticMetaObject.superClass(), &Task::staticMetaObject);
        QCOMPARE(FileDownloadTask::staticMetaObject.superClass(), &NetworkTask::staticMetaObject);
        QCOMPARE(NetworkQueue::staticMetaObject.superClass(), &TasksQueue::staticMetaObject);
    }

    void startsWithItsDefaults()
    {
        NetworkTask task(u"http://host/"_s, NetworkTask::Priority::High);
        QCOMPARE(task.timeout().count(), 300000);
        QCOMPARE(task.findChild<QTimer*>()->interval(), 300000);
        QCOMPARE(task.httpResponseStatusCode(), HttpResponseStatusCode::Unknown);
        QVERIFY(!task.hasOverriddenUserAgent() && !task.requiresAuthentication());
        QVERIFY(!task.networkAccessManager() && !task.networkReply() && !task.networkConnection());
        QVERIFY(task.requestAttributes().isEmpty() && task.data().isEmpty());
    }

    void setsOnlyWhatItIsGiven()
    {
        TestTask task;
        task.change([](NetworkRequest& request) {
            request.postData = "data";
            request.rawHeaders.insert("X", "y");
        });
        task.setRequest(u"http://host/"_s, "text/plain", NetworkRequest::Method::Put, true);
        QCOMPARE(task.request().postData, "data"_ba);
        QCOMPARE(task.request().rawHeaders.size(), 1);
        QVERIFY(task.request().streaming);

        task.setHttpResponseStatusCode(HttpResponseStatusCode::NotFound);
        task.setHttpResponseStatusCodeNumber(418);
        QCOMPARE(task.httpResponseStatusCode(), HttpResponseStatusCode::NotFound);

        TestAuthenticator authenticator;
        task.setAuthenticator(&authenticator);
        task.setAuthenticator(nullptr);
        QVERIFY(task.requiresAuthentication() && !task.authenticator());
    }

    void sharesOneDefaultManagerAndForgetsADestroyedOne()
    {
        auto* shared = NetworkTask::defaultNetworkAccessManager();
        QCOMPARE(NetworkTask::defaultNetworkAccessManager(), shared);
        QCOMPARE(shared->parent(), QCoreApplication::instance());
        QCOMPARE(shared->sslMode(), SslIgnorantNetworkAccessManager::SslMode::Verify);
        NetworkTask task;
        auto manager = std::make_unique<SslIgnorantNetworkAccessManager>();
        task.setNetworkAccessManager(manager.get());
        manager.reset();
        QVERIFY(!task.networkAccessManager());
    }

    void keepsWhatIsLeftOfItsData()
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
        // Not copied, though somebody holds it. QCOMPARE would compare the texts, not the places.
        QVERIFY(task.data().constData() == held.constData() + 2);
        QCOMPARE(held, "abcdef"_ba);
        QCOMPARE(task.chopFirstBytes(4), 0);
        QVERIFY(task.data().isEmpty() && !task.data().isNull());
        QCOMPARE(task.chopFirstBytes(0), -1);
        task.clearData();
        QVERIFY(task.data().isNull());
    }
};

QTEST_GUILESS_MAIN(tst_NetworkTask)

#include "tst_NetworkTask.moc"
