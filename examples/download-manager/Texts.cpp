#include "Texts.h"

#include <QLocale>

namespace downloads::texts {

namespace {

QString twoDigits(qint64 number)
{
    return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0'));
}

} // namespace

QString state(DownloadItem::State state)
{
    switch (state) {
    case DownloadItem::State::Queued:
        return DownloadItem::tr("Queued");
    case DownloadItem::State::Downloading:
        return DownloadItem::tr("Downloading");
    case DownloadItem::State::WaitingToRetry:
        return DownloadItem::tr("Waiting to retry");
    case DownloadItem::State::WaitingForLogin:
        return DownloadItem::tr("Waiting for login");
    case DownloadItem::State::Paused:
        return DownloadItem::tr("Paused");
    case DownloadItem::State::Done:
        return DownloadItem::tr("Done");
    case DownloadItem::State::Failed:
        return DownloadItem::tr("Failed");
    }
    return {};
}

QString progress(qint64 received, qint64 total)
{
    if (received == total && total >= 0)
        return size(total);
    if (total > 0)
        return DownloadItem::tr("%1 of %2").arg(size(received), size(total));
    return received > 0 ? size(received) : QString();
}

QString size(qint64 bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString rate(qint64 bytesPerSecond)
{
    return DownloadItem::tr("%1/s").arg(size(bytesPerSecond));
}

QString duration(std::chrono::seconds duration)
{
    const auto seconds = duration.count();
    if (seconds < 60)
        return DownloadItem::tr("%1 s").arg(seconds);
    if (seconds < 3600)
        return DownloadItem::tr("%1:%2 min").arg(QString::number(seconds / 60), twoDigits(seconds % 60));
    const auto minutes = seconds / 60;
    return DownloadItem::tr("%1:%2 h").arg(QString::number(minutes / 60), twoDigits(minutes % 60));
}

} // namespace downloads::texts
