#include "../Files.h"
#include "LoginDialog.h"
#include "MainWindow.h"

#include <LoopbackServer.h>

#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace downloads;
using namespace orv;
using State = DownloadItem::State;

namespace {

// Answers logins with a token, and requests that carry it with content.
LoopbackReply answer(const LoopbackRequest& request)
{
    if (request.path == "/login"_L1)
        return request.content.contains("\"s\u00e9same\"") ? LoopbackReply(200, "{\"token\":\"t0ken\"}")
                                                           : LoopbackReply(401);
    return LoopbackReply(request.field("Authorization") == "Bearer t0ken" ? 200 : 401, "content");
}

} // namespace

/// Drives the real window against servers in this process.
class tst_DownloadManager : public QObject
{
    Q_OBJECT

private:
    DownloadModel& model() { return m_window->model(); }
    State state(int row) { return model().item(row).state(); }
    QByteArray contentOf(const QString& name) const { return readFile(m_directory->filePath(name)); }

    QList<LoginDialog*> dialogs()
    {
        auto open = m_window->findChildren<LoginDialog*>();
        open.removeIf([](const LoginDialog* dialog) { return !dialog->isVisible(); });
        return open;
    }

    void logIn(const QString& password = u"s\u00e9same"_s)
    {
        QTRY_COMPARE(dialogs().size(), 1);
        auto* dialog = dialogs().constFirst();
        dialog->findChild<QLineEdit*>(u"user"_s)->setText(u"ann"_s);
        dialog->findChild<QLineEdit*>(u"password"_s)->setText(password);
        dialog->accept();
    }

    // Adds downloads by keyboard.
    void add(const LoopbackServer& server, const QStringList& paths)
    {
        auto* field = m_window->findChild<QLineEdit*>(u"urls"_s);
        for (const auto& path : paths)
            field->setText(field->text() + u' ' + server.url(path));
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(field->text().isEmpty());
    }

private Q_SLOTS:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
        m_server->setHandler(answer);
        m_window = std::make_unique<MainWindow>();
        m_window->setDirectory(m_directory->path());
        m_window->show();
    }

    void cleanup() { m_window.reset(); }

    void logsInOnceForAllDownloadsFromAServer()
    {
        add(*m_server, {u"/a"_s, u"/b"_s});
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        logIn(u"wrong"_s);
        QTRY_VERIFY(dialogs().constFirst()->findChild<QLineEdit*>(u"user"_s)->isEnabled());
        logIn();
        QTRY_COMPARE(model().totals().done, 2);
        QCOMPARE(model().totals().received, 7 + 7);
        QCOMPARE(contentOf(u"b"_s), "content"_ba);
        QCOMPARE(m_server->requests(u"/login"_s).size(), 2);

        LoopbackServer other;
        QVERIFY(!other.listen().hasError());
        add(other, {u"/d"_s});
        QTRY_COMPARE(model().totals().failed, 1);
        QVERIFY(!other.requests().constFirst().head.contains("t0ken"));
    }

private:
    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<MainWindow> m_window;
};

QTEST_MAIN(tst_DownloadManager)

#include "tst_DownloadManager.moc"
