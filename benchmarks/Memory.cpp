#include "Memory.h"

#include "Session.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace benchmark {

double allocatedBytes()
{
#ifdef __GLIBC__
    const auto info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
#else
    throw Unavailable("the C library does not tell how much is allocated");
#endif
}

} // namespace benchmark
