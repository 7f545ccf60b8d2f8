#include "Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace service {

using orv::LoopbackReply;
using orv::LoopbackRequest;

LoopbackReply Tokens::login(const LoopbackRequest& request)
{
    const QJsonObject expected{{u"user"_s, u"ann"_s}, {u"password"_s, u"secret"_s}};
    if (request.method != "POST" || QJsonDocument::fromJson(request.content).object() != expected)
        return LoopbackReply(401, "Wrong user or password.\n");
    if (m_loginCount > 0)
        m_livesLeft.reset();
    ++m_loginCount;
    m_token = "token-" + QByteArray::number(m_loginCount);
    return LoopbackReply::json({{u"token"_s, QString::fromLatin1(m_token)}});
}

bool Tokens::admits(const LoopbackRequest& request)
{
    if (m_token.isEmpty() || request.field("Authorization") != "Bearer " + m_token)
        return false;
    if (!m_livesLeft)
        return true;
    if (*m_livesLeft == 0) {
        m_token.clear();
        return false;
    }
    --*m_livesLeft;
    return true;
}

} // namespace service
