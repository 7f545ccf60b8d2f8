#pragma once

#include "NetworkTask.h"
#include "orv_network_export.h"

#include <QString>

#include <memory>

namespace orv {

/// Downloads a URL into a file: the whole content, or nothing.
///
/// The content is kept in memory until the task finishes without an error, and then saved in one step:
/// whatever goes wrong, a file that was there before stays as it was, and no partly written file is ever
/// visible. The directory must be writable, since the new file is made beside the old one and renamed.
///
/// The destination is a file or an existing directory. In a directory, the file gets the last segment of the
/// URL's percent-decoded path as its name; neither the query nor anything that the server sends has a part in
/// it. As that name comes from outside, some are refused: those of dots and blanks alone, with a separator or
/// a control character, or longer than 255 bytes; and on Windows those that are devices there.
/// @code
/// auto* task = new FileDownloadTask(url, directory);
/// connect(task, &NetworkTask::finished, this, [this, task] {
///     showResult(task->hasError() ? task->error().errorMessage() : task->destinationFilePath());
///     task->deleteLater();
/// });
/// queue.append(task);
/// @endcode
///
/// Only the whole content of a 200 or 201 is saved. When a task finishes without an error and without such a
/// reply, because of FinishWithSuccess or of a finish() by the program, no file is touched, and a warning of
/// error() says so. A response handler that accepts another status states that with
/// setHttpResponseStatusCode(HttpResponseStatusCode::OK) before it calls finish().
///
/// What is saved is data(), so a handler may replace it by setData(). Content that was taken away is missing
/// there: if a program has used read() or clearData(), the task does not save the rest, but ends with an
/// error. This is detected by the sizes, for replies that report their progress; those from a cache do not.
///
/// Beside the errors of a NetworkTask it ends with
/// - ErrorCode::FileAccess, "Could not determine destination filename": destinationFilePath() is empty. If it
///   is when an attempt begins, nothing is sent.
/// - ErrorCode::FileAccess, "Could not open destination file"
/// - ErrorCode::General, "Could not write downloaded file": on a full disk for example, or if content is
///   missing.
///
/// A warning of the last two, also in the log, has the path and the reason. Ownership, thread and signals are
/// those of NetworkTask; the file is saved before finished() is emitted.
class ORV_NETWORK_EXPORT FileDownloadTask : public NetworkTask
{
    Q_OBJECT

public:
    /// A task of high priority, without a parent, that gets @p sourceUrl. One separator at the end of
    /// @p destinationPath is dropped.
    FileDownloadTask(const QString& sourceUrl, const QString& destinationPath);
    ~FileDownloadTask() override;

    /// The URL of the task's request.
    QString sourceUrl() const;
    /// The destination, without the separator at its end.
    QString destinationPath() const;
    /// The file that would be written now. Empty if the URL has no name for a file in the destination
    /// directory, if there is no such directory, or if the destination is neither a file nor a directory.
    QString destinationFilePath() const;

    /// Does what NetworkTask::exec() does if there is a destinationFilePath(). Otherwise the task starts, and
    /// ends with an error in the next turn of the event loop.
    void exec() override;

protected:
    /// Saves the file unless the task has failed.
    Error doFinish() override;

private:
    Error saveContent() const;

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
