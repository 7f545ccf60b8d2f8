#pragma once

#include "orv_base_export.h"

namespace orv {

/// Something that can be cancelled: a flag, and the operation that acts on it.
class ORV_BASE_EXPORT Cancelable
{
public:
    virtual ~Cancelable();

    /// Whether a cancel has been asked for.
    virtual bool isCanceled() const = 0;
    /// Sets the flag alone; nothing is stopped by it.
    virtual void setCanceled(bool canceled) = 0;
    /// Stops the work.
    virtual void cancel() = 0;

protected:
    Cancelable() = default;
    Cancelable(const Cancelable&) = default;
    Cancelable& operator=(const Cancelable&) = default;
};

} // namespace orv
