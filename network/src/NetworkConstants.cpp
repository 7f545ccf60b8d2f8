#include "NetworkConstants.h"

namespace network {

const std::chrono::milliseconds DEFAULT_TIMEOUT{300000};
const int MAX_PARALLEL_REQUESTS = 6;
const QByteArray DEFAULT_USER_AGENT = QByteArrayLiteral("OrvLabs");

} // namespace network
