#include "Benchmarks.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

using benchmark::Benchmark;
using benchmark::Session;
using benchmark::Settings;

// The exit code for ctest to skip the test.
constexpr int UNAVAILABLE = 77;

QString overview()
{
    auto text =
        u"Measures what a task costs. For people first, then a line of JSON for each figure.\n\nBenchmarks:"_s;
    for (const auto& benchmark : benchmark::benchmarks())
        text += u"\n  %1  %2"_s.arg(benchmark.name, -14).arg(benchmark.summary);
    return text;
}

const Benchmark* find(const QString& name)
{
    const auto& all = benchmark::benchmarks();
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& b) { return b.name == name; });
    return found == all.end() ? nullptr : &*found;
}

int complain(const QString& text, int exitCode)
{
    std::fprintf(stderr, "orv-benchmark: %s\n", qPrintable(text));
    return exitCode;
}

void show(const Session& session)
{
    for (const auto& measurement : session.measurements())
        std::puts(qPrintable(measurement.table()));
    for (const auto& measurement : session.measurements())
        std::puts(QJsonDocument(measurement.toJson()).toJson(QJsonDocument::Compact).constData());
}

int run(const Benchmark& benchmark, const Settings& settings)
{
    Session session(settings);
    try {
        benchmark.run(session);
    } catch (const benchmark::Unavailable& lack) {
        return complain(u"cannot be measured here: %1"_s.arg(QString::fromUtf8(lack.what())), UNAVAILABLE);
    } catch (const std::exception& failure) {
        return complain(QString::fromUtf8(failure.what()), 1);
    }
    show(session);
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"orv-benchmark"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(overview());
    parser.addHelpOption();
    parser.addPositionalArgument(u"benchmark"_s, u"Which one to run."_s);
    const QCommandLineOption count(u"count"_s, u"How often the work is done in each round."_s, u"number"_s);
    const QCommandLineOption rounds(u"rounds"_s, u"How many rounds; the median of them counts."_s,
                                    u"number"_s);
    const QCommandLineOption list(u"list"_s, u"Prints the names of the benchmarks."_s);
    QCommandLineOption counting(u"counting"_s, u"Runs under callgrind, and dumps its counters."_s);
    QCommandLineOption server(u"server"_s, u"A server that runs already."_s, u"url"_s);
    counting.setFlags(QCommandLineOption::HiddenFromHelp);
    server.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({count, rounds, list, counting, server});
    parser.process(application);
    if (parser.isSet(list)) {
        for (const auto& benchmark : benchmark::benchmarks())
            std::puts(qPrintable(benchmark.name));
        return 0;
    }

    const auto names = parser.positionalArguments();
    const auto* benchmark = names.size() == 1 ? find(names.first()) : nullptr;
    if (!benchmark)
        return complain(u"which benchmark? Try orv-benchmark --help."_s, 1);
    const auto number = [&](const QCommandLineOption& option, int usual) {
        return parser.isSet(option) ? parser.value(option).toInt() : usual;
    };
    const Settings settings{benchmark->name, number(count, benchmark->count),
                            number(rounds, benchmark->rounds), parser.isSet(counting), parser.value(server)};
    if (settings.count < 1 || settings.rounds < 1)
        return complain(u"count and rounds are numbers from 1"_s, 1);
    return run(*benchmark, settings);
}
