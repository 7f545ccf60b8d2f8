#include "NetworkLog_p.h"

namespace orv {

const QLoggingCategory& networkLog()
{
    static const QLoggingCategory category("orv.network", QtFatalMsg);
    return category;
}

} // namespace orv
