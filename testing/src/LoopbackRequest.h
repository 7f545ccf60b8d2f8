#pragma once

#include "orv_network_testing_export.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

namespace orv {

/// One request as LoopbackServer received it.
///
/// A plain value without ties to a thread.
struct ORV_NETWORK_TESTING_EXPORT LoopbackRequest
{
    QByteArray head;   ///< The exact bytes of the start line and the fields, through the blank line.
    QByteArray method; ///< As sent, "GET" for one.
    QByteArray target; ///< Path and query as sent.
    QString path;      ///< The path alone, percent-decoded.
    /// Names and values in the order and letter case in which they came, without the white space around a
    /// value.
    QList<std::pair<QByteArray, QByteArray>> fields;
    QByteArray content; ///< The body, freed from a chunked encoding.
    int connection = 0; ///< 1 for the first connection that the server accepted, and so on.

    /// The first line of the head, without its end of line.
    QByteArray startLine() const;
    /// Whether a field @p name came, in any letter case.
    bool hasField(const QByteArray& name) const;
    /// The value of the first field @p name, in any letter case; empty when there is none.
    QByteArray field(const QByteArray& name) const;
};

} // namespace orv
