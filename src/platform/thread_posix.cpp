#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <utility>

#include "platform/thread.h"

namespace hxr::platform {
namespace {

// Above every normal thread and below whatever the machine's owner runs at real time on purpose.
constexpr int lowRealTimeLevel = 5;

constexpr std::size_t longestThreadName = 15;

/// While it lives, every signal is blocked on the calling thread; a thread made meanwhile inherits that for
/// good.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_;
};

void describeThisThread(const std::string& name, ThreadPriority priority) {
    pthread_setname_np(pthread_self(), name.c_str());
    if (priority == ThreadPriority::timeCritical) {
        sched_param level{};
        level.sched_priority = lowRealTimeLevel;
        pthread_setschedparam(pthread_self(), SCHED_FIFO, &level);  // not permitted: it stays normal
    }
}

}  // namespace

Thread::Thread(const std::string& name, ThreadPriority priority, std::function<void()> body) {
    const SignalsBlocked blocked;
    thread_ = std::thread([shortName = name.substr(0, longestThreadName), priority, run = std::move(body)] {
        describeThisThread(shortName, priority);
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
