#include "Server.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace shop {

namespace {

using orv::LoopbackReply;
using orv::LoopbackRequest;

constexpr auto TOKEN = "a-token"_L1;

LoopbackReply logIn(const LoopbackRequest& request)
{
    const QJsonObject expected{{u"user"_s, u"ann"_s}, {u"password"_s, u"secret"_s}};
    if (QJsonDocument::fromJson(request.content).object() != expected)
        return LoopbackReply(401, "Wrong user or password.\n");
    return LoopbackReply::json({{u"token"_s, TOKEN}});
}

LoopbackReply item(const QString& name)
{
    const QJsonObject stocks{
        {u"apples"_s, 120}, {u"bread"_s, 14}, {u"coffee"_s, 36}, {u"dates"_s, 7}, {u"saffron"_s, 1}};
    if (!stocks.contains(name))
        return LoopbackReply(404, "No such item.\n");
    return LoopbackReply::json({{u"stock"_s, stocks.value(name)}})
        .delayed(name == "saffron"_L1 ? 10s : 100ms);
}

LoopbackReply answer(const LoopbackRequest& request)
{
    if (request.path == "/login"_L1)
        return logIn(request);
    if (request.field("Authorization") != "Bearer " + QByteArray(TOKEN.data(), TOKEN.size()))
        return LoopbackReply(401, "Log in first.\n");
    if (request.path == "/items"_L1)
        return LoopbackReply::json({{u"items"_s, QJsonArray{u"apples"_s, u"bread"_s, u"truffles"_s,
                                                            u"coffee"_s, u"saffron"_s, u"dates"_s}}});
    return item(request.path.section(u'/', 2));
}

} // namespace

Server::Server()
{
    setHandler(answer);
    setRecording(false);
}

} // namespace shop
