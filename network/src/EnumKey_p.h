#pragma once

#include <QMetaEnum>
#include <QString>

namespace orv {

/// The key of a value of a registered enumeration; empty for a value that is no key.
template <typename Enum>
QString enumKey(Enum value)
{
    return QString::fromLatin1(QMetaEnum::fromType<Enum>().valueToKey(static_cast<int>(value)));
}

} // namespace orv
