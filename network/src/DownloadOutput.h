#pragma once

#include "orv_network_export.h"

#include <Error.h>
#include <Result.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QSharedPointer>
#include <QString>

namespace orv {

/// Receives the content of a download piece by piece, here from a task whose request streams:
///
/// @code
/// connect(task, &NetworkTask::readyRead, task, [task, output] {
///     const Error error = output->writeNewData(task->data());
///     task->clearData();
///     if (error.hasError())
///         task->finish(error);
/// });
/// connect(task, &NetworkTask::finished, task, [output] { output->finalize(); });
/// @endcode
///
/// An output is usually shared through a QSharedPointer and used from one thread at a time.
class ORV_NETWORK_EXPORT DownloadOutput
{
public:
    DownloadOutput() = default;
    DownloadOutput(const DownloadOutput&) = default;
    DownloadOutput& operator=(const DownloadOutput&) = default;
    virtual ~DownloadOutput();

    /// Appends @p data. Success means that all of it was written; each output documents its errors.
    virtual Error writeNewData(const QByteArray& data) = 0;
    /// Discards everything written so far, so that the next data comes first.
    virtual void clear() = 0;
    /// Number of bytes held.
    virtual qint64 size() = 0;
    /// To be called once when the download is complete. Does nothing here.
    virtual void finalize();
};

/// Writes a download into a file.
///
/// The file is created or truncated when it is opened, and each piece is written at once, without a buffer
/// in the process. After a failure the file keeps the part that was written; to save the whole content or
/// nothing, use FileDownloadTask.
///
/// A failed write is final: a file must not miss a piece in the middle because there was space again later.
/// Neither clear() nor close() changes that, only open().
class ORV_NETWORK_EXPORT FileDownloadOutput : public DownloadOutput
{
    Q_DECLARE_TR_FUNCTIONS(orv::FileDownloadOutput)

public:
    /// An output without a file; call open() before the first write.
    FileDownloadOutput();
    FileDownloadOutput(const FileDownloadOutput&) = delete;
    FileDownloadOutput& operator=(const FileDownloadOutput&) = delete;
    ~FileDownloadOutput() override;

    /// A new output opened on @p filePath, or the error of open().
    static Result<QSharedPointer<FileDownloadOutput>> createAndOpen(const QString& filePath);

    /// Closes the file that was open, then opens @p filePath for writing and truncates it. Returns
    /// ErrorCode::FileAccess with the path in the message if that fails; the system's reason is the error's
    /// warning.
    Error open(const QString& filePath);
    /// Closes the file, if one is open.
    void close();

    /// Returns ErrorCode::General if not all of @p data was written, with the system's reason in the message
    /// and the QFileDevice::FileError in the details: WriteError where the file states none, OpenError where
    /// no file is open. Once a write has failed, every further call returns the same error and writes
    /// nothing, until the next open().
    Error writeNewData(const QByteArray& data) override;
    /// Truncates the open file to 0 bytes. A file that has been closed stays as it is.
    void clear() override;
    /// The size of the file, in bytes.
    qint64 size() override;
    /// Does what close() does.
    void finalize() override;

private:
    Error fail();

    QFile m_file;
    Error m_failure; // of the first write that failed since open()
};

/// Collects a download in memory, up to 2,147,483,647 bytes.
class ORV_NETWORK_EXPORT MemoryDownloadOutput : public DownloadOutput
{
    Q_DECLARE_TR_FUNCTIONS(orv::MemoryDownloadOutput)

public:
    /// An empty output.
    MemoryDownloadOutput();
    MemoryDownloadOutput(const MemoryDownloadOutput& other);
    MemoryDownloadOutput(MemoryDownloadOutput&& other) noexcept;
    MemoryDownloadOutput& operator=(const MemoryDownloadOutput& other);
    MemoryDownloadOutput& operator=(MemoryDownloadOutput&& other) noexcept;
    ~MemoryDownloadOutput() override;

    /// A new, empty output.
    static QSharedPointer<MemoryDownloadOutput> create();

    /// Everything written so far. The bytes are implicitly shared, not copied.
    QByteArray data() const;

    /// Returns ErrorCode::General, and writes nothing, if the buffer would grow past its limit.
    Error writeNewData(const QByteArray& data) override;
    /// Empties the buffer and keeps its allocation.
    void clear() override;
    /// Number of bytes collected.
    qint64 size() override;

private:
    QByteArray m_buffer;
};

} // namespace orv
