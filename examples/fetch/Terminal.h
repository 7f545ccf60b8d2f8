#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>

namespace fetch {

/// Whether @p stream is a terminal that lines can be redrawn on. Never on Windows.
bool isTerminal(FILE* stream);

/// The standard error: lines that stay, and below them, on a terminal, some that are redrawn in place.
///
/// Control characters, which may come from a server, are not written.
class Terminal
{
public:
    /// Writes @p line to stay.
    void print(const QString& line);
    /// Replaces the lines at the bottom, each cut to the width of the terminal.
    void redraw(const QStringList& lines);

private:
    QString eraseSequence();
    static QString bottomLines(const QStringList& lines);

    QStringList m_bottom;
};

} // namespace fetch
