#pragma once

#include "orv_util_export.h"

#include <QString>
#include <QVariant>

/// Access to the application's settings.
namespace as {

/// The application setting stored under @p key, or @p defaultValue where none is stored.
///
/// Reads the application's own QSettings, that is the one of its organisation and application name. Each
/// thread that reads keeps one QSettings object for its life, since building one costs more than many a task
/// may; what other QSettings objects of this process write is seen at once, what other processes write when
/// that object is synced by Qt. A later change of the two names is followed.
///
/// May be called from any thread; needs no application object, but reads nothing useful before the names are
/// set.
ORV_UTIL_EXPORT QVariant value(const QString& key, const QVariant& defaultValue = {});

} // namespace as
