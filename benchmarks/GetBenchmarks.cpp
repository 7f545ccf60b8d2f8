#include "Benchmarks.h"
#include "Clients.h"

using namespace Qt::StringLiterals;

namespace benchmark {

void measureDirect(Session& session)
{
    auto& server = session.server();
    session.record({u"Small GET, executed directly"_s, u"instructions per GET"_s, 1.05},
                   session.instructions({bareGets(server, 1), watchedBareGets(server, 1), directGets(server)},
                                        session.count()));
}

void measureQueued(Session& session)
{
    auto& server = session.server();
    session.record(
        {u"Small GET, 6 at a time"_s, u"instructions per GET"_s, 1.06},
        session.instructions({bareGets(server, 6), watchedBareGets(server, 6), queuedGets(server, 6)},
                             session.count()));
}

void measureGets(Session& session)
{
    auto& server = session.server();
    const auto times = session.times({bareGets(server, 6), queuedGets(server, 6)}, session.count());
    session.record({u"Small GETs, 6 at a time"_s, u"ns per GET"_s, 1.03}, times.wall);
    session.record({u"The same, of the processors"_s, u"ns per GET"_s, {}}, times.cpu);
}

} // namespace benchmark
