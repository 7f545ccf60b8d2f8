#pragma once

#include "orv_util_export.h"

#include <QChar>
#include <QString>

namespace orv {

/// Small operations on texts.
class ORV_UTIL_EXPORT TextUtils
{
public:
    TextUtils() = delete;

    /// Puts @p separator between the words of a camel-case identifier: "NotFound" becomes "Not Found".
    ///
    /// Every upper-case letter but the first character begins a word, so a run of capitals comes apart letter
    /// by letter.
    static QString separateCamelCase(const QString& text, QChar separator);
};

} // namespace orv
