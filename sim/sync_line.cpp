#include "sim/sync_line.h"

#include <utility>

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

void SyncLine::play(const void* generator, std::shared_ptr<const Source> output) {
    const std::lock_guard lock(mutex_);
    if (output) {
        played_[generator] = std::move(output);
    } else {
        played_.erase(generator);
    }
}

std::vector<std::shared_ptr<const Source>> SyncLine::played() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<const Source>> sources;
    for (const auto& [generator, output] : played_) sources.push_back(output);
    return sources;
}

}  // namespace hxr::sim
