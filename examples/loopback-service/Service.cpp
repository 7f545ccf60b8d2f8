#include "Service.h"

#include <QJsonObject>
#include <QUrl>
#include <QUrlQuery>

#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace service {

namespace {

using orv::LoopbackReply;
using orv::LoopbackRequest;

constexpr int MAX_SIZE = 256 * 1024 * 1024;
constexpr int CHUNK_SIZE = 64 * 1024;

LoopbackReply echo(const LoopbackRequest& request)
{
    return LoopbackReply::json({{u"method"_s, QString::fromLatin1(request.method)},
                                {u"contentType"_s, QString::fromLatin1(request.field("Content-Type"))},
                                {u"content"_s, QString::fromUtf8(request.content)}});
}

std::optional<int> sizeOf(const LoopbackRequest& request, int usual)
{
    const QUrlQuery query(QUrl(QString::fromLatin1(request.target)));
    if (!query.hasQueryItem(u"size"_s))
        return usual;
    bool isNumber = false;
    const int size = query.queryItemValue(u"size"_s).toInt(&isNumber);
    return isNumber && size >= 0 && size <= MAX_SIZE ? std::optional(size) : std::nullopt;
}

LoopbackReply badSize()
{
    return LoopbackReply(400, "size must be a number of bytes, up to 256 MB\n");
}

QByteArray repeated(const QByteArray& line, int size)
{
    return line.repeated(size / line.size() + 1).first(size);
}

LoopbackReply stream(const LoopbackRequest& request)
{
    const auto size = sizeOf(request, -1);
    if (!size || *size < 0)
        return badSize();
    return LoopbackReply(200, repeated("0123456789abcde\n", *size), "application/octet-stream")
        .chunked(CHUNK_SIZE);
}

QByteArray nameOf(const QString& path)
{
    return path.section(u'/', -1).toUtf8() + '\n';
}

LoopbackReply file(const LoopbackRequest& request)
{
    const auto size = sizeOf(request, 1000000);
    if (!size)
        return badSize();
    return LoopbackReply(200, repeated(nameOf(request.path), *size), "application/octet-stream");
}

// The reply to a path whose replies do not depend on earlier requests.
std::optional<LoopbackReply> statelessReply(const LoopbackRequest& request)
{
    const auto& path = request.path;
    if (path == "/hello"_L1)
        return LoopbackReply(200, "Hello from the loopback service.\n");
    if (path == "/json"_L1)
        return LoopbackReply::json({{u"service"_s, u"loopback"_s}, {u"isUp"_s, true}});
    if (path == "/echo"_L1)
        return echo(request);
    if (path == "/stream"_L1)
        return stream(request);
    if (path.startsWith("/files/"_L1))
        return file(request);
    if (path == "/slow"_L1)
        return LoopbackReply(200, "That took a while.\n").delayed(10s);
    return std::nullopt;
}

} // namespace

Service::Service()
{
    for (auto* server : {&m_http, &m_https}) {
        server->setHandler([this](const LoopbackRequest& request) {
            ++m_requestCounts[request.path];
            return answer(request);
        });
        server->setRecording(false);
    }
}

LoopbackReply Service::answer(const LoopbackRequest& request)
{
    const auto& path = request.path;
    if (const auto reply = statelessReply(request))
        return *reply;
    if (path.startsWith("/flaky/"_L1))
        return failFirst(path, 503);
    if (path.startsWith("/busy/"_L1))
        return failFirst(path, 429);
    if (path == "/login"_L1)
        return m_tokens.login(request);
    if (path.startsWith("/private/"_L1))
        return answerPrivate(request);
    if (path == "/log"_L1)
        return log();
    return LoopbackReply(404, "Nothing here.\n");
}

LoopbackReply Service::answerPrivate(const LoopbackRequest& request)
{
    if (!m_tokens.admits(request))
        return LoopbackReply(401, "Log in first.\n").withField("WWW-Authenticate", "Bearer");
    const auto& path = request.path;
    if (path.startsWith("/private/flaky/"_L1))
        return failFirst(path, 503);
    if (path.startsWith("/private/busy/"_L1))
        return failFirst(path, 429);
    return LoopbackReply(200, nameOf(path));
}

LoopbackReply Service::failFirst(const QString& path, int status)
{
    if (m_failed.contains(path))
        return LoopbackReply(200, nameOf(path));
    m_failed.insert(path);
    return LoopbackReply(status, "Not now.\n");
}

LoopbackReply Service::log() const
{
    QJsonObject requests;
    for (auto count = m_requestCounts.cbegin(); count != m_requestCounts.cend(); ++count)
        requests.insert(count.key(), count.value());
    return LoopbackReply::json({{u"logins"_s, m_tokens.loginCount()}, {u"requests"_s, requests}});
}

orv::Error Service::listen()
{
    auto error = m_http.listen();
    return error.hasError() ? error : m_https.listen();
}

} // namespace service
