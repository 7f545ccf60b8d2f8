#pragma once

namespace benchmark {

/// Bytes that the process has allocated and not freed. Throws Unavailable where the system does not tell.
double allocatedBytes();

} // namespace benchmark
