#include "sim/line_pacer.h"

#include <sys/prctl.h>

#include <algorithm>
#include <thread>

namespace hxr::sim {
namespace {

LinePacer::Clock::duration timeFor(double bytes, std::optional<double> bytesPerSecond) {
    if (!bytesPerSecond) return {};
    const std::chrono::duration<double> time(bytes / *bytesPerSecond);
    return std::chrono::duration_cast<LinePacer::Clock::duration>(time);
}

}  // namespace

LinePacer::LinePacer(std::optional<double> bytesPerSecond, std::size_t burstBytes)
    : bytesPerSecond_(bytesPerSecond),
      burst_(timeFor(static_cast<double>(burstBytes), bytesPerSecond)),
      lineFree_(Clock::now() - burst_) {}

void LinePacer::startFresh() { lineFree_ = Clock::now(); }

LinePacer::Clock::time_point LinePacer::take(std::size_t bytes) {
    const auto now = Clock::now();
    if (!bytesPerSecond_) return now;
    lineFree_ = std::max(lineFree_, now - burst_) + timeFor(static_cast<double>(bytes), bytesPerSecond_);
    return std::max(now, lineFree_);
}

void LinePacer::wait(std::size_t bytes) {
    const auto due = take(bytes);
    if (due > Clock::now()) std::this_thread::sleep_until(due);
}

void sleepPrecisely() { prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); }

}  // namespace hxr::sim
