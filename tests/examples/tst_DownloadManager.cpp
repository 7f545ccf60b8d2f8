#include "../Files.h"
#include "LoginDialog.h"
#include "MainWindow.h"

#include <LoopbackServer.h>

#include <QAction>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
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
    QStringList files() const { return filesIn(m_directory->path()); }
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

    void trigger(const QString& action, int row)
    {
        m_window->findChild<QTableView*>()->selectRow(row);
        m_window->findChild<QAction*>(action)->trigger();
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

    void pausesResumesAndStopsDownloads()
    {
        const auto endless = LoopbackReply(200, QByteArray(1'000'000, 'x')).dripped(10'000, 200ms);
        m_server->addReply(u"/a"_s, endless);
        m_server->addReply(u"/b"_s, endless);
        m_server->addReply(u"/b"_s, LoopbackReply(200, "all of it"));
        m_server->addReply(u"/c"_s, LoopbackReply(200, "all of it"));
        m_window->setParallelDownloads(2);
        add(*m_server, {u"/a"_s, u"/b"_s, u"/c"_s, u"/private"_s});
        QTRY_VERIFY(model().index(1, 0).data(DownloadModel::PercentRole).toInt() > 0);
        QCOMPARE(state(2), State::Queued);
        trigger(u"pause"_s, 1);
        QTRY_COMPARE(state(2), State::Done);
        QTRY_COMPARE(state(3), State::WaitingForLogin);
        QCOMPARE(files(), QStringList{u"c"_s});
        trigger(u"resume"_s, 1);
        QTRY_COMPARE(state(1), State::Done);
        QCOMPARE(contentOf(u"b"_s), "all of it"_ba);
        trigger(u"remove"_s, 1);
        QCOMPARE(model().rowCount(), 3);
        QVERIFY(m_window->close());
        QCOMPARE(state(0), State::Paused);
        QCOMPARE(state(2), State::Paused);
        QVERIFY(dialogs().isEmpty());
        m_window.reset();
        QCOMPARE(files(), QStringList({u"b"_s, u"c"_s}));
    }

private:
    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<MainWindow> m_window;
};

QTEST_MAIN(tst_DownloadManager)

#include "tst_DownloadManager.moc"
