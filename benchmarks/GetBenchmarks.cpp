#include "Benchmarks.h"
#include "Clients.h"
#include "Memory.h"

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

constexpr int SLOTS = 6;

void measureInstructions(Session& session, const QString& text, int parallel,
                         const std::function<Contender(Connections)>& tasks, double unbufferedLimit,
                         double bufferedLimit)
{
    auto& server = session.server();
    const auto counts = session.instructions({bareGets(server, parallel), watchedBareGets(server, parallel),
                                              handWrittenGets(server, parallel),
                                              tasks(Connections::Unbuffered), tasks(Connections::Buffered)},
                                             session.count());
    const auto record = [&](const QString& threads, const QList<Series>& series, bool hasLimits) {
        const auto unit = u"instructions per GET"_s;
        const auto limit = [&](double value) { return hasLimits ? std::optional(value) : std::nullopt; };
        session.record({text + threads + u", unbuffered"_s, unit, limit(unbufferedLimit)}, series.first(4));
        session.record({text + threads, unit, limit(bufferedLimit)}, {series.first(), series.last()});
    };
    record({}, counts.all, true);
    record(u", main thread"_s, counts.main, false);
}

} // namespace

void measureDirect(Session& session)
{
    auto& server = session.server();
    measureInstructions(
        session, u"Small GET, executed directly"_s, 1,
        [&](Connections connections) { return directGets(server, connections); }, 1.02, 0.92);
}

void measureQueued(Session& session)
{
    auto& server = session.server();
    measureInstructions(
        session, u"Small GET, 6 at a time"_s, SLOTS,
        [&](Connections connections) { return queuedGets(server, SLOTS, connections); }, 1.03, 0.93);
}

void measureGets(Session& session)
{
    auto& server = session.server();
    const auto times = session.times({bareGets(server, SLOTS), handWrittenGets(server, SLOTS),
                                      queuedGets(server, SLOTS, Connections::Unbuffered),
                                      queuedGets(server, SLOTS, Connections::Buffered)},
                                     session.count());
    session.record({u"Small GETs, 6 at a time, unbuffered"_s, u"ns per GET"_s, 1.03}, times.wall.first(3));
    session.record({u"Small GETs, 6 at a time"_s, u"ns per GET"_s, {}},
                   {times.wall.first(), times.wall.last()});
    session.record({u"The same, of the processors"_s, u"ns per GET"_s, 0.55},
                   {times.cpu.first(), times.cpu.last()});
}

void measureMany(Session& session)
{
    auto& server = session.server();
    auto& secure = session.secureServer();
    auto one = queuedGets(server, 1, Connections::Buffered);
    one.name += u", one at a time"_s;
    const auto times = session.times(
        {bareGets(server, SLOTS), one, queuedGets(server, SLOTS, Connections::Unbuffered),
         queuedGets(server, SLOTS, Connections::Buffered), secureGets(secure, SLOTS, Version::Http1),
         secureGets(secure, SLOTS, Version::Http2), secureGets(secure, 100, Version::Http2)},
        session.count());
    session.record({u"Many small GETs"_s, u"ns per GET"_s, {}}, times.wall);
    session.record({u"Many small GETs, of the processors"_s, u"ns per GET"_s, {}}, times.cpu);
}

void measureReads(Session& session)
{
    auto& server = session.server();
    QList<Series> series;
    for (const auto& gets : {bareGets(server, SLOTS), queuedGets(server, SLOTS, Connections::Buffered)}) {
        gets.run(100); // connections are open then
        const auto before = readCalls();
        gets.run(session.count());
        series.append({gets.name, {(readCalls() - before) / session.count()}});
    }
    session.record({u"Small GET, 6 at a time: calls of read()"_s, u"calls per GET"_s, {}}, series);
    session.record({u"Calls of read()"_s, u"calls per GET"_s, 6.0}, {series.last()});
}

} // namespace benchmark
