#pragma once

#include "Session.h"

namespace benchmark {

/// A benchmark, which the command line selects by name.
struct Benchmark
{
    QString name;
    QString summary;
    int count; ///< How often the work is done in each round, by default.
    int rounds;
    void (*run)(Session& session);
};

const QList<Benchmark>& benchmarks();

// The benchmarks; benchmarks() has a summary of each.
void measureDirect(Session& session);
void measureQueued(Session& session);
void measureGets(Session& session);
void measureMany(Session& session);
void measureReads(Session& session);
void measureBody(Session& session);
void measureStream(Session& session);
void measureFile(Session& session);
void measureMemory(Session& session);
void measureHold(Session& session);
void measureConstruction(Session& session);
void measureQueue(Session& session);
void measureGrowth(Session& session);
void measureStorm(Session& session);
void measureWaiting(Session& session);
void measureClients(Session& session);
void measureClientBodies(Session& session);

} // namespace benchmark
