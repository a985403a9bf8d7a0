/// What this process holds of the system, to tell what a call has left behind.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

namespace hxr::test {

inline std::size_t entriesOf(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

inline std::size_t openDescriptors() { return entriesOf("/proc/self/fd"); }

inline std::size_t threads() { return entriesOf("/proc/self/task"); }

/// Threads of this process; one that was joined may stay on the list for a moment.
inline std::size_t threads(std::size_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (threads() != expected && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    return threads();
}

}  // namespace hxr::test
