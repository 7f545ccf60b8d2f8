#pragma once

#include "Cancelable.h"
#include "Error.h"
#include "orv_base_export.h"

#include <QObject>

#include <memory>

namespace orv {

/// A QObject that can be cancelled and that ends with an Error.
///
/// It holds the two facts and leaves it to derived classes to act on them. Lives on, and is used from, one
/// thread.
class ORV_BASE_EXPORT ErrorCancelable : public QObject, public Cancelable
{
    Q_OBJECT

public:
    /// Neither cancelled nor in error.
    explicit ErrorCancelable(QObject* parent = nullptr);
    ~ErrorCancelable() override;

    bool isCanceled() const override;
    void setCanceled(bool canceled) override;

    /// Whether the stored error is one.
    bool hasError() const;
    /// A copy of the stored error; success until one is stored.
    Error error() const;

Q_SIGNALS:
    /// The object was cancelled. Emitted at most once, after the flag is set. Deleting the sender in a slot
    /// is safe.
    void canceled();

protected:
    /// Stores @p error for hasError() and error().
    void setError(Error error);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
