#include "Interruption.h"
#include "Options.h"
#include "Session.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <csignal>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

using fetch::ExitCode;
using fetch::Options;
using fetch::Session;

int show(FILE* stream, const QString& text, ExitCode code)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    return static_cast<int>(code);
}

int complain(const QString& text, ExitCode code)
{
    return show(stderr, u"orv-fetch: %1\n"_s.arg(text), code);
}

int complain(const orv::Error& error)
{
    if (error.errorCode() == orv::ErrorCode::FileAccess)
        return complain(error.errorMessage(), ExitCode::FileAccess);
    return complain(error.errorMessage() + "\nTry orv-fetch --help."_L1, ExitCode::BadUsage);
}

// Debug messages stay off: they contain tokens.
void startLogging()
{
    qSetMessagePattern(u"%{time hh:mm:ss.zzz} %{message}"_s);
    QLoggingCategory::setFilterRules(u"orv.network.info=true\norv.network.warning=true"_s);
}

int run(const Options& options)
{
    Session session(options);
    const fetch::Interruption interruption;
    QObject::connect(&interruption, &fetch::Interruption::requested, &session, &Session::cancel);
    // Queued, since quit() has no effect before exec().
    QObject::connect(&session, &Session::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    session.start();
    QCoreApplication::exec();
    return static_cast<int>(session.exitCode());
}

} // namespace

int main(int argc, char* argv[])
{
    // Otherwise Qt may write to the system's journal if there is no terminal.
    qputenv("QT_FORCE_STDERR_LOGGING", "1");
#ifdef SIGPIPE
    // If the reader of a pipe exits, that should be a write error like any other.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    const QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(u"Orv"_s);
    QCoreApplication::setApplicationName(u"orv-fetch"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(ORV_FETCH_VERSION));

    const auto options = fetch::parseOptions(QCoreApplication::arguments());
    if (options.hasError())
        return complain(options.error());
    switch (options.value().action) {
    case Options::Action::ShowHelp:
        return show(stdout, fetch::helpText(), ExitCode::Success);
    case Options::Action::ShowVersion:
        return show(stdout, u"orv-fetch %1\n"_s.arg(QCoreApplication::applicationVersion()),
                    ExitCode::Success);
    case Options::Action::Fetch:
        break;
    }
    if (options.value().isVerbose)
        startLogging();
    return run(options.value());
}
