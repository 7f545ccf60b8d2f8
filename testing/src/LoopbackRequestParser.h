#pragma once

#include "LoopbackRequest.h"

#include <QByteArrayView>

#include <optional>

namespace orv {

/// Cuts the bytes of one connection into requests.
class LoopbackRequestParser
{
public:
    enum class Progress {
        NeedsMore,       ///< append() more bytes first.
        ExpectsContinue, ///< The client holds the content back until it is told to go on; advance() again.
        Complete,        ///< take() the request.
        Malformed,       ///< Nothing that follows makes sense any more.
    };

    void append(const QByteArray& bytes);
    Progress advance();
    /// The request that is complete; the next one can begin.
    LoopbackRequest take();

private:
    enum class Part { StartLine, Fields, Content, ChunkSize, ChunkData, ChunkEnd, Trailer, End };

    Progress readLine();
    bool useLine(QByteArrayView line);
    Progress readContent();
    bool startRequest(QByteArrayView line);
    bool addField(QByteArrayView line);
    bool endHead();
    bool startChunk(QByteArrayView line);
    bool expectsContinue() const;

    LoopbackRequest m_request;
    Part m_part = Part::StartLine;
    QByteArray m_buffer;
    qsizetype m_begin = 0; // of what is not in m_request yet
    qsizetype m_line = 0;  // where the next line begins
    std::optional<qint64> m_contentLength;
    bool m_isChunked = false;
    qint64 m_remaining = 0; // of the content or the chunk
};

} // namespace orv
