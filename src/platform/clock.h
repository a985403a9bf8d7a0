/// Time as the driver sees it: a seam, so that a test need not sit through a pause or a time-out.
#pragma once

#include <chrono>
#include <cstdint>

namespace hxr::platform {

/// Wall clock, monotonic count, pauses and the length of time-outs. All operations may be called from any
/// thread.
class Clock {
  public:
    virtual ~Clock() = default;

    /// Milliseconds of a count that never goes back; its zero means nothing.
    virtual std::uint64_t monotonicMs() const = 0;

    /// Seconds since 1970-01-01 00:00:00 UTC.
    virtual std::int64_t utcSeconds() const = 0;

    /// Lets the calling thread rest for `pause`.
    virtual void sleep(std::chrono::milliseconds pause) = 0;

    /// How long a wait that is told to last `nominal` at most really lasts at most.
    virtual std::chrono::milliseconds timeout(std::chrono::milliseconds nominal) const = 0;
};

/// The clock of the machine: pauses and time-outs last as long as they say.
Clock& systemClock();

/// A date and time of day in UTC.
struct UtcTime {
    int year, month, day;  ///< month 1 to 12, day 1 to 31
    int hour, minute, second;
};

/// Seconds since 1970 of a UTC date and time; fields beyond their range carry over.
std::int64_t secondsSince1970(const UtcTime& time);

/// Seconds since 1970 at 00:00:00 UTC of the day in which `seconds` lies.
std::int64_t startOfDay(std::int64_t seconds);

}  // namespace hxr::platform
