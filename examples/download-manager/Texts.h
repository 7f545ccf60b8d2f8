#pragma once

#include "DownloadItem.h"

/// The texts in the table and the status bar.
namespace downloads::texts {

QString state(DownloadItem::State state);
/// "1.2 MB of 20 MB", or less if the size is unknown.
QString progress(qint64 received, qint64 total);
QString size(qint64 bytes);
QString rate(qint64 bytesPerSecond);
/// "42 s", "3:07 min" or "1:02 h".
QString duration(std::chrono::seconds duration);

} // namespace downloads::texts
