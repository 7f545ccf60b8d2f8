#include "Benchmarks.h"
#include "Clients.h"
#include "OtherClients.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace benchmark {

void measureClients(Session& session)
{
    constexpr int parallel = 6;
    auto& server = session.server();
    const QList<Contender> contenders{
        bareGets(server, parallel),
#ifdef ORV_BENCHMARK_CURL
        curlGets(server, parallel),
#endif
#ifdef ORV_BENCHMARK_HTTPLIB
        httplibGets(server, parallel),
#endif
        queuedGets(server, parallel, Connections::Buffered),
    };
    const auto times = session.times(contenders, session.count());
    session.record({u"Small GETs, 6 at a time"_s, u"ns per GET"_s, {}}, times.wall);
    session.record({u"The same, of the processors"_s, u"ns per GET"_s, {}}, times.cpu);
    const int countedGets = std::max(session.count() / 50, 1); // callgrind is about that much slower
    session.record({u"The same, counted"_s, u"instructions per GET"_s, {}},
                   session.instructions(contenders, countedGets).all);
}

void measureClientBodies(Session& session)
{
    auto& server = session.server();
    const QList<Contender> contenders{
        bareStream(server),
#ifdef ORV_BENCHMARK_CURL
        curlStream(server),
#endif
#ifdef ORV_BENCHMARK_HTTPLIB
        httplibStream(server),
#endif
        streamedBody(server, Connections::Unbuffered),
    };
    const auto times = session.times(contenders, session.count());
    session.record({u"Large body, as it comes"_s, u"ns per MB"_s, {}}, times.wall);
    session.record({u"The same, of the processors"_s, u"ns per MB"_s, {}}, times.cpu);
}

} // namespace benchmark
