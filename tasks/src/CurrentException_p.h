#pragma once

#include "Task.h"

#include <exception>

namespace orv {

/// The exception that is being handled, as the error that a task ends with. For use in a catch block.
inline Error errorOfCurrentException()
{
    QString text;
    try {
        throw;
    } catch (const std::exception& exception) {
        text = QString::fromUtf8(exception.what());
    } catch (...) {
        text = Task::tr("Unknown exception");
    }
    return Error(ErrorCode::General, text).ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
}

} // namespace orv
