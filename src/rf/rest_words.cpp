#include "rf/rest_words.h"

namespace hxr {

CommandList buildLowPower(LoContext& context) {
    using namespace words;
    constexpr int channelCount = 4;
    constexpr std::uint16_t frontEndTicks = 80;

    CommandList list;
    list.beginPacket();
    list.append(filler);
    for (int channel = 0; channel < channelCount; ++channel) list.append(synthesizerReset(lowLoOf(channel)));
    list.append(synthesizerReset(Chip::sharedLo));
    list.append(generatorOffWords);
    for (int channel = 0; channel < channelCount; ++channel) list.append(highLoOff(channel));
    for (int channel = 0; channel < channelCount; ++channel) {
        list.append({pause(frontEndTicks), filler, filler, filler});
        list.append({channelWord(channel, 0x03000067), channelWord(channel, 0x01000007),
                     channelWord(channel, 0x04000028)});
    }
    list.append({applyPeripherals, filler});

    context.lowLoReady.fill(false);
    return list;
}

}  // namespace hxr
