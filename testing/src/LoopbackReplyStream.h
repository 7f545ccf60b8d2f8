#pragma once

#include "LoopbackReply_p.h"

#include <QByteArrayView>

#include <optional>

namespace orv {

/// The bytes of one reply as they are sent, produced on demand: the content is never copied as a whole.
class LoopbackReplyStream
{
public:
    using Ending = LoopbackReply::Private::Ending;

    /// Must be assigned to before it is used.
    LoopbackReplyStream() = default;
    /// @p headOnly omits the content (HEAD). @p last closes the connection after this reply, at the client's
    /// request.
    LoopbackReplyStream(const LoopbackReply& reply, bool headOnly, bool last);

    bool isSilent() const { return m_reply->form == LoopbackReply::Private::Form::Silence; }
    std::chrono::milliseconds delay() const { return m_reply->delay; }
    Ending ending() const { return m_last ? Ending::Close : m_reply->ending; }

    bool atEnd() const;
    /// The next bytes, at most @p most, to be sent in one write.
    QByteArray take(qsizetype most);
    /// How long to wait after the last bytes taken; nullopt to go on at once.
    std::optional<std::chrono::milliseconds> pause() const;

private:
    QByteArray makeHead(bool bodiless) const;
    void appendContentFields(QByteArray& head) const;
    void appendAutomaticField(QByteArray& head, const QByteArray& name, const QByteArray& value) const;
    void nextSegment();

    QExplicitlySharedDataPointer<const LoopbackReply::Private> m_reply;
    bool m_last = false;
    QByteArray m_head;
    QByteArray m_frame;        // the bytes between the data of two chunks
    QByteArrayView m_segment;  // the rest of what is being sent; views m_head, m_frame or the content
    QByteArrayView m_rest;     // the content not yet in m_segment
    qsizetype m_chunkSize = 0; // 0: not chunked, or the last chunk has been made
    bool m_frameIsNext = true;
    qint64 m_position = 0;
};

} // namespace orv
