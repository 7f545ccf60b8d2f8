#pragma once

#include "orv_base_export.h"

namespace orv {

/// Something that can be cancelled: a flag, and the operation that acts on it.
///
/// What a cancel does, and on which thread it may be asked for, is for the class that implements it to say.
class ORV_BASE_EXPORT Cancelable
{
public:
    virtual ~Cancelable();

    /// Whether a cancel has been asked for. False at first.
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
