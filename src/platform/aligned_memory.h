/// Memory for large sample, datagram and image buffers, aligned to a cache line and a full vector register.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

namespace hxr::platform {

inline constexpr std::size_t bufferAlignment = 64;

/// A block of `bytes` bytes aligned to `bufferAlignment`, its contents undefined.
/// @return null if `bytes` is 0 or memory is short
[[nodiscard]] void* alignedAllocate(std::size_t bytes) noexcept;

/// Frees a block of `alignedAllocate`; null is allowed.
void alignedFree(void* block) noexcept;

struct AlignedDelete {
    void operator()(void* block) const noexcept { alignedFree(block); }
};

template <typename T>
using AlignedArray = std::unique_ptr<T[], AlignedDelete>;

/// An owned array of `count` elements whose contents are undefined.
/// @throws std::bad_alloc if memory is short
template <typename T>
AlignedArray<T> makeAlignedArray(std::size_t count) {
    static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_default_constructible_v<T>);
    void* block = alignedAllocate(count * sizeof(T));
    if (block == nullptr && count != 0) throw std::bad_alloc();
    return AlignedArray<T>(static_cast<T*>(block));
}

template <typename T>
using AlignedPointer = std::unique_ptr<T, AlignedDelete>;

/// One owned object whose contents are undefined.
/// @throws std::bad_alloc if memory is short
template <typename T>
AlignedPointer<T> makeAligned() {
    return AlignedPointer<T>(makeAlignedArray<T>(1).release());
}

}  // namespace hxr::platform
