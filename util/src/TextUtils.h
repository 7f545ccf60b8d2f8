#pragma once

#include "orv_util_export.h"

#include <QChar>
#include <QString>

namespace orv {

/// Functions on texts. All are reentrant.
class ORV_UTIL_EXPORT TextUtils
{
public:
    TextUtils() = delete;

    /// Puts @p separator between the words of a camel-case identifier: "NotFound" becomes "Not Found".
    ///
    /// Every upper-case letter except the first character begins a word, so each letter of a run of capitals
    /// becomes a word of its own.
    static QString separateCamelCase(const QString& text, QChar separator);
};

} // namespace orv
