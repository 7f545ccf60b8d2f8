#include "Options.h"

#include "CommandLine.h"

#include <BearerLogin.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSet>
#include <QUrl>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::Error;
using orv::ErrorCode;
using orv::NetworkRequest;

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

bool isHttpUrl(const QString& text)
{
    const QUrl url(text, QUrl::TolerantMode);
    return url.isValid() && (url.scheme() == "http"_L1 || url.scheme() == "https"_L1) &&
           !url.host().isEmpty();
}

// The content that a DATA or @FILE argument stands for.
orv::Result<QByteArray> contentOf(const QString& argument)
{
    if (!argument.startsWith(u'@'))
        return argument.toUtf8();
    QFile file(argument.mid(1));
    const bool isOpen =
        argument == "@-"_L1 ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    const auto content = isOpen ? file.readAll() : QByteArray();
    if (isOpen && file.error() == QFileDevice::NoError)
        return content;
    return Error(ErrorCode::FileAccess, u"cannot read %1: %2"_s.arg(argument.mid(1), file.errorString()));
}

/// Reads Options from a command line, step by step.
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
    Error readNumber(const QCommandLineOption& option, int least, int& number) const;

    Error readUrls();
    Error readMethod();
    Error readData();
    Error readFields();
    Error readField(const QByteArray& line);
    Error readNumbers();
    Error readDelays();
    Error readLogin();
    Error readOutput();
    void readContentType();
    void readRest();

    const CommandLine& m_line;
    Options m_options;
};

orv::Result<Options> Reader::read()
{
    using Step = Error (Reader::*)();
    constexpr std::array<Step, 8> steps{&Reader::readUrls,   &Reader::readMethod, &Reader::readNumbers,
                                        &Reader::readDelays, &Reader::readFields, &Reader::readOutput,
                                        &Reader::readData,   &Reader::readLogin};
    for (const auto step : steps) {
        auto error = (this->*step)();
        if (error.hasError())
            return error;
    }
    readContentType();
    readRest();
    return std::move(m_options);
}

Error Reader::readUrls()
{
    m_options.urls = m_line.parser.positionalArguments();
    if (m_options.urls.isEmpty())
        return usageError(u"a URL is needed"_s);
    for (const auto& url : std::as_const(m_options.urls)) {
        if (!isHttpUrl(url))
            return usageError(u"not an http or https URL: %1"_s.arg(url));
    }
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

Error Reader::readNumber(const QCommandLineOption& option, int least, int& number) const
{
    bool isNumber = false;
    number = value(option).toInt(&isNumber);
    if (isNumber && number >= least)
        return {};
    return usageError(u"--%1 must be a number from %2 on"_s.arg(option.names().constLast()).arg(least));
}

Error Reader::readNumbers()
{
    auto error = readNumber(m_line.parallel, 1, m_options.parallel);
    if (!error.hasError())
        error = readNumber(m_line.retries, 0, m_options.retryPolicy.retries);
    if (error.hasError() || !isSet(m_line.timeout))
        return error;
    int timeout = 0;
    error = readNumber(m_line.timeout, 1, timeout);
    m_options.timeout = std::chrono::milliseconds(timeout);
    return error;
}

Error Reader::readDelays()
{
    using Policy = orv::Retriable::DelayPolicy;
    static constexpr std::array<std::pair<QLatin1String, Policy>, 3> policies{
        {{"none"_L1, Policy::None}, {"linear"_L1, Policy::Linear}, {"exponential"_L1, Policy::Exponential}}};
    const auto name = value(m_line.delayPolicy);
    const auto* const found = std::find_if(policies.begin(), policies.end(),
                                           [&](const auto& known) { return known.first == name; });
    if (found == policies.end())
        return usageError(u"unknown delay policy: %1"_s.arg(name));
    auto& policy = m_options.retryPolicy;
    policy.delayPolicy = found->second;

    bool isNumber = false;
    policy.delayFactor = value(m_line.delayFactor).toDouble(&isNumber);
    if (!isNumber || !std::isfinite(policy.delayFactor) || policy.delayFactor <= 0)
        return usageError(u"--delay-factor must be a number above 0"_s);
    int maxDelay = 0;
    auto error = readNumber(m_line.maxDelay, 0, maxDelay);
    policy.maxDelay = std::chrono::seconds(maxDelay);
    return error;
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
        // NetworkRequest has one value for each name; repeated fields may be combined (RFC 9110,
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
    auto content = contentOf(value(m_line.data));
    if (content.hasError())
        return content.error();
    request.postData = std::move(content).value();
    return {};
}

Error Reader::readLogin()
{
    auto& login = m_options.login;
    const auto token = contentOf(value(m_line.token));
    if (token.hasError())
        return token.error();
    login.token = QString::fromUtf8(token.value()).trimmed();
    if (isSet(m_line.token) && login.token.isEmpty())
        return usageError(u"the token is empty"_s);
    auto refusal = orv::BearerLogin().setTokens({login.token, {}, {}});
    if (refusal.hasError())
        return refusal;
    login.url = value(m_line.loginUrl);
    if (isSet(m_line.loginUrl) && !isHttpUrl(login.url))
        return usageError(u"not an http or https URL: %1"_s.arg(login.url));
    if (isSet(m_line.loginData) && !isSet(m_line.loginUrl))
        return usageError(u"--login-data needs --login-url"_s);
    const auto credentials = contentOf(value(m_line.loginData));
    if (credentials.hasError())
        return credentials.error();
    login.credentials = credentials.value();
    if (!QJsonDocument::fromJson(login.credentials).isObject())
        return usageError(u"--login-data must be a JSON object"_s);
    return {};
}

// Two URLs with the same name would overwrite each other's file.
Error Reader::readOutput()
{
    m_options.outputPath = value(m_line.output);
    if (m_options.urls.size() == 1)
        return {};
    if (m_options.outputPath.isEmpty() || !QFileInfo(m_options.outputPath).isDir())
        return usageError(u"several URLs need a directory to save in: -o DIR"_s);
    QSet<QString> names;
    for (const auto& url : std::as_const(m_options.urls)) {
        const auto name = QUrl(url, QUrl::TolerantMode).fileName(QUrl::FullyDecoded);
        if (!name.isEmpty() && names.contains(name))
            return usageError(u"two URLs would be saved under one name: %1"_s.arg(url));
        names.insert(name);
    }
    return {};
}

// A task sends postDataContentType even if the raw fields contain a Content-Type.
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
    m_options.isInsecure = isSet(m_line.insecure);
    m_options.isQuiet = isSet(m_line.quiet);
    m_options.isVerbose = isSet(m_line.verbose);
    m_options.includesHead = isSet(m_line.include);
}

} // namespace

// setMaxDelay() also raises the current delay to the maximum, so the delay is reset afterwards.
void RetryPolicy::applyTo(orv::Retriable& retriable) const
{
    retriable.setMaxRetriesCount(retries);
    retriable.setDelayPolicy(delayPolicy);
    retriable.setIncrementFactor(delayFactor);
    retriable.setMaxDelay(maxDelay);
    retriable.setDelay(0);
}

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
    return CommandLine().helpText();
}

} // namespace fetch
