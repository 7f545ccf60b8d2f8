#pragma once

#include <QDialog>

class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace downloads {

/// Asks for a user name and a password, and stays open until the login has succeeded or is given up.
///
/// accept() requests a login with the user's input, reject() gives up.
class LoginDialog : public QDialog
{
    Q_OBJECT

public:
    /// @p site is the server that requires the login. @p warning is what the user should know before typing a
    /// password; it may be empty.
    LoginDialog(const QString& site, const QString& warning, QWidget* parent = nullptr);

    QString user() const;
    QString password() const;
    /// Shows why the login has failed and lets the user try again.
    void showFailure(const QString& text);

    void accept() override;

Q_SIGNALS:
    /// The user has asked for a login with user() and password().
    void submitted();

private:
    void setBusy(bool busy);

    QLineEdit* const m_user;
    QLineEdit* const m_password;
    QLabel* const m_outcome;
    QDialogButtonBox* const m_buttons;
};

} // namespace downloads
