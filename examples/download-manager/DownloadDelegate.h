#pragma once

#include <QStyledItemDelegate>

namespace downloads {

/// Paints the rows of a DownloadModel: an icon beside the state, and the progress as a bar with its
/// percentage next to it.
class DownloadDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

} // namespace downloads
