#include "Benchmarks.h"
#include "Clients.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

constexpr int STEP = 16 * 1024;

// The same amount of content in four pieces. If one piece takes longer, the work is not linear in the size.
Contender inQuarters(const Contender& contender)
{
    return {contender.name + u", in quarters"_s, [run = contender.run](int count) {
                for (int i = 0; i < 4; ++i)
                    run(std::max(count / 4, 1));
            }};
}

} // namespace

void measureBody(Session& session)
{
    auto& server = session.server();
    const auto measure = [&](const QString& text, const Contender& bare,
                             Contender (*tasks)(Server&, Connections), double limit) {
        const QList<Contender> contenders{bare, tasks(server, Connections::Unbuffered),
                                          tasks(server, Connections::Buffered)};
        const auto times = session.times(contenders, session.count()).wall;
        session.record({text + u", unbuffered"_s, u"ns per MB"_s, limit}, times.first(2));
        session.record({text, u"ns per MB"_s, {}}, {times.first(), times.last()});
    };
    measure(u"Large body, in one piece"_s, bareBody(server), directBody, 1.02);
    measure(u"Large body, streamed"_s, bareStream(server), streamedBody, 0.95);
}

void measureFile(Session& session)
{
    auto& server = session.server();
    session.record({u"Download into a file"_s, u"ns per MB"_s, {}},
                   session
                       .times({bareFile(server), downloadedFile(server, Connections::Unbuffered),
                               downloadedFile(server, Connections::Buffered)},
                              session.count())
                       .wall);
}

void measureStream(Session& session)
{
    auto& server = session.server();
    const auto measure = [&](const QString& text, const Contender& bare, const Contender& contender) {
        const QList<Contender> contenders{bare, inQuarters(contender), contender};
        const auto times = session.times(contenders, session.count()).wall;
        session.record({text, u"ns per MB"_s, 1.05}, {times.at(0), times.at(2)});
        session.record({text + u", linear in its size"_s, u"ns per MB"_s, 1.1}, {times.at(1), times.at(2)});
    };
    measure(u"Stream, read whole"_s, bareStream(server), readBody(server, 0));
    measure(u"Stream, read in steps"_s, bareStream(server, STEP), readBody(server, STEP));
    measure(u"Stream, chopped in steps"_s, bareStream(server), choppedBody(server, STEP));
}

} // namespace benchmark
