#pragma once

#include <cstddef>
#include <vector>

#include "link/status_record.h"

namespace hxr::test {

/// A status datagram of a unit, field by field; as it begins, its clocks are aligned and all else is zero.
class StatusDatagram {
  public:
    StatusDatagram() : bytes_(320) { put32(0, 0x52000050).put16(290, 0x0F00); }

    StatusDatagram& put8(std::size_t offset, unsigned value) {
        bytes_[offset] = static_cast<std::byte>(value);
        return *this;
    }
    StatusDatagram& put16(std::size_t offset, unsigned value) {
        return put8(offset, value).put8(offset + 1, value >> 8);
    }
    StatusDatagram& put32(std::size_t offset, unsigned value) {
        return put16(offset, value & 0xFFFF).put16(offset + 2, value >> 16);
    }
    StatusDatagram& resize(std::size_t size) {
        bytes_.resize(size);
        return *this;
    }

    /// A fix that is just good enough to steer a timebase by.
    StatusDatagram& goodFix() { return put8(39, 7).put8(51, 1).put32(40, 249); }
    /// The unit steers its timebase itself and has brought it to `dac`.
    StatusDatagram& disciplined(unsigned dac) { return goodFix().put32(308, 0x200).put16(288, dac); }

    const std::vector<std::byte>& bytes() const { return bytes_; }
    StatusRecord record() const { return StatusRecord(bytes_); }

  private:
    std::vector<std::byte> bytes_;
};

}  // namespace hxr::test
