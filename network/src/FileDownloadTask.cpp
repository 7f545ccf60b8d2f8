#include "FileDownloadTask.h"

#include "NetworkLog_p.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QRegularExpression>
#include <QSaveFile>

namespace orv {

class FileDownloadTask::Private : public QObject
{
    Q_OBJECT

public:
    explicit Private(FileDownloadTask* task)
        : q(task)
    {
    }

    void watch(QNetworkReply* reply);
    bool isDownloaded() const;
    bool isIncomplete(const QByteArray& content, qint64 unread) const;
    Error saveContent() const;

    QString destinationPath;
    FileDownloadTask* const q;

    QPointer<QNetworkReply> previousReply; // of the attempt before the current one
    QPointer<QNetworkReply> watchedReply;
    qint64 received = 0; // bytes of content, as the watched reply counts them
    qint64 held = 0;     // how many of those the task or the reply still had then
};

namespace {

// A name from a URL must name a file in the destination directory and nothing else.
bool isSafeFileName(const QString& name)
{
    static const QRegularExpression unsafe(QStringLiteral("^[. ]*$|[/\\\\\\x{00}-\\x{1f}\\x{7f}]"));
    constexpr auto maxSize = 255;
#ifdef Q_OS_WIN
    // Windows takes these for devices in every directory, whatever the case and the extension; a colon
    // separates a drive, or the stream of a file.
    static const QRegularExpression reserved(
        QStringLiteral("^(con|prn|aux|nul|com[0-9]|lpt[0-9]) *(\\.|$)|:"),
        QRegularExpression::CaseInsensitiveOption);
    if (name.contains(reserved))
        return false;
#endif
    return !name.contains(unsafe) && QFile::encodeName(name).size() <= maxSize;
}

bool isSavedStatus(HttpResponseStatusCode code)
{
    return code == HttpResponseStatusCode::OK || code == HttpResponseStatusCode::Created;
}

// The message is for the user; what it leaves out goes into the log and the error's warnings.
Error fileError(ErrorCode code, const QString& message, const QString& path, const QString& reason)
{
    const auto warning = QDir::toNativeSeparators(path) + QStringLiteral(": ") + reason;
    qCWarning(networkLog).noquote() << message << warning;
    return Error(code, message).addWarning(warning);
}

Error noFileName()
{
    return Error(ErrorCode::FileAccess, FileDownloadTask::tr("Could not determine destination filename"));
}

Error writeFile(const QString& path, const QByteArray& content)
{
    // Without a buffer: commit() does not notice when only a part of one can be written.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return fileError(ErrorCode::FileAccess, FileDownloadTask::tr("Could not open destination file"), path,
                         file.errorString());
    }
    const auto written = file.write(content);
    if (written == content.size() && file.commit())
        return Error(ErrorCode::None);
    // A disk that fills up takes the first part without an error. Only writing the rest shows the reason.
    if (written >= 0 && written < content.size())
        file.write(content.constData() + written, content.size() - written);
    return fileError(ErrorCode::General, FileDownloadTask::tr("Could not write downloaded file"), path,
                     file.errorString());
}

} // namespace

// Called with each piece that arrives, before any slot of the program can take it away with read(). The
// reply's last count comes with its end.
void FileDownloadTask::Private::watch(QNetworkReply* reply)
{
    if (reply == watchedReply)
        return;
    watchedReply = reply;
    received = held = 0;
    connect(reply, &QNetworkReply::downloadProgress, q, [this, reply](qint64 bytesReceived) {
        received = bytesReceived;
        held = reply->bytesAvailable();
        if (q->request().streaming)
            held += q->data().size();
    });
}

// Whether there is a complete reply that succeeded. The task's status alone does not say so: it is 200 from
// exec() until the reply is judged, also while the reply of the previous attempt is still there.
bool FileDownloadTask::Private::isDownloaded() const
{
    auto* reply = q->networkReply();
    if (!reply || reply == previousReply || !reply->isFinished() || !reply->isReadable())
        return false;
    if (reply->error() != QNetworkReply::NoError || q->networkResponseError() != QNetworkReply::NoError)
        return false;
    const bool isJudged = !q->networkConnection();
    return isSavedStatus(isJudged ? q->httpResponseStatusCode() : responseStatusCode(reply));
}

// Whether @p content is what is left of the reply after a part was taken away. Content of another size has
// been set by the program. A reply from a cache does not count its bytes, so nothing is known of it.
bool FileDownloadTask::Private::isIncomplete(const QByteArray& content, qint64 unread) const
{
    if (watchedReply != q->networkReply() || content.size() >= received)
        return false;
    return content.size() == unread || content.size() == held;
}

Error FileDownloadTask::Private::saveContent() const
{
    const auto unread = q->networkReply()->bytesAvailable();
    const auto content = q->data();
    qCInfo(networkLog) << "Downloaded file" << q->sourceUrl() << content.size() << "bytes";
    const auto path = q->destinationFilePath();
    if (path.isEmpty())
        return noFileName();
    if (isIncomplete(content, unread)) {
        const auto reason =
            FileDownloadTask::tr("only %1 of %2 bytes are left").arg(content.size()).arg(received);
        return fileError(ErrorCode::General, FileDownloadTask::tr("Could not write downloaded file"), path,
                         reason);
    }
    return writeFile(path, content);
}

FileDownloadTask::FileDownloadTask(const QString& sourceUrl, const QString& destinationPath)
    : NetworkTask(Priority::High, nullptr)
    , d(std::make_unique<Private>(this))
{
    d->destinationPath = destinationPath;
    if (destinationPath.endsWith(QLatin1Char('/')) || destinationPath.endsWith(QLatin1Char('\\')))
        d->destinationPath.chop(1);
    setRequest(sourceUrl, NetworkRequest::octetStreamContentType, NetworkRequest::Method::Get, false);
    connect(this, &NetworkTask::readyRead, this, [this] { d->watch(networkReply()); });
}

FileDownloadTask::~FileDownloadTask() = default;

QString FileDownloadTask::sourceUrl() const
{
    return request().url;
}

QString FileDownloadTask::destinationPath() const
{
    return d->destinationPath;
}

QString FileDownloadTask::destinationFilePath() const
{
    const auto fileName = QUrl(sourceUrl(), QUrl::TolerantMode).fileName(QUrl::FullyDecoded);
    const QFileInfo info(d->destinationPath);
    if (info.exists()) {
        if (info.isDir() && isSafeFileName(fileName))
            return QDir::toNativeSeparators(d->destinationPath + QLatin1Char('/') + fileName);
        return info.isFile() ? QDir::toNativeSeparators(d->destinationPath) : QString();
    }
    return QFileInfo(info.path()).isDir() ? d->destinationPath : QString();
}

// A download that could not be saved is not begun. Like every end of a task, this one comes from the event
// loop and not while the caller may still be using the task.
void FileDownloadTask::exec()
{
    const bool isIdle = !isRunning() && !isFinished();
    if (isIdle)
        d->previousReply = networkReply();
    if (!isIdle || !destinationFilePath().isEmpty()) {
        NetworkTask::exec();
        return;
    }
    const auto endOrSend = [this] {
        if (!isRunning())
            return;
        if (destinationFilePath().isEmpty())
            finish(noFileName().ecatch(Q_FUNC_INFO, __FILE__, __LINE__));
        else
            NetworkTask::exec(); // a slot of started() has made the directory
    };
    QMetaObject::invokeMethod(this, endOrSend, Qt::QueuedConnection);
    setRunning();
}

Error FileDownloadTask::doFinish()
{
    if (hasError()) {
        auto failure = error();
        qCWarning(networkLog) << "Download error of file" << sourceUrl() << failure.errorMessage();
        return failure.ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    if (!d->isDownloaded()) {
        qCWarning(networkLog) << "Nothing to save of" << sourceUrl() << "status"
                              << httpResponseStatusCodeNumber() << networkResponseError();
        return Error().addWarning(tr("No file was saved because the download did not succeed"));
    }
    auto outcome = d->saveContent();
    return outcome.hasError() ? outcome.ecatch(Q_FUNC_INFO, __FILE__, __LINE__) : outcome;
}

} // namespace orv

#include "FileDownloadTask.moc"
