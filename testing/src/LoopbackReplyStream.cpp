#include "LoopbackReplyStream.h"

namespace orv {

namespace {

void appendField(QByteArray& head, const QByteArray& name, const QByteArray& value)
{
    head.append(name).append(": ").append(value).append("\r\n");
}

bool isBodiless(int statusCode)
{
    return (statusCode >= 100 && statusCode < 200) || statusCode == 204 || statusCode == 304;
}

} // namespace

LoopbackReplyStream::LoopbackReplyStream(const LoopbackReply& reply, bool headOnly, bool last)
    : m_reply(reply.d.constData())
    , m_last(last && reply.d->ending == Ending::KeepOpen)
{
    using Form = LoopbackReply::Private::Form;
    if (m_reply->form == Form::Raw)
        m_rest = m_reply->content;
    if (m_reply->form != Form::Http)
        return;
    const bool bodiless = isBodiless(m_reply->statusCode);
    m_head = makeHead(bodiless);
    m_segment = m_head;
    if (headOnly || bodiless)
        return;
    m_rest = m_reply->content;
    m_chunkSize = m_reply->chunkSize;
}

QByteArray LoopbackReplyStream::makeHead(bool bodiless) const
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(m_reply->statusCode).rightJustified(3, '0') + ' ' +
                      m_reply->reason + "\r\n";
    if (!bodiless)
        appendContentFields(head);
    if (m_last || m_reply->announcesClose)
        appendAutomaticField(head, "Connection", "close");
    for (const auto& [name, value] : m_reply->fields)
        appendField(head, name, value);
    return head + "\r\n";
}

void LoopbackReplyStream::appendContentFields(QByteArray& head) const
{
    if (!m_reply->contentType.isEmpty())
        appendAutomaticField(head, "Content-Type", m_reply->contentType);
    if (m_reply->chunkSize > 0)
        appendAutomaticField(head, "Transfer-Encoding", "chunked");
    else if (!m_reply->untilClose)
        appendAutomaticField(head, "Content-Length", QByteArray::number(m_reply->content.size()));
}

void LoopbackReplyStream::appendAutomaticField(QByteArray& head, const QByteArray& name,
                                               const QByteArray& value) const
{
    if (!m_reply->hasField(name))
        appendField(head, name, value);
}

bool LoopbackReplyStream::atEnd() const
{
    return m_position >= m_reply->limit || (m_segment.isEmpty() && m_rest.isEmpty() && m_chunkSize == 0);
}

QByteArray LoopbackReplyStream::take(qsizetype most)
{
    qint64 wanted = qMin<qint64>(most, m_reply->limit - m_position);
    if (m_reply->dripBytes > 0)
        wanted = qMin(wanted, m_reply->dripBytes);
    if (m_position < m_reply->splitOffset)
        wanted = qMin(wanted, m_reply->splitOffset - m_position);

    QByteArray piece;
    while (piece.size() < wanted && !atEnd()) {
        if (m_segment.isEmpty())
            nextSegment();
        const qsizetype size = qMin<qsizetype>(wanted - piece.size(), m_segment.size());
        piece.append(m_segment.first(size));
        m_segment = m_segment.sliced(size);
    }
    m_position += piece.size();
    return piece;
}

void LoopbackReplyStream::nextSegment()
{
    if (m_chunkSize == 0) {
        m_segment = std::exchange(m_rest, {});
        return;
    }
    const qsizetype size = qMin(m_chunkSize, m_rest.size());
    if (m_frameIsNext) {
        m_frame = (m_frame.isEmpty() ? "" : "\r\n") + QByteArray::number(size, 16) + "\r\n";
        if (size == 0) {
            m_frame += "\r\n";
            m_chunkSize = 0;
        }
        m_segment = m_frame;
    } else {
        m_segment = m_rest.first(size);
        m_rest = m_rest.sliced(size);
    }
    m_frameIsNext = !m_frameIsNext;
}

std::optional<std::chrono::milliseconds> LoopbackReplyStream::pause() const
{
    using namespace std::chrono_literals;
    if (m_reply->dripBytes > 0)
        return m_reply->dripInterval;
    // A timer of 0 ms can fire in the same iteration of the event loop, before a client on this thread has
    // read the first part.
    if (m_reply->splitOffset > 0 && m_position == m_reply->splitOffset)
        return 1ms;
    return std::nullopt;
}

} // namespace orv
