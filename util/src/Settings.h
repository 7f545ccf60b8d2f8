#pragma once

#include "orv_util_export.h"

#include <QString>
#include <QVariant>

/// Access to the application's settings.
namespace as {

/// The application setting stored under @p key, or @p defaultValue where none is stored.
///
/// Reads the application's own QSettings, that is the one of its organisation and application name. Each
/// thread that reads keeps one QSettings object as long as it runs, since constructing one is expensive.
/// Values that other QSettings objects of this process write are read at once, those of other processes after
/// Qt has synced the object. If the two names change later, the settings of the new names are read.
///
/// May be called from any thread, with or without an application object; before the names are set it returns
/// the default value.
ORV_UTIL_EXPORT QVariant value(const QString& key, const QVariant& defaultValue = {});

} // namespace as
