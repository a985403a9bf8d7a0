// The decimating chain of the stream beside liquid-dsp's decimator and beside our own plain operations, on
// blocks of a sample packet, and the share of one core that four channels of 12.5 MS/s take.

// Before liquid.h, which then takes its complex type from it.
#include <complex>

#include <liquid/liquid.h>

#include <vector>

#include "dsp/fir.h"
#include "dsp/instruction_set.h"
#include "side_by_side.h"
#include "stream/filter_design.h"

int main() {
    using namespace hxr;
    dspInitialise();
    constexpr int block = 2048;
    constexpr double samplesPerSecond = 4 * 12.5e6;
    std::printf("%10s %6s %12s %12s %7s %14s %7s %14s\n", "decimation", "taps", "ours us", "liquid us",
                "ratio", "plain pair us", "ratio", "4 ch, % core");
    for (int factor = 2; factor <= 64; factor *= 2) {
        const std::vector<cf32> taps = designHostTaps(0.8 * 12.5e6 / factor, 4, factor);
        const int length = static_cast<int>(taps.size());
        std::vector<float> realTaps;
        for (const cf32& tap : taps) realTaps.push_back(tap.re);
        std::vector<cf32> x(block), y(block), z(block), delay(taps.size());
        for (int i = 0; i < block; ++i)
            x[static_cast<std::size_t>(i)] = {0.001F * static_cast<float>(i % 97), 0.3F};

        FirDecimator decimator(taps.data(), length, factor, block);
        firdecim_crcf liquid = firdecim_crcf_create(static_cast<unsigned>(factor), realTaps.data(),
                                                    static_cast<unsigned>(length));
        const FirPlan plan = firPlan(taps.data(), length);
        const auto work = plan.makeWork();

        const auto ours = [&] { decimator.process(x.data(), block, y.data()); };
        const auto theirs = [&] {
            firdecim_crcf_execute_block(liquid, reinterpret_cast<std::complex<float>*>(x.data()),
                                        static_cast<unsigned>(block / factor),
                                        reinterpret_cast<std::complex<float>*>(z.data()));
        };
        const auto plain = [&] {
            int count = 0, phase = 0;
            firFilter(x.data(), z.data(), block, plan, delay.data(), delay.data(), work.get());
            sampleDown(z.data(), block, z.data(), &count, factor, &phase);
        };
        const auto besideLiquid = bench::sideBySide(ours, theirs);
        const auto besidePlain = bench::sideBySide(ours, plain, 20);
        const double best = std::min(besideLiquid.ours, besidePlain.ours);
        std::printf("%10d %6d %12.2f %12.2f %7.2f %14.2f %7.2f %14.1f\n", 4 * factor, length,
                    1e6 * besideLiquid.ours, 1e6 * besideLiquid.theirs, besideLiquid.ratio(),
                    1e6 * besidePlain.theirs, besidePlain.ratio(), 100.0 * best / block * samplesPerSecond);
        firdecim_crcf_destroy(liquid);
    }
}
