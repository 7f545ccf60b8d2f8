#pragma once

#include <QDialog>

class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace downloads {

/// Asks for a user name and a password, and stays open until told how the login went.
///
/// accept() asks for the login with what was typed, reject() gives up.
class LoginDialog : public QDialog
{
    Q_OBJECT

public:
    /// @p site is who asks, @p warning what the user should know before typing a password; may be empty.
    LoginDialog(const QString& site, const QString& warning, QWidget* parent = nullptr);

    QString user() const;
    QString password() const;
    /// Lets the user try again, and says why.
    void showFailure(const QString& text);

    void accept() override;

Q_SIGNALS:
    /// The user wants to log in with user() and password().
    void submitted();

private:
    void setBusy(bool busy);

    QLineEdit* const m_user;
    QLineEdit* const m_password;
    QLabel* const m_outcome;
    QDialogButtonBox* const m_buttons;
};

} // namespace downloads
