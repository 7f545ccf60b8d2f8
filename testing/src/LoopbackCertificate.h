#pragma once

#include <QByteArray>

namespace orv {

/// The self-signed certificate for localhost and 127.0.0.1, in PEM.
QByteArray loopbackCertificate();
/// Its RSA key, in PEM. It is published with this source, so it protects nothing.
QByteArray loopbackPrivateKey();

} // namespace orv
