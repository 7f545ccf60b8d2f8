#pragma once

#include <QLoggingCategory>

namespace orv {

/// The category of every line that the task library writes, "orv.tasks". Silent below fatal until the
/// application's logging rules enable it, for example with "orv.tasks.warning=true".
const QLoggingCategory& tasksLog();

} // namespace orv
