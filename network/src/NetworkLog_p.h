#pragma once

#include <QLoggingCategory>

namespace orv {

/// The category of every line that the library writes, "orv.network". Silent below fatal until the
/// application's logging rules enable it, for example with "orv.network.debug=true".
const QLoggingCategory& networkLog();

} // namespace orv
