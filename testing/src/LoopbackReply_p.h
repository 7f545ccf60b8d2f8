#pragma once

#include "LoopbackReply.h"

#include <QList>
#include <QSharedData>

#include <limits>
#include <utility>

namespace orv {

class LoopbackReply::Private : public QSharedData
{
public:
    enum class Form { Http, Raw, Silence };
    enum class Ending { KeepOpen, Close, Reset };

    bool hasField(const QByteArray& name) const;

    Form form = Form::Http;
    Ending ending = Ending::KeepOpen;
    bool announcesClose = false;
    bool untilClose = false;
    int statusCode = 200;
    qsizetype chunkSize = 0; // 0: not chunked
    QByteArray reason;
    QByteArray content; // the whole reply if the form is Raw
    QByteArray contentType;
    QList<std::pair<QByteArray, QByteArray>> fields;
    std::chrono::milliseconds delay{0};
    std::chrono::milliseconds dripInterval{0};
    qint64 dripBytes = 0; // 0: not dripped
    qint64 splitOffset = 0;
    qint64 limit = std::numeric_limits<qint64>::max();
};

} // namespace orv
