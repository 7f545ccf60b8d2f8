#include "Session.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <ctime>
#include <utility>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(label) static_cast<void>(label)
#endif

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

// After this many operations, connections are open and caches and pools filled.
int warmUpCount(int count)
{
    return std::clamp(count / 10, 1, 1000);
}

QString label(int comparison, int contender)
{
    return u"%1.%2"_s.arg(comparison).arg(contender);
}

double cpuNanoseconds()
{
    return static_cast<double>(std::clock()) * (1e9 / CLOCKS_PER_SEC);
}

// What follows a key at the beginning of a line.
QByteArray valueIn(const QString& path, const QByteArray& key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read what callgrind has dumped");
    while (!file.atEnd()) {
        const auto line = file.readLine().trimmed();
        if (line.startsWith(key))
            return line.mid(key.size());
    }
    return {};
}

QList<Series> emptySeries(const QList<Contender>& contenders)
{
    QList<Series> series;
    for (const auto& contender : contenders)
        series.append({contender.name, {}});
    return series;
}

} // namespace

Session::Session(Settings settings)
    : m_settings(std::move(settings))
{
}

Session::~Session() = default;

Server& Session::server()
{
    if (!m_server) {
        m_server = m_settings.serverUrl.isEmpty() ? std::make_unique<Server>()
                                                  : std::make_unique<Server>(m_settings.serverUrl);
    }
    return *m_server;
}

Server& Session::secureServer()
{
    if (!m_secureServer)
        m_secureServer = std::make_unique<Server>(Server::Transport::Tls);
    return *m_secureServer;
}

void Session::takeTurns(const QList<Contender>& contenders, int count, const Turn& turn) const
{
    const auto run = [&](int index, int runCount, const std::function<void()>& measure) {
        const auto& contender = contenders.at(index);
        if (contender.prepare)
            contender.prepare(runCount);
        measure();
        if (contender.cleanUp)
            contender.cleanUp();
    };
    const int size = static_cast<int>(contenders.size());
    for (int i = 0; i < size; ++i)
        run(i, warmUpCount(count), [&] { contenders.at(i).run(warmUpCount(count)); });
    for (int round = 0; round < m_settings.rounds; ++round) {
        for (int i = 0; i < size; ++i) {
            const int index = round % 2 == 0 ? i : size - 1 - i;
            run(index, count, [&] { turn(index); });
        }
    }
}

Session::Times Session::times(const QList<Contender>& contenders, int count)
{
    Times times{emptySeries(contenders), emptySeries(contenders)};
    if (m_settings.isCounting)
        return times;
    takeTurns(contenders, count, [&](int index) {
        QElapsedTimer timer;
        timer.start();
        const auto cpuBefore = cpuNanoseconds();
        contenders.at(index).run(count);
        times.cpu[index].rounds.append((cpuNanoseconds() - cpuBefore) / count);
        times.wall[index].rounds.append(static_cast<double>(timer.nsecsElapsed()) / count);
    });
    return times;
}

Session::Instructions Session::instructions(const QList<Contender>& contenders, int count)
{
    Instructions result{emptySeries(contenders), emptySeries(contenders)};
    const int comparison = m_comparisons++;
    if (m_settings.isCounting) {
        takeTurns(contenders, count, [&](int index) {
            const auto name = label(comparison, index).toLatin1();
            CALLGRIND_ZERO_STATS;
            contenders.at(index).run(count);
            CALLGRIND_DUMP_STATS_AT(name.constData());
        });
        return result;
    }
    if (!std::exchange(m_isCounted, true))
        countElsewhere();
    for (int i = 0; i < contenders.size(); ++i) {
        const auto counts = m_counts.value(label(comparison, i));
        if (counts.all.size() != m_settings.rounds || counts.main.size() != m_settings.rounds)
            throw std::runtime_error("callgrind has not dumped what it counted");
        for (int round = 0; round < m_settings.rounds; ++round) {
            result.all[i].rounds.append(counts.all.at(round) / count);
            result.main[i].rounds.append(counts.main.at(round) / count);
        }
    }
    return result;
}

// Runs the same benchmark, with the same server, under callgrind. It counts all threads together, or dumps
// only the one that asks for it, so it takes two runs.
void Session::countElsewhere()
{
    countElsewhere(false);
    countElsewhere(true);
}

void Session::countElsewhere(bool isMainThreadOnly)
{
    const auto valgrind = QStandardPaths::findExecutable(u"valgrind"_s);
    if (valgrind.isEmpty())
        throw Unavailable("valgrind is missing");
    const QTemporaryDir directory;
    QStringList arguments{u"--tool=callgrind"_s,
                          u"--quiet"_s,
                          u"--separate-threads="_s + (isMainThreadOnly ? u"yes"_s : u"no"_s),
                          u"--callgrind-out-file="_s + directory.filePath(u"dump"_s),
                          QCoreApplication::applicationFilePath(),
                          m_settings.benchmark,
                          u"--counting"_s,
                          u"--count"_s,
                          QString::number(m_settings.count),
                          u"--rounds"_s,
                          QString::number(m_settings.rounds)};
    if (m_server)
        arguments << u"--server"_s << m_server->url();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(valgrind, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        throw std::runtime_error("the process under callgrind has failed");
    const auto name = isMainThreadOnly ? u"dump.%1-01"_s : u"dump.%1"_s;
    for (int number = 1; QFile::exists(directory.filePath(name.arg(number))); ++number) {
        const auto path = directory.filePath(name.arg(number));
        const auto label = valueIn(path, "desc: Trigger: Client Request: ");
        auto& counts = m_counts[QString::fromLatin1(label)];
        (isMainThreadOnly ? counts.main : counts.all).append(valueIn(path, "totals: ").toDouble());
    }
}

void Session::record(const Figure& figure, const QList<Series>& series)
{
    if (!m_settings.isCounting)
        m_measurements.append(Measurement(m_settings.benchmark, figure, series));
}

} // namespace benchmark
