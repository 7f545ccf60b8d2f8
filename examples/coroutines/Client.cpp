#include "Client.h"

#include "awaitTask.h"

#include <NetworkConstants.h>
#include <NetworkTask.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>

#include <utility>

using namespace Qt::StringLiterals;

namespace shop {

using orv::NetworkTask;
using orv::Result;

Client::Client(QString url, QObject* parent)
    : QObject(parent)
    , m_url(std::move(url))
    , m_login(orv::BearerLogin::jsonRequest(m_url + "/login"_L1,
                                            {{u"user"_s, u"ann"_s}, {u"password"_s, u"secret"_s}}))
{
    m_queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
    m_queue.setAuthenticator(&m_login);
    connect(&m_login, &orv::BearerLogin::authenticated, this, &Client::loggedIn);
}

Client::~Client() = default;

// The tasks are children of the client: after a success both still exist, after an error neither may.
QCoro::Task<Result<QByteArray>> Client::get(QString path)
{
    auto* task = new NetworkTask(m_url + path, NetworkTask::Normal, this);
    task->setAutoDelete(true);
    m_queue.append(task);
    const orv::Error error = co_await awaitTask(task);
    if (error.hasError())
        co_return error;
    co_return task->data();
}

QCoro::Task<Result<QStringList>> Client::list()
{
    const auto content = co_await get(u"/items"_s);
    if (content.hasError())
        co_return content.error();
    co_return QJsonDocument::fromJson(content.value()).object().value("items"_L1).toVariant().toStringList();
}

QCoro::Task<Result<int>> Client::stock(QString name)
{
    const auto content = co_await get("/items/"_L1 + name);
    if (content.hasError())
        co_return content.error();
    co_return QJsonDocument::fromJson(content.value()).object().value("stock"_L1).toInt();
}

void Client::cancel(const orv::Error& reason)
{
    m_queue.clear(orv::TasksQueue::ClearPolicy::PendingAndRunning, reason);
}

} // namespace shop
