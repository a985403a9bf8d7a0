// Time that the response filters of a whole-range sweep take to design: 519 of them, in one hxrInitiate.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "cal/correction_lookup.h"
#include "cal/response_filter.h"
#include "dsp/instruction_set.h"
#include "sim/synthetic_image.h"

int main() {
    using namespace hxr;
    constexpr int filters = 519;
    constexpr int rounds = 20;
    constexpr int lastFrequency = 513;

    dspInitialise();
    const auto bytes = sim::makeSyntheticImage({});
    CorrectionState state;
    state.image = platform::makeAligned<HXRCalData>();
    std::memcpy(state.image.get(), bytes.data(), bytes.size());
    updateTemperature(state, 37.0F);

    double best = 1e9;
    double gains = 0;
    for (int round = 0; round < rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < filters; ++i) {
            const int k = std::min(i, lastFrequency);
            gains += buildResponseFilter(state, k > 200, 0, 0.0, k).gainDb;
        }
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
        best = std::min(best, time.count());
    }
    std::printf("%d response filters in %.2f ms, %.1f us each (mean gain %.2f dB)\n", filters, best,
                1e3 * best / filters, gains / filters / rounds);
    return 0;
}
