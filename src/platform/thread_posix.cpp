#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "platform/signals_posix.h"
#include "platform/thread.h"

namespace hxr::platform {
namespace {

// Above every normal thread and below whatever the machine's owner runs at real time on purpose.
constexpr int lowRealTimeLevel = 5;

constexpr std::size_t longestThreadName = 15;

/// What the system call takes; the C library has neither the call nor the record.
struct SchedulingAttributes {
    std::uint32_t size;
    std::uint32_t policy;
    std::uint64_t flags;
    std::int32_t nice;
    std::uint32_t priority;
    std::uint64_t sliceNs, deadlineNs, periodNs;
};

/// Lets the calling thread's pauses end on time, and gives it real time at a low level. Where that isn't
/// permitted it asks for short time slices instead, for which the scheduler lets a thread in ahead of those
/// that run for longer.
void becomeTimeCritical() {
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    sched_param level{};
    level.sched_priority = lowRealTimeLevel;
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &level) == 0) return;

    constexpr std::uint64_t shortSliceNs = 100'000;
    SchedulingAttributes normal{};
    normal.size = sizeof normal;
    normal.policy = SCHED_OTHER;
    normal.nice = ::getpriority(PRIO_PROCESS, 0);  // of the calling thread; kept
    normal.sliceNs = shortSliceNs;
    ::syscall(SYS_sched_setattr, 0, &normal, 0U);  // a system that doesn't know slices ignores or refuses it
}

}  // namespace

Thread::Thread(const std::string& name, ThreadPriority priority, std::function<void()> body) {
    const SignalsBlocked blocked;
    thread_ = std::thread([shortName = name.substr(0, longestThreadName), priority, run = std::move(body)] {
        pthread_setname_np(pthread_self(), shortName.c_str());
        if (priority == ThreadPriority::timeCritical) becomeTimeCritical();
        run();
    });
}

Thread& Thread::operator=(Thread&& other) noexcept {
    join();
    thread_ = std::move(other.thread_);
    return *this;
}

void Thread::join() {
    if (thread_.joinable()) thread_.join();
}

}  // namespace hxr::platform
