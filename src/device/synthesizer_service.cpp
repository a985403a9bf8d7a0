#include "device/synthesizer_service.h"

#include <chrono>

#include "device/health.h"
#include "device/setting_limits.h"
#include "rf/channel_lo.h"
#include "rf/rest_words.h"
#include "rf/shared_lo.h"

namespace hxr {
namespace {

using words::noOperation;

/// Appends runs, a new packet once the present one holds more than half of its room.
class ImageWriter {
  public:
    explicit ImageWriter(CommandList& list) : list_(list) {}

    void append(const WordRun& image) {
        list_.append(image);
        words_ += image.size();
    }

    void settle() { list_.append({words::pause(words::pauseTicks(100.0)), noOperation, noOperation}); }

    void breakIfLong() {
        constexpr std::size_t longPacket = 256;
        if (words_ <= longPacket) return;
        list_.beginPacket();
        words_ = 0;
    }

  private:
    CommandList& list_;
    std::size_t words_ = 0;
};

}  // namespace

HXRStatus reInitChannels(HXRDevice& device, const ControlClaim& control) {
    using namespace std::chrono_literals;
    for (int channel = 0; channel < words::channelsPerUnit; ++channel) {
        CommandList list = singlePacket(buildHighLoImage(channel));
        list.append(buildChannelOff(device.loContext, channel));
        list.append(words::applyPeripherals);
        if (!device.link->sendList(control, list)) return device.link->lastStatus();
        device.clock->sleep(20ms);
    }
    return hxrNoError;
}

HXRStatus initFullBandLos(HXRDevice& device, const ControlClaim& control, bool initShared, bool initHigh) {
    CommandList list = singlePacket(buildLoOff(device.loContext));
    list.append({words::pause(words::pauseTicks(10'000.0)), noOperation, noOperation});

    list.beginPacket();
    ImageWriter images(list);
    if (initShared) {
        images.append(buildSharedLoImage(SharedLoVco::tabled));
        images.settle();
    }
    for (int channel = 0; channel < words::channelsPerUnit; ++channel) {
        if (initHigh) images.append(buildHighLoImage(channel));
        images.settle();
        images.breakIfLong();
    }
    device.link->sendList(control, list);
    return device.link->lastStatus();
}

HXRStatus configureForReadback(HXRDevice& device, const ControlClaim& control) {
    using namespace std::chrono_literals;
    device.link->sendList(control, singlePacket(buildSharedLoBringUp(SharedLoVco::readBack)));
    device.clock->sleep(20ms);
    return device.link->lastStatus();
}

bool canReadBack(const Synthesizer& synthesizer, int point) {
    return inputLimits.contain(synthesizer.channel) && point >= 0;
}

HXRStatus readBackVco(HXRDevice& device, const ControlClaim& control, const Synthesizer& synthesizer,
                      int point, std::array<std::uint8_t, 3>& setting) {
    using namespace std::chrono_literals;
    const CommandList readback = planVcoReadback(synthesizer);
    if (!device.link->sendList(control, planSelfCalibration(device.loContext, synthesizer, point)))
        return device.link->lastStatus();
    device.clock->sleep(32ms);

    const auto [complete, received] = device.link->request(control, readback);
    if (!complete) return device.link->lastStatus();
    const StatusRecord record({received.buffers[0], received.lengths[0]});
    parseStatus(device, &record);
    if (!record.magicIsRight()) return hxrDataSyncErr;
    setting = vcoSettingOf(synthesizer, record.u32(StatusRecord::readback));
    return hxrNoError;
}

HXRStatus readLockFlags(HXRDevice& device, LockFlags& flags, InterfaceLock& lock) {
    refreshStatus(device, lock);
    const std::uint32_t bits = device.lastStatus.copy().statusFlags;
    for (unsigned channel = 0; channel < words::channelsPerUnit; ++channel) {
        flags.first[channel] = static_cast<int>(bits >> channel & 1);
        flags.second[channel] = static_cast<int>(bits >> (words::channelsPerUnit + channel) & 1);
    }
    return device.link->lastStatus();
}

}  // namespace hxr
