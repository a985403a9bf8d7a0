#include "peaks.h"

#include <algorithm>

namespace {

/// All places that rise and fall by an excursion.
std::vector<std::size_t> excursions(std::span<const float> levels, float excursion) {
    std::vector<std::size_t> peaks;
    if (levels.empty()) return peaks;
    std::size_t highest = 0;
    float lowest = levels[0];
    bool rising = true;  // a line may stand at the very edge
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if (rising) {
            if (levels[i] > levels[highest]) highest = i;
            lowest = std::min(lowest, levels[i]);
            if (levels[i] <= levels[highest] - excursion) {
                peaks.push_back(highest);
                rising = false;
                lowest = levels[i];
            }
        } else {
            lowest = std::min(lowest, levels[i]);
            rising = levels[i] >= lowest + excursion;
            if (rising) highest = i;
        }
    }
    // At the upper edge it has risen, but need not have fallen.
    if (rising && levels[highest] >= lowest + excursion) peaks.push_back(highest);
    return peaks;
}

}  // namespace

std::vector<std::size_t> findPeaks(std::span<const float> levels, double excursionDb, double leastDb,
                                   std::size_t apart) {
    std::vector<std::size_t> found = excursions(levels, static_cast<float>(excursionDb));
    std::erase_if(found, [&](std::size_t place) { return double{levels[place]} < leastDb; });
    std::ranges::sort(found, [&](std::size_t a, std::size_t b) { return levels[a] > levels[b]; });

    std::vector<std::size_t> peaks;
    for (const std::size_t place : found) {
        const auto near = [&](std::size_t other) {
            return (place > other ? place - other : other - place) < apart;
        };
        if (std::ranges::none_of(peaks, near)) peaks.push_back(place);
    }
    return peaks;
}

double middleOfLine(std::span<const float> levels, std::size_t peak) {
    constexpr float top = 3;
    const float least = levels[peak] - top;
    std::size_t first = peak, last = peak;
    while (first > 0 && levels[first - 1] > least) --first;
    while (last + 1 < levels.size() && levels[last + 1] > least) ++last;
    return 0.5 * static_cast<double>(first + last);
}
