#pragma once

#include "orv_network_export.h"

#include <QByteArray>

#include <chrono>

/// Constants for applications that use the library. All are initialized when the library is loaded.
namespace network {

/// How long a request may go without progress before it times out, unless a task says otherwise: 300,000 ms.
ORV_NETWORK_EXPORT extern const std::chrono::milliseconds DEFAULT_TIMEOUT;

/// How many requests Qt sends to one host at a time over HTTP/1.1: 6. For applications, for example as an
/// argument of TasksQueue::setMaxRunningTasks(); the library itself does not use it.
ORV_NETWORK_EXPORT extern const int MAX_PARALLEL_REQUESTS;

/// The User-Agent of tasks and queues that are not given another one: "OrvLabs".
ORV_NETWORK_EXPORT extern const QByteArray DEFAULT_USER_AGENT;

} // namespace network
