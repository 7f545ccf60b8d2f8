#pragma once

#include <DownloadOutput.h>
#include <Error.h>

#include <QByteArray>
#include <QFile>
#include <QString>

#include <memory>

namespace fetch {

/// Where the content of a reply goes as it arrives.
///
/// All errors have the code orv::ErrorCode::FileAccess.
class Output
{
public:
    /// Whether @p path (empty for the standard output) is a stream, on which everything is final at once.
    static bool isStream(const QString& path);
    /// The output for @p path. Nothing is opened yet.
    static std::unique_ptr<Output> create(const QString& path);

    virtual ~Output();

    /// Begins anew, for each attempt; a stream goes on where it is.
    virtual orv::Error open() = 0;
    virtual orv::Error write(const QByteArray& bytes) = 0;
    /// Makes what was written final.
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

/// A file that appears, or is replaced, only when the whole of it is there.
///
/// Until then the content is in a file of its own beside it, FILE.part, which goes away if it is not
/// committed.
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
    QString m_partPath; // empty while there is no such file
};

} // namespace fetch
