#pragma once

#include <QtGlobal>

/// What QAbstractSocket does not offer. The arguments are its socketDescriptor(); a bad one is ignored.
namespace orv::NativeSocket {

/// Sends FIN; receiving goes on.
void finishSending(qintptr descriptor);
/// Makes the next close of the descriptor send RST and drop what is unsent.
void resetOnClose(qintptr descriptor);

} // namespace orv::NativeSocket
