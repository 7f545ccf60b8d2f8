#pragma once

#include "orv_network_export.h"

#include <chrono>
#include <memory>

namespace orv {

/// Counts the attempts of an operation and computes the growing delay to wait before the next one.
///
/// A mix-in that only stores and computes; whoever runs the operation does the waiting. Nothing resets the
/// counters by itself. All arithmetic saturates: no factor, delay or maximum overflows.
class ORV_NETWORK_EXPORT Retriable
{
public:
    /// How the delay grows from one attempt to the next.
    enum class DelayPolicy : int {
        None = 0,        ///< No delay.
        Linear = 1,      ///< The increment factor is added, in seconds.
        Exponential = 2, ///< From one second on, multiplied by the increment factor.
    };

    /// No retry counted, and the defaults named below.
    Retriable();
    ~Retriable();
    Retriable(const Retriable&) = delete;
    Retriable& operator=(const Retriable&) = delete;

    /// Whether retries are enabled and some are left.
    bool canRetry() const;
    /// Counts a retry and lets the delay grow.
    void incrementRetries();
    /// Counts a retry and leaves the delay as it is.
    void incrementRetriesCount();
    /// Lets the delay grow as delayPolicy() says, at most to maxDelay(). Fractions of a second are dropped.
    void incrementDelay();
    /// Sets count and delay to 0.
    void resetRetries();
    /// Sets the count alone to 0.
    void resetRetriesCount();

    /// Retries counted so far.
    int retriesCount() const;
    /// How many retries are allowed; 10 by default. With 0 or less there is none.
    int maxRetriesCount() const;
    /// Sets how many retries are allowed; those counted so far stay counted.
    void setMaxRetriesCount(int maxRetriesCount);
    /// Whether there may be retries at all; true by default.
    bool retriesEnabled() const;
    /// Allows or forbids retries without touching the counters.
    void setRetriesEnabled(bool enabled);

    /// The delay before the next attempt; 0 at first.
    std::chrono::seconds retryDelay() const;
    /// Sets the delay, at most to maxDelay(). A negative delay counts as none where it is waited.
    void setDelay(int seconds);
    /// The same.
    void setDelay(std::chrono::seconds delay);

    /// The longest delay; 300 seconds by default.
    std::chrono::seconds maxDelay() const;
    /// Sets the longest delay. A current delay that is not above it is raised to it; one above it stays as it
    /// is.
    void setMaxDelay(int seconds);
    /// The same.
    void setMaxDelay(std::chrono::seconds maxDelay);

    /// DelayPolicy::Exponential by default.
    DelayPolicy delayPolicy() const;
    /// Counts from the next growth of the delay on.
    void setDelayPolicy(DelayPolicy policy);
    /// What Linear adds, in seconds, and Exponential multiplies by; 2.0 by default.
    double incrementFactor() const;
    /// Counts from the next growth of the delay on. Any number is taken: below 1, an exponential delay
    /// shrinks.
    void setIncrementFactor(double factor);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
