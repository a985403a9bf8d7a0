/// What the generator can be given to play: one turn of something that goes round without a seam.
#pragma once

#include <complex>
#include <cstddef>
#include <string>
#include <vector>

namespace tools {

using Pattern = std::vector<std::complex<double>>;

/// The generator's samples a second, and the most that it holds.
inline constexpr double patternRate = 125e6;
inline constexpr std::size_t longestPattern = 4096;

/// What a named pattern is made of.
struct PatternForm {
    std::string name = "carrier";  ///< one of `patternNames`
    double offsetHz = 0;           ///< of all of it
    double depth = 0.5;            ///< of AM
    double soundHz = 1e6;          ///< of AM and FM
    double deviationHz = 2e6;      ///< of FM; of a chirp, half its width
    double symbolRate = 7.8125e6;  ///< of BPSK, QPSK and 16QAM
};

inline const std::vector<std::string> patternNames{"carrier", "two-tone", "am",    "fm",
                                                   "bpsk",    "qpsk",     "16qam", "chirp"};

/// Makes a pattern whose highest sample has the amplitude 1. Frequencies are rounded so that they go round, in steps of
/// 30.5 kHz, symbol rates so that a symbol takes a power of two of samples.
Pattern makePattern(const PatternForm& form);

/// Reads complex samples, I then Q, from a file: floats with full scale 1, or integers of 16 bits.
/// @throws std::runtime_error if it can't be read, or is no multiple of 16 samples from 16 to 4096
Pattern readPattern(const std::string& path, bool floats);

double meanPower(const Pattern& pattern);

/// Plays a pattern, the right way round, at the frequency and level that are set. Takes effect with the next hxrInitiate.
void setPattern(int handle, const Pattern& pattern);

}  // namespace tools
