/// Processor time of this program's threads, told apart by what they do in a sweep.
#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace hxr::bench {

enum class ThreadWork : std::size_t {
    receive,    ///< from the socket into the ring
    transform,  ///< from the ring into the trace
    caller,     ///< queues the packets and copies the trace out
    unit,       ///< plays the receiver
};

/// The driver and the simulated unit name their threads; what has another name is the caller.
inline ThreadWork workOfThread(std::string_view name) {
    if (name == "HXR Receive" || name == "Sweep USB Threa") return ThreadWork::receive;
    if (name == "Sweep Work Thre") return ThreadWork::transform;
    return name.starts_with("hxr-sim") ? ThreadWork::unit : ThreadWork::caller;
}

/// Seconds of processor time.
struct ThreadTimes {
    double& of(ThreadWork work) { return seconds[static_cast<std::size_t>(work)]; }
    double of(ThreadWork work) const { return seconds[static_cast<std::size_t>(work)]; }
    double host() const {
        return of(ThreadWork::receive) + of(ThreadWork::transform) + of(ThreadWork::caller);
    }

    std::array<double, 4> seconds{};
};

/// What each has worked between two moments, for one of `count`.
inline ThreadTimes meanBetween(const ThreadTimes& before, const ThreadTimes& after, double count) {
    ThreadTimes times;
    for (std::size_t i = 0; i < times.seconds.size(); ++i)
        times.seconds[i] = (after.seconds[i] - before.seconds[i]) / count;
    return times;
}

/// Times since the threads began; a difference is of use while the same threads live.
inline ThreadTimes threadTimes() {
    ThreadTimes times;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        double nanoseconds = 0;
        if (!(std::ifstream(thread.path() / "schedstat") >> nanoseconds))
            throw std::runtime_error("this system doesn't tell the processor time of threads");
        times.of(workOfThread(name)) += nanoseconds * 1e-9;
    }
    return times;
}

}  // namespace hxr::bench
