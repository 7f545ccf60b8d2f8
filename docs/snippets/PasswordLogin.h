#pragma once

//! [header]
#include <AbstractAuthenticator.h>
#include <NetworkTask.h>

#include <QPointer>

/// Logs in with a user name and a password, and keeps the token that the server issues for them.
class PasswordLogin : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    PasswordLogin(QString url, QString name, QString password, QObject* parent = nullptr);

    QString token() override { return m_token; }
    void cancel() override;

protected:
    bool authenticate() override;

private:
    void onAnswer();
    void succeed(const QString& token);
    void fail(Error code, const QString& message);

    const QString m_url;
    const QString m_name;
    const QString m_password;
    QString m_token;
    QPointer<orv::NetworkTask> m_task;
};
//! [header]
