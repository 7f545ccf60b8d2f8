#pragma once

#include "Figure.h"
#include "Server.h"

#include <QMap>

#include <functional>
#include <memory>
#include <stdexcept>

namespace benchmark {

/// Thrown if this machine lacks something that a measurement needs.
class Unavailable : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One way of doing an operation many times. Its preparation is not measured.
struct Contender
{
    QString name;
    std::function<void(int count)> run;
    std::function<void(int count)> prepare = {};
    std::function<void()> cleanUp = {};
};

struct Settings
{
    QString benchmark; ///< Its name on the command line.
    int count = 0;     ///< How often the work is done in each round.
    int rounds = 0;
    bool isCounting = false; ///< This process runs under callgrind, started by another one.
    QString serverUrl;       ///< The server that the other process has started.
};

/// One run of a benchmark: measures contenders against each other and records the figures.
///
/// Contenders take turns, in an order that is reversed in each round, so that other load on the machine
/// affects all of them alike. Instructions are counted in a second process, which runs the same benchmark
/// under callgrind without measuring times. It dumps the counters around each turn, so that the start-up is
/// not included.
class Session
{
public:
    struct Times
    {
        QList<Series> wall; ///< Elapsed time per operation, in nanoseconds.
        QList<Series> cpu;  ///< Processor time of all threads per operation, in nanoseconds.
    };

    explicit Session(Settings settings);
    ~Session();

    int count() const { return m_settings.count; }
    /// The server. It is started by the first call.
    Server& server();
    /// The same over TLS. Only for times, since nothing tells a process under callgrind about it.
    Server& secureServer();

    struct Instructions
    {
        QList<Series> all;  ///< Of all threads, per operation.
        QList<Series> main; ///< Of the main thread.
    };

    Times times(const QList<Contender>& contenders, int count);
    /// User-space instructions, from runs with @p count operations. Those of the main thread hardly vary; how
    /// the threads alternate shows in the sum.
    Instructions instructions(const QList<Contender>& contenders, int count);
    void record(const Figure& figure, const QList<Series>& series);

    const QList<Measurement>& measurements() const { return m_measurements; }

private:
    using Turn = std::function<void(int contender)>;

    void takeTurns(const QList<Contender>& contenders, int count, const Turn& turn) const;
    void countElsewhere();
    void countElsewhere(bool isMainThreadOnly);

    const Settings m_settings;
    std::unique_ptr<Server> m_server;
    std::unique_ptr<Server> m_secureServer;
    QList<Measurement> m_measurements;
    int m_comparisons = 0; // number of calls of instructions()
    bool m_isCounted = false;
    struct Counts
    {
        QList<double> all;
        QList<double> main;
    };
    QMap<QString, Counts> m_counts; // by label
};

} // namespace benchmark
