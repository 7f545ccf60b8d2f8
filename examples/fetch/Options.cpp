#include "Options.h"

#include "ExitCode.h"

#include <QCommandLineParser>
#include <QFile>
#include <QUrl>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::Error;
using orv::ErrorCode;
using orv::NetworkRequest;

struct CommandLine
{
    CommandLine();

    const QCommandLineOption method{{u"X"_s, u"request"_s},
                                    u"HEAD, GET, POST, PUT or DELETE; GET, or POST with data, if left out."_s,
                                    u"METHOD"_s};
    const QCommandLineOption field{
        {u"H"_s, u"header"_s}, u"A header field to send, \"Name: value\". Repeatable."_s, u"FIELD"_s};
    const QCommandLineOption data{{u"d"_s, u"data"_s},
                                  u"Content to send: DATA itself, what @FILE holds, or with @- the "
                                  u"standard input."_s,
                                  u"DATA"_s};
    const QCommandLineOption contentType{
        u"content-type"_s, u"Type of the content to send; application/json if left out."_s, u"TYPE"_s};
    const QCommandLineOption accept{
        {u"a"_s, u"accept"_s}, u"Types of content to accept; */* if left out."_s, u"TYPES"_s, u"*/*"_s};
    const QCommandLineOption timeout{
        {u"t"_s, u"timeout"_s}, u"Milliseconds without any progress until giving up."_s, u"MS"_s};
    const QCommandLineOption userAgent{
        {u"A"_s, u"user-agent"_s}, u"Value of User-Agent; it may be empty."_s, u"VALUE"_s};
    const QCommandLineOption insecure{{u"k"_s, u"insecure"_s}, u"Accept any certificate of the server."_s};
    const QCommandLineOption output{
        {u"o"_s, u"output"_s},
        u"File to write, in place of the standard output. It is left as it was if the fetch fails."_s,
        u"FILE"_s};
    const QCommandLineOption stream{u"stream"_s, u"Write the content as it arrives, however large it is."_s};
    const QCommandLineOption retries{
        u"retries"_s, u"How often to try again after a failure that may pass; 0 if left out."_s, u"N"_s,
        u"0"_s};
    const QCommandLineOption include{{u"i"_s, u"include"_s},
                                     u"Write status and header fields before the content."_s};
    const QCommandLineOption verbose{{u"v"_s, u"verbose"_s}, u"Log to the standard error what happens."_s};
    const QCommandLineOption help{{u"h"_s, u"help"_s}, u"Show this text."_s};
    const QCommandLineOption version{u"version"_s, u"Show the version."_s};
    QCommandLineParser parser;
};

CommandLine::CommandLine()
{
    parser.setApplicationDescription(u"Fetches a URL over HTTP or HTTPS. Redirects are not followed."_s);
    parser.addPositionalArgument(u"URL"_s, u"What to fetch."_s);
    parser.addOptions({method, field, data, contentType, accept, timeout, userAgent, insecure, output, stream,
                       retries, include, verbose, help, version});
}

Error usageError(const QString& message)
{
    return Error(ErrorCode::InvalidArgument, message);
}

// RFC 9110, section 5.6.2.
bool isToken(const QByteArray& name)
{
    static constexpr QByteArrayView marks("!#$%&'*+-.^_`|~");
    const auto isAllowed = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               marks.contains(c);
    };
    return !name.isEmpty() && std::all_of(name.begin(), name.end(), isAllowed);
}

/// Makes Options of a command line, step by step.
class Reader
{
public:
    explicit Reader(const CommandLine& line)
        : m_line(line)
    {
    }

    orv::Result<Options> read();

private:
    bool isSet(const QCommandLineOption& option) const { return m_line.parser.isSet(option); }
    QString value(const QCommandLineOption& option) const { return m_line.parser.value(option); }
    orv::Result<int> number(const QCommandLineOption& option, int least) const;

    Error readUrl();
    Error readMethod();
    Error readData();
    Error readFields();
    Error readField(const QByteArray& line);
    Error readNumbers();
    void readContentType();
    void readRest();

    const CommandLine& m_line;
    Options m_options;
};

orv::Result<Options> Reader::read()
{
    using Step = Error (Reader::*)();
    constexpr std::array<Step, 5> steps{&Reader::readUrl, &Reader::readMethod, &Reader::readNumbers,
                                        &Reader::readFields, &Reader::readData};
    for (const auto step : steps) {
        auto error = (this->*step)();
        if (error.hasError())
            return error;
    }
    readContentType();
    readRest();
    return std::move(m_options);
}

Error Reader::readUrl()
{
    const auto arguments = m_line.parser.positionalArguments();
    if (arguments.size() != 1)
        return usageError(u"exactly one URL is needed"_s);
    const QUrl url(arguments.first(), QUrl::TolerantMode);
    const bool isHttp = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    if (!url.isValid() || !isHttp || url.host().isEmpty())
        return usageError(u"not an http or https URL: %1"_s.arg(arguments.first()));
    m_options.request.url = arguments.first();
    return {};
}

Error Reader::readMethod()
{
    using Method = NetworkRequest::Method;
    static constexpr std::array<std::pair<QLatin1String, Method>, 5> methods{{{"HEAD"_L1, Method::Head},
                                                                              {"GET"_L1, Method::Get},
                                                                              {"POST"_L1, Method::Post},
                                                                              {"PUT"_L1, Method::Put},
                                                                              {"DELETE"_L1, Method::Delete}}};
    m_options.request.method = isSet(m_line.data) ? Method::Post : Method::Get;
    if (!isSet(m_line.method))
        return {};
    const auto name = value(m_line.method).toUpper();
    const auto* const found =
        std::find_if(methods.begin(), methods.end(), [&](const auto& known) { return known.first == name; });
    if (found == methods.end())
        return usageError(u"unknown method: %1"_s.arg(value(m_line.method)));
    m_options.request.method = found->second;
    return {};
}

orv::Result<int> Reader::number(const QCommandLineOption& option, int least) const
{
    bool isNumber = false;
    const int number = value(option).toInt(&isNumber);
    if (isNumber && number >= least)
        return number;
    return usageError(u"--%1 must be a number from %2 on"_s.arg(option.names().constLast()).arg(least));
}

Error Reader::readNumbers()
{
    const auto retries = number(m_line.retries, 0);
    if (retries.hasError())
        return retries.error();
    m_options.retries = retries.value();
    if (!isSet(m_line.timeout))
        return {};
    const auto timeout = number(m_line.timeout, 1);
    if (timeout.hasError())
        return timeout.error();
    m_options.timeout = std::chrono::milliseconds(timeout.value());
    return {};
}

Error Reader::readFields()
{
    const auto lines = m_line.parser.values(m_line.field);
    for (const auto& line : lines) {
        auto error = readField(line.toUtf8());
        if (error.hasError())
            return error;
    }
    return {};
}

Error Reader::readField(const QByteArray& line)
{
    const auto colon = line.indexOf(':');
    const auto name = line.left(colon);
    if (colon < 0 || !isToken(name))
        return usageError(u"not a header field: %1"_s.arg(QString::fromUtf8(line)));
    const auto value = line.mid(colon + 1).trimmed();
    auto& fields = m_options.request.rawHeaders;
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        if (field.key().compare(name, Qt::CaseInsensitive) != 0)
            continue;
        // The record has one value a name; fields that may come twice may also come joined (RFC 9110,
        // section 5.3).
        field.value() += ", " + value;
        return {};
    }
    fields.insert(name, value);
    return {};
}

Error Reader::readData()
{
    if (!isSet(m_line.data))
        return {};
    auto& request = m_options.request;
    if (request.method != NetworkRequest::Method::Post && request.method != NetworkRequest::Method::Put)
        return usageError(u"data can be sent with POST or PUT only"_s);
    const auto data = value(m_line.data);
    if (!data.startsWith(u'@')) {
        request.postData = data.toUtf8();
        return {};
    }
    QFile file(data.mid(1));
    const bool isOpen =
        data == "@-"_L1 ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (isOpen)
        request.postData = file.readAll();
    if (isOpen && file.error() == QFileDevice::NoError)
        return {};
    return Error(ErrorCode::FileAccess, u"cannot read %1: %2"_s.arg(data.mid(1), file.errorString()));
}

// A task sends the type that its request names, whatever the raw fields say.
void Reader::readContentType()
{
    auto& request = m_options.request;
    if (isSet(m_line.data))
        request.postDataContentType = NetworkRequest::jsonContentType;
    for (auto field = request.rawHeaders.cbegin(); field != request.rawHeaders.cend(); ++field) {
        if (field.key().compare("Content-Type", Qt::CaseInsensitive) == 0)
            request.postDataContentType = field.value();
    }
    if (isSet(m_line.contentType))
        request.postDataContentType = value(m_line.contentType).toUtf8();
}

void Reader::readRest()
{
    m_options.request.acceptedContentTypes = value(m_line.accept).toUtf8();
    m_options.request.streaming = isSet(m_line.stream);
    if (isSet(m_line.userAgent))
        m_options.userAgent = value(m_line.userAgent).toUtf8();
    m_options.outputPath = value(m_line.output);
    m_options.isInsecure = isSet(m_line.insecure);
    m_options.isVerbose = isSet(m_line.verbose);
    m_options.includesHead = isSet(m_line.include);
}

} // namespace

orv::Result<Options> parseOptions(const QStringList& arguments)
{
    CommandLine line;
    if (!line.parser.parse(arguments))
        return usageError(line.parser.errorText());
    Options options;
    if (line.parser.isSet(line.help))
        options.action = Options::Action::ShowHelp;
    else if (line.parser.isSet(line.version))
        options.action = Options::Action::ShowVersion;
    else
        return Reader(line).read();
    return options;
}

QString helpText()
{
    static constexpr std::array<std::pair<ExitCode, QLatin1String>, 8> codes{
        {{ExitCode::Success, "success"_L1},
         {ExitCode::BadUsage, "bad usage"_L1},
         {ExitCode::FileAccess, "the output cannot be written, or the data cannot be read"_L1},
         {ExitCode::TransportFailure, "no complete reply (connection, TLS, protocol)"_L1},
         {ExitCode::ErrorStatus, "the server answered with an error status or a redirect"_L1},
         {ExitCode::TimedOut, "time-out"_L1},
         {ExitCode::LoginRequired, "the server wants a login (401)"_L1},
         {ExitCode::Interrupted, "interrupted (SIGINT, SIGTERM)"_L1}}};
    auto text = CommandLine().parser.helpText() + "\nExit codes:\n"_L1;
    for (const auto& [code, meaning] : codes)
        text += u"  %1  %2\n"_s.arg(static_cast<int>(code), 3).arg(meaning);
    return text;
}

} // namespace fetch
