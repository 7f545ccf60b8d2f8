#pragma once

#include <NetworkRequest.h>
#include <Result.h>
#include <Retriable.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace fetch {

/// How often and after which delays to retry.
struct RetryPolicy
{
    int retries = 0;
    orv::Retriable::DelayPolicy delayPolicy = orv::Retriable::DelayPolicy::Exponential;
    double delayFactor = 2;
    std::chrono::seconds maxDelay{300};

    /// Configures @p retriable, without a delay before its first attempt.
    void applyTo(orv::Retriable& retriable) const;
};

/// Where the token comes from. Without a token and a URL, there is no login.
struct LoginOptions
{
    QString token; ///< The initial token.
    QString url;
    QByteArray credentials; ///< The JSON to post to url.

    bool isWanted() const { return !token.isEmpty() || !url.isEmpty(); }
};

/// What the command line asks for.
struct Options
{
    enum class Action { Fetch, ShowHelp, ShowVersion };

    Action action = Action::Fetch;
    QStringList urls;
    orv::NetworkRequest request; ///< What is sent to each URL; its own URL is empty.
    std::optional<std::chrono::milliseconds> timeout;
    std::optional<QByteArray> userAgent;
    int parallel = 1;
    RetryPolicy retryPolicy;
    LoginOptions login;
    QString outputPath; ///< Empty for the standard output.
    bool isInsecure = false;
    bool isQuiet = false;
    bool isVerbose = false;
    bool includesHead = false;
};

/// Reads the command line @p arguments, the first of which is the program, and the files it refers to.
///
/// The error is InvalidArgument for an invalid command line, and FileAccess if a file cannot be read. Its
/// message contains no secret.
orv::Result<Options> parseOptions(const QStringList& arguments);

/// The text for --help.
QString helpText();

} // namespace fetch
