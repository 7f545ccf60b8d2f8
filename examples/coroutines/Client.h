#pragma once

#include <BearerLogin.h>
#include <NetworkQueue.h>
#include <Result.h>

#include <QCoro/QCoroTask>

#include <QByteArray>
#include <QObject>
#include <QStringList>

namespace shop {

/// Queries the stock of a shop. Each request is a coroutine that starts when it is called and returns its
/// result when it is awaited.
///
/// The client owns its tasks: when it is destroyed, requests in progress end with ErrorCode::Canceled.
class Client : public QObject
{
    Q_OBJECT

public:
    /// @p url is the address of the shop, without a trailing slash.
    explicit Client(QString url, QObject* parent = nullptr);
    ~Client() override;

    /// The names of all items.
    QCoro::Task<orv::Result<QStringList>> list();
    /// How many of the item @p name are in stock.
    QCoro::Task<orv::Result<int>> stock(QString name);

    /// Ends all requests in progress with @p reason.
    void cancel(const orv::Error& reason);

Q_SIGNALS:
    void loggedIn();

private:
    QCoro::Task<orv::Result<QByteArray>> get(QString path);

    const QString m_url;
    orv::BearerLogin m_login;
    orv::NetworkQueue m_queue;
};

} // namespace shop
