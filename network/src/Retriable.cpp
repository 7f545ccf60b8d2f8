#include "Retriable.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orv {

struct Retriable::Private
{
    std::chrono::seconds delay{0};
    std::chrono::seconds maxDelay{300};
    bool retriesEnabled = true;
    int retriesCount = 0;
    int maxRetriesCount = 10;
    DelayPolicy delayPolicy = DelayPolicy::Exponential;
    double incrementFactor = 2.0;
};

namespace {

// Truncates toward zero; numbers out of range become the nearest int.
int saturatedInt(double number)
{
    if (std::isnan(number))
        return 0;
    constexpr double lowest = std::numeric_limits<int>::min();
    constexpr double highest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(number, lowest, highest));
}

} // namespace

Retriable::Retriable()
    : d(std::make_unique<Private>())
{
}

Retriable::~Retriable() = default;

bool Retriable::canRetry() const
{
    return d->retriesEnabled && d->retriesCount < d->maxRetriesCount;
}

void Retriable::incrementRetries()
{
    incrementRetriesCount();
    incrementDelay();
}

void Retriable::incrementRetriesCount()
{
    if (d->retriesCount < std::numeric_limits<int>::max())
        ++d->retriesCount;
}

void Retriable::incrementDelay()
{
    d->delay = nextDelay();
}

std::chrono::seconds Retriable::nextDelay() const
{
    const auto delay = static_cast<double>(d->delay.count());
    int next = 0;
    switch (d->delayPolicy) {
    case DelayPolicy::None:
        break;
    case DelayPolicy::Linear:
        next = saturatedInt(delay + d->incrementFactor);
        break;
    case DelayPolicy::Exponential:
        next = d->delay.count() == 0 ? 1 : saturatedInt(delay * d->incrementFactor);
        break;
    }
    return std::min(std::chrono::seconds(next), d->maxDelay);
}

void Retriable::resetRetries()
{
    d->retriesCount = 0;
    d->delay = std::chrono::seconds(0);
}

void Retriable::resetRetriesCount()
{
    d->retriesCount = 0;
}

int Retriable::retriesCount() const
{
    return d->retriesCount;
}

int Retriable::maxRetriesCount() const
{
    return d->maxRetriesCount;
}

void Retriable::setMaxRetriesCount(int maxRetriesCount)
{
    d->maxRetriesCount = maxRetriesCount;
}

bool Retriable::retriesEnabled() const
{
    return d->retriesEnabled;
}

void Retriable::setRetriesEnabled(bool enabled)
{
    d->retriesEnabled = enabled;
}

std::chrono::seconds Retriable::retryDelay() const
{
    return d->delay;
}

void Retriable::setDelay(int seconds)
{
    setDelay(std::chrono::seconds(seconds));
}

void Retriable::setDelay(std::chrono::seconds delay)
{
    d->delay = std::min(delay, d->maxDelay);
}

std::chrono::seconds Retriable::maxDelay() const
{
    return d->maxDelay;
}

void Retriable::setMaxDelay(int seconds)
{
    setMaxDelay(std::chrono::seconds(seconds));
}

void Retriable::setMaxDelay(std::chrono::seconds maxDelay)
{
    d->maxDelay = maxDelay;
    if (d->delay <= maxDelay)
        setDelay(maxDelay);
}

Retriable::DelayPolicy Retriable::delayPolicy() const
{
    return d->delayPolicy;
}

void Retriable::setDelayPolicy(DelayPolicy policy)
{
    d->delayPolicy = policy;
}

double Retriable::incrementFactor() const
{
    return d->incrementFactor;
}

void Retriable::setIncrementFactor(double factor)
{
    d->incrementFactor = factor;
}

} // namespace orv
