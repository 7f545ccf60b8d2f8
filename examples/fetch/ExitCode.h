#pragma once

namespace fetch {

/// The exit codes. They are part of the program's interface and are listed by --help.
enum class ExitCode : int {
    Success = 0,
    BadUsage = 1,         ///< The command line is invalid; nothing was sent.
    FileAccess = 2,       ///< The output cannot be written, or the input cannot be read.
    TransportFailure = 3, ///< No complete reply: connection, TLS, protocol.
    ErrorStatus = 4,      ///< The server answered with a status other than 2xx.
    TimedOut = 5,         ///< No progress for as long as --timeout says.
    LoginRequired = 6,    ///< The server answered 401, or no token could be obtained.
    Interrupted = 130,    ///< SIGINT or SIGTERM; the number that shells use for SIGINT.
};

} // namespace fetch
