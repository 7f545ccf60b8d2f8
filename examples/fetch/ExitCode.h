#pragma once

namespace fetch {

/// What the program tells the script that ran it. The values are part of its interface and listed by --help.
enum class ExitCode : int {
    Success = 0,
    BadUsage = 1,         ///< The command line makes no sense; nothing was sent.
    FileAccess = 2,       ///< The output cannot be written, or the input cannot be read.
    TransportFailure = 3, ///< No complete reply: connection, TLS, protocol.
    ErrorStatus = 4,      ///< The server answered, with something else than a 2xx status.
    TimedOut = 5,         ///< Nothing moved for as long as --timeout allows.
    LoginRequired = 6,    ///< The server answered 401, or there was no token to be had.
    Interrupted = 130,    ///< SIGINT or SIGTERM; the number that shells use for the former.
};

} // namespace fetch
