#include "LoopbackRequestParser.h"

#include <QUrl>

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace orv {

namespace {

constexpr qsizetype maxHeadSize = 1'048'576;

std::optional<qint64> toNumber(QByteArrayView text, int base)
{
    // Unlike Qt's conversions, these refuse signs, white space and "0x".
    quint64 number = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), number, base);
    if (error != std::errc() || end != text.end() || number > quint64(std::numeric_limits<qint64>::max()))
        return std::nullopt;
    return qint64(number);
}

QString toPath(QByteArray target)
{
    const qsizetype scheme = target.startsWith('/') ? -1 : target.indexOf("://");
    if (scheme >= 0) {
        const qsizetype path = target.indexOf('/', scheme + 3);
        target = path < 0 ? QByteArray("/") : target.mid(path);
    }
    const qsizetype query = target.indexOf('?');
    return QUrl::fromPercentEncoding(query < 0 ? target : target.left(query));
}

bool isNameCharacter(char c)
{
    return c > ' ' && c != ':' && c != 0x7f;
}

bool isName(QByteArrayView text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), isNameCharacter);
}

bool isLineBegin(char c)
{
    return isNameCharacter(c) || c == '\r' || c == '\n';
}

bool isSame(QByteArrayView text, const char* other)
{
    return text.compare(other, Qt::CaseInsensitive) == 0;
}

} // namespace

void LoopbackRequestParser::append(const QByteArray& bytes)
{
    if (m_begin == m_buffer.size())
        m_buffer = bytes;
    else
        m_buffer.remove(0, m_begin).append(bytes);
    m_line -= m_begin;
    m_begin = 0;
}

LoopbackRequestParser::Progress LoopbackRequestParser::advance()
{
    while (m_part != Part::End) {
        const bool isData = m_part == Part::Content || m_part == Part::ChunkData;
        const Progress progress = isData ? readContent() : readLine();
        if (progress != Progress::Complete)
            return progress;
    }
    return Progress::Complete;
}

LoopbackRequest LoopbackRequestParser::take()
{
    m_part = Part::StartLine;
    m_contentLength.reset();
    m_isChunked = false;
    return std::exchange(m_request, {});
}

// Whether the line that begins at m_line has arrived and is well-formed; @p end is the position of its line
// feed, or -1 if that has not arrived.
LoopbackRequestParser::Progress LoopbackRequestParser::checkLine(qsizetype end) const
{
    // Without this check, the server would wait for ever for the line end of a TLS handshake on a plain port.
    if (m_part == Part::StartLine && m_begin < m_buffer.size() && !isLineBegin(m_buffer.at(m_begin)))
        return Progress::Malformed;
    if ((end < 0 ? m_buffer.size() : end) - m_begin >= maxHeadSize)
        return Progress::Malformed;
    if (end < 0)
        return Progress::NeedsMore;
    return end > m_line && m_buffer.at(end - 1) == '\r' ? Progress::Complete : Progress::Malformed;
}

LoopbackRequestParser::Progress LoopbackRequestParser::readLine()
{
    const qsizetype end = m_buffer.indexOf('\n', m_line);
    const Progress progress = checkLine(end);
    if (progress != Progress::Complete)
        return progress;
    const QByteArrayView line = QByteArrayView(m_buffer).sliced(m_line, end - 1 - m_line);
    m_line = end + 1;

    const bool wasHead = m_part == Part::Fields;
    if (!useLine(line))
        return Progress::Malformed;
    if (m_part == Part::Fields)
        return Progress::Complete;
    m_begin = m_line;
    return wasHead && expectsContinue() ? Progress::ExpectsContinue : Progress::Complete;
}

bool LoopbackRequestParser::useLine(QByteArrayView line)
{
    switch (m_part) {
    case Part::StartLine:
        return line.isEmpty() || startRequest(line);
    case Part::Fields:
        return line.isEmpty() ? endHead() : addField(line);
    case Part::ChunkSize:
        return startChunk(line);
    case Part::ChunkEnd:
        m_part = Part::ChunkSize;
        return line.isEmpty();
    case Part::Trailer:
        m_part = line.isEmpty() ? Part::End : Part::Trailer;
        return true;
    case Part::Content:
    case Part::ChunkData:
    case Part::End:
        break;
    }
    return false;
}

LoopbackRequestParser::Progress LoopbackRequestParser::readContent()
{
    const auto size = qsizetype(qMin<qint64>(m_remaining, m_buffer.size() - m_begin));
    m_request.content.append(QByteArrayView(m_buffer).sliced(m_begin, size));
    m_begin += size;
    m_line = m_begin;
    m_remaining -= size;
    if (m_remaining > 0)
        return Progress::NeedsMore;
    m_part = m_part == Part::Content ? Part::End : Part::ChunkEnd;
    return Progress::Complete;
}

bool LoopbackRequestParser::startRequest(QByteArrayView line)
{
    const qsizetype first = line.indexOf(' ');
    const qsizetype last = line.lastIndexOf(' ');
    if (first <= 0 || last <= first + 1)
        return false;
    const QByteArrayView target = line.sliced(first + 1, last - first - 1);
    if (target.contains(' ') || !line.sliced(last + 1).startsWith("HTTP/1."))
        return false;
    m_request.method = line.first(first).toByteArray();
    m_request.target = target.toByteArray();
    m_request.path = toPath(m_request.target);
    m_part = Part::Fields;
    return true;
}

bool LoopbackRequestParser::addField(QByteArrayView line)
{
    const qsizetype colon = line.indexOf(':');
    if (colon < 0 || !isName(line.first(colon)))
        return false;
    const QByteArrayView name = line.first(colon);
    const QByteArrayView value = line.sliced(colon + 1).trimmed();
    m_request.fields.append({name.toByteArray(), value.toByteArray()});
    if (isSame(name, "Content-Length")) {
        const std::optional<qint64> length = toNumber(value, 10);
        const bool conflicts = m_contentLength && m_contentLength != length;
        m_contentLength = length;
        return length && !conflicts;
    }
    if (isSame(name, "Transfer-Encoding")) {
        m_isChunked = true;
        return isSame(value, "chunked");
    }
    return true;
}

bool LoopbackRequestParser::endHead()
{
    m_request.head = m_buffer.sliced(m_begin, m_line - m_begin);
    m_remaining = m_contentLength.value_or(0);
    if (m_isChunked)
        m_part = Part::ChunkSize;
    else
        m_part = m_remaining > 0 ? Part::Content : Part::End;
    return !(m_isChunked && m_contentLength);
}

bool LoopbackRequestParser::startChunk(QByteArrayView line)
{
    const qsizetype extension = line.indexOf(';');
    const std::optional<qint64> size = toNumber(extension < 0 ? line : line.first(extension).trimmed(), 16);
    m_remaining = size.value_or(0);
    m_part = m_remaining > 0 ? Part::ChunkData : Part::Trailer;
    return size.has_value();
}

bool LoopbackRequestParser::expectsContinue() const
{
    return m_part != Part::End && isSame(m_request.field("Expect"), "100-continue");
}

} // namespace orv
