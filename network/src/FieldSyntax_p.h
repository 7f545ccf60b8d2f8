#pragma once

class QByteArray;

namespace orv {

/// Whether @p text is a token (RFC 9110, 5.6.2), as the name of a header field has to be.
bool isToken(const QByteArray& text);

/// Whether @p text contains no control character but HTAB. Qt up to 6.7 writes names and values as they are,
/// so a line break would begin another field; later versions drop such a field and send the request without
/// it.
bool isFieldValue(const QByteArray& text);

} // namespace orv
