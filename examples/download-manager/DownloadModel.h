#pragma once

#include "DownloadItem.h"

#include <QAbstractTableModel>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

namespace downloads {

/// The downloads as a table, with the operations on its rows.
///
/// The downloads run through a queue that the model does not own.
class DownloadModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Name, Status, Progress, Size, Rate, TimeLeft, Message, ColumnCount };
    enum Role {
        StateRole = Qt::UserRole, ///< DownloadItem::State, as int.
        PercentRole,              ///< 0 to 100, or -1 if the size is unknown.
    };
    struct Totals
    {
        int active = 0;
        int queued = 0;
        int done = 0;
        int failed = 0;
        qint64 received = 0;
        qint64 bytesPerSecond = 0;
    };
    /// Returns the authenticator for the origin of a URL, or null.
    using Authenticators = std::function<orv::AbstractAuthenticator*(const QUrl&)>;

    DownloadModel(orv::NetworkQueue& queue, Authenticators authenticators, QObject* parent = nullptr);
    ~DownloadModel() override;

    /// Adds a download and queues it. It is saved in the existing directory @p directory, under a name that
    /// is not taken.
    void add(const QUrl& url, const QString& directory);
    void pause(int row);
    /// Starts a paused or failed download again.
    void resume(int row);
    /// Removes the row and cancels its download. A completed file is kept.
    void remove(int row);
    void removeDone();
    void pauseAll();

    const DownloadItem& item(int row) const { return *m_items.at(static_cast<std::size_t>(row)); }
    Totals totals() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    QString freeFilePath(const QUrl& url, const QString& directory) const;
    bool isTaken(const QString& filePath) const;
    DownloadItem& mutableItem(int row) { return *m_items.at(static_cast<std::size_t>(row)); }
    void onItemChanged(const DownloadItem* item);
    void refreshActive();

    orv::NetworkQueue& m_queue;
    const Authenticators m_authenticators;
    std::vector<std::unique_ptr<DownloadItem>> m_items;
    QTimer m_refresh; // updates speeds and remaining times, which change without a signal
};

} // namespace downloads
