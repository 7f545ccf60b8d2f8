#include "NativeSocket.h"

#ifdef Q_OS_WIN
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

namespace orv::NativeSocket {

#ifdef Q_OS_WIN
using Handle = SOCKET;
constexpr int sendingSide = SD_SEND;
#else
using Handle = int;
constexpr int sendingSide = SHUT_WR;
#endif

void finishSending(qintptr descriptor)
{
    ::shutdown(static_cast<Handle>(descriptor), sendingSide);
}

void resetOnClose(qintptr descriptor)
{
    linger option = {};
    option.l_onoff = 1;
    option.l_linger = 0;
    ::setsockopt(static_cast<Handle>(descriptor), SOL_SOCKET, SO_LINGER,
                 reinterpret_cast<const char*>(&option), sizeof(option));
}

} // namespace orv::NativeSocket
