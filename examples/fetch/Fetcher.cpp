#include "Fetcher.h"

#include "FetchTask.h"

#include <FileDownloadTask.h>

#include <QFileInfo>
#include <QNetworkReply>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::Error;
using orv::ErrorCode;
using orv::FileDownloadTask;
using orv::NetworkTask;

// A FileDownloadTask saves the content itself. It is used for files, unless they are written while the
// content arrives or begin with the head.
bool isSavedByTask(const Options& options)
{
    return !options.request.streaming && !options.includesHead && !Output::isStream(options.outputPath);
}

std::unique_ptr<NetworkTask> makeTask(const QString& url, const Options& options)
{
    if (isSavedByTask(options))
        return std::make_unique<FetchTask<FileDownloadTask>>(url, options.outputPath);
    return std::make_unique<FetchTask<NetworkTask>>(url);
}

} // namespace

Fetcher::Fetcher(const QString& url, const Options& options, QObject* parent)
    : QObject(parent)
    , m_url(url)
    , m_options(options)
    , m_task(makeTask(url, options))
{
    prepareTask();
}

Fetcher::~Fetcher() = default;

void Fetcher::prepareTask()
{
    auto request = m_options.request;
    request.url = m_url;
    m_task->setRequest(request);
    m_task->setName(displayName());
    m_task->setPriority(NetworkTask::Priority::Normal);
    m_options.retryPolicy.applyTo(*m_task);
    if (m_options.timeout)
        m_task->setTimeout(*m_options.timeout);
    if (m_options.userAgent)
        m_task->setUserAgent(*m_options.userAgent);
    if (request.streaming)
        connect(m_task.get(), &NetworkTask::readyRead, this, &Fetcher::onReadyRead);
    connect(m_task.get(), &NetworkTask::started, this, &Fetcher::onStarted);
    connect(m_task.get(), &NetworkTask::finished, this, &Fetcher::onFinished);
}

void Fetcher::cancel()
{
    m_task->cancel();
}

QString Fetcher::displayUrl() const
{
    return QUrl(m_url, QUrl::TolerantMode).toDisplayString();
}

QString Fetcher::displayName() const
{
    const QUrl url(m_url, QUrl::TolerantMode);
    const auto name = url.fileName(QUrl::FullyEncoded);
    return name.isEmpty() ? url.host() : name;
}

QString Fetcher::summary() const
{
    const auto seconds = static_cast<double>(m_clock.elapsed()) / 1000;
    return u"%1 %2 bytes %3 s %4"_s.arg(statusOf(*m_task))
        .arg(m_task->bytesReceived())
        .arg(seconds, 0, 'f', 2)
        .arg(displayUrl());
}

qint64 Fetcher::attemptMilliseconds() const
{
    return m_attemptClock.isValid() ? m_attemptClock.elapsed() : 0;
}

// Called for each attempt, before anything is sent.
void Fetcher::onStarted()
{
    if (!m_clock.isValid())
        m_clock.start();
    m_attemptClock.start();
    m_isHeadWritten = false;
    m_outputError = open();
    if (m_outputError.hasError())
        m_task->finish(m_outputError);
}

Error Fetcher::open()
{
    const auto path = destination();
    if (path.isEmpty() && !m_options.outputPath.isEmpty()) {
        const bool isDirectory = QFileInfo(m_options.outputPath).isDir();
        return Error(ErrorCode::FileAccess,
                     (isDirectory ? u"the URL names no file that could be saved in %1"_s
                                  : u"cannot write %1: there is no such directory"_s)
                         .arg(m_options.outputPath));
    }
    if (isSavedByTask(m_options))
        return {};
    if (!m_output)
        m_output = Output::create(path);
    return m_output->open();
}

// FileDownloadTask takes the file name from the URL and refuses unsafe names.
QString Fetcher::destination() const
{
    if (Output::isStream(m_options.outputPath))
        return m_options.outputPath;
    return FileDownloadTask(m_url, m_options.outputPath).destinationFilePath();
}

void Fetcher::onReadyRead()
{
    const auto content = m_task->data();
    m_task->chopFirstBytes(static_cast<int>(content.size()));
    write(content);
    if (m_outputError.hasError())
        m_task->finish(m_outputError);
}

void Fetcher::onFinished()
{
    m_hasEnded = true;
    if (m_output && statusOf(*m_task) != 0 && !m_task->isCanceled())
        write(m_task->data());
    m_outcome = judge(*m_task);
    if (m_outcome.code == ExitCode::Success && m_output && !m_outputError.hasError())
        m_outputError = m_output->commit();
    if (m_outputError.hasError())
        m_outcome = {ExitCode::FileAccess, m_outputError.errorMessage()};
    m_output.reset();
    m_task->clearData();
    Q_EMIT finished();
}

void Fetcher::write(const QByteArray& content)
{
    if (m_outputError.hasError() || !isWanted())
        return;
    writeHead();
    if (!content.isEmpty() && !m_outputError.hasError())
        m_outputError = m_output->write(content);
    // What has been written to a stream cannot be undone, so there must be no second attempt.
    if (Output::isStream(m_options.outputPath))
        m_task->setRetriesEnabled(false);
}

void Fetcher::writeHead()
{
    if (!m_options.includesHead || m_isHeadWritten)
        return;
    m_isHeadWritten = true;
    const auto* reply = m_task->networkReply();
    const bool isHttp2 = reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
    const auto reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toByteArray();
    auto head = (isHttp2 ? "HTTP/2 " : "HTTP/1.1 ") + QByteArray::number(statusOf(*m_task));
    head += (reason.isEmpty() ? "" : " ") + reason + "\r\n";
    for (const auto& [name, value] : reply->rawHeaderPairs())
        head += name + ": " + value + "\r\n";
    m_outputError = m_output->write(head + "\r\n");
}

// While a login may still follow, a 401 is of no interest to the user.
bool Fetcher::isWanted() const
{
    const auto status = statusOf(*m_task);
    const bool isPassing = status == 401 && m_task->authenticator() && !m_hasEnded;
    return isSuccess(status) ||
           (m_options.includesHead && Output::isStream(m_options.outputPath) && !isPassing);
}

} // namespace fetch
