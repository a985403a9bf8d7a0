// The decimating chain of the stream beside liquid-dsp's decimator and beside our own plain operations, on blocks of a
// sample packet, with the errors against a plain sum in double precision; and the share of one core that four channels of
// 12.5 MS/s take, from the 16-bit samples as they arrive.

// Before liquid.h, which then takes its complex type from it.
#include <complex>

#include <liquid/liquid.h>

#include <cmath>
#include <random>
#include <vector>

#include "dsp/fir.h"
#include "dsp/instruction_set.h"
#include "side_by_side.h"
#include "stream/filter_design.h"

namespace {

using namespace hxr;

constexpr int block = 2048;
constexpr int channels = 4;
constexpr double samplesPerSecond = 12.5e6;

/// Root mean square of the error in the results for the samples 0, factor, 2 factor ... behind zeros, relative to that of
/// the exact ones.
double relativeError(const std::vector<cf32>& x, const std::vector<cf32>& taps, int factor,
                     const std::vector<cf32>& y) {
    double error = 0.0, power = 0.0;
    for (std::size_t j = 0; j < y.size(); ++j) {
        const std::size_t newest = j * static_cast<std::size_t>(factor);
        std::complex<double> exact;
        for (std::size_t k = 0; k < taps.size() && k <= newest; ++k)
            exact +=
                double{taps[k].re} * std::complex<double>(double{x[newest - k].re}, double{x[newest - k].im});
        error += std::norm(std::complex<double>(double{y[j].re}, double{y[j].im}) - exact);
        power += std::norm(exact);
    }
    return std::sqrt(error / power);
}

void measure(int factor) {
    const std::vector<cf32> taps = designHostTaps(0.8 * samplesPerSecond / factor, 4, factor);
    const int length = static_cast<int>(taps.size());
    std::vector<float> realTaps;
    for (const cf32& tap : taps) realTaps.push_back(tap.re);
    FirDecimator decimator(taps.data(), length, factor, block);
    firdecim_crcf liquid =
        firdecim_crcf_create(static_cast<unsigned>(factor), realTaps.data(), static_cast<unsigned>(length));
    const FirPlan plan = firPlan(taps.data(), length);
    const auto work = plan.makeWork();

    // Long enough that most results have the whole filter behind them.
    const int samples = 8 * block;
    std::mt19937 engine(1);
    std::normal_distribution<float> value(0.0F, 0.3F);
    std::vector<cf32> x(static_cast<std::size_t>(samples)), y(x.size()), z(x.size()), delay(taps.size());
    for (cf32& sample : x) sample = {value(engine), value(engine)};
    const auto ours = [&](int n) { decimator.process(x.data(), n, y.data()); };
    const auto theirs = [&](int n) {
        firdecim_crcf_execute_block(liquid, reinterpret_cast<std::complex<float>*>(x.data()),
                                    static_cast<unsigned>(n / factor),
                                    reinterpret_cast<std::complex<float>*>(z.data()));
    };
    const auto plain = [&] {
        int count = 0, phase = 0;
        firFilter(x.data(), z.data(), block, plan, delay.data(), delay.data(), work.get());
        sampleDown(z.data(), block, z.data(), &count, factor, &phase);
    };
    ours(samples);
    theirs(samples);
    y.resize(x.size() / static_cast<std::size_t>(factor));
    z.resize(y.size());
    const double ourError = relativeError(x, taps, factor, y), theirError = relativeError(x, taps, factor, z);
    z.resize(block);

    // Each channel has a packet of its own, as big as what a receive hands over.
    std::vector<ci16> packets(channels * block);
    for (ci16& sample : packets)
        sample = {static_cast<std::int16_t>(engine()), static_cast<std::int16_t>(engine())};
    std::vector<FirDecimator> decimators;
    for (int c = 0; c < channels; ++c) decimators.emplace_back(taps.data(), length, factor, block);
    const auto fourChannels = [&] {
        const ci16* packet = packets.data();
        for (FirDecimator& channel : decimators) {
            channel.process(packet, block, y.data());
            packet += block;
        }
    };

    const auto besideLiquid = bench::sideBySide([&] { ours(block); }, [&] { theirs(block); });
    const auto besidePlain = bench::sideBySide([&] { ours(block); }, plain, 20);
    double best = 1e9;
    for (int turn = 0; turn < 60; ++turn) best = std::min(best, bench::secondsPerCall(fourChannels, 50));
    std::printf("%10d %5d %9.2f %10.2f %6.2f %9.1e %9.1e %14.2f %6.2f %14.1f\n", 4 * factor, length,
                1e6 * besideLiquid.ours, 1e6 * besideLiquid.theirs, besideLiquid.ratio(), ourError,
                theirError, 1e6 * besidePlain.theirs, besidePlain.ratio(),
                100.0 * best * samplesPerSecond / block);
    firdecim_crcf_destroy(liquid);
}

}  // namespace

int main() {
    dspInitialise();
    std::printf("%10s %5s %9s %10s %6s %9s %9s %14s %6s %14s\n", "decimation", "taps", "ours us", "liquid us",
                "ratio", "error", "liquid's", "plain pair us", "ratio", "4 ch, % core");
    for (int factor = 2; factor <= 64; factor *= 2) measure(factor);
}
