#pragma once

namespace hxr::test {

/// Allocations of the calling thread so far, failed ones among them. Only programs that are built with
/// `allocation.cpp` count them.
long allocations();

/// From now on so many further allocations of the calling thread succeed.
void grantAllocations(long count);

/// Ends the limit of `grantAllocations`.
void grantAllAllocations();

}  // namespace hxr::test
