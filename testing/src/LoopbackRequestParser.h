#pragma once

#include "LoopbackRequest.h"

#include <QByteArrayView>

#include <optional>

namespace orv {

/// Splits the bytes of one connection into requests.
class LoopbackRequestParser
{
public:
    enum class Progress {
        NeedsMore,       ///< Call append() with more bytes first.
        ExpectsContinue, ///< The client waits for a 100 before it sends the content; then advance() again.
        Complete,        ///< Call take() to get the request.
        Malformed,       ///< Nothing that follows can be parsed.
    };

    void append(const QByteArray& bytes);
    Progress advance();
    /// Returns the complete request and gets ready for the next one.
    LoopbackRequest take();
    /// How many of the bytes appended belong to later requests, if a request is complete.
    qsizetype unusedSize() const { return m_buffer.size() - m_begin; }

private:
    enum class Part { StartLine, Fields, Content, ChunkSize, ChunkData, ChunkEnd, Trailer, End };

    // Complete means that these have read a line, or all of the content or chunk; not that the request is
    // complete.
    Progress readLine();
    Progress readContent();
    Progress checkLine(qsizetype end) const;
    bool useLine(QByteArrayView line);
    bool startRequest(QByteArrayView line);
    bool addField(QByteArrayView line);
    bool endHead();
    bool startChunk(QByteArrayView line);
    bool expectsContinue() const;

    LoopbackRequest m_request;
    Part m_part = Part::StartLine;
    QByteArray m_buffer;
    qsizetype m_begin = 0; // where the bytes begin that are not in m_request yet
    qsizetype m_line = 0;  // where the next line begins
    std::optional<qint64> m_contentLength;
    bool m_isChunked = false;
    qint64 m_remaining = 0; // bytes missing from the content or chunk
};

} // namespace orv
