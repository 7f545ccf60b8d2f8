#include "ErrorCancelable.h"

#include <utility>

namespace orv {

class ErrorCancelable::Private
{
public:
    Error error;
    bool isCanceled = false;
};

ErrorCancelable::ErrorCancelable(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
}

ErrorCancelable::~ErrorCancelable() = default;

bool ErrorCancelable::isCanceled() const
{
    return d->isCanceled;
}

void ErrorCancelable::setCanceled(bool canceled)
{
    d->isCanceled = canceled;
}

bool ErrorCancelable::hasError() const
{
    return d->error.hasError();
}

Error ErrorCancelable::error() const
{
    return d->error;
}

void ErrorCancelable::setError(Error error)
{
    d->error = std::move(error);
}

} // namespace orv
