/// Times two ways of doing the same work in one run: the two take turns, so that both meet the same clock and
/// the same neighbours on the machine, and of all turns each keeps its best.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace hxr::bench {

struct Times {
    double ours, theirs;  ///< seconds a call
    double ratio() const { return ours / theirs; }
};

template <typename Work>
double secondsPerCall(Work&& work, int calls) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / calls;
}

template <typename Ours, typename Theirs>
Times sideBySide(Ours&& ours, Theirs&& theirs, int turns = 60, double secondsPerTurn = 0.002) {
    const double first = std::max(secondsPerCall(ours, 3), secondsPerCall(theirs, 3));
    const int calls = std::max(1, static_cast<int>(secondsPerTurn / first));
    Times best = {1e9, 1e9};
    for (int turn = 0; turn < turns; ++turn) {
        best.ours = std::min(best.ours, secondsPerCall(ours, calls));
        best.theirs = std::min(best.theirs, secondsPerCall(theirs, calls));
    }
    return best;
}

}  // namespace hxr::bench
