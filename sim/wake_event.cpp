#include "sim/wake_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace hxr::sim {

WakeEvent::WakeEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "no event descriptor");
}

WakeEvent::~WakeEvent() { close(descriptor_); }

void WakeEvent::raise() {
    const std::uint64_t one = 1;
    // A full counter means that the event is up.
    [[maybe_unused]] const ssize_t written = write(descriptor_, &one, sizeof one);
}

bool WakeEvent::sleep(std::chrono::nanoseconds time) const {
    pollfd waiting{descriptor_, POLLIN, 0};
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const timespec timeout{seconds.count(), (time - seconds).count()};
    return ppoll(&waiting, 1, &timeout, nullptr) > 0;
}

}  // namespace hxr::sim
