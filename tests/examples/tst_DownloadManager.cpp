#include "LoginDialog.h"
#include "MainWindow.h"

#include <LoopbackServer.h>

#include <QAction>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QSpinBox>
#include <QStatusBar>
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

QByteArray content(qsizetype size)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7);
    return bytes;
}

// More than any test waits for.
LoopbackReply endless()
{
    return LoopbackReply(200, content(1'000'000)).dripped(100, 20ms);
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

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

void logIn(LoginDialog* dialog, const QString& user, const QString& password)
{
    dialog->findChild<QLineEdit*>(u"user"_s)->setText(user);
    dialog->findChild<QLineEdit*>(u"password"_s)->setText(password);
    dialog->accept();
}

} // namespace

/// Drives the real window against servers in this process.
class tst_DownloadManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void bringsEachDownloadToItsFile();
    void logsInOnceForAllTasksAndAtTheirServerOnly();
    void failsWithAClearTextWhenTheLoginIsCancelled();
    void tellsWhyADownloadDoesNotGoOn_data();
    void tellsWhyADownloadDoesNotGoOn();
    void beginsAgainAfterAPause();
    void keepsToTheLimitAndGoesOnWhenARunningRowIsRemoved();
    void trustsCertificatesAndKeepsTokensOnlyAsLongAsTold();
    void endsCleanlyWithDownloadsInFlight_data();
    void endsCleanlyWithDownloadsInFlight();

private:
    DownloadModel& model() { return m_window->model(); }
    State state(int row) { return model().item(row).state(); }
    QString text(int row, DownloadModel::Column column)
    {
        return model().index(row, column).data().toString();
    }
    QString path(const QString& name) const { return m_directory->filePath(name); }
    QStringList files() const { return QDir(m_directory->path()).entryList(QDir::Files | QDir::Hidden); }
    QList<LoginDialog*> dialogs() const;
    void addByKeyboard(const QStringList& urls);
    void trigger(const QString& action, int row);

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<LoopbackServer> m_server;
    std::unique_ptr<MainWindow> m_window;
    QMap<int, States> m_history; // by row
};

void tst_DownloadManager::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_server = std::make_unique<LoopbackServer>();
    QVERIFY(!m_server->listen().hasError());
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

void tst_DownloadManager::cleanup()
{
    m_window.reset();
    m_server.reset();
    m_directory.reset();
}

QList<LoginDialog*> tst_DownloadManager::dialogs() const
{
    QList<LoginDialog*> open;
    for (auto* dialog : m_window->findChildren<LoginDialog*>()) {
        if (dialog->isVisible())
            open.append(dialog);
    }
    return open;
}

void tst_DownloadManager::addByKeyboard(const QStringList& urls)
{
    auto* field = m_window->findChild<QLineEdit*>(u"urls"_s);
    field->setText(urls.join(u'\n'));
    QTest::keyClick(field, Qt::Key_Return);
}

void tst_DownloadManager::trigger(const QString& action, int row)
{
    m_window->findChild<QTableView*>()->selectRow(row);
    m_window->findChild<QAction*>(action)->trigger();
}

void tst_DownloadManager::bringsEachDownloadToItsFile()
{
    const auto dripped = content(30'000);
    m_server->addReply(u"/slow.bin"_s, LoopbackReply(200, dripped).dripped(1000, 20ms));
    m_server->addReply(u"/busy.txt"_s, LoopbackReply(503, "come back later"));
    m_server->addReply(u"/busy.txt"_s, LoopbackReply(200, "here you are"));
    m_server->setHandler(lockedBehind("t0ken"));

    addByKeyboard(
        {m_server->url(u"/slow.bin"_s), m_server->url(u"/busy.txt"_s), m_server->url(u"/private"_s)});
    QCOMPARE(model().rowCount(), 3);
    QVERIFY(m_window->findChild<QLineEdit*>(u"urls"_s)->text().isEmpty());
    const auto percent = [this] { return model().index(0, 0).data(DownloadModel::PercentRole).toInt(); };
    QTRY_VERIFY(percent() > 0 && percent() < 100);
    QCOMPARE(files(), QStringList());
    QTRY_COMPARE(dialogs().size(), 1);
    QCOMPARE(state(2), State::WaitingForLogin);
    logIn(dialogs().constFirst(), u"ann"_s, u"s\u00e9same"_s);

    QTRY_COMPARE(model().totals().done, 3);
    QCOMPARE(m_history[0], (States{State::Queued, State::Downloading, State::Done}));
    QCOMPARE(m_history[1],
             (States{State::Queued, State::Downloading, State::WaitingToRetry, State::Downloading,
                     State::WaitingToRetry, State::Downloading, State::Done}));
    QCOMPARE(m_history[2], (States{State::Queued, State::Downloading, State::WaitingForLogin,
                                   State::Downloading, State::Done}));
    QCOMPARE(percent(), 100);
    QCOMPARE(model().totals().received, dripped.size() + 12 + 5);
    QCOMPARE(readFile(path(u"slow.bin"_s)), dripped);
    QCOMPARE(readFile(path(u"busy.txt"_s)), QByteArray("here you are"));
    QCOMPARE(readFile(path(u"private"_s)), QByteArray("t0ken"));
    QTRY_VERIFY(m_window->findChildren<LoginDialog*>().isEmpty());

    m_window->findChild<QAction*>(u"clearDone"_s)->trigger();
    QCOMPARE(model().rowCount(), 0);
    QCOMPARE(files().size(), 3);
}

void tst_DownloadManager::logsInOnceForAllTasksAndAtTheirServerOnly()
{
    LoopbackServer other;
    QVERIFY(!other.listen().hasError());
    other.setHandler(lockedBehind("other-token"));
    // The refusal of this one comes when the login is over.
    m_server->addReply(u"/late"_s, LoopbackReply(401).delayed(700ms));
    m_server->addReply(u"/late"_s, LoopbackReply(200, "late"));
    m_server->setHandler(lockedBehind("t0ken"));
    m_window->setParallelDownloads(4);

    addByKeyboard({m_server->url(u"/a"_s), m_server->url(u"/b"_s), m_server->url(u"/late"_s)});
    QTRY_COMPARE(model().totals().active, 3);
    QTRY_COMPARE(state(1), State::WaitingForLogin);
    QCOMPARE(dialogs().size(), 1);
    auto* dialog = dialogs().constFirst();
    logIn(dialog, u"ann"_s, u"wrong"_s);
    QTRY_VERIFY(dialog->findChild<QLineEdit*>(u"user"_s)->isEnabled());
    QCOMPARE(state(0), State::WaitingForLogin);
    logIn(dialog, u"ann"_s, u"s\u00e9same"_s);
    QTRY_COMPARE(model().totals().done, 3);
    QCOMPARE(m_server->requests(u"/login"_s).size(), 2);

    // A token that is there goes along from the start.
    addByKeyboard({m_server->url(u"/c"_s), other.url(u"/d"_s)});
    QTRY_COMPARE(state(3), State::Done);
    QCOMPARE(m_server->requests(u"/c"_s).size(), 1);
    QTRY_COMPARE(dialogs().size(), 1);
    logIn(dialogs().constFirst(), u"ann"_s, u"s\u00e9same"_s);
    QTRY_COMPARE(state(4), State::Done);
    QCOMPARE(readFile(path(u"d"_s)), QByteArray("other-token"));
    for (const auto& request : other.requests())
        QVERIFY(!request.head.contains("t0ken"));
    for (const auto& request : m_server->requests(u"/login"_s))
        QVERIFY(!request.hasField("Authorization"));
}

void tst_DownloadManager::failsWithAClearTextWhenTheLoginIsCancelled()
{
    m_server->setHandler(lockedBehind("t0ken"));
    addByKeyboard({m_server->url(u"/a"_s), m_server->url(u"/b"_s)});
    QTRY_COMPARE(state(0), State::WaitingForLogin);
    QTRY_COMPARE(state(1), State::WaitingForLogin);
    dialogs().constFirst()->reject();
    QTRY_COMPARE(model().totals().failed, 2);
    QVERIFY2(text(1, DownloadModel::Message).contains(u"cancelled"),
             qPrintable(text(1, DownloadModel::Message)));
    QVERIFY(dialogs().isEmpty());

    trigger(u"resume"_s, 1);
    QTRY_COMPARE(dialogs().size(), 1);
    logIn(dialogs().constFirst(), u"ann"_s, u"s\u00e9same"_s);
    QTRY_COMPARE(state(1), State::Done);
    QCOMPARE(state(0), State::Failed);
}

void tst_DownloadManager::tellsWhyADownloadDoesNotGoOn_data()
{
    QTest::addColumn<LoopbackReply>("reply");
    QTest::addColumn<State>("state");
    QTest::addColumn<QString>("text");
    QTest::newRow("status") << LoopbackReply(404).withReason("No Such Thing") << State::Failed
                            << u"404 No Such Thing"_s;
    QTest::newRow("redirect") << LoopbackReply(302).withField("Location", "/elsewhere") << State::Failed
                              << u"/elsewhere"_s;
    QTest::newRow("temporary") << LoopbackReply(503) << State::WaitingToRetry << u"503 Service Unavailable"_s;
    QTest::newRow("cut") << LoopbackReply(200, content(100'000)).cutAfter(50'000) << State::WaitingToRetry
                         << u"closed"_s;
}

void tst_DownloadManager::tellsWhyADownloadDoesNotGoOn()
{
    QFETCH(const LoopbackReply, reply);
    QFETCH(const State, state);
    QFETCH(const QString, text);
    m_server->addReply(u"/file"_s, reply);
    addByKeyboard({m_server->url(u"/file"_s)});
    QTRY_COMPARE(this->state(0), state);
    const auto message = this->text(0, DownloadModel::Message);
    QVERIFY2(message.contains(text), qPrintable(message));
    QCOMPARE(files(), QStringList());
}

void tst_DownloadManager::beginsAgainAfterAPause()
{
    m_server->addReply(u"/file"_s, endless());
    m_server->addReply(u"/file"_s, LoopbackReply(200, "all of it"));
    addByKeyboard({m_server->url(u"/file"_s)});
    QTRY_VERIFY(model().item(0).received() > 0);
    trigger(u"pause"_s, 0);
    QCOMPARE(state(0), State::Paused);
    QVERIFY(!m_window->findChild<QAction*>(u"pause"_s)->isEnabled());
    QCOMPARE(files(), QStringList());

    trigger(u"resume"_s, 0);
    QTRY_COMPARE(state(0), State::Done);
    QCOMPARE(readFile(path(u"file"_s)), QByteArray("all of it"));
    QCOMPARE(m_history[0], (States{State::Queued, State::Downloading, State::Paused, State::Queued,
                                   State::Downloading, State::Done}));
}

void tst_DownloadManager::keepsToTheLimitAndGoesOnWhenARunningRowIsRemoved()
{
    m_server->addReply(u"/a"_s, endless());
    m_server->addReply(u"/b"_s, endless());
    m_server->addReply(u"/c"_s, LoopbackReply(200, "c"));
    auto* parallel = m_window->findChild<QSpinBox*>(u"parallel"_s);
    parallel->setValue(1);
    addByKeyboard({m_server->url(u"/a"_s), m_server->url(u"/b"_s), m_server->url(u"/c"_s)});
    QTRY_VERIFY(model().item(0).received() > 0);
    QCOMPARE(state(1), State::Queued);
    parallel->setValue(2);
    QTRY_VERIFY(model().item(1).received() > 0);
    QCOMPARE(state(2), State::Queued);

    trigger(u"remove"_s, 0);
    QCOMPARE(model().rowCount(), 2);
    QTRY_COMPARE(state(1), State::Done);
    QCOMPARE(state(0), State::Downloading);
    QCOMPARE(files(), QStringList{u"c"_s});
}

void tst_DownloadManager::trustsCertificatesAndKeepsTokensOnlyAsLongAsTold()
{
    LoopbackServer server(LoopbackServer::Transport::Tls);
    QVERIFY(!server.listen().hasError());
    server.setHandler(lockedBehind("t0ken"));
    auto* unverified = m_window->findChild<QCheckBox*>(u"unverified"_s);
    addByKeyboard({server.url(u"/a"_s)});
    QTRY_COMPARE(state(0), State::Failed);
    QVERIFY(server.requests().isEmpty());

    unverified->setChecked(true);
    trigger(u"resume"_s, 0);
    QTRY_COMPARE(dialogs().size(), 1);
    logIn(dialogs().constFirst(), u"ann"_s, u"s\u00e9same"_s);
    QTRY_COMPARE(state(0), State::Done);

    // Whoever is behind the address by now has to ask for a login.
    unverified->setChecked(false);
    unverified->setChecked(true);
    addByKeyboard({server.url(u"/b"_s)});
    QTRY_COMPARE(state(1), State::WaitingForLogin);
    QVERIFY(!server.requests(u"/b"_s).constFirst().hasField("Authorization"));
}

void tst_DownloadManager::endsCleanlyWithDownloadsInFlight_data()
{
    QTest::addColumn<bool>("closes");
    QTest::addRow("closed") << true;
    QTest::addRow("destroyed") << false;
}

void tst_DownloadManager::endsCleanlyWithDownloadsInFlight()
{
    QFETCH(const bool, closes);
    m_server->addReply(u"/endless"_s, endless());
    m_server->addReply(u"/silent"_s, LoopbackReply::silence());
    m_server->addReply(u"/busy"_s, LoopbackReply(503));
    m_server->setHandler(lockedBehind("t0ken"));
    m_window->setParallelDownloads(2);
    addByKeyboard({m_server->url(u"/busy"_s), m_server->url(u"/private"_s), m_server->url(u"/endless"_s),
                   m_server->url(u"/silent"_s), m_server->url(u"/queued"_s)});
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

QTEST_MAIN(tst_DownloadManager)

#include "tst_DownloadManager.moc"
