#include "Warnings.h"

namespace orv {

Warnings::~Warnings() = default;

void Warnings::resetWarning(const QString& warning)
{
    resetWarningInternal(warning);
}

void Warnings::resetWarnings(const QList<QString>& warnings)
{
    resetWarningsInternal(warnings);
}

void Warnings::addWarningInternal(const QString& warning)
{
    m_warnings.append(warning);
}

void Warnings::addWarningsInternal(const QList<QString>& warnings)
{
    m_warnings.append(warnings);
}

void Warnings::clearWarningsInternal()
{
    m_warnings.clear();
}

void Warnings::resetWarningInternal(const QString& warning)
{
    m_warnings = {warning};
}

void Warnings::resetWarningsInternal(const QList<QString>& warnings)
{
    m_warnings = warnings;
}

} // namespace orv
