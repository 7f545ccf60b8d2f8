#include "PasswordLogin.h"
#include "Snippets.h"

#include <NetworkQueue.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// Issues a new token for each login, and accepts only the token `valid`.
orv::LoopbackReply answer(const orv::LoopbackRequest& request, int* logins, const QByteArray& valid)
{
    if (request.path == u"/login"_s) {
        if (!request.content.contains("\"secret\""))
            return orv::LoopbackReply(403);
        const auto token = u"t%1"_s.arg(++*logins);
        return orv::LoopbackReply::json({{u"token"_s, token}});
    }
    return request.field("Authorization") == "Bearer " + valid ? orv::LoopbackReply(200, "orders")
                                                               : orv::LoopbackReply(401);
}

} // namespace

void Snippets::logIn()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t2"); });
    const auto name = u"ann"_s;
    const auto password = u"secret"_s;

    //! [task]
    auto* login = new PasswordLogin(m_url + u"/login"_s, name, password, this);
    auto* task = new orv::NetworkTask(m_url + u"/orders"_s, orv::NetworkTask::Priority::Normal, this);
    task->setAuthenticator(login);
    task->exec();
    //! [task]

    QVERIFY(succeeds(task)); // one login without a token, and one after that token was refused
    QCOMPARE(logins, 2);
    QCOMPARE(login->state(), orv::AbstractAuthenticator::State::Authenticated);
    delete task;
    delete login;
}

void Snippets::logInThroughQueue()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    PasswordLogin login(m_url + u"/login"_s, u"ann"_s, u"secret"_s);
    orv::NetworkQueue queue;
    const QStringList urls(20, m_url + u"/orders"_s);

    //! [queue]
    queue.setAuthenticator(&login);
    for (const auto& url : urls) {
        auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, this);
        task->setAutoDelete(true);
        queue.append(task);
    }
    //! [queue]

    int successes = 0;
    connect(&queue, &orv::TasksQueue::taskFinished, this,
            [&successes](orv::Task* task) { successes += task->hasError() ? 0 : 1; });
    const QSignalSpy emptied(&queue, &orv::TasksQueue::emptied);
    QTRY_COMPARE(emptied.size(), 1);
    QCOMPARE(successes, 20);
    QCOMPARE(logins, 1);
}

void Snippets::loginFails()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "t1"); });
    PasswordLogin wrong(m_url + u"/login"_s, u"ann"_s, u"guess"_s);
    orv::NetworkTask task(m_url + u"/orders"_s);
    task.setAuthenticator(&wrong);
    task.exec();
    QVERIFY(!succeeds(&task));
    QCOMPARE(task.error().errorCode(), orv::ErrorCode::AuthenticationFailed);
    QCOMPARE(task.error().errorMessage(), u"Name or password is wrong"_s);
    QCOMPARE(m_server->requests(u"/login"_s).size(), 1); // refused credentials are not sent again

    m_server->addReply(u"/login"_s, orv::LoopbackReply(503));
    PasswordLogin unlucky(m_url + u"/login"_s, u"ann"_s, u"secret"_s);
    orv::NetworkTask late(m_url + u"/orders"_s);
    late.setAuthenticator(&unlucky);
    late.exec();
    QVERIFY(!succeeds(&late));
    QCOMPARE(m_server->requests(u"/login"_s).size(), 1 + 1 + 3);

    PasswordLogin slow(m_url + u"/slow"_s, u"ann"_s, u"secret"_s);
    m_server->addReply(u"/slow"_s, orv::LoopbackReply::silence());
    orv::NetworkTask waiting(m_url + u"/orders"_s);
    waiting.setAuthenticator(&slow);
    waiting.exec();
    QTRY_VERIFY(!m_server->requests(u"/slow"_s).isEmpty());
    slow.cancel();
    QVERIFY(waiting.isFinished());
    QCOMPARE(waiting.error().errorMessage(), u"The login was cancelled"_s);
}

void Snippets::loginIsRefused()
{
    int logins = 0;
    m_server->setHandler([&](const auto& request) { return answer(request, &logins, "none"); });
    PasswordLogin login(m_url + u"/login"_s, u"ann"_s, u"secret"_s);
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
