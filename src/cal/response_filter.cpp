#include "cal/response_filter.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "cal/correction_lookup.h"
#include "cal/fixed_point.h"
#include "dsp/fft_real.h"
#include "dsp/fir_design.h"

namespace hxr {
namespace {

constexpr double pi = std::numbers::pi;

// The design works on 64 points, of which the calibration gives 26: bin b takes point b - 1.
constexpr int designOrder = 6;
constexpr std::size_t designPoints = 64;
constexpr std::size_t lastBin = 31;
constexpr std::size_t responsePoints = 26;

// The filter runs on a clock of 125 MHz; the ramp of a delay is laid over 31 bins.
constexpr double filterClock = 1.25e8;
constexpr double delayBins = 31.0;
constexpr double delayPhaseBins = 12.0;

constexpr int lastCalibratedFrequency = 510;
constexpr int firstFullGridFrequency = 144;
constexpr int lastSwappedFrequency = 24;

/// What the calibration says of a channel's IF response at one frequency.
struct Response {
    std::array<float, responsePoints> ratio;  ///< amplitude of the second rail over the first
    std::array<float, responsePoints> phase;  ///< of the second rail less that of the first, radians
    std::array<float, responsePoints> level;  ///< gain of both rails in dB
};

/// The row that serves a frequency index.
int responseRow(int k) {
    if (k == 1) return 0;
    return std::min(k, lastCalibratedFrequency);
}

template <typename Table>
std::array<float, responsePoints> rowAtTemperature(const CorrectionState& state, const Table& table,
                                                   int channel, int row) {
    const auto& lower = table[state.tempIndex][channel][row];
    const auto& upper = table[state.tempIndex + 1][channel][row];
    std::array<float, responsePoints> values;
    for (std::size_t p = 0; p < responsePoints; ++p) values[p] = atTemperature(state, lower[p], upper[p]);
    return values;
}

Response selectResponse(const CorrectionState& state, bool useFullGrid, int channel, int row) {
    const HXRCalData& image = *state.image;
    const auto select = [&](const auto& ratio, const auto& phase, const auto& level) {
        return Response{rowAtTemperature(state, ratio, channel, row),
                        rowAtTemperature(state, phase, channel, row),
                        rowAtTemperature(state, level, channel, row)};
    };
    if (!useFullGrid && row < firstFullGridFrequency) {
        return select(image.lowGridRatio, image.lowGridPhase, image.lowGridLevel);
    }
    return select(image.fullGridRatio, image.fullGridPhase, image.fullGridLevel);
}

/// The spectrum of 64 real values as the transforms pack it: bin 0, bin 32, then bins 1 to 31.
using PackedSpectrum = std::array<double, designPoints>;

/// One rail on its way from the prototype to its taps.
class Rail {
  public:
    explicit Rail(const PackedSpectrum& prototype) : spectrum_(prototype) {}

    void scaleDc(double factor) { spectrum_[0] *= factor; }

    void turnAndScale(std::size_t bin, double factor, double angle) {
        std::complex<double> value(spectrum_[2 * bin], spectrum_[2 * bin + 1]);
        value *= std::polar(1.0, angle);
        spectrum_[2 * bin] = value.real() * factor;
        spectrum_[2 * bin + 1] = value.imag() * factor;
    }

    /// The impulse response under a Hamming window.
    std::array<float, responseTapCount> taps(const FftPlanRealF64& plan, cf64* work) {
        fftInverseRealF64(spectrum_.data(), spectrum_.data(), plan, work);
        std::array<float, responseTapCount> values;
        for (std::size_t n = 0; n < values.size(); ++n) {
            const double window = 0.54 - 0.46 * std::cos(2 * pi * static_cast<double>(n) / 62.0);
            values[n] = static_cast<float>(spectrum_[n] * window);
        }
        return values;
    }

  private:
    PackedSpectrum spectrum_;
};

/// The low-pass that both rails start from.
PackedSpectrum prototypeSpectrum(const FftPlanRealF64& plan, cf64* work) {
    constexpr float cutoff = 0.45F;
    PackedSpectrum values{};
    designLowpass(cutoff, std::span(values).first(responseTapCount), FirWindow::rectangular);
    fftForwardRealF64(values.data(), values.data(), plan, work);
    return values;
}

/// Divides all taps by the largest, and tells what that does to the level.
double normalise(ResponseTaps& taps) {
    float largest = 0.0F;
    for (const TapPair& tap : taps) largest = std::max({largest, tap.first, tap.second});
    float sumFirst = 0.0F, sumSecond = 0.0F;
    for (TapPair& tap : taps) {
        tap.first /= largest;
        tap.second /= largest;
        sumFirst += tap.first;
        sumSecond += tap.second;
    }
    return -20.0 * std::log10(std::sqrt(sumFirst * sumFirst + sumSecond * sumSecond));
}

}  // namespace

ResponseFilter buildResponseFilter(const CorrectionState& state, bool useFullGrid, int channel, double delay,
                                   int k) {
    const int row = responseRow(k);
    const Response response = selectResponse(state, useFullGrid, channel, row);

    const FftPlanRealF64 plan = fftPlanRealF64(designOrder, fftScaleForward, fftAccurate);
    const auto work = plan.makeWork();
    Rail first(prototypeSpectrum(plan, work.get()));
    Rail second = first;

    // The ratio extended to DC; the calibration begins at bin 1.
    const float dcRatio = std::sqrt(2.0F * response.ratio[0] - response.ratio[1]);
    const double dcLevel = linearFactor(response.level[0]);
    first.scaleDc(dcLevel / dcRatio);
    second.scaleDc(dcLevel * dcRatio);
    for (std::size_t bin = 1; bin <= lastBin; ++bin) {
        const std::size_t point = std::min(bin - 1, responsePoints - 1);
        const double level = linearFactor(response.level[point]);
        const double ratio = std::sqrt(response.ratio[point]);
        const double ramp = static_cast<double>(bin) * delay * filterClock * pi / delayBins;
        const double halfPhase = response.phase[point] * 0.5F;
        first.turnAndScale(bin, level / ratio, ramp - halfPhase);
        second.turnAndScale(bin, level * ratio, ramp + halfPhase);
    }

    const auto firstTaps = first.taps(plan, work.get());
    const auto secondTaps = second.taps(plan, work.get());
    ResponseFilter filter;
    for (std::size_t n = 0; n < responseTapCount; ++n) filter.taps[n] = {firstTaps[n], secondTaps[n]};
    filter.delayPhase = delay * filterClock * pi * delayPhaseBins / delayBins;
    filter.gainDb = normalise(filter.taps);
    if (row <= lastSwappedFrequency) {
        for (TapPair& tap : filter.taps) std::swap(tap.first, tap.second);
    }
    return filter;
}

std::array<std::uint32_t, tapBlockWords> tapBlock(const ResponseTaps& taps) {
    constexpr double fullScale = 32000.0;
    constexpr std::size_t leadingZeros = 4;
    // The taps' largest is 1, but a negative one can go beyond -1, and calibration data with gaps give none at all.
    const auto code = [](float tap) { return std::uint32_t{fixed16(tap * fullScale)}; };
    std::array<std::uint32_t, tapBlockWords> words{};
    for (std::size_t n = 0; n < taps.size(); ++n) {
        words[leadingZeros + n] = code(taps[n].second) << 16 | code(taps[n].first);
    }
    return words;
}

}  // namespace hxr
