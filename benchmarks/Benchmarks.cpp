#include "Benchmarks.h"

using namespace Qt::StringLiterals;

namespace benchmark {

const QList<Benchmark>& benchmarks()
{
    static const QList<Benchmark> all{
        {u"direct"_s, u"Instructions of a small GET through a task that is executed directly"_s, 300, 5,
         measureDirect},
        {u"queued"_s, u"Instructions of a small GET through a queue with 6 slots"_s, 300, 5, measureQueued},
        {u"gets"_s, u"Time of small GETs, 6 at a time"_s, 20'000, 7, measureGets},
        {u"many"_s, u"Time of many small GETs over each kind of connection"_s, 5'000, 7, measureMany},
        {u"reads"_s, u"System calls that read, for a small GET"_s, 2'000, 1, measureReads},
        {u"body"_s, u"Time of a large body, in one piece and streamed; the count is its size in MB"_s, 256, 9,
         measureBody},
        {u"stream"_s, u"Time of consuming a large stream in pieces; the count is its size in MB"_s, 256, 9,
         measureStream},
        {u"file"_s, u"Time of a download into a file; the count is its size in MB"_s, 256, 9, measureFile},
        {u"memory"_s, u"Memory of idle tasks"_s, 10'000, 1, measureMemory},
        {u"hold"_s, u"Memory of finished tasks whose content was taken"_s, 1'000, 1, measureHold},
        {u"construction"_s, u"Making and deleting a task"_s, 20'000, 5, measureConstruction},
        {u"queue"_s, u"What a queue costs a task that does nothing; the count is its greatest length"_s,
         100'000, 5, measureQueue},
        {u"growth"_s, u"Memory that finished tasks leave behind"_s, 100'000, 1, measureGrowth},
#ifdef ORV_BENCHMARK_STORM
        {u"storm"_s, u"What a server sees when many tasks meet an expired token or an overload"_s, 200, 1,
         measureStorm},
        {u"waiting"_s, u"Memory of tasks in a queue that wait for a login"_s, 100'000, 1, measureWaiting},
#endif
        {u"clients"_s, u"The same small GETs with other clients"_s, 20'000, 5, measureClients},
        {u"client-bodies"_s, u"The same large body with other clients; the count is its size in MB"_s, 256, 9,
         measureClientBodies},
    };
    return all;
}

} // namespace benchmark
