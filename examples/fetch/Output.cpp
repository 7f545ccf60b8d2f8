#include "Output.h"

#include <QFileInfo>

#include <cstdio>
#include <filesystem>
#include <system_error>

#ifdef Q_OS_WIN
#include <fcntl.h>
#include <io.h>
#endif

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::Error;

bool openStandardOutput(QFile& file)
{
#ifdef Q_OS_WIN
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    return file.open(stdout, QIODevice::WriteOnly);
}

std::filesystem::path toPath(const QString& path)
{
    return std::filesystem::path(path.toStdU16String());
}

// A symbolic link is kept; its target is replaced.
QString realPath(const QString& path)
{
    const auto real = QFileInfo(path).canonicalFilePath();
    return real.isEmpty() ? path : real;
}

} // namespace

// A device or a pipe cannot be replaced as a whole, as a regular file can, so it is written to directly.
bool Output::isStream(const QString& path)
{
    const QFileInfo info(path);
    return path.isEmpty() || (info.exists() && !info.isFile() && !info.isDir());
}

std::unique_ptr<Output> Output::create(const QString& path)
{
    if (isStream(path))
        return std::make_unique<StreamOutput>(path);
    return std::make_unique<FileOutput>(path);
}

Output::Output(const QString& path)
    : m_path(path)
{
}

Output::~Output() = default;

Error Output::failure(const QString& why) const
{
    const auto name = m_path.isEmpty() ? u"the standard output"_s : m_path;
    return Error(orv::ErrorCode::FileAccess, u"cannot write %1: %2"_s.arg(name, why));
}

StreamOutput::StreamOutput(const QString& path)
    : Output(path)
    , m_file(path)
{
}

StreamOutput::~StreamOutput() = default;

Error StreamOutput::open()
{
    if (m_file.isOpen())
        return {};
    const bool isOpen = m_path.isEmpty() ? openStandardOutput(m_file) : m_file.open(QIODevice::WriteOnly);
    return isOpen ? Error() : failure(m_file.errorString());
}

Error StreamOutput::write(const QByteArray& bytes)
{
    // Flushed, so that a reader at the other end gets the data at once.
    const bool isWritten = m_file.write(bytes) == bytes.size() && m_file.flush();
    return isWritten ? Error() : failure(m_file.errorString());
}

Error StreamOutput::commit()
{
    return {};
}

FileOutput::FileOutput(const QString& path)
    : Output(realPath(path))
{
}

FileOutput::~FileOutput()
{
    m_file.close();
    if (!m_partPath.isEmpty())
        QFile::remove(m_partPath);
}

Error FileOutput::open()
{
    if (m_partPath.isEmpty()) {
        auto error = reservePart();
        if (error.hasError())
            return error;
    }
    const auto error = m_file.open(m_partPath);
    return error.hasError() ? failure(error.errorMessage()) : Error();
}

// NewOnly, so that an existing file of that name is not touched, nor the target of such a link.
Error FileOutput::reservePart()
{
    constexpr int tries = 100;
    if (QFileInfo(m_path).isDir())
        return failure(u"it is a directory"_s);
    QFile part;
    for (int i = 1; i <= tries; ++i) {
        part.setFileName(m_path + (i == 1 ? u".part"_s : u".%1.part"_s.arg(i)));
        if (part.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            m_partPath = part.fileName();
            return {};
        }
        if (!QFileInfo(part).exists() && !QFileInfo(part).isSymLink())
            break;
    }
    return failure(part.errorString());
}

Error FileOutput::write(const QByteArray& bytes)
{
    const auto error = m_file.writeNewData(bytes);
    return error.hasError() ? failure(error.errorMessage()) : Error();
}

Error FileOutput::commit()
{
    m_file.finalize();
    if (QFile::exists(m_path))
        QFile::setPermissions(m_partPath, QFile::permissions(m_path));
    std::error_code code;
    std::filesystem::rename(toPath(m_partPath), toPath(m_path), code);
    if (code)
        return failure(QString::fromLocal8Bit(code.message().c_str()));
    m_partPath.clear();
    return {};
}

} // namespace fetch
