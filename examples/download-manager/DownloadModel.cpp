#include "DownloadModel.h"

#include "Texts.h"

#include <NetworkQueue.h>

#include <QFileInfo>

#include <algorithm>
#include <utility>

namespace downloads {

namespace {

using namespace std::chrono_literals;
using State = DownloadItem::State;

QString cellText(const DownloadItem& item, int column)
{
    switch (column) {
    case DownloadModel::Name:
        return QFileInfo(item.filePath()).fileName();
    case DownloadModel::Status:
        return texts::state(item.state());
    case DownloadModel::Size:
        return texts::progress(item.received(), item.total());
    case DownloadModel::Rate:
        return item.bytesPerSecond() > 0 ? texts::rate(item.bytesPerSecond()) : QString();
    case DownloadModel::TimeLeft:
        return item.timeLeft() ? texts::duration(*item.timeLeft()) : QString();
    case DownloadModel::Message:
        return item.message();
    default:
        return {};
    }
}

// Escaped, since parts of the text come from servers and must not be interpreted as markup.
QString toolTip(const DownloadItem& item)
{
    auto text = item.url().toDisplayString() + QLatin1Char('\n') + item.filePath();
    if (!item.message().isEmpty())
        text += QLatin1Char('\n') + item.message();
    return QStringLiteral("<p style='white-space:pre'>%1</p>").arg(text.toHtmlEscaped());
}

int percent(const DownloadItem& item)
{
    if (item.state() == State::Done)
        return 100;
    if (item.total() > 0)
        return static_cast<int>(item.received() * 100 / item.total());
    return item.received() > 0 ? -1 : 0;
}

} // namespace

DownloadModel::DownloadModel(orv::NetworkQueue& queue, Authenticators authenticators, QObject* parent)
    : QAbstractTableModel(parent)
    , m_queue(queue)
    , m_authenticators(std::move(authenticators))
{
    connect(&m_refresh, &QTimer::timeout, this, &DownloadModel::refreshActive);
    m_refresh.setInterval(500ms);
}

DownloadModel::~DownloadModel() = default;

void DownloadModel::add(const QUrl& url, const QString& directory)
{
    const int row = rowCount();
    beginInsertRows({}, row, row);
    auto* item = new DownloadItem(url, freeFilePath(url, directory));
    m_items.emplace_back(item);
    endInsertRows();
    connect(item, &DownloadItem::changed, this, [this, item] { onItemChanged(item); });
    resume(row);
}

void DownloadModel::pause(int row)
{
    mutableItem(row).stop();
}

void DownloadModel::resume(int row)
{
    auto& item = mutableItem(row);
    item.start(m_queue, m_authenticators(item.url()));
    m_refresh.start();
}

void DownloadModel::remove(int row)
{
    beginRemoveRows({}, row, row);
    const auto item = std::move(m_items.at(static_cast<std::size_t>(row)));
    m_items.erase(m_items.begin() + row);
    endRemoveRows();
}

void DownloadModel::removeDone()
{
    for (int row = rowCount() - 1; row >= 0; --row) {
        if (item(row).state() == State::Done)
            remove(row);
    }
}

void DownloadModel::pauseAll()
{
    for (int row = 0; row < rowCount(); ++row)
        pause(row);
}

DownloadModel::Totals DownloadModel::totals() const
{
    Totals totals;
    for (const auto& item : m_items) {
        totals.received += item->received();
        totals.bytesPerSecond += item->bytesPerSecond();
        switch (item->state()) {
        case State::Queued:
            ++totals.queued;
            break;
        case State::Downloading:
        case State::WaitingToRetry:
        case State::WaitingForLogin:
            ++totals.active;
            break;
        case State::Done:
            ++totals.done;
            break;
        case State::Failed:
            ++totals.failed;
            break;
        case State::Paused:
            break;
        }
    }
    return totals;
}

int DownloadModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

int DownloadModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DownloadModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < ColumnCount) {
        const QString titles[] = {tr("File"), tr("State"),     tr("Progress"), tr("Size"),
                                  tr("Rate"), tr("Time left"), tr("Details")};
        return titles[section];
    }
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole)
        return int(Qt::AlignLeft | Qt::AlignVCenter);
    return {};
}

QVariant DownloadModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const auto& download = item(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return cellText(download, index.column());
    case Qt::ToolTipRole:
        return toolTip(download);
    case StateRole:
        return static_cast<int>(download.state());
    case PercentRole:
        return percent(download);
    default:
        return {};
    }
}

// FileDownloadTask takes the file name from the URL and refuses unsafe names.
QString DownloadModel::freeFilePath(const QUrl& url, const QString& directory) const
{
    const orv::FileDownloadTask task(url.toString(QUrl::FullyEncoded), directory);
    auto path = task.destinationFilePath();
    if (path.isEmpty())
        path = directory + QLatin1Char('/') + tr("download");
    const QFileInfo wanted(path);
    const auto suffix = wanted.suffix().isEmpty() ? QString() : QLatin1Char('.') + wanted.suffix();
    for (int number = 2; isTaken(path); ++number) {
        const auto name = QStringLiteral("%1 (%2)%3").arg(wanted.completeBaseName()).arg(number).arg(suffix);
        path = wanted.path() + QLatin1Char('/') + name;
    }
    return path;
}

bool DownloadModel::isTaken(const QString& filePath) const
{
    const auto isTheSame = [&filePath](const auto& item) { return item && item->filePath() == filePath; };
    return QFileInfo::exists(filePath) || std::any_of(m_items.begin(), m_items.end(), isTheSame);
}

void DownloadModel::onItemChanged(const DownloadItem* item)
{
    for (int row = 0; row < rowCount(); ++row) {
        if (m_items[static_cast<std::size_t>(row)].get() == item)
            Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
    }
}

void DownloadModel::refreshActive()
{
    bool isAnyActive = false;
    for (int row = 0; row < rowCount(); ++row) {
        if (!item(row).isActive())
            continue;
        isAnyActive = true;
        Q_EMIT dataChanged(index(row, Size), index(row, Message));
    }
    if (!isAnyActive)
        m_refresh.stop();
}

} // namespace downloads
