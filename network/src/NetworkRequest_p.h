#pragma once

#include "NetworkRequest.h"

namespace orv {

/// The name of a method in log lines and debug output, for example "Method::Get"; empty for a value that is
/// no method.
const char* methodName(NetworkRequest::Method method);

} // namespace orv
