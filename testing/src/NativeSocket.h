#pragma once

#include <QtGlobal>

/// Operations that QAbstractSocket does not offer, on its socketDescriptor(). Invalid descriptors are
/// ignored.
namespace orv::NativeSocket {

/// Sends FIN; receiving is still possible.
void finishSending(qintptr descriptor);
/// Makes closing the descriptor send RST and discard unsent data.
void resetOnClose(qintptr descriptor);

} // namespace orv::NativeSocket
