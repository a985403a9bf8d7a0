#pragma once

#include <string_view>

namespace hxr::bench {

/// Allocations by operator new in this program while it is told to count.
struct Allocations {
    long ours, theirs;
};

/// Counts from now on.
///
/// @param theirs  whether a thread of that name is the simulated unit's rather than the driver's or the caller's; must
///                not allocate
void countAllocations(bool (*theirs)(std::string_view threadName));

/// Ends the count.
Allocations takeAllocations();

}  // namespace hxr::bench
