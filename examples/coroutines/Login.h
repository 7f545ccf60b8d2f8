#pragma once

#include <AbstractAuthenticator.h>

#include <QCoro/QCoroTask>

namespace shop {

/// Logs in with a coroutine: posts a user name and a password, and reads the token from the response.
class Login : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    explicit Login(QString url, QObject* parent = nullptr);
    ~Login() override;

    QString token() override { return m_token; }

protected:
    bool authenticate() override;

private:
    QCoro::Task<> logIn();
    void end(const orv::Error& result);

    const QString m_url;
    QString m_token;
};

} // namespace shop
