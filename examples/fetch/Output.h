#pragma once

#include <Error.h>

#include <QByteArray>
#include <QFileDevice>
#include <QString>

#include <memory>

namespace fetch {

/// Where the reply goes: a file that appears, or is replaced, only when the whole of it is there; or a stream
/// such as the standard output, on which everything is final at once.
///
/// All errors have the code orv::ErrorCode::FileAccess.
class Output
{
public:
    /// The file @p path; the standard output if it is empty. Nothing is opened yet.
    explicit Output(const QString& path);
    ~Output();

    /// Whether what is written is final at once.
    bool isStream() const { return m_isStream; }

    /// Begins anew: a file forgets what was written so far.
    orv::Error open();
    orv::Error write(const QByteArray& bytes);
    /// Makes what was written final. Without it, a file stays as it was before open().
    orv::Error commit();

private:
    orv::Error error() const;

    const QString m_path;
    const bool m_isStream;
    std::unique_ptr<QFileDevice> m_device;
};

} // namespace fetch
