#include "rf/rest_words.h"

#include <algorithm>

namespace hxr {

std::array<words::Word, 3> buildChannelOff(LoContext& context, int channel) {
    context.lowLoReady[static_cast<std::size_t>(channel)] = false;
    return {words::highLoOff(channel), words::synthesizerReset(words::lowLoOf(channel)),
            words::highLoOff(channel)};
}

std::array<words::Word, 14> buildLoOff(LoContext& context) {
    std::array<words::Word, 14> off{};
    auto next = off.begin();
    *next++ = words::chipWrite(words::Chip::sharedLo, 0x0025, 0x00);
    for (int channel = 0; channel < words::channelsPerUnit; ++channel)
        next = std::ranges::copy(buildChannelOff(context, channel), next).out;
    *next = words::applyPeripherals;
    return off;
}

CommandList buildLowPower(LoContext& context) {
    using namespace words;
    constexpr std::uint16_t frontEndTicks = 80;

    CommandList list;
    list.beginPacket();
    list.append(filler);
    for (int channel = 0; channel < channelsPerUnit; ++channel)
        list.append(synthesizerReset(lowLoOf(channel)));
    list.append(synthesizerReset(Chip::sharedLo));
    list.append(generatorOffWords);
    for (int channel = 0; channel < channelsPerUnit; ++channel) list.append(highLoOff(channel));
    for (int channel = 0; channel < channelsPerUnit; ++channel) {
        list.append({pause(frontEndTicks), filler, filler, filler});
        for (const auto& [transfer, data] : frontEndRest) list.append(channelWord(channel, transfer, data));
    }
    list.append({applyPeripherals, filler});

    context.lowLoReady.fill(false);
    return list;
}

}  // namespace hxr
