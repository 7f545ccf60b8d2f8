#include "DownloadDelegate.h"

#include "DownloadModel.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>

namespace downloads {

namespace {

using State = DownloadItem::State;

constexpr int BAR_HEIGHT = 8;
constexpr int MARGIN = 6;

State stateOf(const QModelIndex& index)
{
    return static_cast<State>(index.data(DownloadModel::StateRole).toInt());
}

QStyle::StandardPixmap iconOf(State state)
{
    switch (state) {
    case State::Queued:
        return QStyle::SP_FileIcon;
    case State::Downloading:
        return QStyle::SP_ArrowDown;
    case State::WaitingToRetry:
        return QStyle::SP_BrowserReload;
    case State::WaitingForLogin:
        return QStyle::SP_MessageBoxQuestion;
    case State::Paused:
        return QStyle::SP_MediaPause;
    case State::Done:
        return QStyle::SP_DialogApplyButton;
    case State::Failed:
        return QStyle::SP_MessageBoxCritical;
    }
    return QStyle::SP_FileIcon;
}

QColor barColor(State state, const QPalette& palette)
{
    switch (state) {
    case State::Done:
        return QColor(0x4c, 0xa8, 0x5f);
    case State::WaitingToRetry:
    case State::WaitingForLogin:
        return QColor(0xe0, 0x9a, 0x2b);
    case State::Failed:
        return QColor(0xc9, 0x4f, 0x4f);
    default:
        return palette.color(QPalette::Active, QPalette::Highlight);
    }
}

void fillRounded(QPainter* painter, const QRect& rect, const QColor& color)
{
    painter->setBrush(color);
    painter->drawRoundedRect(rect, rect.height() / 2.0, rect.height() / 2.0);
}

// The filled part of a bar: from the left, or in the middle if the size is unknown.
QRect filledPart(const QRect& bar, int percent)
{
    if (percent < 0)
        return bar.adjusted(bar.width() / 3, 0, -bar.width() / 3, 0);
    QRect filled = bar;
    filled.setWidth(qMax(bar.width() * percent / 100, percent > 0 ? bar.height() : 0));
    return filled;
}

void paintProgress(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index)
{
    const int percent = index.data(DownloadModel::PercentRole).toInt();
    const auto widest = option.fontMetrics.horizontalAdvance(QStringLiteral("100 %"));
    const QRect area = option.rect.adjusted(MARGIN, 0, -MARGIN, 0);
    QRect bar = area.adjusted(0, (area.height() - BAR_HEIGHT) / 2, -widest - MARGIN, 0);
    bar.setHeight(BAR_HEIGHT);

    const bool isSelected = option.state & QStyle::State_Selected;
    const auto textColor = option.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
    auto track = textColor;
    track.setAlpha(40);

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    fillRounded(painter, bar, track);
    // The selection may have any colour; only the text colour is certain to stand out.
    if (const auto filled = filledPart(bar, percent); filled.width() > 0)
        fillRounded(painter, filled, isSelected ? textColor : barColor(stateOf(index), option.palette));
    painter->setPen(textColor);
    const auto text = percent < 0 ? QStringLiteral("–") : DownloadDelegate::tr("%1 %").arg(percent);
    painter->drawText(area, Qt::AlignRight | Qt::AlignVCenter, text);
    painter->restore();
}

} // namespace

void DownloadDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    if (index.column() == DownloadModel::Progress)
        paintProgress(painter, option, index);
}

QSize DownloadDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    return QStyledItemDelegate::sizeHint(option, index).expandedTo({0, option.fontMetrics.height() + 12});
}

void DownloadDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->state &= ~QStyle::State_HasFocus;
    // The end of a file name is as informative as its beginning.
    option->textElideMode = index.column() == DownloadModel::Name ? Qt::ElideMiddle : Qt::ElideRight;
    if (index.column() != DownloadModel::Status)
        return;
    const auto* style = option->widget ? option->widget->style() : QApplication::style();
    option->icon = style->standardIcon(iconOf(stateOf(index)), option, option->widget);
    option->features |= QStyleOptionViewItem::HasDecoration;
    option->decorationSize = QSize(16, 16);
}

} // namespace downloads
