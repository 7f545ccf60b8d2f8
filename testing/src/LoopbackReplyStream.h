#pragma once

#include "LoopbackReply_p.h"

#include <QByteArrayView>

#include <optional>

namespace orv {

/// The bytes of one reply in the order of the wire, made as they are asked for: the content is never copied
/// whole.
class LoopbackReplyStream
{
public:
    using Ending = LoopbackReply::Private::Ending;

    /// To be assigned to before it is used.
    LoopbackReplyStream() = default;
    /// @p last makes the connection end with this reply, as the client asked.
    LoopbackReplyStream(const LoopbackReply& reply, bool headOnly, bool last);

    bool isSilent() const { return m_reply->form == LoopbackReply::Private::Form::Silence; }
    std::chrono::milliseconds delay() const { return m_reply->delay; }
    Ending ending() const { return m_last ? Ending::Close : m_reply->ending; }

    bool atEnd() const;
    /// The next bytes, @p most or fewer, to be sent in one write.
    QByteArray take(qsizetype most);
    /// How long to wait after the bytes taken last.
    std::optional<std::chrono::milliseconds> pause() const;

private:
    QByteArray makeHead(bool bodiless) const;
    void nextSegment();

    QExplicitlySharedDataPointer<const LoopbackReply::Private> m_reply;
    bool m_last = false;
    QByteArray m_head;
    QByteArray m_frame;        // what stands between the data of two chunks
    QByteArrayView m_segment;  // being sent; views m_head, m_frame or the content
    QByteArrayView m_rest;     // of the content
    qsizetype m_chunkSize = 0; // 0 from the last chunk on
    bool m_frameIsNext = true;
    qint64 m_position = 0;
};

} // namespace orv
