#pragma once

#include <NetworkConstants.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>

namespace fetch {

using namespace Qt::StringLiterals;

/// The options of the program, and the parser for them.
struct CommandLine
{
    CommandLine();

    /// The text for --help, with the exit codes.
    QString helpText() const;

    const QCommandLineOption method{{u"X"_s, u"request"_s},
                                    u"HEAD, GET, POST, PUT or DELETE; GET, or POST with data, if left out."_s,
                                    u"METHOD"_s};
    const QCommandLineOption field{
        {u"H"_s, u"header"_s}, u"A header field to send, \"Name: value\". Repeatable."_s, u"FIELD"_s};
    const QCommandLineOption data{
        {u"d"_s, u"data"_s},
        u"Content to send: DATA itself, the content of @FILE, or with @- the standard input."_s,
        u"DATA"_s};
    const QCommandLineOption contentType{
        u"content-type"_s, u"Type of the content to send; application/json if left out."_s, u"TYPE"_s};
    const QCommandLineOption accept{
        {u"a"_s, u"accept"_s}, u"Types of content to accept; */* if left out."_s, u"TYPES"_s, u"*/*"_s};
    const QCommandLineOption timeout{
        {u"t"_s, u"timeout"_s}, u"Give up after so many milliseconds without any progress."_s, u"MS"_s};
    const QCommandLineOption userAgent{
        {u"A"_s, u"user-agent"_s}, u"Value of User-Agent; it may be empty."_s, u"VALUE"_s};
    const QCommandLineOption insecure{{u"k"_s, u"insecure"_s}, u"Accept any certificate of the server."_s};

    const QCommandLineOption parallel{
        {u"P"_s, u"parallel"_s},
        u"How many URLs to fetch at a time; %1 if left out."_s.arg(network::MAX_PARALLEL_REQUESTS),
        u"N"_s,
        QString::number(network::MAX_PARALLEL_REQUESTS)};
    const QCommandLineOption retries{
        u"retries"_s, u"How often to retry after a transient failure; 0 if left out."_s, u"N"_s, u"0"_s};
    const QCommandLineOption delayPolicy{
        u"delay-policy"_s,
        u"How the delay before a retry grows: none, linear or exponential (the default)."_s, u"POLICY"_s,
        u"exponential"_s};
    const QCommandLineOption delayFactor{
        u"delay-factor"_s, u"Seconds that linear adds, or what exponential multiplies by; 2 if left out."_s,
        u"X"_s, u"2"_s};
    const QCommandLineOption maxDelay{u"max-delay"_s, u"Longest delay before a retry; 300 if left out."_s,
                                      u"SECONDS"_s, u"300"_s};

    const QCommandLineOption token{
        u"token"_s, u"Bearer token to send to every URL, or @FILE that contains it."_s, u"TOKEN"_s};
    const QCommandLineOption loginUrl{
        u"login-url"_s, u"Where to get a token if there is none or it is refused. It is sent to every URL."_s,
        u"URL"_s};
    const QCommandLineOption loginData{u"login-data"_s,
                                       u"Credentials to post there: JSON, or @FILE that contains it."_s,
                                       u"JSON"_s, u"{}"_s};

    const QCommandLineOption output{
        {u"o"_s, u"output"_s},
        u"File to write instead of the standard output, or directory to save in, under the names in the "
        u"URLs. If a fetch fails, an existing file is left unchanged."_s,
        u"FILE|DIR"_s};
    const QCommandLineOption stream{u"stream"_s, u"Write the content as it arrives, however large it is."_s};
    const QCommandLineOption include{{u"i"_s, u"include"_s},
                                     u"Write status and header fields before the content."_s};
    const QCommandLineOption quiet{{u"q"_s, u"quiet"_s},
                                   u"Report only failures, neither progress nor success."_s};
    const QCommandLineOption verbose{{u"v"_s, u"verbose"_s}, u"Log what happens to the standard error."_s};
    const QCommandLineOption help{{u"h"_s, u"help"_s}, u"Show this text."_s};
    const QCommandLineOption version{u"version"_s, u"Show the version."_s};

    QCommandLineParser parser;
};

} // namespace fetch
