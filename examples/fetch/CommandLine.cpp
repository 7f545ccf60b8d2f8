#include "CommandLine.h"

#include "ExitCode.h"

#include <NetworkConstants.h>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace fetch {

CommandLine::CommandLine()
    : method({u"X"_s, u"request"_s},
             u"HEAD, GET, POST, PUT or DELETE; GET, or POST with data, if left out."_s, u"METHOD"_s)
    , field({u"H"_s, u"header"_s}, u"A header field to send, \"Name: value\". Repeatable."_s, u"FIELD"_s)
    , data({u"d"_s, u"data"_s},
           u"Content to send: DATA itself, what @FILE holds, or with @- the standard input."_s, u"DATA"_s)
    , contentType(u"content-type"_s, u"Type of the content to send; application/json if left out."_s,
                  u"TYPE"_s)
    , accept({u"a"_s, u"accept"_s}, u"Types of content to accept; */* if left out."_s, u"TYPES"_s, u"*/*"_s)
    , timeout({u"t"_s, u"timeout"_s}, u"Milliseconds without any progress until giving up."_s, u"MS"_s)
    , userAgent({u"A"_s, u"user-agent"_s}, u"Value of User-Agent; it may be empty."_s, u"VALUE"_s)
    , insecure({u"k"_s, u"insecure"_s}, u"Accept any certificate of the server."_s)
    , parallel({u"P"_s, u"parallel"_s},
               u"How many URLs to fetch at a time; %1 if left out."_s.arg(network::MAX_PARALLEL_REQUESTS),
               u"N"_s, QString::number(network::MAX_PARALLEL_REQUESTS))
    , retries(u"retries"_s, u"How often to try again after a failure that may pass; 0 if left out."_s, u"N"_s,
              u"0"_s)
    , delayPolicy(u"delay-policy"_s,
                  u"How the delay before a retry grows: none, linear or exponential (the default)."_s,
                  u"POLICY"_s, u"exponential"_s)
    , delayFactor(u"delay-factor"_s,
                  u"Seconds that linear adds, or what exponential multiplies by; 2 if left out."_s, u"X"_s,
                  u"2"_s)
    , maxDelay(u"max-delay"_s, u"Longest delay before a retry; 300 if left out."_s, u"SECONDS"_s, u"300"_s)
    , token(u"token"_s, u"Bearer token to send to every URL, or the @FILE that holds it."_s, u"TOKEN"_s)
    , loginUrl(u"login-url"_s,
               u"Where to get a token when there is none or it is refused. Every URL is sent it."_s, u"URL"_s)
    , loginData(u"login-data"_s, u"Credentials to post there: JSON, or the @FILE that holds it."_s, u"JSON"_s,
                u"{}"_s)
    , output(
          {u"o"_s, u"output"_s},
          u"File to write, in place of the standard output, or directory to save in under the names in the "
          u"URLs. A file is left as it was if its fetch fails."_s,
          u"FILE|DIR"_s)
    , stream(u"stream"_s, u"Write the content as it arrives, however large it is."_s)
    , include({u"i"_s, u"include"_s}, u"Write status and header fields before the content."_s)
    , quiet({u"q"_s, u"quiet"_s}, u"Report failures alone, neither progress nor success."_s)
    , verbose({u"v"_s, u"verbose"_s}, u"Log to the standard error what happens."_s)
    , help({u"h"_s, u"help"_s}, u"Show this text."_s)
    , version(u"version"_s, u"Show the version."_s)
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
    auto text = parser.helpText() + "\nExit codes; with several URLs that of the first one that failed:\n"_L1;
    for (const auto& [code, meaning] : codes)
        text += u"  %1  %2\n"_s.arg(static_cast<int>(code), 3).arg(meaning);
    return text;
}

} // namespace fetch
