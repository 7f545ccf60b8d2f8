#pragma once

#include "NetworkTask.h"
#include "orv_network_export.h"

#include <QString>

#include <memory>

namespace orv {

/// Downloads a URL into a file: the whole of it, or nothing.
///
/// The content is kept in memory until the task ends well and then saved at once: whatever goes wrong, a file
/// that was there before stays as it was, and nothing half-written is ever visible.
///
/// The destination is a file or an existing directory. In a directory the file is named after what follows
/// the last slash of the URL's percent-decoded path, and after nothing else: neither the query nor anything
/// that the server sends. That name comes from outside, so none is used that could lead elsewhere or cannot
/// be a file's on some system: one of dots and blanks alone, with a separator or a control character, the
/// name of a device on Windows, or longer than 255 bytes.
/// @code
/// auto* task = new FileDownloadTask(url, directory);
/// connect(task, &NetworkTask::finished, this, [this, task] {
///     showResult(task->hasError() ? task->error().errorMessage() : task->destinationFilePath());
///     task->deleteLater();
/// });
/// queue.append(task);
/// @endcode
///
/// Beside the errors of a NetworkTask it ends with ErrorCode::FileAccess when no destination file can be
/// named or opened, and ErrorCode::General when it cannot be written. Ownership, thread and signals are those
/// of NetworkTask; saving happens before finished() is emitted.
class ORV_NETWORK_EXPORT FileDownloadTask : public NetworkTask
{
    Q_OBJECT

public:
    /// A task of high priority without a parent that gets @p sourceUrl. One separator at the end of
    /// @p destinationPath is dropped.
    FileDownloadTask(const QString& sourceUrl, const QString& destinationPath);
    ~FileDownloadTask() override;

    /// The URL of the task's request.
    QString sourceUrl() const;
    /// The destination, without the separator at its end.
    QString destinationPath() const;
    /// The file that would be written now, or an empty string when it cannot be told.
    QString destinationFilePath() const;

protected:
    Error doFinish() override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
