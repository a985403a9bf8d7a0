// Counts what each thread allocates, wherever in this program it asks.

#include <cstdlib>
#include <new>

#include "dsp_test.h"

namespace {

thread_local long blocks = 0;

void* allocate(std::size_t bytes, std::size_t alignment) noexcept {
    ++blocks;
    return std::aligned_alloc(alignment, (bytes / alignment + 1) * alignment);
}

void* allocateOrThrow(std::size_t bytes, std::size_t alignment) {
    void* block = allocate(bytes, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

long hxr::allocations() { return blocks; }

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are the allocation functions
void* operator new(std::size_t bytes) { return allocateOrThrow(bytes, alignof(std::max_align_t)); }
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return allocateOrThrow(bytes, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(bytes, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
// NOLINTEND(cppcoreguidelines-no-malloc)
