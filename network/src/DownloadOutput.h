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

/// A sink for the bytes of a download, fed piece by piece, here by a task whose request streams:
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

    /// Appends @p data. Says whether all of it was written; which codes an error may have is for the output
    /// to say.
    virtual Error writeNewData(const QByteArray& data) = 0;
    /// Discards what was written so far.
    virtual void clear() = 0;
    /// Number of bytes held.
    virtual qint64 size() = 0;
    /// To be called once when the download is complete. Does nothing here.
    virtual void finalize();
};

/// Writes a download into a file.
///
/// The file is created or truncated when it is opened, and written as the bytes come: to save a whole body or
/// nothing, use FileDownloadTask. The destructor writes out what is pending and closes the file.
class ORV_NETWORK_EXPORT FileDownloadOutput : public DownloadOutput
{
    Q_DECLARE_TR_FUNCTIONS(orv::FileDownloadOutput)

public:
    /// Without a file, until open().
    FileDownloadOutput();
    FileDownloadOutput(const FileDownloadOutput&) = delete;
    FileDownloadOutput& operator=(const FileDownloadOutput&) = delete;
    ~FileDownloadOutput() override;

    /// A new output opened on @p filePath, or the error of open().
    static Result<QSharedPointer<FileDownloadOutput>> createAndOpen(const QString& filePath);

    /// Opens @p filePath for writing and truncates it, after closing the file that was open.
    /// ErrorCode::FileAccess when it cannot be opened.
    Error open(const QString& filePath);
    /// Writes out what is pending and closes the file, if one is open.
    void close();

    /// ErrorCode::General with the QFileDevice::FileError in the details when the file reports an error,
    /// which every further call does too until the file is opened again; so does every call while no file is
    /// open.
    Error writeNewData(const QByteArray& data) override;
    /// Truncates the open file to 0 bytes. A file that has been closed stays as it is.
    void clear() override;
    /// Size of the file as written so far, in bytes.
    qint64 size() override;
    /// close().
    void finalize() override;

private:
    QFile m_file;
};

/// Collects a download in memory, up to 2,147,483,647 bytes.
class ORV_NETWORK_EXPORT MemoryDownloadOutput : public DownloadOutput
{
    Q_DECLARE_TR_FUNCTIONS(orv::MemoryDownloadOutput)

public:
    /// Empty.
    MemoryDownloadOutput();
    MemoryDownloadOutput(const MemoryDownloadOutput& other);
    MemoryDownloadOutput(MemoryDownloadOutput&& other) noexcept;
    MemoryDownloadOutput& operator=(const MemoryDownloadOutput& other);
    MemoryDownloadOutput& operator=(MemoryDownloadOutput&& other) noexcept;
    ~MemoryDownloadOutput() override;

    /// A new, empty output.
    static QSharedPointer<MemoryDownloadOutput> create();

    /// What was written so far, shared.
    QByteArray data() const;

    /// ErrorCode::General, and nothing is written, when the buffer would grow past its limit.
    Error writeNewData(const QByteArray& data) override;
    /// Empties the buffer and keeps its allocation.
    void clear() override;
    /// Number of bytes collected.
    qint64 size() override;

private:
    QByteArray m_buffer;
};

} // namespace orv
