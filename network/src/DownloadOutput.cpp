#include "DownloadOutput.h"

#include "NetworkLog_p.h"

#include <QDebug>

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

// Without a buffer: content that is still in one when the file is closed could be lost without an error.
Error FileDownloadOutput::open(const QString& filePath)
{
    close();
    m_failure = Error();
    m_file.setFileName(filePath);
    if (m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return Error(ErrorCode::None);
    qCWarning(networkLog) << "Cannot open file" << filePath << m_file.errorString();
    return Error(ErrorCode::FileAccess, tr("Cannot open file %1 for writing").arg(filePath))
        .addWarning(m_file.errorString())
        .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

void FileDownloadOutput::close()
{
    m_file.close();
}

Error FileDownloadOutput::writeNewData(const QByteArray& data)
{
    if (m_failure.hasError())
        return m_failure;
    if (!m_file.isOpen()) {
        return Error(ErrorCode::General, QVariant(static_cast<int>(QFileDevice::OpenError)),
                     tr("Error while writing to the file: ") + tr("the file is not open"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    // A disk that fills up takes the first part of a piece without an error. Only writing the rest shows the
    // reason.
    for (qint64 written = 0; written < data.size();) {
        const auto count = m_file.write(data.constData() + written, data.size() - written);
        if (count <= 0)
            return fail();
        written += count;
    }
    return Error(ErrorCode::None);
}

// The error is kept because QFile forgets it at the next write, which would leave a gap in the file if it
// succeeded.
Error FileDownloadOutput::fail()
{
    const auto code = m_file.error() == QFileDevice::NoError ? QFileDevice::WriteError : m_file.error();
    m_failure = Error(ErrorCode::General, QVariant(static_cast<int>(code)),
                      tr("Error while writing to the file: ") + m_file.errorString())
                    .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    return m_failure;
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
