#pragma once

#include "orv_base_export.h"

#include <QList>
#include <QString>

namespace orv {

/// A list of warnings that accompanies a value: problems that did not make the operation fail.
///
/// Error and Result are Warnings. Every edit goes through one of five protected virtual functions, so that a
/// class that holds a second list can update both.
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
    /// Appends one warning. All edits go through this function and the four below.
    virtual void addWarningInternal(const QString& warning);
    /// Appends all of @p warnings.
    virtual void addWarningsInternal(const QList<QString>& warnings);
    /// Removes all warnings.
    virtual void clearWarningsInternal();
    /// Replaces the whole list by @p warning.
    virtual void resetWarningInternal(const QString& warning);
    /// Replaces the whole list by @p warnings.
    virtual void resetWarningsInternal(const QList<QString>& warnings);

private:
    QList<QString> m_warnings;
};

} // namespace orv
