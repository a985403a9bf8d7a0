#include "counted_allocations.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool (*)(std::string_view)> isTheirs = nullptr;
std::atomic<long> ours = 0, theirs = 0;

void count() {
    const auto decide = isTheirs.load();
    if (decide == nullptr) return;
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    ++(decide(name.data()) ? theirs : ours);
}

void* allocate(std::size_t bytes, std::size_t alignment) noexcept {
    count();
    return std::aligned_alloc(alignment, (bytes / alignment + 1) * alignment);
}

void* allocateOrThrow(std::size_t bytes, std::size_t alignment) {
    void* block = allocate(bytes, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

void hxr::bench::countAllocations(bool (*theirThread)(std::string_view threadName)) {
    ours = theirs = 0;
    isTheirs = theirThread;
}

hxr::bench::Allocations hxr::bench::takeAllocations() {
    isTheirs = nullptr;
    return {ours, theirs};
}

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
// NOLINTEND(cppcoreguidelines-no-malloc)
