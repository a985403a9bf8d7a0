#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "support/installation.h"

namespace hxr::test {

/// A group of simulated units that stream.
class Streaming : public Installation {
  protected:
    void connectGroup(int size, const sim::UnitOptions& options = {}) {
        for (int i = 0; i < size; ++i) startUnit(options);
        ASSERT_EQ(connect(), hxrNoError);
        for (int i = 1; i < size; ++i) ASSERT_EQ(pair(i), hxrNoError);
    }

    /// Starts a stream anew, as 16-bit integers if nothing else was set.
    void initiate(const std::vector<int>& channels, int decimation = 1, int focus = -1) {
        hxrAbort(handle);
        std::array<int, 16> enabled{};
        for (const int channel : channels) enabled[static_cast<std::size_t>(channel)] = 1;
        if (focus >= 0) enabled[static_cast<std::size_t>(focus)] = 1;
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), focus), hxrNoError);
        ASSERT_EQ(hxrSetStreamSampleRate(handle, decimation), hxrNoError);
        ASSERT_EQ(hxrSetStreamBandwidth(handle, 40e6), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        streaming = channels;
    }

    struct Received {
        HXRStatus status;
        std::uint64_t time = 0;
        int loss = -1, left = -1;
        std::vector<double> triggers;
    };

    /// Fetches 16-bit samples into `samples`.
    Received receive(int count, bool purge = false, int triggerRoom = 0) {
        return receiveInto(samples, std::int16_t{77}, count, purge, triggerRoom);
    }
    /// Fetches floats into `floats`.
    Received receiveFloats(int count) { return receiveInto(floats, 77.0F, count, false, 0); }

    std::vector<int> streaming;
    std::vector<std::vector<std::int16_t>> samples;
    std::vector<std::vector<float>> floats;

  private:
    template <typename Real>
    Received receiveInto(std::vector<std::vector<Real>>& into, Real before, int count, bool purge,
                         int triggerRoom) {
        into.assign(streaming.size(), std::vector<Real>(2 * static_cast<std::size_t>(count), before));
        std::vector<void*> buffers;
        for (auto& channel : into) buffers.push_back(channel.data());
        Received received{.status = hxrNoError,
                          .triggers = std::vector<double>(static_cast<std::size_t>(triggerRoom))};
        received.status =
            hxrStreamRecv(handle, buffers.data(), count, &received.time, purge ? 1 : 0, &received.loss,
                          &received.left, received.triggers.data(), triggerRoom);
        return received;
    }
};

}  // namespace hxr::test
