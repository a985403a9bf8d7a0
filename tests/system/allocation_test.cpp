// This program makes chosen allocations fail, wherever in it they are asked for.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>

#include "support/installation.h"

namespace {

/// Allocations of the armed thread that still succeed; below 0 all do.
thread_local long allocationsLeft = -1;

bool denied() {
    if (allocationsLeft < 0) return false;
    if (allocationsLeft == 0) return true;
    --allocationsLeft;
    return false;
}

void* allocate(std::size_t bytes, std::size_t alignment) noexcept {
    if (denied()) return nullptr;
    const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
    return std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
}

void* allocateOrThrow(std::size_t bytes, std::size_t alignment) {
    void* block = allocate(bytes, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

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

namespace hxr {
namespace {

class Allocation : public test::Installation {};

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TEST_F(Allocation, FailuresNeverCrossTheInterface) {
    startUnit();
    const std::string host = test::hostAddress(), unit = test::unitAddress();
    // The first connect fills the cache, so that the others are short.
    ASSERT_EQ(connect(), hxrNoError);
    hxrCloseDevice(handle);
    const std::size_t descriptorsBefore = openDescriptors();

    HXRStatus status = hxrMemoryAllocationErr;
    long granted = 0;
    for (; status == hxrMemoryAllocationErr; ++granted) {
        ASSERT_LT(granted, 2000);
        int opened = -1;
        allocationsLeft = granted;
        status = hxrConnectDevice(&opened, host.c_str(), unit.c_str(), test::controlPort);
        allocationsLeft = -1;
        EXPECT_EQ(api::deviceTable().find(0) != nullptr, status >= 0);
        EXPECT_EQ(opened == 0, status >= 0);
        if (status < 0) {
            EXPECT_EQ(openDescriptors(), descriptorsBefore) << granted;
        }
    }
    EXPECT_EQ(status, hxrNoError);
    EXPECT_GT(granted, 50);  // as many as a connect makes, so every one of them has failed once

    allocationsLeft = 0;
    EXPECT_EQ(hxrSetFanEnabled(0, 1), hxrMemoryAllocationErr);
    EXPECT_EQ(hxrSetLowPowerState(0), hxrMemoryAllocationErr);
    EXPECT_EQ(hxrPairDevice(0, host.c_str(), unit.c_str(), test::controlPort), hxrMemoryAllocationErr);
    allocationsLeft = -1;
}

}  // namespace
}  // namespace hxr
