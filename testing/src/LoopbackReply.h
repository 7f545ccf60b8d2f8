#pragma once

#include "orv_network_testing_export.h"

#include <QByteArray>
#include <QSharedDataPointer>

#include <chrono>

class QJsonObject;

namespace orv {

/// What LoopbackServer answers to a request, and which faults it shows while doing so.
///
/// The modifiers change the reply itself and can be chained:
/// @code
/// server.addReply(QStringLiteral("/slow"), LoopbackReply(200, content).dripped(1, 20ms).cutAfter(90));
/// @endcode
/// A request with the method HEAD is answered with the head only. Statuses 1xx, 204 and 304 are sent without
/// content, and without the fields that describe it unless withField() adds them. Offsets and sizes count the
/// bytes of the whole reply, including the head, before encryption. Nothing is validated: whatever a modifier
/// is given is sent, well-formed or not.
///
/// To stall in the middle of a reply, drip it with a long interval or state a larger Content-Length.
///
/// An implicitly shared value that is not tied to a thread; copying is cheap whatever the size of the
/// content.
class ORV_NETWORK_TESTING_EXPORT LoopbackReply
{
public:
    /// A well-formed reply. A @p statusCode below 100 is padded with zeros to three digits; with an empty @p
    /// contentType there is no such field. The connection stays open for further requests.
    explicit LoopbackReply(int statusCode = 200, const QByteArray& content = {},
                           const QByteArray& contentType = "text/plain");
    /// The compact form of @p object, as application/json.
    static LoopbackReply json(const QJsonObject& object, int statusCode = 200);
    /// Exactly @p bytes and nothing else, even for HEAD; then the connection is closed.
    static LoopbackReply raw(const QByteArray& bytes);
    /// No answer at all: the request is read and the connection stays open. Everything else that arrives on
    /// it is ignored.
    static LoopbackReply silence();

    LoopbackReply(const LoopbackReply& other);
    LoopbackReply(LoopbackReply&& other) noexcept;
    LoopbackReply& operator=(const LoopbackReply& other);
    LoopbackReply& operator=(LoopbackReply&& other) noexcept;
    ~LoopbackReply();

    /// Replaces the usual reason phrase.
    LoopbackReply& withReason(const QByteArray& reason);
    /// Appends a field. Content-Type, Content-Length, Transfer-Encoding and Connection replace the automatic
    /// field of that name.
    LoopbackReply& withField(const QByteArray& name, const QByteArray& value);
    /// Sends the content in chunks of @p chunkSize bytes (at least 1), without a Content-Length.
    LoopbackReply& chunked(int chunkSize);
    /// Omits the Content-Length; the content ends when the connection is closed.
    LoopbackReply& untilClose();
    /// Sends "Connection: close" and closes the connection after the reply.
    LoopbackReply& closing();

    /// Waits for @p delay before the first byte.
    LoopbackReply& delayed(std::chrono::milliseconds delay);
    /// Sends pieces of @p bytes (at least 1), one every @p interval, each in a segment of its own.
    LoopbackReply& dripped(int bytes, std::chrono::milliseconds interval);
    /// Sends the bytes before @p offset on their own, and the rest at least one millisecond and one iteration
    /// of the event loop later.
    LoopbackReply& splitAt(qint64 offset);
    /// Closes the connection (FIN) after @p bytes or the whole reply, whichever is less, without announcing
    /// it in the head.
    LoopbackReply& cutAfter(qint64 bytes);
    /// Resets the connection (RST) after @p bytes or the whole reply, whichever is less. The bytes have been
    /// handed to the system by then, but a peer that reads slowly may still lose them because of the reset.
    LoopbackReply& resetAfter(qint64 bytes);

private:
    friend class LoopbackReplyStream;
    class Private;
    QSharedDataPointer<Private> d;
};

} // namespace orv
