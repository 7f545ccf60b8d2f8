#pragma once

#include "orv_base_export.h"

namespace orv {

/// The interface of operations that can be canceled.
///
/// What cancel() does, and from which thread it may be called, is up to the class that implements it.
class ORV_BASE_EXPORT Cancelable
{
public:
    virtual ~Cancelable();

    /// Whether the operation has been canceled; false at first.
    virtual bool isCanceled() const = 0;
    /// Sets what isCanceled() returns; stops nothing.
    virtual void setCanceled(bool canceled) = 0;
    /// Stops the operation and sets the flag.
    virtual void cancel() = 0;

protected:
    Cancelable() = default;
    Cancelable(const Cancelable&) = default;
    Cancelable& operator=(const Cancelable&) = default;
};

} // namespace orv
