#include "sim/named_thread.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace hxr::sim {

std::thread startThread(const std::string& name, std::function<void()> work) {
    constexpr std::size_t longestName = 15;
    // A new thread takes over the signal mask of the one that makes it.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread;
    try {
        thread = std::thread(std::move(work));
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_setname_np(thread.native_handle(), name.substr(0, longestName).c_str());
    return thread;
}

}  // namespace hxr::sim
