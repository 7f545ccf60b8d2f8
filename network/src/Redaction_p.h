#pragma once

#include "NetworkRequest.h"

#include <QString>

namespace orv {

/// @p text without the passwords of the URLs in it. Qt's error texts quote URLs as they were requested.
QString withoutPasswords(const QString& text);

/// The debug form of @p request. Calls its masking function, that is code of the caller.
QByteArray debugText(const NetworkRequest& request);

} // namespace orv
