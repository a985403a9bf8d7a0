/// Streams through the public interface.

#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <vector>

#include "support/installation.h"

namespace hxr {
namespace {

using test::Installation;

class Stream : public Installation {
  protected:
    void initiate(const std::vector<int>& channels, int decimation = 1) {
        std::array<int, 16> enabled{};
        for (const int channel : channels) enabled[static_cast<std::size_t>(channel)] = 1;
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), -1), hxrNoError);
        ASSERT_EQ(hxrSetStreamSampleRate(handle, decimation), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    }
};

TEST_F(Stream, Smoke) {
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    for (const int decimation : {1, 2, 4, 8, 256}) {
        initiate({0, 1, 2, 3}, decimation);
        int channels = 0;
        double rate = 0, bandwidth = 0;
        EXPECT_EQ(hxrStreamParameters(handle, &channels, &rate, &bandwidth), hxrNoError);
        EXPECT_EQ(channels, 4);
        EXPECT_EQ(rate, 50e6 / decimation);
        EXPECT_EQ(bandwidth, 40e6 / decimation);
        std::vector<std::vector<std::int16_t>> samples(4, std::vector<std::int16_t>(2 * 100000, 5));
        std::array<void*, 4> buffers;
        for (std::size_t i = 0; i < 4; ++i) buffers[i] = samples[i].data();
        std::uint64_t time = 0;
        int loss = 9, left = 9;
        std::array<double, 4> triggers{};
        EXPECT_EQ(hxrStreamRecv(handle, buffers.data(), 100000, &time, 0, &loss, &left, triggers.data(), 4), hxrNoError);
        EXPECT_EQ(loss, 0);
        EXPECT_EQ(triggers[0], -1);
        for (auto& channel : samples) for (auto s : channel) ASSERT_EQ(s, 0);
        EXPECT_EQ(hxrAbort(handle), hxrNoError);
    }
}

}  // namespace
}  // namespace hxr
