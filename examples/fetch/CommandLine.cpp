#include "CommandLine.h"

#include "ExitCode.h"

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace fetch {

CommandLine::CommandLine()
{
    parser.setApplicationDescription(u"Fetches URLs over HTTP or HTTPS. Redirects are not followed."_s);
    parser.addPositionalArgument(u"URL"_s, u"What to fetch. Several need a directory to save in (-o)."_s,
                                 u"URL..."_s);
    parser.addOptions({method,   field,   data,        contentType, accept,   timeout, userAgent, insecure,
                       parallel, retries, delayPolicy, delayFactor, maxDelay, token,   loginUrl,  loginData,
                       output,   stream,  include,     quiet,       verbose,  help,    version});
}

QString CommandLine::helpText() const
{
    static constexpr std::array<std::pair<ExitCode, QLatin1String>, 8> codes{
        {{ExitCode::Success, "success"_L1},
         {ExitCode::BadUsage, "bad usage"_L1},
         {ExitCode::FileAccess, "the output cannot be written, or the data cannot be read"_L1},
         {ExitCode::TransportFailure, "no complete reply (connection, TLS, protocol)"_L1},
         {ExitCode::ErrorStatus, "the server answered with an error status or a redirect"_L1},
         {ExitCode::TimedOut, "time-out"_L1},
         {ExitCode::LoginRequired, "the server wants a login (401), or the login failed"_L1},
         {ExitCode::Interrupted, "interrupted (SIGINT, SIGTERM)"_L1}}};
    auto text =
        parser.helpText() + "\nExit codes; with several URLs, that of the first one that failed:\n"_L1;
    for (const auto& [code, meaning] : codes)
        text += u"  %1  %2\n"_s.arg(static_cast<int>(code), 3).arg(meaning);
    return text;
}

} // namespace fetch
