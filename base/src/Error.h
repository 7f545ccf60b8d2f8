#pragma once

#include "ErrorCode.h"
#include "orv_base_export.h"
#include "Warnings.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

#include <type_traits>

class QDebug;

namespace orv {

/// The outcome of an operation, as a value: success, or a code with a message for the user and details for
/// the program.
///
/// Each function that returns an error marks it with ecatch(), so that the caller gets the trail of the
/// functions that it passed through:
/// @code
/// Error save(const QString& path)
/// {
///     QFile file(path);
///     if (file.open(QIODevice::WriteOnly))
///         return Error(ErrorCode::None);
///     return Error(ErrorCode::FileAccess, QObject::tr("Cannot open %1").arg(path))
///         .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
/// }
/// @endcode
///
/// A value type without ties to a thread; a moved-from error may only be assigned to or destroyed.
class ORV_BASE_EXPORT Error : public Warnings
{
public:
    /// One function that an error passed through.
    struct CatchPoint
    {
        QByteArray function; ///< The function's signature.
        QByteArray file;     ///< Path of the source file.
        int line = 0;        ///< Line in that file, from 1.
    };

    /// Success.
    Error() = default;
    /// An error without a message; success when @p code is ErrorCode::None.
    explicit Error(ErrorCode code);
    /// An error with a @p message that is already translated.
    Error(ErrorCode code, const QString& message);
    /// An error with @p details for the program, and a translated @p message. Note the order.
    Error(ErrorCode code, const QVariant& details, const QString& message);
    /// An error with a message that is a literal in UTF-8, not translated.
    Error(ErrorCode code, const char* message);

    Error(const Error& other) = default;
    Error(Error&& other) noexcept = default;
    Error& operator=(const Error& other) = default;
    Error& operator=(Error&& other) noexcept = default;
    ~Error() override;

    /// A success value.
    static Error NoError();

    /// True unless the code is ErrorCode::None.
    bool hasError() const { return m_code != ErrorCode::None; }
    /// The kind of the error; ErrorCode::None for success.
    ErrorCode errorCode() const { return m_code; }
    /// The text for users, translated; may be empty.
    QString errorMessage() const { return m_message; }
    /// Details for the program, invalid if there are none. Network errors hold one int here, see
    /// HttpResponseStatusCodesUtils.h.
    QVariant errorDetails() const { return m_details; }
    /// Replaces the details. Like the next three functions it returns this error, so that calls can be
    /// chained.
    Error& setErrorDetails(const QVariant& details);

    /// Appends to the error's own warnings.
    Error& addWarning(const QString& warning);
    /// Appends all of @p warnings to the error's own.
    Error& addWarnings(const QList<QString>& warnings);
    /// Removes all warnings of the error.
    Error& clearWarnings();

    /// Records that the error passed through @p function (its full signature) at @p line of @p file.
    Error& ecatch(const char* function, const char* file, int line);
    /// The functions that the error passed through, innermost first.
    QList<CatchPoint> catchTrail() const { return m_catchTrail; }

private:
    ErrorCode m_code = ErrorCode::None;
    QString m_message;
    QVariant m_details;
    QList<CatchPoint> m_catchTrail;
};

static_assert(std::is_nothrow_move_constructible_v<Error>, "Result<T> relies on it to keep its promises");

/// Prints code, details, message, warnings and the catch trail, for log lines.
ORV_BASE_EXPORT QDebug operator<<(QDebug debug, const Error& error);

} // namespace orv
