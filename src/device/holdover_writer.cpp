#include "device/holdover_writer.h"

namespace hxr {

HoldoverWriter::HoldoverWriter(const CalFolder& folder)
    : folder_(folder), thread_("HXR Holdover", platform::ThreadPriority::normal, [this] { run(); }) {}

HoldoverWriter::~HoldoverWriter() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void HoldoverWriter::write(std::uint32_t serialNumber, const HoldoverRecord& record) {
    const std::lock_guard lock(mutex_);
    pending_ = {serialNumber, record};
    changed_.notify_all();
}

void HoldoverWriter::flush() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !pending_ && !writing_; });
}

void HoldoverWriter::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return pending_ || ending_; });
        if (!pending_) return;
        const Pending next = *pending_;
        pending_.reset();
        writing_ = true;
        lock.unlock();
        writeHoldoverRecord(folder_, next.serialNumber, next.record);
        lock.lock();
        writing_ = false;
        changed_.notify_all();
    }
}

}  // namespace hxr
