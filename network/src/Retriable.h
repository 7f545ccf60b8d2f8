#pragma once

#include "orv_network_export.h"

#include <chrono>
#include <memory>

namespace orv {

/// Counts the attempts of an operation and computes the growing delay to wait before the next one.
///
/// A mix-in that only stores and computes; the class that runs the operation also waits and resets. All
/// arithmetic saturates: no factor, delay or maximum overflows. An object is used from one thread at a time.
class ORV_NETWORK_EXPORT Retriable
{
public:
    /// How the delay grows from one attempt to the next.
    enum class DelayPolicy : int {
        None = 0,        ///< No delay.
        Linear = 1,      ///< The increment factor is added, in seconds.
        Exponential = 2, ///< One second at first, then multiplied by the increment factor.
    };

    /// A counter at 0, with the defaults that are stated below.
    Retriable();
    ~Retriable();
    Retriable(const Retriable&) = delete;
    Retriable& operator=(const Retriable&) = delete;

    /// Whether retries are enabled and fewer than maxRetriesCount() have been counted.
    bool canRetry() const;
    /// incrementRetriesCount() and incrementDelay().
    void incrementRetries();
    /// Counts a retry; the delay stays as it is.
    void incrementRetriesCount();
    /// Computes the next delay by delayPolicy(), at most maxDelay(). Fractions of a second are truncated.
    void incrementDelay();
    /// The delay that incrementDelay() would set.
    std::chrono::seconds nextDelay() const;
    /// Sets retriesCount() and retryDelay() to 0.
    void resetRetries();
    /// Sets retriesCount() to 0; the delay stays as it is.
    void resetRetriesCount();

    /// The number of retries that have been counted since the last reset.
    int retriesCount() const;
    /// How many retries are allowed; 10 by default. 0 and negative values allow none.
    int maxRetriesCount() const;
    /// Retries that have already been counted still count.
    void setMaxRetriesCount(int maxRetriesCount);
    /// Whether any retries are allowed; true by default.
    bool retriesEnabled() const;
    /// Changes neither the number of retries nor the delay.
    void setRetriesEnabled(bool enabled);

    /// The delay before the next attempt, in whole seconds; 0 at first.
    std::chrono::seconds retryDelay() const;
    /// Sets the delay in seconds; a value above maxDelay() is replaced by it. NetworkTask does not wait for a
    /// negative delay.
    void setDelay(int seconds);
    /// As setDelay(int), for a duration.
    void setDelay(std::chrono::seconds delay);

    /// The longest delay; 300 seconds by default.
    std::chrono::seconds maxDelay() const;
    /// Sets the longest delay in seconds. A current delay up to the new value is raised to it; a longer one
    /// stays as it is.
    void setMaxDelay(int seconds);
    /// As setMaxDelay(int), for a duration.
    void setMaxDelay(std::chrono::seconds maxDelay);

    /// How incrementDelay() computes the next delay; DelayPolicy::Exponential by default.
    DelayPolicy delayPolicy() const;
    /// Takes effect with the next incrementDelay(); the current delay stays as it is.
    void setDelayPolicy(DelayPolicy policy);
    /// What Linear adds, in seconds, and Exponential multiplies by; 2.0 by default.
    double incrementFactor() const;
    /// Takes effect with the next incrementDelay(). Any number is allowed; with one below 1 an exponential
    /// delay becomes shorter.
    void setIncrementFactor(double factor);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
