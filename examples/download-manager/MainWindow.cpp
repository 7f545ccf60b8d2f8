#include "MainWindow.h"

#include "DownloadDelegate.h"
#include "Texts.h"

#include <NetworkConstants.h>

#include <QAction>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>

#include <algorithm>
#include <functional>

namespace downloads {

namespace {

constexpr int DEFAULT_PARALLEL = 3;

bool isDownloadable(const QUrl& url)
{
    const auto scheme = url.scheme();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_logins(m_queue.networkAccessManager(), this)
    , m_model(m_queue, [this](const QUrl& url) { return m_logins.forUrl(url); })
    , m_urls(new QLineEdit)
    , m_directory(new QLineEdit)
    , m_parallel(new QSpinBox)
    , m_unverified(new QCheckBox(tr("Accept unverified &certificates")))
    , m_table(new QTableView)
    , m_totals(new QLabel)
{
    setWindowTitle(tr("Download manager"));
    setWindowIcon(style()->standardIcon(QStyle::SP_ArrowDown));
    makeActions();
    makeTable();
    makeContent();
    resize(1000, 520);
    setDirectory(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation));
    setParallelDownloads(DEFAULT_PARALLEL);
    connect(&m_model, &DownloadModel::dataChanged, this, &MainWindow::updateActions);
    connect(&m_model, &DownloadModel::rowsInserted, this, &MainWindow::updateActions);
    connect(&m_model, &DownloadModel::rowsRemoved, this, &MainWindow::updateActions);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::updateActions);
    updateActions();
}

MainWindow::~MainWindow() = default;

int MainWindow::addUrls(const QString& text)
{
    static const QRegularExpression whiteSpace(QStringLiteral("\\s+"));
    if (!QFileInfo(directory()).isDir()) {
        statusBar()->showMessage(tr("There is no folder %1").arg(directory()));
        return 0;
    }
    int count = 0;
    QStringList refused;
    for (const auto& word : text.split(whiteSpace, Qt::SkipEmptyParts)) {
        const auto url = QUrl::fromUserInput(word);
        if (isDownloadable(url)) {
            m_model.add(url, directory());
            ++count;
        } else {
            refused.append(word);
        }
    }
    if (refused.isEmpty())
        statusBar()->clearMessage();
    else
        statusBar()->showMessage(tr("Not a web address: %1").arg(refused.join(QLatin1Char(' '))));
    return count;
}

QString MainWindow::directory() const
{
    return m_directory->text();
}

void MainWindow::setDirectory(const QString& path)
{
    m_directory->setText(QDir::toNativeSeparators(path));
}

void MainWindow::setParallelDownloads(int count)
{
    m_parallel->setValue(count);
}

void MainWindow::setAcceptsUnverifiedCertificates(bool accepts)
{
    m_unverified->setChecked(accepts);
}

// A closed window must neither continue to download nor ask for a login.
void MainWindow::closeEvent(QCloseEvent* event)
{
    m_model.pauseAll();
    m_logins.cancel();
    QMainWindow::closeEvent(event);
}

void MainWindow::makeActions()
{
    auto* bar = addToolBar(tr("Downloads"));
    bar->setMovable(false);
    bar->setIconSize({18, 18});
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    const auto add = [&](const char* name, QStyle::StandardPixmap icon, const QString& text,
                         const QKeySequence& shortcut, const std::function<void()>& act) {
        auto* action = bar->addAction(style()->standardIcon(icon), text);
        action->setObjectName(QLatin1String(name));
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, act);
        m_table->addAction(action);
        return action;
    };
    m_resume = add("resume", QStyle::SP_MediaPlay, tr("Resume"), Qt::CTRL | Qt::Key_R,
                   [this] { forSelection(&DownloadModel::resume); });
    m_pause = add("pause", QStyle::SP_MediaPause, tr("Pause"), Qt::CTRL | Qt::Key_P,
                  [this] { forSelection(&DownloadModel::pause); });
    m_remove = add("remove", QStyle::SP_TrashIcon, tr("Remove"), {},
                   [this] { forSelection(&DownloadModel::remove); });
    bar->addSeparator();
    m_clearDone = add("clearDone", QStyle::SP_DialogApplyButton, tr("Clear done"), {},
                      [this] { m_model.removeDone(); });
    // Only for the table: in a text field, the key deletes text.
    m_remove->setShortcut(QKeySequence::Delete);
    m_remove->setShortcutContext(Qt::WidgetShortcut);
}

void MainWindow::makeTable()
{
    m_table->setModel(&m_model);
    m_table->setItemDelegate(new DownloadDelegate(m_table));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setAlternatingRowColors(true);
    m_table->setShowGrid(false);
    m_table->setWordWrap(false);
    m_table->setContextMenuPolicy(Qt::ActionsContextMenu);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 12);
    auto* header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setStretchLastSection(true);
    const int letter = fontMetrics().averageCharWidth();
    const int widths[] = {25, 22, 23, 22, 12, 11};
    for (int column = 0; column < DownloadModel::Message; ++column)
        header->resizeSection(column, widths[column] * letter);
}

void MainWindow::makeContent()
{
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->addLayout(makeSourceRow());
    layout->addLayout(makeSettingsRow());
    layout->addWidget(m_table);
    setCentralWidget(content);
    statusBar()->addPermanentWidget(m_totals);
}

QLayout* MainWindow::makeSourceRow()
{
    m_urls->setObjectName(QStringLiteral("urls"));
    m_urls->setPlaceholderText(tr("Paste one or more addresses here"));
    m_urls->setClearButtonEnabled(true);
    auto* button = new QPushButton(style()->standardIcon(QStyle::SP_ArrowDown), tr("&Add"));
    button->setObjectName(QStringLiteral("add"));
    connect(button, &QPushButton::clicked, this, &MainWindow::onAddRequested);
    connect(m_urls, &QLineEdit::returnPressed, this, &MainWindow::onAddRequested);

    auto* row = new QHBoxLayout;
    row->addWidget(m_urls);
    row->addWidget(button);
    return row;
}

QLayout* MainWindow::makeSettingsRow()
{
    auto* choose = new QPushButton(style()->standardIcon(QStyle::SP_DirOpenIcon), tr("C&hoose…"));
    m_parallel->setObjectName(QStringLiteral("parallel"));
    m_parallel->setRange(1, network::MAX_PARALLEL_REQUESTS);
    m_unverified->setObjectName(QStringLiteral("unverified"));
    m_unverified->setToolTip(tr("For test and in-house servers: their identity is not verified."));
    connect(choose, &QPushButton::clicked, this, &MainWindow::chooseDirectory);
    connect(m_parallel, &QSpinBox::valueChanged, this,
            [this](int count) { m_queue.setMaxRunningTasks(count); });
    connect(m_unverified, &QCheckBox::toggled, this, [this](bool accepts) {
        m_logins.forgetTokens();
        m_queue.setIgnoreSslErrors(accepts);
    });

    auto* directoryLabel = new QLabel(tr("&Save in:"));
    directoryLabel->setBuddy(m_directory);
    auto* parallelLabel = new QLabel(tr("A&t once:"));
    parallelLabel->setBuddy(m_parallel);
    auto* row = new QHBoxLayout;
    row->addWidget(directoryLabel);
    row->addWidget(m_directory);
    row->addWidget(choose);
    row->addSpacing(12);
    row->addWidget(parallelLabel);
    row->addWidget(m_parallel);
    row->addSpacing(12);
    row->addWidget(m_unverified);
    return row;
}

void MainWindow::chooseDirectory()
{
    const auto path = QFileDialog::getExistingDirectory(this, tr("Save downloads in"), directory());
    if (!path.isEmpty())
        setDirectory(path);
}

void MainWindow::onAddRequested()
{
    if (addUrls(m_urls->text()) > 0)
        m_urls->clear();
}

void MainWindow::updateActions()
{
    bool canPause = false;
    bool canResume = false;
    const auto rows = selectedRows();
    for (const int row : rows) {
        const auto& item = m_model.item(row);
        canPause = canPause || item.isActive();
        canResume = canResume || (!item.isActive() && item.state() != DownloadItem::State::Done);
    }
    m_pause->setEnabled(canPause);
    m_resume->setEnabled(canResume);
    m_remove->setEnabled(!rows.isEmpty());
    updateTotals();
}

void MainWindow::updateTotals()
{
    const auto totals = m_model.totals();
    m_clearDone->setEnabled(totals.done > 0);
    m_totals->setText(tr("%1 active  ·  %2 queued  ·  %3 done  ·  %4 failed  ·  %5 received  ·  %6")
                          .arg(totals.active)
                          .arg(totals.queued)
                          .arg(totals.done)
                          .arg(totals.failed)
                          .arg(texts::size(totals.received), texts::rate(totals.bytesPerSecond)));
}

QList<int> MainWindow::selectedRows() const
{
    QList<int> rows;
    const auto indexes = m_table->selectionModel()->selectedRows();
    for (const auto& index : indexes)
        rows.append(index.row());
    return rows;
}

// From the last row to the first, so that removing a row does not shift the rows that follow.
void MainWindow::forSelection(void (DownloadModel::*verb)(int))
{
    auto rows = selectedRows();
    std::sort(rows.begin(), rows.end(), std::greater<>());
    for (const int row : rows)
        (m_model.*verb)(row);
}

} // namespace downloads
