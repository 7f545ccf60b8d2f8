#include "FileDownloadTask.h"

#include "NetworkLog_p.h"

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
    explicit Private(FileDownloadTask* task)
        : q(task)
    {
    }

    QString destinationPath;
    FileDownloadTask* const q;
};

namespace {

// Whether a name from a URL may be given to a file. Systems differ in what they make of some names, and files
// travel between them, so all are asked the same.
bool isSafeFileName(const QString& name)
{
    static const QRegularExpression unsafe(
        QStringLiteral(
            R"(^[. ]*$|[/\\\x{00}-\x{1f}\x{7f}]|^(con|prn|aux|nul|com[0-9]|lpt[0-9])[ ]*([.:].*)?$)"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::DotMatchesEverythingOption);
    constexpr auto longest = 255;
#ifdef Q_OS_WIN
    if (name.contains(QLatin1Char(':'))) // names a stream of a file, or a drive
        return false;
#endif
    return !name.contains(unsafe) && QFile::encodeName(name).size() <= longest;
}

} // namespace

FileDownloadTask::FileDownloadTask(const QString& sourceUrl, const QString& destinationPath)
    : NetworkTask(Priority::High, nullptr)
    , d(std::make_unique<Private>(this))
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

Error FileDownloadTask::doFinish()
{
    if (hasError()) {
        auto failure = error();
        qCWarning(networkLog) << "Download error of file" << sourceUrl() << failure.errorMessage();
        return failure.ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    const auto content = data();
    qCInfo(networkLog) << "Downloaded file" << sourceUrl() << content.size() << "bytes";
    const auto path = destinationFilePath();
    if (path.isEmpty()) {
        return Error(ErrorCode::FileAccess, tr("Could not determine destination filename"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return Error(ErrorCode::FileAccess, tr("Could not open destination file"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    if (file.write(content) == content.size() && file.commit())
        return Error(ErrorCode::None);
    return Error(ErrorCode::General, tr("Could not write downloaded file"))
        .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

} // namespace orv

#include "FileDownloadTask.moc"
