#include "sim/sync_line.h"

namespace hxr::sim {

std::uint64_t SyncLine::starts() const {
    const std::lock_guard lock(mutex_);
    return starts_;
}

void SyncLine::start(const StreamStart& start) {
    const std::lock_guard lock(mutex_);
    latest_ = start;
    ++starts_;
}

std::optional<StreamStart> SyncLine::startAfter(std::uint64_t starts) const {
    const std::lock_guard lock(mutex_);
    if (starts_ <= starts) return std::nullopt;
    return latest_;
}

}  // namespace hxr::sim
