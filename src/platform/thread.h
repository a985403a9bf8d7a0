/// A thread of the library's own: named, with a priority, deaf to signals, joined by its owner.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace hxr::platform {

enum class ThreadPriority {
    normal,
    timeCritical,  ///< real time at a low level where the system permits it, silently normal where not
};

/// Runs one function on a thread of its own. The application's signals are never delivered to that thread.
class Thread {
  public:
    Thread() = default;

    /// @param name      shown by debuggers and process lists, cut to what the system allows
    /// @throws std::system_error if the system has no thread to give
    Thread(const std::string& name, ThreadPriority priority, std::function<void()> body);

    ~Thread() { join(); }
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&& other) noexcept;

    bool joinable() const { return thread_.joinable(); }

    /// Waits for the thread's end; returns at once if there is none.
    void join();

  private:
    std::thread thread_;
};

}  // namespace hxr::platform
