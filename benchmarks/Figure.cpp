#include "Figure.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    const auto middle = values.size() / 2;
    return values.size() % 2 != 0 ? values.at(middle) : (values.at(middle - 1) + values.at(middle)) / 2;
}

QString number(double value)
{
    return QString::number(value, 'f', value >= 100 || value == 0 ? 0 : 2);
}

} // namespace

double Series::median() const
{
    return benchmark::median(rounds);
}

Measurement::Measurement(QString benchmark, Figure figure, QList<Series> series)
    : m_benchmark(std::move(benchmark))
    , m_figure(std::move(figure))
    , m_series(std::move(series))
{
}

double Measurement::ratio(const Series& series) const
{
    QList<double> ratios;
    for (qsizetype round = 0; round < series.rounds.size(); ++round)
        ratios.append(series.rounds.at(round) / m_series.first().rounds.at(round));
    return benchmark::median(ratios);
}

double Measurement::judged() const
{
    return m_series.size() == 1 ? m_series.first().median() : ratio(m_series.last());
}

bool Measurement::isMet() const
{
    return !m_figure.limit || judged() <= *m_figure.limit;
}

QString Measurement::table() const
{
    auto text = u"%1 [%2]"_s.arg(m_figure.text, m_figure.unit);
    if (m_figure.limit)
        text += u", at most %1: %2"_s.arg(number(*m_figure.limit), isMet() ? u"met"_s : u"MISSED"_s);
    text += u'\n';
    for (const auto& series : m_series) {
        text += u"  %1 %2"_s.arg(series.name, -44).arg(number(series.median()), 12);
        if (m_series.size() > 1)
            text += u"  x %1"_s.arg(ratio(series), 0, 'f', 3);
        text += u'\n';
    }
    return text;
}

QJsonObject Measurement::toJson() const
{
    QJsonArray all;
    for (const auto& series : m_series) {
        QJsonArray rounds;
        for (const auto value : series.rounds)
            rounds.append(value);
        all.append(QJsonObject{{u"name"_s, series.name},
                               {u"median"_s, series.median()},
                               {u"ratio"_s, ratio(series)},
                               {u"rounds"_s, rounds}});
    }
    QJsonObject json{{u"benchmark"_s, m_benchmark},
                     {u"figure"_s, m_figure.text},
                     {u"unit"_s, m_figure.unit},
                     {u"series"_s, all}};
    if (m_figure.limit) {
        json.insert(u"limit"_s, *m_figure.limit);
        json.insert(u"measured"_s, judged());
        json.insert(u"met"_s, isMet());
    }
    return json;
}

} // namespace benchmark
