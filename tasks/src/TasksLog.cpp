#include "TasksLog_p.h"

namespace orv {

const QLoggingCategory& tasksLog()
{
    static const QLoggingCategory category("orv.tasks", QtFatalMsg);
    return category;
}

} // namespace orv
