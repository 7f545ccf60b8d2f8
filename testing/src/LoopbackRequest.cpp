#include "LoopbackRequest.h"

#include <algorithm>

namespace orv {

namespace {

auto findField(const LoopbackRequest& request, const QByteArray& name)
{
    return std::find_if(request.fields.cbegin(), request.fields.cend(), [&name](const auto& field) {
        return field.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

} // namespace

QByteArray LoopbackRequest::startLine() const
{
    return head.left(qMax<qsizetype>(0, head.indexOf("\r\n")));
}

bool LoopbackRequest::hasField(const QByteArray& name) const
{
    return findField(*this, name) != fields.cend();
}

QByteArray LoopbackRequest::field(const QByteArray& name) const
{
    const auto found = findField(*this, name);
    return found == fields.cend() ? QByteArray() : found->second;
}

} // namespace orv
