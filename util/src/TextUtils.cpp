#include "TextUtils.h"

namespace orv {

QString TextUtils::separateCamelCase(const QString& text, QChar separator)
{
    QString separated;
    separated.reserve(text.size() * 2);
    for (const QChar character : text) {
        if (character.isUpper() && !separated.isEmpty())
            separated.append(separator);
        separated.append(character);
    }
    return separated;
}

} // namespace orv
