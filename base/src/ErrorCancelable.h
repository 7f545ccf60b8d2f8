#pragma once

#include "Cancelable.h"
#include "Error.h"
#include "orv_base_export.h"

#include <QObject>

#include <memory>

namespace orv {

/// A QObject that can be canceled and that ends with an Error.
///
/// It stores both, and derived classes act on them. Used from the thread that it lives on.
class ORV_BASE_EXPORT ErrorCancelable : public QObject, public Cancelable
{
    Q_OBJECT

public:
    /// An object that is not canceled and has no error.
    explicit ErrorCancelable(QObject* parent = nullptr);
    ~ErrorCancelable() override;

    bool isCanceled() const override;
    void setCanceled(bool canceled) override;

    /// Whether error() is an error rather than success.
    bool hasError() const;
    /// A copy of the stored error; success until one is stored.
    Error error() const;

Q_SIGNALS:
    /// The object was canceled. Emitted at most once, after isCanceled() has become true. Deleting the sender
    /// in a slot is safe.
    void canceled();

protected:
    /// Stores @p error for hasError() and error(); emits nothing.
    void setError(Error error);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
