/// The buffers of the signal operations: aligned to 64 bytes, for speed only; every operation takes any
/// pointer that is aligned to its element.
#pragma once

#include <cstdint>

#include "platform/aligned_memory.h"

namespace hxr {

/// A block of `bytes` bytes aligned to 64 bytes, its contents undefined.
/// @return null if `bytes` is below 1 or memory is short
[[nodiscard]] inline void* dspAlloc(std::int64_t bytes) noexcept {
    return bytes < 1 ? nullptr : platform::alignedAllocate(static_cast<std::size_t>(bytes));
}

/// Frees a block of `dspAlloc`; null is allowed.
inline void dspFree(void* block) noexcept { platform::alignedFree(block); }

}  // namespace hxr
