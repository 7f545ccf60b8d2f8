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

/// How often, and after which delays, to try again.
struct RetryPolicy
{
    int retries = 0;
    orv::Retriable::DelayPolicy delayPolicy = orv::Retriable::DelayPolicy::Exponential;
    double delayFactor = 2;
    std::chrono::seconds maxDelay{300};

    /// Sets @p retriable up; its first attempt comes without a delay.
    void applyTo(orv::Retriable& retriable) const;
};

/// Where a token comes from. Without a token and a URL, there is no login.
struct LoginOptions
{
    QString token; ///< To begin with.
    QString url;
    QByteArray credentials; ///< JSON.

    bool isWanted() const { return !token.isEmpty() || !url.isEmpty(); }
};

/// What the command line asks for.
struct Options
{
    enum class Action { Fetch, ShowHelp, ShowVersion };

    Action action = Action::Fetch;
    QStringList urls;
    orv::NetworkRequest request; ///< What is sent to each URL; its own one is empty.
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

/// Reads the command line, @p arguments of which the first is the program, and the files that it names.
///
/// The error has the code InvalidArgument for a command line that makes no sense, and FileAccess where a file
/// cannot be read. It quotes no secret.
orv::Result<Options> parseOptions(const QStringList& arguments);

/// The text for --help.
QString helpText();

} // namespace fetch
