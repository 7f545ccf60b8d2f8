#include "LoginDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStyle>

namespace downloads {

namespace {

// Plain text, since some texts come from servers and must not be interpreted as markup.
QLabel* makeLabel(const QString& text)
{
    auto* label = new QLabel(text);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

QLabel* makeHeading(const QString& text)
{
    auto* label = makeLabel(text);
    auto font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

} // namespace

LoginDialog::LoginDialog(const QString& site, const QString& warning, QWidget* parent)
    : QDialog(parent)
    , m_user(new QLineEdit)
    , m_password(new QLineEdit)
    , m_outcome(makeLabel({}))
    , m_buttons(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel))
{
    setWindowTitle(tr("Login"));
    setMinimumWidth(360);
    m_user->setObjectName(QStringLiteral("user"));
    m_password->setObjectName(QStringLiteral("password"));
    m_password->setEchoMode(QLineEdit::Password);
    m_buttons->button(QDialogButtonBox::Ok)->setText(tr("Log in"));

    auto* layout = new QFormLayout(this);
    layout->addRow(makeHeading(tr("%1 asks for a login.").arg(site)));
    if (!warning.isEmpty())
        layout->addRow(makeLabel(warning));
    layout->addRow(tr("&User name:"), m_user);
    layout->addRow(tr("&Password:"), m_password);
    layout->addRow(m_outcome);
    layout->addRow(m_buttons);
    m_outcome->hide();

    connect(m_buttons, &QDialogButtonBox::accepted, this, &LoginDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &LoginDialog::reject);
}

QString LoginDialog::user() const
{
    return m_user->text();
}

QString LoginDialog::password() const
{
    return m_password->text();
}

void LoginDialog::showFailure(const QString& text)
{
    setBusy(false);
    m_outcome->setText(text);
    m_password->setFocus();
    m_password->selectAll();
}

void LoginDialog::accept()
{
    if (!m_user->isEnabled())
        return;
    setBusy(true);
    m_outcome->setText(tr("Logging in…"));
    m_outcome->show();
    Q_EMIT submitted();
}

void LoginDialog::setBusy(bool busy)
{
    m_user->setEnabled(!busy);
    m_password->setEnabled(!busy);
    m_buttons->button(QDialogButtonBox::Ok)->setEnabled(!busy);
}

} // namespace downloads
