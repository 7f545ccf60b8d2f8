#include "Fetcher.h"

#include <QNetworkReply>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::Error;
using orv::ErrorCode;
using orv::HttpResponseStatusCode;
using orv::NetworkRequest;
using orv::NetworkTask;
using orv::SslIgnorantNetworkAccessManager;

/// Keeps a stream from filling the memory while its output is slow: Qt's network thread reads on meanwhile,
/// and asked later than here it may not stop.
class StreamingAccessManager : public SslIgnorantNetworkAccessManager
{
public:
    using SslIgnorantNetworkAccessManager::SslIgnorantNetworkAccessManager;

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request,
                                 QIODevice* content) override
    {
        auto* reply = SslIgnorantNetworkAccessManager::createRequest(operation, request, content);
        reply->setReadBufferSize(BUFFER_SIZE);
        return reply;
    }

private:
    static constexpr qint64 BUFFER_SIZE = 1 << 20;
};

std::unique_ptr<SslIgnorantNetworkAccessManager> makeManager(const Options& options)
{
    using SslMode = SslIgnorantNetworkAccessManager::SslMode;
    const auto mode = options.isInsecure ? SslMode::Ignore : SslMode::Verify;
    if (options.request.streaming)
        return std::make_unique<StreamingAccessManager>(mode);
    return std::make_unique<SslIgnorantNetworkAccessManager>(mode);
}

bool isSuccess(int status)
{
    return status >= 200 && status < 300;
}

int statusOf(const QNetworkReply* reply)
{
    return reply ? reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() : 0;
}

} // namespace

Fetcher::Fetcher(const Options& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_output(options.outputPath)
    , m_manager(makeManager(options))
    , m_task(options.request)
{
    prepareTask();
}

Fetcher::~Fetcher() = default;

void Fetcher::prepareTask()
{
    m_task.setName(u"fetch"_s);
    m_task.setNetworkAccessManager(m_manager.get());
    m_task.setMaxRetriesCount(m_options.retries);
    if (m_options.timeout)
        m_task.setTimeout(*m_options.timeout);
    if (m_options.userAgent)
        m_task.setUserAgent(*m_options.userAgent);
    // By itself, a task takes 200 and 201 for a success.
    for (int status = 202; status < 300; ++status) {
        m_task.setResponseHandler(static_cast<HttpResponseStatusCode>(status), [this] {
            m_task.finish(
                orv::networkError(m_task.networkResponseError(), m_task.networkResponseErrorMessage()));
        });
    }
    if (m_options.request.streaming)
        connect(&m_task, &NetworkTask::readyRead, this, &Fetcher::onReadyRead);
    connect(&m_task, &NetworkTask::aboutToRetry, this, &Fetcher::onAboutToRetry);
    connect(&m_task, &NetworkTask::finished, this, &Fetcher::onTaskFinished);
}

void Fetcher::start()
{
    m_outputError = m_output.open();
    if (m_outputError.hasError())
        m_task.cancel();
    else
        m_task.exec();
}

void Fetcher::cancel()
{
    m_task.cancel();
}

void Fetcher::onReadyRead()
{
    const auto content = m_task.data();
    m_task.chopFirstBytes(static_cast<int>(content.size()));
    write(content);
    if (m_outputError.hasError())
        m_task.cancel();
}

void Fetcher::onAboutToRetry()
{
    m_contentSize = 0;
    m_isHeadWritten = false;
    if (!m_output.isStream())
        m_outputError = m_output.open();
    if (m_outputError.hasError())
        m_task.cancel();
}

void Fetcher::onTaskFinished()
{
    const bool isReplyThere = statusOf(m_task.networkReply()) != 0;
    if (isReplyThere && !m_task.isCanceled())
        write(m_task.data());
    judge();
    Q_EMIT finished();
}

void Fetcher::write(const QByteArray& content)
{
    m_contentSize += content.size();
    if (m_outputError.hasError() || !isWanted())
        return;
    writeHead();
    if (!content.isEmpty() && !m_outputError.hasError())
        m_outputError = m_output.write(content);
    // What went down a stream cannot be taken back, so there is no second attempt.
    if (m_output.isStream())
        m_task.setRetriesEnabled(false);
}

void Fetcher::writeHead()
{
    if (!m_options.includesHead || m_isHeadWritten)
        return;
    m_isHeadWritten = true;
    const auto* reply = m_task.networkReply();
    const bool isHttp2 = reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
    const auto reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toByteArray();
    auto head = (isHttp2 ? "HTTP/2 " : "HTTP/1.1 ") + QByteArray::number(statusOf(reply));
    head += (reason.isEmpty() ? "" : " ") + reason + "\r\n";
    for (const auto& [name, value] : reply->rawHeaderPairs())
        head += name + ": " + value + "\r\n";
    m_outputError = m_output.write(head + "\r\n");
}

bool Fetcher::isWanted() const
{
    return isSuccess(statusOf(m_task.networkReply())) || (m_output.isStream() && m_options.includesHead);
}

// Now and then Qt reports a connection that ended too early as a success. A Content-Length is there only if
// the content is as it came over the wire.
bool Fetcher::isTruncated() const
{
    const auto* reply = m_task.networkReply();
    const auto size = reply->header(QNetworkRequest::ContentLengthHeader);
    return size.isValid() && m_options.request.method != NetworkRequest::Method::Head &&
           statusOf(reply) != 204 && size.toLongLong() != m_contentSize;
}

void Fetcher::judge()
{
    const auto error = m_task.error();
    if (m_outputError.hasError())
        end(ExitCode::FileAccess, m_outputError.errorMessage());
    else if (error.hasError())
        judgeError(error);
    else if (isTruncated())
        end(ExitCode::TransportFailure, u"the content is incomplete"_s);
    else if (const auto failure = m_output.commit(); failure.hasError())
        end(ExitCode::FileAccess, failure.errorMessage());
}

void Fetcher::judgeError(const Error& error)
{
    const auto status = orv::httpResponseStatusCode(error);
    if (error.errorCode() == ErrorCode::Canceled)
        end(ExitCode::Interrupted, u"interrupted"_s);
    else if (error.errorCode() == ErrorCode::InvalidArgument)
        end(ExitCode::BadUsage, error.errorMessage());
    else if (isTimeout())
        end(ExitCode::TimedOut, u"no progress within the time-out"_s);
    else if (status == HttpResponseStatusCode::OK || status == HttpResponseStatusCode::Unknown)
        end(ExitCode::TransportFailure, error.errorMessage());
    else
        judgeStatus(static_cast<int>(status));
}

void Fetcher::judgeStatus(int status)
{
    const auto* reply = m_task.networkReply();
    auto text = u"the server answered %1"_s.arg(
        reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    if (status >= 300 && status < 400 && reply->hasRawHeader("Location"))
        text = u"redirected to %1"_s.arg(QString::fromUtf8(reply->rawHeader("Location")));
    const bool isLogin = status == static_cast<int>(HttpResponseStatusCode::Unauthorized);
    end(isLogin ? ExitCode::LoginRequired : ExitCode::ErrorStatus,
        u"%1 (HTTP %2)"_s.arg(text.trimmed()).arg(status));
}

// A task's own time-out looks like a 408, but with that status the reply would have had an error.
bool Fetcher::isTimeout() const
{
    const auto error = m_task.networkResponseError();
    return error == QNetworkReply::TimeoutError || error == QNetworkReply::ProxyTimeoutError ||
           (error == QNetworkReply::NoError &&
            m_task.httpResponseStatusCode() == HttpResponseStatusCode::RequestTimeout);
}

void Fetcher::end(ExitCode code, const QString& message)
{
    m_exitCode = code;
    m_message = message;
}

} // namespace fetch
