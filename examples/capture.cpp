// Takes raw samples of each channel, by its own LO and by the shared one, and says where the strongest line in them
// stands:  capture HOST_ADDRESS UNIT_ADDRESS PORT

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "example.h"

namespace {

// A whole number of steps of 3.90625 MHz, which a channel's own synthesizer can take.
constexpr double loHz = 2.4375e9, captureRateHz = 50e6;
constexpr int blocks = 1, bins = 2048;

struct Line {
    double hz = 0;
    double level = 0;  // of full scale
};

// Of one block, through a window that keeps lines apart.
Line strongest(const std::vector<std::complex<float>>& samples) {
    constexpr double turn = 2 * std::numbers::pi;
    Line line;
    for (int bin = 0; bin < bins; ++bin) {
        std::complex<double> sum = 0;
        double weights = 0;
        for (int n = 0; n < bins; ++n) {
            const double weight = 0.5 - 0.5 * std::cos(turn * n / bins);
            sum += weight * std::complex<double>(samples[static_cast<std::size_t>(n)]) *
                   std::polar(1.0, -turn * (bin * n % bins) / bins);
            weights += weight;
        }
        if (std::abs(sum) / weights > line.level)
            line = {loHz + std::remainder(bin, bins) * captureRateHz / bins, std::abs(sum) / weights};
    }
    return line;
}

}  // namespace

int main(int argc, char** argv) {
    const int unit = openUnits(argc, argv, 1);
    std::vector<std::complex<float>> samples(blocks * bins);
    for (const bool shared : {false, true}) {
        for (int channel = 0; channel < 4; ++channel) {
            check("capture", hxrAdminGetFullBandIQ(unit, channel, shared, loHz, 0,
                                                   reinterpret_cast<float*>(samples.data()), blocks));
            const Line line = strongest(samples);
            std::printf("channel %d, %s LO at %.4f GHz: %.4f GHz, %.1f dB of full scale\n", channel,
                        shared ? "shared" : "own   ", loHz / 1e9, line.hz / 1e9, 20 * std::log10(line.level));
        }
    }
    return hxrCloseDevice(unit);
}
