// Streams a channel of each of two units and compares their phases:  group HOST_ADDRESS UNIT_ADDRESS PORT UNIT_ADDRESS

#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "example.h"

int main(int argc, char** argv) {
    const int group = openUnits(argc, argv, 2);
    int channels = 0;
    check("channels", hxrGetChannelCount(group, &channels));

    // Channel 0 of the master and of the slave, where it has the number 4, mixed by one and the same synthesizer.
    constexpr std::array pair{0, 4};
    std::array<int, 16> enabled{};
    for (const int channel : pair) {
        enabled.at(static_cast<std::size_t>(channel)) = 1;
        check("shared", hxrSetChannelShared(group, channel, 1));
    }
    check("channels", hxrSetChannelConfig(group, enabled.data(), -1));
    check("frequency", hxrSetSharedFreq(group, 2.45e9));
    check("rate", hxrSetStreamSampleRate(group, 16));
    check("type", hxrSetStreamDataType(group, 1));
    check("initiate", hxrInitiate(group));

    constexpr int count = 20'000;
    std::array<std::vector<std::complex<float>>, 2> samples;
    std::array<void*, 2> buffers{};
    for (std::size_t i = 0; i < pair.size(); ++i) {
        samples[i].resize(count);
        buffers[i] = samples[i].data();
    }
    std::uint64_t time = 0;
    check("receive", hxrStreamRecv(group, buffers.data(), count, &time, 0, nullptr, nullptr, nullptr, 0));
    check("abort", hxrAbort(group));

    std::complex<double> both = 0;
    for (std::size_t n = 0; n < count; ++n)
        both += std::complex<double>(samples[1][n]) * std::conj(std::complex<double>(samples[0][n]));
    std::printf("%d channels; channel 4 leads channel 0 by %.2f degrees\n", channels,
                std::arg(both) * 180 / std::numbers::pi);
    return hxrCloseDevice(group);
}
