#include "../Files.h"
#include "LoginDialog.h"
#include "MainWindow.h"

#include <LoopbackServer.h>

#include <QAction>
#include <QJsonDocument>
#include <QJsonObject>
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

// A reply that takes longer than any test waits.
LoopbackReply endless()
{
    return LoopbackReply(200, QByteArray(1'000'000, 'x')).dripped(10'000, 200ms);
}

// Answers logins with the token, and requests that carry the token with content.
std::function<LoopbackReply(const LoopbackRequest&)> lockedBehind(const QByteArray& token)
{
    return [token](const LoopbackRequest& request) {
        if (request.path == "/login"_L1) {
            const QJsonObject expected{{u"user"_s, u"ann"_s}, {u"password"_s, u"s\u00e9same"_s}};
            const bool isRight = QJsonDocument::fromJson(request.content).object() == expected;
            return isRight ? LoopbackReply(200, "{\"token\":\"" + token + "\"}") : LoopbackReply(401);
        }
        const bool isKnown = request.field("Authorization") == "Bearer " + token;
        return isKnown ? LoopbackReply(200, token) : LoopbackReply(401, "not without a login");
    };
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

    // Adds downloads from one server, by keyboard.
    void add(const QStringList& paths, const LoopbackServer* server = nullptr)
    {
        auto* field = m_window->findChild<QLineEdit*>(u"urls"_s);
        for (const auto& path : paths)
            field->setText(field->text() + u' ' + (server ? server : m_server.get())->url(path));
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
        m_server->setHandler(lockedBehind("t0ken"));
        m_window = std::make_unique<MainWindow>();
        m_window->setDirectory(m_directory->path());
        m_window->show();
    }

    void cleanup() { m_window.reset(); }

    void savesEachDownloadInItsFile()
    {
        m_server->addReply(u"/busy.txt"_s, LoopbackReply(503, "come back later"));
        m_server->addReply(u"/busy.txt"_s, LoopbackReply(200, "here you are"));
        add({u"/busy.txt"_s, u"/private"_s});
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        logIn();
        QTRY_COMPARE(model().totals().done, 2);
        QCOMPARE(model().totals().received, 12 + 5);
        QCOMPARE(contentOf(u"busy.txt"_s), "here you are"_ba);
        QCOMPARE(contentOf(u"private"_s), "t0ken"_ba);
    }

    void logsInOnceForAllDownloadsFromAServer()
    {
        LoopbackServer other;
        QVERIFY(!other.listen().hasError());
        other.setHandler(lockedBehind("other-token"));
        add({u"/a"_s, u"/b"_s});
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        logIn(u"wrong"_s);
        QTRY_VERIFY(dialogs().constFirst()->findChild<QLineEdit*>(u"user"_s)->isEnabled());
        logIn();
        QTRY_COMPARE(model().totals().done, 2);
        QCOMPARE(m_server->requests(u"/login"_s).size(), 2);

        add({u"/d"_s}, &other);
        logIn();
        QTRY_COMPARE(state(2), State::Done);
        QCOMPARE(contentOf(u"d"_s), "other-token"_ba);
        for (const auto& request : other.requests())
            QVERIFY(!request.head.contains("t0ken"));
    }

    void keepsTheLimitAndRestartsAPausedDownload()
    {
        for (const auto& path : {u"/a"_s, u"/b"_s})
            m_server->addReply(path, endless());
        for (const auto& path : {u"/b"_s, u"/c"_s})
            m_server->addReply(path, LoopbackReply(200, "all of it"));
        m_window->setParallelDownloads(2);
        add({u"/a"_s, u"/b"_s, u"/c"_s});
        QTRY_VERIFY(model().index(1, 0).data(DownloadModel::PercentRole).toInt() > 0);
        QCOMPARE(state(2), State::Queued);
        trigger(u"pause"_s, 1);
        QTRY_COMPARE(state(2), State::Done);
        QCOMPARE(files(), QStringList{u"c"_s});
        trigger(u"resume"_s, 1);
        QTRY_COMPARE(state(1), State::Done);
        QCOMPARE(contentOf(u"b"_s), "all of it"_ba);
        trigger(u"remove"_s, 0);
        QCOMPARE(model().rowCount(), 2);
    }

    void stopsAllDownloadsWhenClosed()
    {
        m_server->addReply(u"/endless"_s, endless());
        m_server->addReply(u"/busy"_s, LoopbackReply(503));
        add({u"/busy"_s, u"/private"_s, u"/endless"_s, u"/queued"_s});
        QTRY_COMPARE(state(0), State::WaitingToRetry);
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        QTRY_VERIFY(model().item(2).received() > 0);
        QVERIFY(m_window->close());
        for (int row = 0; row < model().rowCount(); ++row)
            QCOMPARE(state(row), State::Paused);
        QVERIFY(dialogs().isEmpty());
        m_window.reset();
        QCOMPARE(files(), QStringList());
    }

private:
    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<MainWindow> m_window;
};

QTEST_MAIN(tst_DownloadManager)

#include "tst_DownloadManager.moc"
