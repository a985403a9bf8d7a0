#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "device/holdover_record.h"
#include "platform/thread.h"

namespace hxr {

/// Writes a unit's holdover record on a thread of its own: whoever reads a status, perhaps on a time-critical thread,
/// never waits for a disk.
class HoldoverWriter {
  public:
    /// @throws std::system_error
    explicit HoldoverWriter(const CalFolder& folder);

    /// Writes what is still to be written.
    ~HoldoverWriter();
    HoldoverWriter(const HoldoverWriter&) = delete;
    HoldoverWriter& operator=(const HoldoverWriter&) = delete;

    /// Has a record written. One that waits is replaced. May be called from any thread.
    void write(std::uint32_t serialNumber, const HoldoverRecord& record);

    /// Waits until all that was to be written is.
    void flush();

  private:
    struct Pending {
        std::uint32_t serialNumber;
        HoldoverRecord record;
    };

    void run();

    const CalFolder& folder_;
    std::mutex mutex_;  ///< guards the next three
    std::condition_variable changed_;
    std::optional<Pending> pending_;
    bool writing_ = false;
    bool ending_ = false;
    platform::Thread thread_;
};

}  // namespace hxr
