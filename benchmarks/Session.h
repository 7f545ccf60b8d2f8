#pragma once

#include "Figure.h"
#include "Server.h"

#include <QMap>

#include <functional>
#include <memory>
#include <stdexcept>

namespace benchmark {

/// What this machine lacks for a measurement.
class Unavailable : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One way of doing something many times over. What surrounds it is not measured.
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
    bool isCounting = false; ///< This process runs under callgrind, on behalf of another one.
    QString serverUrl;       ///< The server of that other process.
};

/// One run of a benchmark: measures contenders against each other and keeps the figures.
///
/// Contenders take turns, in an order that is reversed from round to round, so that whatever else the machine
/// does meets all of them. Instructions are counted in a second process that runs the same benchmark under
/// callgrind and dumps its counters around each turn, so that start-up does not count; times are not taken
/// there.
class Session
{
public:
    struct Times
    {
        QList<Series> wall; ///< Nanoseconds for one of the count.
        QList<Series> cpu;  ///< The same, of all threads.
    };

    explicit Session(Settings settings);
    ~Session();

    int count() const { return m_settings.count; }
    /// The server, which is started at first use.
    Server& server();

    Times times(const QList<Contender>& contenders, int count);
    /// User-space instructions of all threads, for one of @p count.
    QList<Series> instructions(const QList<Contender>& contenders, int count);
    void record(const Figure& figure, const QList<Series>& series);

    const QList<Measurement>& measurements() const { return m_measurements; }

private:
    using Turn = std::function<void(int contender)>;

    void takeTurns(const QList<Contender>& contenders, int count, const Turn& turn) const;
    void countHere(const QList<Contender>& contenders, int count);
    void countElsewhere();
    void readDump(const QString& path);

    const Settings m_settings;
    std::unique_ptr<Server> m_server;
    QList<Measurement> m_measurements;
    int m_comparisons = 0; // how often instructions() was called
    bool m_isCounted = false;
    QMap<QString, QList<double>> m_counts; // by label
};

} // namespace benchmark
