/// A swept spectrum, what several of them make together, and how it is written down.
#pragma once

#include <cstddef>
#include <ostream>
#include <span>
#include <string>
#include <vector>

/// Levels over frequency.
struct Trace {
    double startHz = 0, binHz = 0, rbwHz = 0, vbwHz = 0;
    std::vector<float> levels;

    double frequency(double point) const { return startHz + point * binHz; }
    double stopHz() const { return frequency(static_cast<double>(levels.size())); }
    /// The point nearest to a frequency.
    std::size_t pointAt(double hz) const;
    /// What lies in a width around a frequency, altogether, of levels in dBm.
    double power(double hz, double width) const;
};

/// What the sweeps of a row make together.
enum class Hold { last, highest, lowest, average };

/// Takes sweep after sweep into one trace.
class Holder {
  public:
    /// @param inDecibels  the levels are, so that their average is one of powers
    Holder(Hold hold, bool inDecibels) : hold_(hold), inDecibels_(inDecibels) {}

    void take(std::span<const float> sweep, std::vector<float>& levels);

  private:
    const Hold hold_;
    const bool inDecibels_;
    int taken_ = 0;
    std::vector<double> sums_;
};

/// The highest point of each of so many parts of equal width, as indices; all points if there are fewer.
std::vector<std::size_t> highestOfParts(std::span<const float> levels, std::size_t parts);

/// Two columns: frequency in Hz and level, the highest point of each of `parts` parts.
void writeColumns(std::ostream& out, const Trace& trace, std::size_t parts);

/// Lines of: date, time, lower edge, upper edge, step in Hz, sweeps in it, levels. Each holds a few thousand points of one
/// sweep, which is the form that the survey programs of small receivers write.
void writeCsv(std::ostream& out, const Trace& trace, int sweeps);

/// A spectrum as lines of text, 100 dB below the reference level high.
/// @param columns, rows  characters of the terminal, at least 30 and 6
std::string drawSpectrum(const Trace& trace, double refLevel, std::size_t columns, std::size_t rows);

/// A frequency with the prefix that suits it, such as 2.45 GHz.
std::string hertzText(double hz, int digits = 9);
