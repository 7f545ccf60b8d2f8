#pragma once

/// @file
/// HTTP statuses, error numbers, and functions that convert between them.

#include "orv_network_export.h"

#include <Error.h>
#include <ErrorWarningMessagesUtils.h>

#include <QNetworkReply>
#include <QObject>

namespace orv {

/// The HTTP status codes that the library treats specially, registered with the meta-object system.
namespace ORV_QEnumsHttpResponseStatusCodesUtils {
Q_NAMESPACE_EXPORT(ORV_NETWORK_EXPORT)

/// An HTTP status code (RFC 9110, section 15). Variables of this type also carry statuses without a name
/// here, such as 204 or 503.
enum class HttpResponseStatusCode : int {
    Unknown = 0,               ///< No status, as with a pure transport failure.
    OK = 200,                  ///< Success.
    Created = 201,             ///< Success: a resource was created.
    TemporaryRedirect = 307,   ///< The resource is at another address for now; not followed.
    BadRequest = 400,          ///< An error under the response error policy.
    Unauthorized = 401,        ///< Authentication is required: the task waits for its authenticator.
    Forbidden = 403,           ///< An error.
    NotFound = 404,            ///< An error under the response error policy.
    RequestTimeout = 408,      ///< Retried. Also set when a task itself times out.
    Locked = 423,              ///< An error (RFC 4918, section 11.3).
    TooManyRequests = 429,     ///< Retried (RFC 6585, section 4).
    LoginTimeout = 440,        ///< The login session has expired; not standardized.
    InternalServerError = 500, ///< An error.
};
Q_ENUM_NS(HttpResponseStatusCode)

} // namespace ORV_QEnumsHttpResponseStatusCodesUtils

/// The name of the enumeration that programs use.
using HttpResponseStatusCode = ORV_QEnumsHttpResponseStatusCodesUtils::HttpResponseStatusCode;

/// The details of every Error that describes a network failure are one int: an HTTP status or a transport
/// error plus its offset, DEADLINE_ERROR_CODE or UNKNOWN_ERROR_CODE.
namespace NetworkErrorConstants {
/// 1408; the deadline of a task has passed.
ORV_NETWORK_EXPORT extern const int DEADLINE_ERROR_CODE;
/// 2000; added to an HTTP status.
ORV_NETWORK_EXPORT extern const int HTTP_ERROR_OFFSET;
/// 3000; added to a QNetworkReply::NetworkError.
ORV_NETWORK_EXPORT extern const int NETWORK_ERROR_OFFSET;
/// 65535; an unknown failure.
ORV_NETWORK_EXPORT extern const int UNKNOWN_ERROR_CODE;
} // namespace NetworkErrorConstants

// All functions below are reentrant. None throws.

/// The HTTP status of @p reply, which must not be null; 0 if it has none.
ORV_NETWORK_EXPORT int responseStatusCodeNumber(QNetworkReply* reply);
/// responseStatusCodeNumber() as a value of the enumeration, which may have no key.
ORV_NETWORK_EXPORT HttpResponseStatusCode responseStatusCode(QNetworkReply* reply);
/// The key of @p code in words, for example "Too Many Requests"; empty for a value without a key.
ORV_NETWORK_EXPORT QString httpResponseStatusCodeName(HttpResponseStatusCode code);

/// The error number of an HTTP status: @p code plus HTTP_ERROR_OFFSET, at most the largest int.
ORV_NETWORK_EXPORT int httpErrorCode(HttpResponseStatusCode code);
/// The error number of a transport error: @p error plus NETWORK_ERROR_OFFSET, at most the largest int.
ORV_NETWORK_EXPORT int networkErrorCode(QNetworkReply::NetworkError error);
/// The HTTP status in the details of @p error: an error number from 2000 to 2999, less 2000. OK for all
/// others, such as those of transport errors and of success.
ORV_NETWORK_EXPORT HttpResponseStatusCode httpResponseStatusCode(const Error& error);
/// The transport error in the details of @p error: an error number of 3000 or more, less 3000. NoError for
/// all others. There is no upper bound, so UNKNOWN_ERROR_CODE gives 62535, which is no
/// QNetworkReply::NetworkError.
ORV_NETWORK_EXPORT QNetworkReply::NetworkError networkError(const Error& error);

/// Success for 200 and 201, otherwise forcedNetworkError().
ORV_NETWORK_EXPORT Error networkError(HttpResponseStatusCode code, const QString& message);
/// The error of an HTTP status, even of a success: ErrorCode::SessionTimedOut for 440, otherwise
/// ErrorCode::Network, with httpErrorCode() in the details; a number that no status can be, below 0 or above
/// 999, counts as HttpResponseStatusCode::Unknown there. An empty @p message is replaced by a text that names
/// the status.
ORV_NETWORK_EXPORT Error forcedNetworkError(HttpResponseStatusCode code, const QString& message);
/// Success for NoError, otherwise an error of code ErrorCode::Network with networkErrorCode() in the details.
/// An empty @p message is replaced by a text that names the transport error.
ORV_NETWORK_EXPORT Error networkError(QNetworkReply::NetworkError error, const QString& message);
/// ErrorCode::General, "Unknown error", with UNKNOWN_ERROR_CODE in the details.
ORV_NETWORK_EXPORT Error networkUnknownError();

/// Success if @p reply is not null and has the status 200 or 201.
///
/// Otherwise ErrorCode::InvalidArgument for a null reply or ErrorCode::Network, both without a message. A
/// text with the URL, without its password, is appended to the errors of @p messages, which may be null.
ORV_NETWORK_EXPORT Error checkHttpStatus(QNetworkReply* reply, ErrorWarningMessages* messages);

} // namespace orv
