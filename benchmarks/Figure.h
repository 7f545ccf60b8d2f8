#pragma once

#include <QList>
#include <QString>

#include <optional>

class QJsonObject;

namespace benchmark {

/// What one contender was measured at, round by round.
struct Series
{
    QString name;
    QList<double> rounds;

    double median() const;
};

/// What is measured, and what it may come to.
struct Figure
{
    QString text;
    QString unit;
    /// The most that the last series may be: a multiple of the first one, or a value where it is the only
    /// one.
    std::optional<double> limit;
};

/// A figure with the series that were taken for it, the baseline first.
class Measurement
{
public:
    Measurement(QString benchmark, Figure figure, QList<Series> series);

    /// A few lines for people.
    QString table() const;
    /// The same and all rounds, for programs.
    QJsonObject toJson() const;

private:
    /// The median of what @p series is in multiples of the baseline, compared round by round.
    double ratio(const Series& series) const;
    double judged() const;
    bool isMet() const;

    QString m_benchmark;
    Figure m_figure;
    QList<Series> m_series;
};

} // namespace benchmark
