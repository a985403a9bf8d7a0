#include "sweep/window.h"

#include <cmath>
#include <numbers>
#include <vector>

#include "dsp/vector.h"

namespace hxr {
namespace {

/// The k-th term's cosine, of an angle made in double precision and rounded: the window is defined by
/// single-precision cosines.
double cosine(int k, double a) { return double{std::cos(static_cast<float>(2.0 * k * a))}; }

double flatTop(double a) {
    return 1.0 - 1.93 * cosine(1, a) + 1.29 * cosine(2, a) - 0.388 * cosine(3, a) + 0.028 * cosine(4, a);
}

double nuttall(double a) {
    return 0.355768 - 0.487396 * cosine(1, a) + 0.144232 * cosine(2, a) - 0.012604 * cosine(3, a);
}

/// The approximate confined Gaussian of sigma = 0.1 of the length. Its three constant terms stand at the
/// whole numbers 0, N - 1 and -N.
class ConfinedGaussian {
  public:
    explicit ConfinedGaussian(double length)
        : length_(length),
          centre_((length - 1.0) / 2.0),
          spread_(2.0 * (0.1 * length)),
          weight_(bell(0.0) / (bell(length - 1.0) + bell(-length))) {}

    double operator()(double i) const { return bell(i) - (bell(i + length_) + bell(i - length_)) * weight_; }

  private:
    double bell(double x) const {
        const double u = (x - centre_) / spread_;
        return std::exp(-(u * u));
    }

    double length_, centre_, spread_, weight_;
};

}  // namespace

void fillWindow(int kind, std::span<double> out) {
    const double length = static_cast<double>(out.size());
    const ConfinedGaussian gaussian(length);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double position = static_cast<double>(i);
        const double a = position * std::numbers::pi / (length - 1.0);
        out[i] = kind == windowConfinedGaussian ? gaussian(position)
                 : kind == windowNuttall        ? nuttall(a)
                                                : flatTop(a);
    }
}

void buildSweepWindow(int kind, int padding, std::span<cf32> out) {
    std::vector<double> window(out.size() - static_cast<std::size_t>(padding));
    fillWindow(kind, window);
    const int length = static_cast<int>(out.size());
    dspZero64(out.data(), length);
    for (std::size_t i = 0; i < window.size(); ++i) out[i].re = static_cast<float>(window[i]);
    cf32 sum = {};
    dspSumCf32(out.data(), length, &sum);
    // The gain and its products are single-precision numbers.
    const float gain = static_cast<float>(length) / sum.re;
    for (cf32& entry : out) entry.re *= gain;
}

}  // namespace hxr
