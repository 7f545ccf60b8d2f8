#pragma once

#include "Session.h"

namespace benchmark {

/// What can be measured, by name.
struct Benchmark
{
    QString name;
    QString summary;
    int count; ///< How often the work is done in a round, unless the command line says otherwise.
    int rounds;
    void (*run)(Session& session);
};

const QList<Benchmark>& benchmarks();

// Each measures in a Session, as its summary says.
void measureDirect(Session& session);
void measureQueued(Session& session);
void measureGets(Session& session);
void measureBody(Session& session);
void measureStream(Session& session);
void measureMemory(Session& session);
void measureConstruction(Session& session);
void measureQueue(Session& session);
void measureGrowth(Session& session);
void measureClients(Session& session);
void measureClientBodies(Session& session);

} // namespace benchmark
