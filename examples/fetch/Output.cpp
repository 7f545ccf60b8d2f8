#include "Output.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>

#ifdef Q_OS_WIN
#include <fcntl.h>
#include <io.h>
#endif

namespace fetch {

namespace {

// A device or a pipe has no content that could be replaced, and must not be replaced itself.
bool isStreamPath(const QString& path)
{
    const QFileInfo info(path);
    return path.isEmpty() || (info.exists() && !info.isFile() && !info.isDir());
}

bool openStandardOutput(QFile& file)
{
#ifdef Q_OS_WIN
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    return file.open(stdout, QIODevice::WriteOnly);
}

} // namespace

Output::Output(const QString& path)
    : m_path(path)
    , m_isStream(isStreamPath(path))
{
}

Output::~Output() = default;

orv::Error Output::open()
{
    bool isOpen = false;
    if (m_isStream) {
        auto file = std::make_unique<QFile>(m_path);
        isOpen = m_path.isEmpty() ? openStandardOutput(*file) : file->open(QIODevice::WriteOnly);
        m_device = std::move(file);
    } else {
        m_device = std::make_unique<QSaveFile>(m_path);
        isOpen = m_device->open(QIODevice::WriteOnly);
    }
    return isOpen ? orv::Error() : error();
}

orv::Error Output::write(const QByteArray& bytes)
{
    const bool isWritten = m_device->write(bytes) == bytes.size();
    // A reader at the other end gets what there is; a file is better off with its buffer.
    return isWritten && (!m_isStream || m_device->flush()) ? orv::Error() : error();
}

orv::Error Output::commit()
{
    auto* file = qobject_cast<QSaveFile*>(m_device.get());
    const bool isDone = file ? file->commit() : m_device->flush();
    return isDone ? orv::Error() : error();
}

orv::Error Output::error() const
{
    const auto name = m_path.isEmpty() ? QStringLiteral("the standard output") : m_path;
    return orv::Error(orv::ErrorCode::FileAccess,
                      QStringLiteral("cannot write %1: %2").arg(name, m_device->errorString()));
}

} // namespace fetch
