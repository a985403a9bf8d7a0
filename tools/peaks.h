#pragma once

#include <cstddef>
#include <span>
#include <vector>

/// Places of the lines in a trace of levels in dB, strongest first.
///
/// A line stands `excursionDb` above what lies between it and the next stronger one on either side, and at or above
/// `leastDb`. Of lines closer together than `apart` points the strongest counts.
std::vector<std::size_t> findPeaks(std::span<const float> levels, double excursionDb, double leastDb,
                                   std::size_t apart);

/// The middle of the points around a peak that are less than 3 dB below it, counted in points.
double middleOfLine(std::span<const float> levels, std::size_t peak);
