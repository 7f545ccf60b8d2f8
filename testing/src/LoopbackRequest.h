#pragma once

#include "orv_network_testing_export.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

namespace orv {

/// One request as LoopbackServer received it.
///
/// A plain value that is not tied to a thread.
struct ORV_NETWORK_TESTING_EXPORT LoopbackRequest
{
    QByteArray head;   ///< The exact bytes of the start line and the fields, including the blank line.
    QByteArray method; ///< As sent, for example "GET".
    QByteArray target; ///< Path and query as sent.
    QString path;      ///< The path without the query, percent-decoded.
    /// Names and values in the order and letter case in which they were received, without the white space
    /// around a value.
    QList<std::pair<QByteArray, QByteArray>> fields;
    QByteArray content; ///< The content, with chunked encoding removed.
    int connection = 0; ///< 1 for the first connection that the server accepted, 2 for the second, and so on.

    /// The first line of the head, without its line ending.
    QByteArray startLine() const;
    /// Whether there is a field @p name, in any letter case.
    bool hasField(const QByteArray& name) const;
    /// The value of the first field @p name, in any letter case; empty if there is none.
    QByteArray field(const QByteArray& name) const;
};

} // namespace orv
