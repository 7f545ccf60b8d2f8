#pragma once

#include <LoopbackServer.h>

namespace shop {

/// A shop in this process, for when there is no other: it asks for a login, has four items and lists two
/// more, one that is missing (404) and one that it takes ten seconds to count.
class Server : public orv::LoopbackServer
{
    Q_OBJECT

public:
    Server();
};

} // namespace shop
