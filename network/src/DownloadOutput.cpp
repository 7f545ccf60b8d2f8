#include "DownloadOutput.h"

#include <limits>

namespace orv {

DownloadOutput::~DownloadOutput() = default;

void DownloadOutput::finalize() {}

FileDownloadOutput::FileDownloadOutput() = default;

FileDownloadOutput::~FileDownloadOutput()
{
    close();
}

Result<QSharedPointer<FileDownloadOutput>> FileDownloadOutput::createAndOpen(const QString& filePath)
{
    const auto output = QSharedPointer<FileDownloadOutput>::create();
    auto error = output->open(filePath);
    if (error.hasError())
        return error.ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    return output;
}

Error FileDownloadOutput::open(const QString& filePath)
{
    close();
    m_file.setFileName(filePath);
    if (m_file.open(QIODevice::WriteOnly))
        return Error(ErrorCode::None);
    return Error(ErrorCode::FileAccess, tr("Cannot open file %1 for writing").arg(filePath))
        .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

void FileDownloadOutput::close()
{
    if (!m_file.isOpen())
        return;
    m_file.flush();
    m_file.close();
}

// What stays in the file's buffer could only fail in close(), which has nobody to tell.
Error FileDownloadOutput::writeNewData(const QByteArray& data)
{
    if (!m_file.isOpen()) {
        return Error(ErrorCode::General, QVariant(static_cast<int>(QFileDevice::OpenError)),
                     tr("Error while writing to the file: ") + tr("the file is not open"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    m_file.write(data);
    m_file.flush();
    if (m_file.error() == QFileDevice::NoError)
        return Error(ErrorCode::None);
    return Error(ErrorCode::General, QVariant(static_cast<int>(m_file.error())),
                 tr("Error while writing to the file: ") + m_file.errorString())
        .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

void FileDownloadOutput::clear()
{
    if (m_file.isOpen())
        m_file.resize(0);
}

qint64 FileDownloadOutput::size()
{
    return m_file.size();
}

void FileDownloadOutput::finalize()
{
    close();
}

MemoryDownloadOutput::MemoryDownloadOutput() = default;
MemoryDownloadOutput::MemoryDownloadOutput(const MemoryDownloadOutput& other) = default;
MemoryDownloadOutput::MemoryDownloadOutput(MemoryDownloadOutput&& other) noexcept = default;
MemoryDownloadOutput& MemoryDownloadOutput::operator=(const MemoryDownloadOutput& other) = default;
MemoryDownloadOutput& MemoryDownloadOutput::operator=(MemoryDownloadOutput&& other) noexcept = default;
MemoryDownloadOutput::~MemoryDownloadOutput() = default;

QSharedPointer<MemoryDownloadOutput> MemoryDownloadOutput::create()
{
    return QSharedPointer<MemoryDownloadOutput>::create();
}

QByteArray MemoryDownloadOutput::data() const
{
    return m_buffer;
}

Error MemoryDownloadOutput::writeNewData(const QByteArray& data)
{
    const qint64 newSize = qint64(data.size()) + m_buffer.size();
    if (newSize > std::numeric_limits<qint32>::max())
        return Error(ErrorCode::General, tr("Memory error")).ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    m_buffer.append(data);
    if (m_buffer.size() != newSize)
        return Error(ErrorCode::General, tr("Memory error")).ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    return Error(ErrorCode::None);
}

void MemoryDownloadOutput::clear()
{
    m_buffer.resize(0);
}

qint64 MemoryDownloadOutput::size()
{
    return m_buffer.size();
}

} // namespace orv
