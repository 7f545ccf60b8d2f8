#pragma once

namespace benchmark {

/// How many bytes the process has allocated and not freed. Throws Unavailable if the system cannot report it.
double allocatedBytes();

/// How many system calls that read the process has made. Throws Unavailable if the system cannot report it.
double readCalls();

} // namespace benchmark
