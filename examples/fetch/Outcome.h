#pragma once

#include "ExitCode.h"

#include <NetworkTask.h>

#include <QString>

namespace fetch {

/// How a fetch ended: the exit code for scripts and a message for users.
struct Outcome
{
    ExitCode code = ExitCode::Success;
    QString message; ///< Empty after a success.
};

/// The outcome of the finished @p task.
Outcome judge(const orv::NetworkTask& task);

/// The HTTP status of the task's last reply, or 0.
int statusOf(const orv::NetworkTask& task);

inline bool isSuccess(int status)
{
    return status >= 200 && status < 300;
}

} // namespace fetch
