#include "Outcome.h"

#include <QNetworkReply>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::ErrorCode;
using orv::HttpResponseStatusCode;
using orv::NetworkTask;

// A task reports its own time-out as a 408 too, but a 408 from the server comes with a reply error.
bool isTimeout(const NetworkTask& task)
{
    const auto error = task.networkResponseError();
    return error == QNetworkReply::TimeoutError || error == QNetworkReply::ProxyTimeoutError ||
           (error == QNetworkReply::NoError &&
            task.httpResponseStatusCode() == HttpResponseStatusCode::RequestTimeout);
}

Outcome judgeStatus(const NetworkTask& task, int status)
{
    const auto* reply = task.networkReply();
    auto text = u"the server answered %1"_s.arg(
        reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    if (status >= 300 && status < 400 && reply->hasRawHeader("Location"))
        text = u"redirected to %1"_s.arg(QString::fromUtf8(reply->rawHeader("Location")));
    const bool isLogin = status == static_cast<int>(HttpResponseStatusCode::Unauthorized);
    return {isLogin ? ExitCode::LoginRequired : ExitCode::ErrorStatus,
            u"%1 (HTTP %2)"_s.arg(text.trimmed()).arg(status)};
}

Outcome judgeTransport(const NetworkTask& task)
{
    const auto error = task.error();
    const auto status = orv::httpResponseStatusCode(error);
    if (isTimeout(task))
        return {ExitCode::TimedOut, u"no progress within the time-out"_s};
    // A success status does not explain why the fetch failed.
    const bool isAboutStatus =
        status != HttpResponseStatusCode::Unknown && !isSuccess(static_cast<int>(status));
    if (isAboutStatus && task.networkReply())
        return judgeStatus(task, static_cast<int>(status));
    return {ExitCode::TransportFailure, error.errorMessage()};
}

} // namespace

int statusOf(const NetworkTask& task)
{
    const auto* reply = task.networkReply();
    return reply ? reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() : 0;
}

Outcome judge(const NetworkTask& task)
{
    const auto error = task.error();
    switch (error.errorCode()) {
    case ErrorCode::None:
        return {};
    case ErrorCode::Canceled:
        return {ExitCode::Interrupted, u"interrupted"_s};
    case ErrorCode::InvalidArgument:
        return {ExitCode::BadUsage, error.errorMessage()};
    case ErrorCode::FileAccess:
        return {ExitCode::FileAccess, error.errorMessage()};
    case ErrorCode::AuthenticationFailed:
        return {ExitCode::LoginRequired, error.errorMessage()};
    case ErrorCode::General: // a file error, unless its details refer to a reply
        if (!error.errorDetails().isValid())
            return {ExitCode::FileAccess, error.errorMessage()};
        break;
    case ErrorCode::Network:
    case ErrorCode::SessionTimedOut:
        break;
    }
    return judgeTransport(task);
}

} // namespace fetch
