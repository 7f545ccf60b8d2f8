#pragma once

#include "orv_network_testing_export.h"

#include <QByteArray>
#include <QSharedDataPointer>

#include <chrono>

class QJsonObject;

namespace orv {

/// What LoopbackServer answers to a request, and how it misbehaves while it does.
///
/// The modifiers change the reply itself and can be chained:
/// @code
/// server.addReply(QStringLiteral("/slow"), LoopbackReply(200, content).dripped(1, 20ms).cutAfter(90));
/// @endcode
/// A request with the method HEAD gets the head alone. Statuses 1xx, 204 and 304 are sent without content,
/// and without the fields that describe it unless withField() adds them. Offsets and sizes count the bytes of
/// the whole reply, head included, before TLS. Nothing is checked: what a modifier is given goes over the
/// wire, right or wrong.
///
/// To stall in the middle of a reply, drip it with a long interval, or promise a larger Content-Length.
///
/// An implicitly shared value without ties to a thread; copies are cheap whatever the size of the content.
class ORV_NETWORK_TESTING_EXPORT LoopbackReply
{
public:
    /// A well-formed reply. A @p statusCode below 100 is padded with zeros to three digits; an empty @p
    /// contentType leaves that field out. The connection stays open for further requests.
    explicit LoopbackReply(int statusCode = 200, const QByteArray& content = {},
                           const QByteArray& contentType = "text/plain");
    /// The compact form of @p object, as application/json.
    static LoopbackReply json(const QJsonObject& object, int statusCode = 200);
    /// Exactly @p bytes and nothing else, also for HEAD; then the connection is closed.
    static LoopbackReply raw(const QByteArray& bytes);
    /// No answer at all: the request is read and the connection stays open. What else arrives on it is
    /// ignored.
    static LoopbackReply silence();

    LoopbackReply(const LoopbackReply& other);
    LoopbackReply(LoopbackReply&& other) noexcept;
    LoopbackReply& operator=(const LoopbackReply& other);
    LoopbackReply& operator=(LoopbackReply&& other) noexcept;
    ~LoopbackReply();

    /// Replaces the usual reason phrase.
    LoopbackReply& withReason(const QByteArray& reason);
    /// Adds a field after those already there. Content-Type, Content-Length, Transfer-Encoding and Connection
    /// given here take the place of the automatic field of that name.
    LoopbackReply& withField(const QByteArray& name, const QByteArray& value);
    /// Sends the content in chunks of @p chunkSize bytes (at least 1), without a Content-Length.
    LoopbackReply& chunked(int chunkSize);
    /// Leaves out the Content-Length; the close of the connection ends the content.
    LoopbackReply& untilClose();
    /// Announces "Connection: close" and closes the connection after the reply.
    LoopbackReply& closing();

    /// Lets @p delay pass before the first byte.
    LoopbackReply& delayed(std::chrono::milliseconds delay);
    /// Sends pieces of @p bytes (at least 1) that are @p interval apart, in segments of their own.
    LoopbackReply& dripped(int bytes, std::chrono::milliseconds interval);
    /// Sends the bytes before @p offset by themselves, and the rest a millisecond and at least one turn of
    /// the event loop later.
    LoopbackReply& splitAt(qint64 offset);
    /// Closes the connection (FIN) after @p bytes or the whole reply, whichever is less. Nothing announces
    /// it.
    LoopbackReply& cutAfter(qint64 bytes);
    /// The same, but resets the connection (RST). The bytes before it have left this process; a peer that is
    /// slow to read may yet lose them to the reset.
    LoopbackReply& resetAfter(qint64 bytes);

private:
    friend class LoopbackReplyStream;
    class Private;
    QSharedDataPointer<Private> d;
};

} // namespace orv
