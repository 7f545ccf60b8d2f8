#pragma once

#include <QTest>

#include <cstddef>

// Functions for test data in tables.

/// Adds columns and returns a function that adds a row: its name, and a value for each column.
template <typename... Columns>
auto addColumns(const char* const (&names)[sizeof...(Columns)])
{
    std::size_t index = 0;
    (QTest::addColumn<Columns>(names[index++]), ...);
    return [](const char* name, const Columns&... values) {
        auto& row = QTest::newRow(name);
        ((row << values), ...);
    };
}

/// Adds one column of words, and a row for each word, which is also its name.
inline void addRows(const char* column, std::initializer_list<const char*> words)
{
    const auto row = addColumns<QString>({column});
    for (const auto* word : words)
        row(word, QString::fromLatin1(word));
}

/// Adds a row for each combination of a place and an action.
inline void addRowsForActions(std::initializer_list<const char*> places,
                              std::initializer_list<const char*> actions)
{
    const auto row = addColumns<QString, QString>({"place", "action"});
    for (const auto* place : places)
        for (const auto* action : actions)
            row(qPrintable(QStringLiteral("%1: %2").arg(QLatin1String(place), QLatin1String(action))),
                QString::fromLatin1(place), QString::fromLatin1(action));
}
