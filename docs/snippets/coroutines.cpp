#include "Snippets.h"

#include <Result.h>

#include <QCoro/QCoroSignal>
#include <QCoro/QCoroTask>

#include <QPointer>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

//! [await]
QCoro::Task<orv::Result<QByteArray>> fetch(QString url)
{
    orv::NetworkTask task(url);
    task.exec();
    co_await qCoro(&task, &orv::NetworkTask::finished);
    if (task.hasError())
        co_return task.error();
    co_return task.data();
}
//! [await]

//! [use]
QCoro::Task<> showUsers(QString server, QPointer<QObject> window, std::function<void(QString)> show)
{
    const orv::Result<QByteArray> users = co_await fetch(server + u"/users"_s);
    if (!window)
        co_return; // the window was closed meanwhile
    show(users.hasError() ? users.error().errorMessage() : QString::fromUtf8(users.value()));
}
//! [use]

} // namespace

void Snippets::coroutineAwaitsTask()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    m_server->addReply(u"/users"_s, orv::LoopbackReply(404));
    QObject window;
    QString shown;
    const auto show = [&shown](const QString& text) { shown = text; };
    QCoro::waitFor(showUsers(m_url, &window, show));
    QCOMPARE(shown, u"ann"_s);
    QCoro::waitFor(showUsers(m_url, &window, show));
    QVERIFY(shown.contains("Not Found"_L1));
}
