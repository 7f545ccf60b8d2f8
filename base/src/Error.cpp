#include "Error.h"

#include <QDebug>

namespace orv {

Error::Error(ErrorCode code)
    : m_code(code)
{
}

Error::Error(ErrorCode code, const QString& message)
    : m_code(code)
    , m_message(message)
{
}

Error::Error(ErrorCode code, const QVariant& details, const QString& message)
    : m_code(code)
    , m_message(message)
    , m_details(details)
{
}

Error::Error(ErrorCode code, const char* message)
    : Error(code, QString::fromUtf8(message))
{
}

Error::~Error() = default;

Error Error::NoError()
{
    return Error(ErrorCode::None);
}

Error& Error::setErrorDetails(const QVariant& details)
{
    m_details = details;
    return *this;
}

Error& Error::addWarning(const QString& warning)
{
    addWarningInternal(warning);
    return *this;
}

Error& Error::addWarnings(const QList<QString>& warnings)
{
    addWarningsInternal(warnings);
    return *this;
}

Error& Error::clearWarnings()
{
    clearWarningsInternal();
    return *this;
}

Error& Error::ecatch(const char* function, const char* file, int line)
{
    m_catchTrail.append({function, file, line});
    return *this;
}

QDebug operator<<(QDebug debug, const Error& error)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Error(" << static_cast<int>(error.errorCode());
    if (error.errorDetails().isValid())
        debug << ", details=" << error.errorDetails();
    if (!error.errorMessage().isEmpty())
        debug << ", " << error.errorMessage();
    const auto warnings = error.warnings();
    if (!warnings.isEmpty())
        debug << ", warnings=" << warnings;
    const auto trail = error.catchTrail();
    for (const auto& point : trail)
        debug << ", at " << point.function.constData() << " (" << point.file.constData() << ":" << point.line
              << ")";
    debug << ")";
    return debug;
}

} // namespace orv
