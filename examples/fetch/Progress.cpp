#include "Progress.h"

#include "Fetcher.h"
#include "Options.h"

#include <AbstractAuthenticator.h>

#include <QLocale>
#include <QNetworkReply>
#include <QStringList>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::AbstractAuthenticator;
using orv::NetworkTask;

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString durationText(qint64 seconds)
{
    return u"%1:%2"_s.arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString waitingText(const NetworkTask& task)
{
    const auto* login = task.authenticator();
    const bool isLoggingIn = login && login->state() == AbstractAuthenticator::State::Authenticating;
    return isLoggingIn ? u"waiting for login"_s : u"waiting to retry"_s;
}

qint64 totalOf(const NetworkTask& task)
{
    const auto* reply = task.networkReply();
    return reply ? reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() : 0;
}

QString transferText(const Fetcher& fetcher)
{
    const auto& task = *fetcher.task();
    const auto received = task.bytesReceived();
    const auto total = totalOf(task);
    const auto rate = received * 1000 / std::max<qint64>(fetcher.attemptMilliseconds(), 1);
    auto text = sizeText(received);
    if (total > 0)
        text += u" of %1"_s.arg(sizeText(total));
    text += u"  %1/s"_s.arg(sizeText(rate));
    if (total > received && rate > 0)
        text += u"  %1 left"_s.arg(durationText((total - received) / rate));
    return text;
}

QString lineOf(const Fetcher& fetcher)
{
    const auto& task = *fetcher.task();
    QString text;
    if (!task.isRunning())
        text = u"queued"_s;
    else if (task.isPaused())
        text = waitingText(task);
    else
        text = transferText(fetcher);
    return u"%1  %2"_s.arg(fetcher.displayName().left(30), -30).arg(text);
}

} // namespace

Progress::Progress(const Options& options, const std::vector<std::unique_ptr<Fetcher>>& fetchers)
    : m_options(options)
    , m_fetchers(fetchers)
{
    connect(&m_timer, &QTimer::timeout, this, &Progress::draw);
}

void Progress::start()
{
    if (isDrawing())
        m_timer.start(std::chrono::milliseconds(200));
}

// Log lines and content on the same terminal would garble lines that are redrawn.
bool Progress::isDrawing() const
{
    const bool isContentThere = m_options.outputPath.isEmpty() && isTerminal(stdout);
    return !m_options.isQuiet && !m_options.isVerbose && !isContentThere && isTerminal(stderr);
}

void Progress::onEnded(const Fetcher& fetcher)
{
    const auto& outcome = fetcher.outcome();
    if (m_timer.isActive())
        draw();
    if (outcome.code != ExitCode::Success)
        m_terminal.print(u"orv-fetch: %1: %2"_s.arg(fetcher.displayUrl(), outcome.message));
    else if (m_fetchers.size() > 1 && !m_options.isQuiet)
        m_terminal.print(fetcher.summary());
}

// Running fetches first, then queued ones, as many as fit into a small window.
void Progress::draw()
{
    constexpr qsizetype most = 15;
    QStringList running;
    QStringList queued;
    for (const auto& fetcher : m_fetchers) {
        if (!fetcher->hasEnded())
            (fetcher->task()->isRunning() ? running : queued) << lineOf(*fetcher);
    }
    auto lines = running + queued;
    if (lines.size() > most) {
        const auto rest = lines.size() - most;
        lines = lines.first(most) << u"and %1 more"_s.arg(rest);
    }
    m_terminal.redraw(lines);
}

} // namespace fetch
