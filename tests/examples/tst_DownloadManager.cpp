#include "../Files.h"
#include "LoginDialog.h"
#include "MainWindow.h"

#include <LoopbackServer.h>

#include <QAction>
#include <QCheckBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QSpinBox>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using downloads::DownloadItem;
using downloads::DownloadModel;
using downloads::LoginDialog;
using downloads::MainWindow;
using orv::LoopbackReply;
using orv::LoopbackRequest;
using orv::LoopbackServer;
using State = DownloadItem::State;
using States = QList<State>;

namespace {

// More than any test waits for.
LoopbackReply endless()
{
    return LoopbackReply(200, QByteArray(1'000'000, 'x')).dripped(100, 20ms);
}

// Answers logins with the token of the server, and requests with that token with a file.
std::function<LoopbackReply(const LoopbackRequest&)> lockedBehind(const QByteArray& token)
{
    return [token](const LoopbackRequest& request) {
        if (request.path == "/login"_L1) {
            const auto given = QJsonDocument::fromJson(request.content).object();
            const QJsonObject expected{{u"user"_s, u"ann"_s}, {u"password"_s, u"s\u00e9same"_s}};
            return given == expected ? LoopbackReply::json({{u"token"_s, QString::fromLatin1(token)}})
                                     : LoopbackReply(401);
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
    QString message(int row) { return model().index(row, DownloadModel::Message).data().toString(); }
    QStringList files() const { return filesIn(m_directory->path()); }
    QByteArray contentOf(const QString& name) const { return readFile(m_directory->filePath(name)); }

    template <typename Object>
    Object* child(const QString& name = {})
    {
        return m_window->findChild<Object*>(name);
    }

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

    // By keyboard, from one server.
    void add(const QStringList& paths, const LoopbackServer* server = nullptr)
    {
        auto* field = child<QLineEdit>(u"urls"_s);
        for (const auto& path : paths)
            field->setText(field->text() + u' ' + (server ? server : m_server.get())->url(path));
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(field->text().isEmpty());
    }

    void trigger(const QString& action, int row)
    {
        child<QTableView>()->selectRow(row);
        child<QAction>(action)->trigger();
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
        m_history.clear();
        connect(&model(), &DownloadModel::dataChanged, this, [this](const QModelIndex& from) {
            auto& states = m_history[from.row()];
            if (states.isEmpty() || states.last() != state(from.row()))
                states.append(state(from.row()));
        });
    }

    void cleanup() { m_window.reset(); }

    void bringsEachDownloadToItsFile()
    {
        const QByteArray dripped(30'000, 'x');
        m_server->addReply(u"/slow.bin"_s, LoopbackReply(200, dripped).dripped(1000, 20ms));
        m_server->addReply(u"/busy.txt"_s, LoopbackReply(503, "come back later"));
        m_server->addReply(u"/busy.txt"_s, LoopbackReply(200, "here you are"));
        add({u"/slow.bin"_s, u"/busy.txt"_s, u"/private"_s});
        QCOMPARE(model().rowCount(), 3);
        const auto percent = [this] { return model().index(0, 0).data(DownloadModel::PercentRole).toInt(); };
        QTRY_VERIFY(percent() > 0 && percent() < 100);
        QCOMPARE(files(), QStringList());
        QTRY_COMPARE(state(2), State::WaitingForLogin);
        logIn();

        QTRY_COMPARE(model().totals().done, 3);
        using enum DownloadItem::State;
        QCOMPARE(m_history[0], (States{Queued, Downloading, Done}));
        QCOMPARE(m_history[1], (States{Queued, Downloading, WaitingToRetry, Downloading, WaitingToRetry,
                                       Downloading, Done}));
        QCOMPARE(m_history[2], (States{Queued, Downloading, WaitingForLogin, Downloading, Done}));
        QCOMPARE(percent(), 100);
        QCOMPARE(model().totals().received, dripped.size() + 12 + 5);
        QCOMPARE(contentOf(u"slow.bin"_s), dripped);
        QCOMPARE(contentOf(u"busy.txt"_s), "here you are"_ba);
        QCOMPARE(contentOf(u"private"_s), "t0ken"_ba);
        QTRY_VERIFY(m_window->findChildren<LoginDialog*>().isEmpty());
        child<QAction>(u"clearDone"_s)->trigger();
        QCOMPARE(model().rowCount(), 0);
        QCOMPARE(files().size(), 3);
    }

    void logsInOnceForAllTasksAndAtTheirServerOnly()
    {
        LoopbackServer other;
        QVERIFY(!other.listen().hasError());
        other.setHandler(lockedBehind("other-token"));
        // The refusal of this one comes when the login is over.
        m_server->addReply(u"/late"_s, LoopbackReply(401).delayed(700ms));
        m_server->addReply(u"/late"_s, LoopbackReply(200, "late"));
        m_window->setParallelDownloads(4);
        add({u"/a"_s, u"/b"_s, u"/late"_s});
        QTRY_COMPARE(model().totals().active, 3);
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        logIn(u"wrong"_s);
        QTRY_VERIFY(dialogs().constFirst()->findChild<QLineEdit*>(u"user"_s)->isEnabled());
        QCOMPARE(state(0), State::WaitingForLogin);
        logIn();
        QTRY_COMPARE(model().totals().done, 3);
        QCOMPARE(m_server->requests(u"/login"_s).size(), 2);

        add({u"/c"_s}); // a token that is there goes along from the start
        add({u"/d"_s}, &other);
        QTRY_COMPARE(state(3), State::Done);
        QCOMPARE(m_server->requests(u"/c"_s).size(), 1);
        logIn();
        QTRY_COMPARE(state(4), State::Done);
        QCOMPARE(contentOf(u"d"_s), "other-token"_ba);
        for (const auto& request : other.requests() + m_server->requests(u"/login"_s))
            QVERIFY(!request.head.contains("t0ken"));
    }

    void failsWithAClearTextWhenTheLoginIsCancelled()
    {
        add({u"/a"_s, u"/b"_s});
        QTRY_COMPARE(state(0), State::WaitingForLogin);
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        dialogs().constFirst()->reject();
        QTRY_COMPARE(model().totals().failed, 2);
        QVERIFY2(message(1).contains(u"cancelled"), qPrintable(message(1)));
        QVERIFY(dialogs().isEmpty());
        trigger(u"resume"_s, 1);
        logIn();
        QTRY_COMPARE(state(1), State::Done);
        QCOMPARE(state(0), State::Failed);
        child<QAction>(u"clearDone"_s)->trigger();
        QCOMPARE(model().rowCount(), 1);
    }

    void tellsWhyADownloadDoesNotGoOn()
    {
        m_server->addReply(u"/status"_s, LoopbackReply(404).withReason("No Such Thing"));
        m_server->addReply(u"/redirect"_s, LoopbackReply(302).withField("Location", "/elsewhere"));
        m_server->addReply(u"/temporary"_s, LoopbackReply(503));
        m_server->addReply(u"/cut"_s, LoopbackReply(200, QByteArray(100'000, 'x')).cutAfter(50'000));
        m_window->setParallelDownloads(4);
        add({u"/status"_s, u"/redirect"_s, u"/temporary"_s, u"/cut"_s});
        const QStringList reasons{u"404 No Such Thing"_s, u"/elsewhere"_s, u"503 Service Unavailable"_s,
                                  u"closed"_s};
        for (int row = 0; row < 4; ++row) {
            QTRY_COMPARE(state(row), row < 2 ? State::Failed : State::WaitingToRetry);
            QVERIFY2(message(row).contains(reasons[row]), qPrintable(message(row)));
        }
        QCOMPARE(files(), QStringList());
    }

    void keepsToTheLimitAndBeginsAgainAfterAPause()
    {
        for (const auto& path : {u"/a"_s, u"/b"_s})
            m_server->addReply(path, endless());
        for (const auto& path : {u"/b"_s, u"/c"_s})
            m_server->addReply(path, LoopbackReply(200, "all of it"));
        auto* parallel = child<QSpinBox>(u"parallel"_s);
        parallel->setValue(1);
        add({u"/a"_s, u"/b"_s, u"/c"_s});
        QTRY_VERIFY(model().item(0).received() > 0);
        QCOMPARE(state(1), State::Queued);
        parallel->setValue(2);
        QTRY_VERIFY(model().item(1).received() > 0);
        QCOMPARE(state(2), State::Queued);

        trigger(u"pause"_s, 1);
        QCOMPARE(state(1), State::Paused);
        QVERIFY(!child<QAction>(u"pause"_s)->isEnabled());
        QTRY_COMPARE(state(2), State::Done);
        QCOMPARE(files(), QStringList{u"c"_s});
        trigger(u"resume"_s, 1);
        QTRY_COMPARE(state(1), State::Done);
        QCOMPARE(contentOf(u"b"_s), "all of it"_ba);
        using enum DownloadItem::State;
        QCOMPARE(m_history[1], (States{Queued, Downloading, Paused, Queued, Downloading, Done}));

        trigger(u"remove"_s, 0);
        QCOMPARE(model().rowCount(), 2);
        QCOMPARE(model().totals().done, 2);
    }

    void trustsCertificatesAndKeepsTokensOnlyAsLongAsTold()
    {
        LoopbackServer server(LoopbackServer::Transport::Tls);
        QVERIFY(!server.listen().hasError());
        server.setHandler(lockedBehind("t0ken"));
        auto* unverified = child<QCheckBox>(u"unverified"_s);
        add({u"/a"_s}, &server);
        QTRY_COMPARE(state(0), State::Failed);
        QVERIFY(server.requests().isEmpty());

        unverified->setChecked(true);
        trigger(u"resume"_s, 0);
        logIn();
        QTRY_COMPARE(state(0), State::Done);

        // Whoever is behind the address by now has to ask for a login.
        unverified->setChecked(false);
        unverified->setChecked(true);
        add({u"/b"_s}, &server);
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        QVERIFY(!server.requests(u"/b"_s).constFirst().hasField("Authorization"));
    }

    void endsCleanlyWithDownloadsInFlight_data()
    {
        QTest::addColumn<bool>("closes");
        QTest::addRow("closed") << true;
        QTest::addRow("destroyed") << false;
    }

    void endsCleanlyWithDownloadsInFlight()
    {
        QFETCH(const bool, closes);
        m_server->addReply(u"/endless"_s, endless());
        m_server->addReply(u"/silent"_s, LoopbackReply::silence());
        m_server->addReply(u"/busy"_s, LoopbackReply(503));
        m_window->setParallelDownloads(2);
        add({u"/busy"_s, u"/private"_s, u"/endless"_s, u"/silent"_s, u"/queued"_s});
        QTRY_COMPARE(state(0), State::WaitingToRetry);
        QTRY_COMPARE(state(1), State::WaitingForLogin);
        QTRY_VERIFY(model().item(2).received() > 0);
        QTRY_COMPARE(m_server->requests(u"/silent"_s).size(), 1);
        QCOMPARE(state(4), State::Queued);
        if (closes) {
            QVERIFY(m_window->close());
            for (int row = 0; row < model().rowCount(); ++row)
                QCOMPARE(state(row), State::Paused);
            QVERIFY(dialogs().isEmpty());
        }
        const auto count = m_server->requests().size();
        m_window.reset();
        // One that still ran would be seen when the answer to a request of our own has come.
        MainWindow window;
        window.setDirectory(m_directory->path());
        window.addUrls(m_server->url(u"/silent/not"_s));
        QTRY_COMPARE(window.model().item(0).state(), State::WaitingForLogin);
        QCOMPARE(m_server->requests().size(), count + 1);
        QCOMPARE(files(), QStringList());
    }

private:
    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<MainWindow> m_window;
    QMap<int, States> m_history; // by row
};

QTEST_MAIN(tst_DownloadManager)

#include "tst_DownloadManager.moc"
