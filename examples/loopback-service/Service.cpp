#include "Service.h"

#include <QJsonObject>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace service {

namespace {

using orv::LoopbackReply;
using orv::LoopbackRequest;

constexpr int MAX_STREAM_SIZE = 256 * 1024 * 1024;
constexpr int CHUNK_SIZE = 64 * 1024;

LoopbackReply echo(const LoopbackRequest& request)
{
    return LoopbackReply::json({{u"method"_s, QString::fromLatin1(request.method)},
                                {u"contentType"_s, QString::fromLatin1(request.field("Content-Type"))},
                                {u"content"_s, QString::fromUtf8(request.content)}});
}

LoopbackReply stream(const LoopbackRequest& request)
{
    static const QByteArray line("0123456789abcde\n");
    const QUrlQuery query(QUrl(QString::fromLatin1(request.target)));
    bool isNumber = false;
    const int size = query.queryItemValue(u"size"_s).toInt(&isNumber);
    if (!isNumber || size < 0 || size > MAX_STREAM_SIZE)
        return LoopbackReply(400, "size must be a number of bytes, up to 256 MB\n");
    const auto content = line.repeated(size / line.size() + 1).first(size);
    return LoopbackReply(200, content, "application/octet-stream").chunked(CHUNK_SIZE);
}

LoopbackReply answer(const LoopbackRequest& request)
{
    if (request.path == "/hello"_L1)
        return LoopbackReply(200, "Hello from the loopback service.\n");
    if (request.path == "/json"_L1)
        return LoopbackReply::json({{u"service"_s, u"loopback"_s}, {u"isUp"_s, true}});
    if (request.path == "/echo"_L1)
        return echo(request);
    if (request.path == "/stream"_L1)
        return stream(request);
    if (request.path == "/slow"_L1)
        return LoopbackReply(200, "That took a while.\n").delayed(10s);
    return LoopbackReply(404, "Nothing here.\n");
}

} // namespace

Service::Service()
{
    for (auto* server : {&m_http, &m_https}) {
        server->setHandler(answer);
        server->setRecording(false);
    }
}

orv::Error Service::listen()
{
    auto error = m_http.listen();
    return error.hasError() ? error : m_https.listen();
}

} // namespace service
