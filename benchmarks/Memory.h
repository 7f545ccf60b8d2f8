#pragma once

namespace benchmark {

/// How many bytes the process has allocated and not freed. Throws Unavailable if the system cannot report it.
double allocatedBytes();

} // namespace benchmark
