#include "Result.h"

#include <QtGlobal>

namespace orv::detail {

void failResultAccess(const char* what)
{
    qFatal("%s", what);
}

} // namespace orv::detail
