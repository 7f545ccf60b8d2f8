#pragma once

#include <Error.h>

#include <QString>

namespace orv {

/// Texts that check functions write for their caller, in addition to the Error that they return.
struct ErrorWarningMessages
{
    QString errors;   ///< Texts of failures, appended one after the other without a separator.
    QString warnings; ///< Texts of problems that did not make a check fail.
};

/// Checks that @p pointer is not null.
///
/// Otherwise appends "Unexpected nullptr" to the errors of @p messages (which may be null) and returns
/// ErrorCode::InvalidArgument without a message.
template <typename T>
Error checkNotNullptr(T* pointer, ErrorWarningMessages* messages)
{
    if (pointer)
        return Error(ErrorCode::None);
    if (messages)
        messages->errors += QStringLiteral("Unexpected nullptr");
    return Error(ErrorCode::InvalidArgument).ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

} // namespace orv
