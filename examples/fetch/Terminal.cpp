#include "Terminal.h"

#include <algorithm>

#ifdef Q_OS_UNIX
#include <sys/ioctl.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

int terminalWidth()
{
    constexpr int usual = 80;
#ifdef Q_OS_UNIX
    winsize size{};
    if (ioctl(fileno(stderr), TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
#endif
    return usual;
}

QString harmless(QString text)
{
    for (auto& c : text) {
        if (c.category() == QChar::Other_Control)
            c = u'?';
    }
    return text;
}

void write(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

} // namespace

bool isTerminal([[maybe_unused]] FILE* stream)
{
#ifdef Q_OS_UNIX
    return isatty(fileno(stream)) == 1;
#else
    return false;
#endif
}

void Terminal::print(const QString& line)
{
    write(eraseSequence() + harmless(line) + u'\n' + bottomLines(m_bottom));
}

void Terminal::redraw(const QStringList& lines)
{
    const auto erase = eraseSequence();
    m_bottom = lines;
    write(erase + bottomLines(lines));
}

// Moves the cursor up to the first of the bottom lines and clears everything from there on.
QString Terminal::eraseSequence()
{
    return m_bottom.isEmpty() ? QString() : u"\x1b[%1A\r\x1b[J"_s.arg(m_bottom.size());
}

QString Terminal::bottomLines(const QStringList& lines)
{
    const auto width = terminalWidth() - 1; // a full line would wrap on some terminals
    QString text;
    for (const auto& line : lines)
        text += harmless(line).left(width) + u'\n';
    return text;
}

} // namespace fetch
