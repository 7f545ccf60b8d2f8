#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>

namespace fetch {

/// The options that the program knows, and the parser that finds them in its arguments.
struct CommandLine
{
    CommandLine();

    /// The text for --help, with the exit codes.
    QString helpText() const;

    const QCommandLineOption method;
    const QCommandLineOption field;
    const QCommandLineOption data;
    const QCommandLineOption contentType;
    const QCommandLineOption accept;
    const QCommandLineOption timeout;
    const QCommandLineOption userAgent;
    const QCommandLineOption insecure;

    const QCommandLineOption parallel;
    const QCommandLineOption retries;
    const QCommandLineOption delayPolicy;
    const QCommandLineOption delayFactor;
    const QCommandLineOption maxDelay;

    const QCommandLineOption token;
    const QCommandLineOption loginUrl;
    const QCommandLineOption loginData;

    const QCommandLineOption output;
    const QCommandLineOption stream;
    const QCommandLineOption include;
    const QCommandLineOption quiet;
    const QCommandLineOption verbose;
    const QCommandLineOption help;
    const QCommandLineOption version;

    QCommandLineParser parser;
};

} // namespace fetch
