#pragma once

#include "orv_base_export.h"

#include <QList>
#include <QString>

namespace orv {

/// A list of warnings that travels with a value: things worth telling that did not make the operation fail.
///
/// Error and Result are Warnings. Every edit runs through one of five protected hooks, so that a class that
/// holds a second list can keep both in step.
///
/// A value type; distinct objects may be used on distinct threads.
class ORV_BASE_EXPORT Warnings
{
public:
    Warnings() = default;
    Warnings(const Warnings& other) = default;
    Warnings(Warnings&& other) noexcept = default;
    Warnings& operator=(const Warnings& other) = default;
    Warnings& operator=(Warnings&& other) noexcept = default;
    virtual ~Warnings();

    /// The warnings, oldest first.
    QList<QString> warnings() const { return m_warnings; }

    /// Replaces the whole list by @p warning.
    void resetWarning(const QString& warning);

    /// Replaces the whole list by @p warnings.
    void resetWarnings(const QList<QString>& warnings);

protected:
    /// Appends one warning. All edits come through this hook and the four below.
    virtual void addWarningInternal(const QString& warning);
    /// Appends all of @p warnings.
    virtual void addWarningsInternal(const QList<QString>& warnings);
    /// Drops all warnings.
    virtual void clearWarningsInternal();
    /// Replaces the whole list by @p warning.
    virtual void resetWarningInternal(const QString& warning);
    /// Replaces the whole list by @p warnings.
    virtual void resetWarningsInternal(const QList<QString>& warnings);

private:
    QList<QString> m_warnings;
};

} // namespace orv
