#include "FileDownloadTask.h"

#include "NetworkLog_p.h"
#include "Redaction_p.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

namespace orv {

class FileDownloadTask::Private : public QObject
{
    Q_OBJECT

public:
    QString destinationPath;
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

FileDownloadTask::FileDownloadTask(const QString& sourceUrl, const QString& destinationPath)
    : NetworkTask(Priority::High, nullptr)
    , d(std::make_unique<Private>())
{
    d->destinationPath = destinationPath;
    if (destinationPath.endsWith(QLatin1Char('/')) || destinationPath.endsWith(QLatin1Char('\\')))
        d->destinationPath.chop(1);
    setRequest(sourceUrl, NetworkRequest::octetStreamContentType, NetworkRequest::Method::Get, false);
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
    if (isRunning() || isFinished() || !destinationFilePath().isEmpty()) {
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
        qCWarning(networkLog) << "Download error of file" << withoutPasswords(sourceUrl())
                              << failure.errorMessage();
        return failure.ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    if (!isReplyWhole()) {
        qCWarning(networkLog) << "Nothing to save of" << withoutPasswords(sourceUrl()) << "status"
                              << httpResponseStatusCodeNumber() << networkResponseError();
        return Error().addWarning(tr("No file was saved because the download did not succeed"));
    }
    auto outcome = saveContent();
    return outcome.hasError() ? outcome.ecatch(Q_FUNC_INFO, __FILE__, __LINE__) : outcome;
}

Error FileDownloadTask::saveContent() const
{
    const auto content = data();
    qCInfo(networkLog) << "Downloaded file" << withoutPasswords(sourceUrl()) << content.size() << "bytes";
    const auto path = destinationFilePath();
    if (path.isEmpty())
        return noFileName();
    if (isDataIncomplete()) {
        return fileError(ErrorCode::General, tr("Could not write downloaded file"), path,
                         tr("only %1 of %2 bytes are left").arg(content.size()).arg(bytesReceived()));
    }
    return writeFile(path, content);
}

} // namespace orv

#include "FileDownloadTask.moc"
