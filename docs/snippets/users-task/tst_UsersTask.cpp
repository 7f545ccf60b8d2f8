#include <LoopbackServer.h>
#include <NetworkTask.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

//! [task]
/// Gets the names of all users. A 404 means that there are none.
class UsersTask : public orv::NetworkTask
{
    Q_OBJECT

public:
    explicit UsersTask(const QString& server, QObject* parent = nullptr)
        : NetworkTask(server + u"/users"_s, Priority::Normal, parent)
    {
        setResponseHandler(orv::HttpResponseStatusCode::NotFound, [this] { finish(orv::Error()); });
    }

    QStringList names() const { return m_names; }

protected:
    orv::Error doFinish() override
    {
        auto error = NetworkTask::doFinish();
        if (error.hasError() || httpResponseStatusCode() == orv::HttpResponseStatusCode::NotFound)
            return error;
        const auto document = QJsonDocument::fromJson(data());
        if (!document.isArray())
            return orv::Error(orv::ErrorCode::General, tr("The server sent no list"));
        const auto users = document.array();
        for (const auto& user : users)
            m_names.append(user.toString());
        return error;
    }

private:
    QStringList m_names;
};
//! [task]

//! [class]
class TestUsersTask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void listsUsers();
    void takesMissingListAsEmpty();
    void refusesWhatIsNoList();
    void retriesWhenServerIsBusy();
    void timesOutOnSilence();
    void survivesCutContent();

private:
    std::unique_ptr<orv::LoopbackServer> m_server;
};
//! [class]

//! [first]
void TestUsersTask::init()
{
    m_server = std::make_unique<orv::LoopbackServer>();
    QVERIFY(!m_server->listen().hasError());
}

void TestUsersTask::listsUsers()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, R"(["ann","bob"])", "application/json"));
    UsersTask task(m_server->url(QString()));
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QVERIFY2(!task.hasError(), qPrintable(task.error().errorMessage()));
    QCOMPARE(task.names(), QStringList({u"ann"_s, u"bob"_s}));

    const orv::LoopbackRequest request = m_server->requests().constFirst();
    QCOMPARE(request.method, "GET");
    QCOMPARE(request.field("Accept"), "application/json");
}
//! [first]

//! [failures]
void TestUsersTask::takesMissingListAsEmpty()
{
    UsersTask task(m_server->url(QString())); // a path without a script is answered with 404
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QVERIFY(!task.hasError());
    QVERIFY(task.names().isEmpty());
}

void TestUsersTask::refusesWhatIsNoList()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "<html>"));
    UsersTask task(m_server->url(QString()));
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QCOMPARE(task.error().errorCode(), orv::ErrorCode::General);
}
//! [failures]

//! [faults]
void TestUsersTask::retriesWhenServerIsBusy()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(503)); // the first request
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "[]"));
    UsersTask task(m_server->url(QString()));
    task.setDelayPolicy(orv::Retriable::DelayPolicy::None); // no delays in tests
    const QSignalSpy retried(&task, &orv::NetworkTask::retried);
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QVERIFY(!task.hasError());
    QCOMPARE(retried.size(), 1);
    QCOMPARE(m_server->requests().size(), 2);
}

void TestUsersTask::timesOutOnSilence()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply::silence());
    UsersTask task(m_server->url(QString()));
    task.setTimeout(50);
    task.setRetriesEnabled(false);
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QCOMPARE(task.error().errorDetails().toInt(), 2408);
}

void TestUsersTask::survivesCutContent()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, R"(["ann","bob"])").cutAfter(90));
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, R"(["ann","bob"])"));
    UsersTask task(m_server->url(QString()));
    task.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QCOMPARE(task.names(), QStringList({u"ann"_s, u"bob"_s}));
}
//! [faults]

QTEST_GUILESS_MAIN(TestUsersTask)
#include "tst_UsersTask.moc"
