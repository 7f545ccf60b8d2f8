#pragma once

namespace orv {

/// What went wrong, in the numbers that travel between libraries and programs.
///
/// The values are part of the interface: programs store and compare them.
enum class ErrorCode : int {
    None = 0,                  ///< Success.
    General = 1,               ///< A failure without a code of its own.
    InvalidArgument = 2,       ///< The caller's input is invalid.
    FileAccess = 4,            ///< A file cannot be opened, or its name cannot be determined.
    Network = 24,              ///< A transport failure or an HTTP status that is not a success.
    AuthenticationFailed = 25, ///< No access token could be obtained.
    SessionTimedOut = 27,      ///< The server ended the login session (HTTP status 440).
    Canceled = 1000,           ///< The task was canceled before it had a result.
};

} // namespace orv
