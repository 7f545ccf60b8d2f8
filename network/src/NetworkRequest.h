#pragma once

#include "orv_network_export.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <functional>

class QDebug;
class QRegularExpression;

namespace orv {

/// Describes one HTTP request: a plain record that a NetworkTask turns into a request on the wire.
///
/// @code
/// NetworkRequest request(url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
/// request.postDataContentType = NetworkRequest::jsonContentType;
/// request.postData = R"({"user":"ann","password":"secret"})";
/// request.setMaskingRegularExpression(QRegularExpression(uR"(("password":")[^"]*("))"_s));
/// @endcode
///
/// A value type: distinct records may be used on distinct threads.
struct ORV_NETWORK_EXPORT NetworkRequest
{
    /// The HTTP method (RFC 9110, section 9). The values are part of the interface.
    enum class Method : int { Head = 0, Get = 1, Post = 2, Put = 3, Delete = 4 };

    static const QByteArray jsonContentType;        ///< "application/json"
    static const QByteArray plainTextContentType;   ///< "text/plain"
    static const QByteArray octetStreamContentType; ///< "application/octet-stream"
    static const QByteArray htmlContentType;        ///< "text/html"
    static const QByteArray defaultContentType;     ///< A copy of jsonContentType.

    /// A GET without a URL.
    NetworkRequest();
    /// Mind the middle argument: it is what the client accepts, not the type of the content it sends.
    NetworkRequest(const QString& url, const QByteArray& acceptedContentTypes, Method method);
    NetworkRequest(const NetworkRequest& other);
    NetworkRequest(NetworkRequest&& other) noexcept;
    NetworkRequest& operator=(const NetworkRequest& other);
    NetworkRequest& operator=(NetworkRequest&& other) noexcept;
    ~NetworkRequest();

    /// Compares url, acceptedContentTypes, postDataContentType and method. Requests that differ only in
    /// content or header fields are equal.
    bool operator==(const NetworkRequest& other) const;
    /// The opposite of operator==().
    bool operator!=(const NetworkRequest& other) const;

    /// The content in the form for logs: the result of the masking function for postData, or postData itself
    /// if there is no such function.
    QByteArray maskedData() const;
    /// Sets what turns the content into text for logs, called on the thread that calls maskedData(). An empty
    /// function switches masking off.
    void setMaskingFunction(std::function<QByteArray(QByteArray)> function);
    /// Masks every match of @p expressions, one expression after the other, in the content read as UTF-8:
    /// what the capture groups 1 and 2 hold stays, with six asterisks between them. Replaces any earlier
    /// masking.
    void setMaskingRegularExpressions(const QList<QRegularExpression>& expressions);
    /// Masks every match of one expression. Replaces any earlier masking.
    void setMaskingRegularExpression(const QRegularExpression& expression);

    QString url; ///< The absolute URL.
    /// Header fields by name. They are set after Accept and User-Agent and win over them, and before
    /// Authorization, which wins over them. A name that is no token (RFC 9110, 5.6.2) or a value with a
    /// control character other than HTAB ends the task with ErrorCode::InvalidArgument before anything is
    /// sent.
    QMap<QByteArray, QByteArray> rawHeaders;
    /// Content-Type of postData. An empty one is sent as an empty field; from Qt 6.8 on, a Post with content
    /// or with a query in its URL carries "application/octet-stream" then.
    QByteArray postDataContentType;
    QByteArray postData;             ///< Content to send with Post or Put.
    QByteArray acceptedContentTypes; ///< Value of Accept; no such field when empty.
    Method method = Method::Get;     ///< The HTTP method.
    /// Whether the task takes the reply's content as it arrives; otherwise it stays with the reply until it
    /// is read.
    bool streaming = false;
    /// Set by the masking setters; empty when nothing is masked.
    std::function<QByteArray(QByteArray)> maskingFunction;
};

/// Writes for example "Method::Get", in no-space mode; nothing for a value that is no method.
ORV_NETWORK_EXPORT QDebug operator<<(QDebug debug, NetworkRequest::Method method);
/// Writes the request with its content masked, without the password of its URL and without its header fields,
/// in no-space mode.
ORV_NETWORK_EXPORT QDebug operator<<(QDebug debug, const NetworkRequest& request);

} // namespace orv
