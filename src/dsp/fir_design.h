/// Design of windowed-sinc low-pass filters.
#pragma once

#include <span>

namespace hxr {

enum class FirWindow {
    blackman = 1,  ///< with alpha = -0.25 / cos^2(pi / (N - 1)): two taps vanish at either end
    rectangular = 4,
};

/// Fills `taps` with 2 c sinc(2 c (n - M)) w[n], M = (length - 1) / 2.
///
/// @param cutoff     c, between 0 and 0.5, as a fraction of the sample rate
/// @param taps       5 or more
/// @param normalise  divide by the absolute value of the sum, for a gain of 1 at DC
void firDesignLowpass(double cutoff, std::span<double> taps, FirWindow window, bool normalise);

/// The normalised design for a cut-off that is known in single precision. All filters of the instrument are
/// designed from such a cut-off: 0.45 is 0.449999988079071 here, and the words sent depend on it.
void designLowpass(float cutoff, std::span<double> taps, FirWindow window);

}  // namespace hxr
