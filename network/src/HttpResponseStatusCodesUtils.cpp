#include "HttpResponseStatusCodesUtils.h"

#include "EnumKey_p.h"

#include <TextUtils.h>

#include <QDebug>
#include <QUrl>

#include <algorithm>
#include <limits>

namespace orv {

namespace NetworkErrorConstants {
const int DEADLINE_ERROR_CODE = 1408;
const int HTTP_ERROR_OFFSET = 2000;
const int NETWORK_ERROR_OFFSET = 3000;
const int UNKNOWN_ERROR_CODE = 65535;
} // namespace NetworkErrorConstants

namespace {

constexpr auto highestStatus = 999;

bool isSuccess(HttpResponseStatusCode code)
{
    static const QList<HttpResponseStatusCode> successes{HttpResponseStatusCode::OK,
                                                         HttpResponseStatusCode::Created};
    return successes.contains(code);
}

int saturatedSum(int number, int offset)
{
    return static_cast<int>(std::min<qint64>(qint64(number) + offset, std::numeric_limits<int>::max()));
}

// A server may send any number as its status; one that no status can be would be read back as something else.
int statusErrorNumber(HttpResponseStatusCode code)
{
    const auto number = static_cast<int>(code);
    return httpErrorCode(number >= 0 && number <= highestStatus ? code : HttpResponseStatusCode::Unknown);
}

} // namespace

int responseStatusCodeNumber(QNetworkReply* reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

HttpResponseStatusCode responseStatusCode(QNetworkReply* reply)
{
    return static_cast<HttpResponseStatusCode>(responseStatusCodeNumber(reply));
}

QString httpResponseStatusCodeName(HttpResponseStatusCode code)
{
    const auto key = enumKey(code);
    return code == HttpResponseStatusCode::OK ? key : TextUtils::separateCamelCase(key, QLatin1Char(' '));
}

int httpErrorCode(HttpResponseStatusCode code)
{
    return saturatedSum(static_cast<int>(code), NetworkErrorConstants::HTTP_ERROR_OFFSET);
}

int networkErrorCode(QNetworkReply::NetworkError error)
{
    return saturatedSum(static_cast<int>(error), NetworkErrorConstants::NETWORK_ERROR_OFFSET);
}

HttpResponseStatusCode httpResponseStatusCode(const Error& error)
{
    const int number = error.errorDetails().toInt();
    const bool isHttp = number >= NetworkErrorConstants::HTTP_ERROR_OFFSET &&
                        number <= NetworkErrorConstants::HTTP_ERROR_OFFSET + highestStatus;
    return isHttp ? static_cast<HttpResponseStatusCode>(number - NetworkErrorConstants::HTTP_ERROR_OFFSET)
                  : HttpResponseStatusCode::OK;
}

QNetworkReply::NetworkError networkError(const Error& error)
{
    const int number = error.errorDetails().toInt();
    return number >= NetworkErrorConstants::NETWORK_ERROR_OFFSET
               ? static_cast<QNetworkReply::NetworkError>(number -
                                                          NetworkErrorConstants::NETWORK_ERROR_OFFSET)
               : QNetworkReply::NoError;
}

Error networkError(HttpResponseStatusCode code, const QString& message)
{
    return isSuccess(code) ? Error::NoError() : forcedNetworkError(code, message);
}

Error forcedNetworkError(HttpResponseStatusCode code, const QString& message)
{
    const bool isLoginTimeout = code == HttpResponseStatusCode::LoginTimeout;
    auto text = message;
    if (text.isEmpty()) {
        text = isLoginTimeout ? QObject::tr("Your session timed-out. Please log in again.")
                              : QObject::tr("HTTP connection error: %1.").arg(enumKey(code));
    }
    return Error(isLoginTimeout ? ErrorCode::SessionTimedOut : ErrorCode::Network, text)
        .setErrorDetails(statusErrorNumber(code));
}

Error networkError(QNetworkReply::NetworkError error, const QString& message)
{
    if (error == QNetworkReply::NoError)
        return Error::NoError();
    const auto text =
        message.isEmpty() ? QObject::tr("Network connection error: %1.").arg(enumKey(error)) : message;
    return Error(ErrorCode::Network, text).setErrorDetails(networkErrorCode(error));
}

Error networkUnknownError()
{
    return Error(ErrorCode::General, QObject::tr("Unknown error"))
        .setErrorDetails(NetworkErrorConstants::UNKNOWN_ERROR_CODE);
}

Error checkHttpStatus(QNetworkReply* reply, ErrorWarningMessages* messages)
{
    auto result = checkNotNullptr(reply, messages);
    if (result.hasError())
        return result.ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    const auto status = responseStatusCode(reply);
    if (isSuccess(status))
        return result;
    if (messages)
        QDebug(&messages->errors) << "Unable to access" << reply->url() << "-" << status;
    return Error(ErrorCode::Network).ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

} // namespace orv
