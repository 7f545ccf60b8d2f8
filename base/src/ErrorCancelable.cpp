#include "ErrorCancelable.h"

#include <utility>

namespace orv {

namespace {

bool isPlainSuccess(const Error& error)
{
    return !error.hasError() && error.errorMessage().isEmpty() && !error.errorDetails().isValid() &&
           error.warnings().isEmpty() && error.catchTrail().isEmpty();
}

} // namespace

class ErrorCancelable::Private
{
public:
    std::unique_ptr<const Error> error; // null: a plain success, which most objects have all their life
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
    return d->error && d->error->hasError();
}

Error ErrorCancelable::error() const
{
    return d->error ? *d->error : Error();
}

void ErrorCancelable::setError(Error error)
{
    d->error = isPlainSuccess(error) ? nullptr : std::make_unique<const Error>(std::move(error));
}

} // namespace orv
