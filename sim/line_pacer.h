#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

namespace hxr::sim {

/// Bytes of UDP payload that a 10-gigabit line carries in a second: 152,142 datagrams of 8216 bytes.
inline constexpr double tenGigabitBytesPerSecond = 10e9 / 8.0;

/// Holds a sender to the pace of its line: a bucket that fills with time and holds at most one burst. One
/// thread.
class LinePacer {
  public:
    using Clock = std::chrono::steady_clock;

    /// @param bytesPerSecond  nothing: no pace at all
    /// @param burstBytes      what may leave in one go after a rest, or to make up for a sleep that ended
    ///                        late
    LinePacer(std::optional<double> bytesPerSecond, std::size_t burstBytes);

    /// Empties the bucket: from now on not even a first burst leaves ahead of its time.
    void startFresh();
    /// Takes room for bytes that are about to leave, and returns when they may.
    Clock::time_point take(std::size_t bytes);
    /// The same, and sleeps until then.
    void wait(std::size_t bytes);

  private:
    const std::optional<double> bytesPerSecond_;
    const Clock::duration burst_;
    Clock::time_point lineFree_;
};

/// Lets this thread's sleeps end on time instead of the 50 microseconds that the system allows itself.
void sleepPrecisely();

}  // namespace hxr::sim
