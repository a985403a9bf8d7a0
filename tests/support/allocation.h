#pragma once

#include <string_view>

namespace hxr::test {

// Only programs that are built with `allocation.cpp` have these.

/// Allocations of the calling thread so far, failed ones among them.
long allocations();

/// From now on so many further allocations of the calling thread succeed.
void grantAllocations(long count);

/// Ends the limit of `grantAllocations`.
void grantAllAllocations();

/// Tells threads by their names; must not allocate.
using ThreadFilter = bool (*)(std::string_view threadName);

/// From now on nothing that these threads ask for succeeds; null ends it.
void starve(ThreadFilter threads);

/// Allocations in the whole program while it is told to count.
struct Allocations {
    long ours, theirs;
};

/// Counts from now on.
/// @param theirs  the threads that count apart: those of the simulated unit rather than the driver's or the caller's
void countAllocations(ThreadFilter theirs);

/// Ends the count.
Allocations takeAllocations();

}  // namespace hxr::test
