#pragma once

#include <QList>
#include <QString>

#include <optional>

class QJsonObject;

namespace benchmark {

/// The measurements of one contender, round by round.
struct Series
{
    QString name;
    QList<double> rounds;

    double median() const;
};

/// What is measured, and the limit for it.
struct Figure
{
    QString text;
    QString unit;
    /// The limit for the last series: a multiple of the first one, or a value if it is the only one.
    std::optional<double> limit;
};

/// A figure with the series that were taken for it, the baseline first.
class Measurement
{
public:
    Measurement(QString benchmark, Figure figure, QList<Series> series);

    /// A few lines of readable text.
    QString table() const;
    /// The same figures and all rounds, in machine-readable form.
    QJsonObject toJson() const;

private:
    /// The median over the rounds of the ratio of @p series to the baseline.
    double ratio(const Series& series) const;
    double judged() const;
    bool isMet() const;

    QString m_benchmark;
    Figure m_figure;
    QList<Series> m_series;
};

} // namespace benchmark
