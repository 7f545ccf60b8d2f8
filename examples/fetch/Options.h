#pragma once

#include <NetworkRequest.h>
#include <Result.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace fetch {

/// What the command line asks for.
struct Options
{
    enum class Action { Fetch, ShowHelp, ShowVersion };

    Action action = Action::Fetch;
    orv::NetworkRequest request;
    std::optional<std::chrono::milliseconds> timeout;
    std::optional<QByteArray> userAgent;
    QString outputPath; ///< Empty for the standard output.
    int retries = 0;
    bool isInsecure = false;
    bool isVerbose = false;
    bool includesHead = false;
};

/// Reads the command line, @p arguments of which the first is the program, and the content that it names.
///
/// The error has the code InvalidArgument for a command line that makes no sense, and FileAccess where the
/// content to send cannot be read.
orv::Result<Options> parseOptions(const QStringList& arguments);

/// The text for --help, with the exit codes.
QString helpText();

} // namespace fetch
