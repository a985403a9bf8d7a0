// Allocation functions that count and, where they are told, fail, wherever in the program they are asked.

#include "support/allocation.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

using hxr::test::ThreadFilter;

constexpr long unlimited = std::numeric_limits<long>::max();

thread_local long asked = 0;
thread_local long lastGranted = unlimited;  ///< counted as `asked` is

std::atomic<ThreadFilter> starved = nullptr, countedApart = nullptr;
std::atomic<long> ours = 0, theirs = 0;

bool isAmong(ThreadFilter threads) {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return threads(name.data());
}

void* allocate(std::size_t bytes, std::size_t alignment) noexcept {
    if (++asked > lastGranted) return nullptr;
    if (const auto threads = starved.load(); threads != nullptr && isAmong(threads)) return nullptr;
    if (const auto threads = countedApart.load(); threads != nullptr) ++(isAmong(threads) ? theirs : ours);
    return std::aligned_alloc(alignment, (bytes / alignment + 1) * alignment);
}

void* allocateOrThrow(std::size_t bytes, std::size_t alignment) {
    void* block = allocate(bytes, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

long hxr::test::allocations() { return asked; }

void hxr::test::grantAllocations(long count) { lastGranted = asked + count; }

void hxr::test::grantAllAllocations() { lastGranted = unlimited; }

void hxr::test::starve(ThreadFilter threads) { starved = threads; }

void hxr::test::countAllocations(ThreadFilter apart) {
    ours = theirs = 0;
    countedApart = apart;
}

hxr::test::Allocations hxr::test::takeAllocations() {
    countedApart = nullptr;
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
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
// NOLINTEND(cppcoreguidelines-no-malloc)
