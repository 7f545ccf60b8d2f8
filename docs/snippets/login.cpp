#include "Snippets.h"

#include <BearerLogin.h>
#include <NetworkQueue.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// clazy:excludeall=lambda-in-connect

namespace {

// Issues a new token for each login, and accepts only the token `valid`.
orv::LoopbackReply answer(const orv::LoopbackRequest& request, int* logins, const QByteArray& valid)
{
    if (request.path == u"/login"_s) {
        if (!request.content.contains("\"secret\"") && !request.content.contains("=r"))
            return orv::LoopbackReply(423);
        const auto token = u"t%1"_s.arg(++*logins);
        const QJsonObject session{{u"key"_s, token}, {u"seconds"_s, 60}};
        return orv::LoopbackReply::json({{u"token"_s, token}, {u"session"_s, session}});
    }
    return request.field("Authorization") == "Bearer " + valid ? orv::LoopbackReply(200, "orders")
                                                               : orv::LoopbackReply(401);
}

} // namespace

void Snippets::logIn()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    const auto name = u"ann"_s;
    const auto password = u"secret"_s;
    orv::NetworkQueue queue;
    const QStringList urls(20, m_url + u"/orders"_s);

    //! [program]
    auto* login = new orv::BearerLogin(
        orv::BearerLogin::jsonRequest(m_url + u"/login"_s, {{u"user"_s, name}, {u"password"_s, password}}),
        this);
    queue.setAuthenticator(login);
    for (const auto& url : urls) {
        auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, this);
        task->setAutoDelete(true);
        queue.append(task);
    }
    //! [program]

    int successes = 0;
    connect(&queue, &orv::TasksQueue::taskFinished, this,
            [&successes](orv::Task* task) { successes += task->hasError() ? 0 : 1; });
    const QSignalSpy emptied(&queue, &orv::TasksQueue::emptied);
    QTRY_COMPARE(emptied.size(), 1);
    QCOMPARE(successes, 20);
    QCOMPARE(logins, 1);
    delete login;
}

void Snippets::logInThroughQueue()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    const auto credentials =
        orv::BearerLogin::jsonRequest(m_url + u"/login"_s, {{u"password"_s, u"secret"_s}});
    orv::BearerLogin whole(credentials);
    auto* login = &whole;
    orv::NetworkQueue queue;

    //! [through]
    login->setQueue(&queue);
    //! [through]
    //! [reader]
    login->setTokenReader([](const QByteArray& content) -> orv::Result<orv::BearerLogin::Tokens> {
        const QJsonObject session = QJsonDocument::fromJson(content)["session"_L1].toObject();
        const std::chrono::seconds lifetime(session["seconds"_L1].toInt());
        return orv::BearerLogin::Tokens{session["key"_L1].toString(), {}, lifetime};
    });
    //! [reader]
    //! [task]
    auto* task = new orv::NetworkTask(m_url + u"/orders"_s, orv::NetworkTask::Priority::Normal, this);
    task->setAuthenticator(login);
    task->exec();
    //! [task]
    QVERIFY(succeeds(task));
    QCOMPARE(login->token(), u"t1"_s);
    QVERIFY(login->tokens().expiresIn > 50s);
    delete task;
}

void Snippets::loginFails()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    orv::BearerLogin wrong(orv::BearerLogin::jsonRequest(m_url + u"/login"_s, {{u"password"_s, u"guess"_s}}));
    auto* login = &wrong;

    //! [classifier]
    login->setFailureClassifier([](const orv::BearerLogin::Failure& failure) {
        if (failure.status == 423) // locked after too many wrong passwords
            return orv::AbstractAuthenticator::Error::InvalidCredentials;
        return orv::BearerLogin::classifyFailure(failure);
    });
    //! [classifier]

    for (int i = 0; i < 2; ++i) {
        orv::NetworkTask task(m_url + u"/orders"_s);
        task.setAuthenticator(login);
        task.exec();
        QVERIFY(!succeeds(&task));
        QCOMPARE(task.error().errorMessage(), u"The server refused the credentials"_s);
        QCOMPARE(m_server->requests(u"/login"_s).size(), 1); // refused credentials are not sent again
    }
}

void Snippets::loginRefreshes()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    orv::BearerLogin whole;
    auto* login = &whole;
    const auto url = m_url + u"/login"_s;
    const QTemporaryDir home;
    QSettings settings(home.filePath(u"settings"_s), QSettings::IniFormat);
    settings.setValue(u"refreshToken"_s, u"r"_s);

    //! [refresh]
    login->setRefreshRequest([url](const QString& refreshToken) {
        return orv::BearerLogin::formRequest(
            url, {{u"grant_type"_s, u"refresh_token"_s}, {u"refresh_token"_s, refreshToken}});
    });
    login->setRefreshMargin(1min); // 30 s by default
    //! [refresh]

    //! [store]
    login->setTokens({{}, settings.value(u"refreshToken"_s).toString(), {}});
    connect(login, &orv::BearerLogin::authenticated, this,
            [login, &settings] { settings.setValue(u"refreshToken"_s, login->tokens().refreshToken); });
    //! [store]

    orv::NetworkTask task(m_url + u"/orders"_s);
    task.setAuthenticator(login);
    task.exec();
    QVERIFY(succeeds(&task));
    QCOMPARE(m_server->requests(u"/login"_s).constLast().content, "grant_type=refresh_token&refresh_token=r");
}

void Snippets::loginIsRefused()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "none"); });
    orv::BearerLogin login(
        orv::BearerLogin::jsonRequest(m_url + u"/login"_s, {{u"password"_s, u"secret"_s}}));
    orv::NetworkTask whole(m_url + u"/orders"_s);
    auto* task = &whole;
    task->setAuthenticator(&login);

    //! [refused]
    task->setMaxTokenRefusals(3);
    //! [refused]

    task->exec();
    QVERIFY(!succeeds(task));
    QCOMPARE(task->error().errorCode(), orv::ErrorCode::AuthenticationFailed);
    QCOMPARE(m_server->requests(u"/orders"_s).size(), 3);
}
