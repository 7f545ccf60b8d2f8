#pragma once

#include <DownloadOutput.h>
#include <Error.h>

#include <QByteArray>
#include <QFile>
#include <QString>

#include <memory>

namespace fetch {

/// Where the content of a reply is written as it arrives.
///
/// All errors have the code orv::ErrorCode::FileAccess.
class Output
{
public:
    /// Whether @p path (empty for the standard output) is a stream, where a write cannot be undone.
    static bool isStream(const QString& path);
    /// The output for @p path. Nothing is opened yet.
    static std::unique_ptr<Output> create(const QString& path);

    virtual ~Output();

    /// Starts over, for each attempt. A stream continues where it is.
    virtual orv::Error open() = 0;
    virtual orv::Error write(const QByteArray& bytes) = 0;
    /// Makes the output permanent: a file gets its name.
    virtual orv::Error commit() = 0;

protected:
    explicit Output(const QString& path);

    orv::Error failure(const QString& why) const;

    const QString m_path;
};

/// The standard output, a device or a pipe.
class StreamOutput : public Output
{
public:
    explicit StreamOutput(const QString& path);
    ~StreamOutput() override;

    orv::Error open() override;
    orv::Error write(const QByteArray& bytes) override;
    orv::Error commit() override;

private:
    QFile m_file;
};

/// A file that is created or replaced only once its content is complete.
///
/// Until then the content is in FILE.part beside it, which is removed if it is not committed.
class FileOutput : public Output
{
public:
    explicit FileOutput(const QString& path);
    ~FileOutput() override;

    orv::Error open() override;
    orv::Error write(const QByteArray& bytes) override;
    orv::Error commit() override;

private:
    orv::Error reservePart();

    orv::FileDownloadOutput m_file;
    QString m_partPath; // empty if there is no such file
};

} // namespace fetch
