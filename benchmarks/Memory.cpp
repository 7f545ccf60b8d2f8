#include "Memory.h"

#include "Session.h"

#include <QFile>

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

double readCalls()
{
    QFile file(QStringLiteral("/proc/self/io"));
    if (!file.open(QIODevice::ReadOnly))
        throw Unavailable("the system does not tell how often a process reads");
    const auto lines = file.readAll().split('\n');
    for (const auto& line : lines) {
        if (line.startsWith("syscr: "))
            return line.mid(7).toDouble();
    }
    throw Unavailable("the system does not tell how often a process reads");
}

} // namespace benchmark
