#pragma once

#include "Login.h"

#include <NetworkQueue.h>
#include <Result.h>

#include <QCoro/QCoroTask>

#include <QByteArray>
#include <QObject>
#include <QStringList>

namespace shop {

/// Asks a shop what it has. Every request is a coroutine that runs at once and gives its result when it is
/// awaited.
///
/// The client owns its tasks: destroying it ends all that is under way with ErrorCode::Canceled.
class Client : public QObject
{
    Q_OBJECT

public:
    /// @p url is the address of the shop, without a slash at its end.
    explicit Client(QString url, QObject* parent = nullptr);
    ~Client() override;

    /// The names of all items.
    QCoro::Task<orv::Result<QStringList>> list();
    /// How many there are of an item.
    QCoro::Task<orv::Result<int>> stock(QString name);

    /// Ends all that is under way, with @p reason.
    void cancel(const orv::Error& reason);

Q_SIGNALS:
    void loggedIn();

private:
    QCoro::Task<orv::Result<QByteArray>> get(QString path);

    const QString m_url;
    Login m_login;
    orv::NetworkQueue m_queue;
};

} // namespace shop
