#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>

namespace fetch {

/// Whether @p stream is a terminal on which lines can be redrawn. Always false on Windows.
bool isTerminal(FILE* stream);

/// The standard error: permanent lines, and below them, on a terminal, lines that are redrawn in place.
///
/// Control characters, which may come from a server, are replaced.
class Terminal
{
public:
    /// Writes a permanent line.
    void print(const QString& line);
    /// Replaces the lines at the bottom. Each is truncated to the width of the terminal.
    void redraw(const QStringList& lines);

private:
    QString eraseSequence();
    static QString bottomLines(const QStringList& lines);

    QStringList m_bottom;
};

} // namespace fetch
