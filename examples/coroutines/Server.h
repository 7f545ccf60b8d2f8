#pragma once

#include <LoopbackServer.h>

namespace shop {

/// A shop in this process, used if the command line names none. It requires a login and lists six items: four
/// that it answers for quickly, one that does not exist (404) and one that takes ten seconds.
class Server : public orv::LoopbackServer
{
    Q_OBJECT

public:
    Server();
};

} // namespace shop
