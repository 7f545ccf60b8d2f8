#include "NetworkRequest.h"

#include "NetworkRequest_p.h"
#include "Redaction_p.h"

#include <QDebug>
#include <QRegularExpression>

#include <utility>

namespace orv {

// The order matters: defaultContentType is a copy of jsonContentType.
const QByteArray NetworkRequest::jsonContentType = QByteArrayLiteral("application/json");
const QByteArray NetworkRequest::plainTextContentType = QByteArrayLiteral("text/plain");
const QByteArray NetworkRequest::octetStreamContentType = QByteArrayLiteral("application/octet-stream");
const QByteArray NetworkRequest::htmlContentType = QByteArrayLiteral("text/html");
const QByteArray NetworkRequest::defaultContentType = NetworkRequest::jsonContentType;

namespace {

QByteArray masked(const QByteArray& data, const QList<QRegularExpression>& expressions)
{
    auto text = QString::fromUtf8(data);
    for (const auto& expression : expressions) {
        if (!expression.isValid()) // it matches nothing, and Qt would print a warning about it
            continue;
        text.replace(expression, QStringLiteral("\\1******\\2"));
    }
    return text.toUtf8();
}

} // namespace

NetworkRequest::NetworkRequest() = default;

NetworkRequest::NetworkRequest(const QString& url_, const QByteArray& acceptedContentTypes_, Method method_)
    : url(url_)
    , acceptedContentTypes(acceptedContentTypes_)
    , method(method_)
{
}

NetworkRequest::NetworkRequest(const NetworkRequest& other) = default;
NetworkRequest::NetworkRequest(NetworkRequest&& other) noexcept = default;
NetworkRequest& NetworkRequest::operator=(const NetworkRequest& other) = default;
NetworkRequest& NetworkRequest::operator=(NetworkRequest&& other) noexcept = default;
NetworkRequest::~NetworkRequest() = default;

bool NetworkRequest::operator==(const NetworkRequest& other) const
{
    // The repeated comparison is as published; programs may rely on this exact set of fields and no larger
    // one.
    return url == other.url && acceptedContentTypes == other.acceptedContentTypes &&
           postDataContentType == other.postDataContentType &&
           acceptedContentTypes == other.acceptedContentTypes && // NOLINT(misc-redundant-expression)
           method == other.method;
}

bool NetworkRequest::operator!=(const NetworkRequest& other) const
{
    return !(*this == other);
}

QByteArray NetworkRequest::maskedData() const
{
    return maskingFunction ? maskingFunction(postData) : postData;
}

void NetworkRequest::setMaskingFunction(std::function<QByteArray(QByteArray)> function)
{
    maskingFunction = std::move(function);
}

void NetworkRequest::setMaskingRegularExpressions(const QList<QRegularExpression>& expressions)
{
    maskingFunction = [expressions](const QByteArray& data) { return masked(data, expressions); };
}

void NetworkRequest::setMaskingRegularExpression(const QRegularExpression& expression)
{
    setMaskingRegularExpressions({expression});
}

const char* methodName(NetworkRequest::Method method)
{
    switch (method) {
    case NetworkRequest::Method::Head:
        return "Method::Head";
    case NetworkRequest::Method::Get:
        return "Method::Get";
    case NetworkRequest::Method::Post:
        return "Method::Post";
    case NetworkRequest::Method::Put:
        return "Method::Put";
    case NetworkRequest::Method::Delete:
        return "Method::Delete";
    }
    return "";
}

QDebug operator<<(QDebug debug, NetworkRequest::Method method)
{
    const auto* name = methodName(method);
    return *name ? debug.nospace() << name : debug;
}

QDebug operator<<(QDebug debug, const NetworkRequest& request)
{
    // The type name is written out, since some compilers give an encoded one at run time.
    debug.nospace() << "struct orv::NetworkRequest"
                    << "(url=" << withoutPasswords(request.url)
                    << " postDataContentType=" << request.postDataContentType
                    << " postData=" << request.maskedData()
                    << " acceptedContentTypes=" << request.acceptedContentTypes
                    << " method=" << request.method << ")";
    return debug;
}

} // namespace orv
