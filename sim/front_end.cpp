#include "sim/front_end.h"

#include <algorithm>
#include <iterator>

namespace hxr::sim {
namespace {

constexpr bool bit(std::uint32_t value, std::size_t position) { return (value >> position & 1) != 0; }

/// A preselector band by its words: the filter code as transfer 3 carries it above the attenuation, the
/// matching word of transfer 4, and whether the input switch leads to the lower filters.
struct BandWords {
    std::uint16_t filter;
    std::uint16_t match;
    bool lowInput;
};

// clang-format off
constexpr BandWords bandWords[] = {
    {0x01E0, 0x103F, true},  {0x1060, 0x3217, true},  {0x1860, 0x3216, true},  {0x3060, 0x3211, true},
    {0x0060, 0x3214, true},  {0x0860, 0x3210, true},  {0x3860, 0x3215, true},  {0x2060, 0x3212, true},
    {0x2860, 0x3213, true},  {0x3260, 0x152E, false}, {0x0B60, 0x152C, false}, {0x0C60, 0x152C, false},
    {0x2C60, 0x152B, false}, {0x2D60, 0x152B, false}, {0x1F60, 0x1529, false}, {0x1F60, 0x1528, false},
    {0x1E60, 0x1528, false}, {0x8020, 0x1020, false}, {0x4040, 0x1020, false}, {0x0000, 0x1820, false},
};

/// The settings of a, b, c, d and f for each path.
struct PathRow {
    LoPath path;
    std::array<bool, 5> settings;
};

constexpr PathRow pathRows[] = {
    {LoPath::ownLow,       {true,  false, false, false, false}},
    {LoPath::sharedOnLow,  {false, false, true,  false, false}},
    {LoPath::ownHigh,      {true,  false, true,  true,  true}},
    {LoPath::sharedOnHigh, {true,  true,  false, false, true}},
};

/// Where a channel's switches sit: its expander register, and the bits of a, b, c and d in it. Channel 3 has
/// the outer bits of its LO filter the other way round.
struct SwitchPlaces {
    std::size_t index;
    std::array<std::size_t, 4> bits;
    bool filterCrossed;
};

constexpr std::array<SwitchPlaces, channelCount> switchPlaces = {{
    {0, {7, 6, 5, 4}, false},
    {1, {5, 4, 7, 6}, false},
    {2, {4, 5, 6, 7}, false},
    {5, {5, 6, 7, 4}, true},
}};
// clang-format on

std::optional<int> bandOf(std::uint16_t filter, std::uint16_t match, bool lowInput) {
    const auto found = std::find_if(std::begin(bandWords), std::end(bandWords), [&](const BandWords& words) {
        return words.filter == filter && words.match == match && words.lowInput == lowInput;
    });
    if (found == std::end(bandWords)) return std::nullopt;
    return static_cast<int>(found - std::begin(bandWords));
}

}  // namespace

FrontEnd frontEnd(const UnitState& state, std::size_t channel) {
    constexpr std::uint16_t attenuatorBits = 0x1F;
    constexpr int dcMiddle = 0x8000;
    const std::uint8_t nibble = nibbleOfChannel(channel);
    const auto dac = [&](std::uint16_t address) {
        return static_cast<std::uint16_t>(state.chips.channelRegister(nibble, 2, address).value_or(0));
    };

    FrontEnd front;
    const auto filter = state.chips.lastTransfer(nibble, 3);
    const auto match = state.chips.lastTransfer(nibble, 4);
    if (filter && match) {
        const auto word = static_cast<std::uint16_t>(*filter);
        front.band = bandOf(static_cast<std::uint16_t>(word & ~attenuatorBits),
                            static_cast<std::uint16_t>(*match), bit(state.lowBandInputs, channel));
        front.attenuatorDb = word & attenuatorBits;
    }
    front.gainCode = static_cast<std::uint8_t>(state.chips.lastTransfer(nibble, 1).value_or(0));
    front.dacValues = {dac(0x18), dac(0x19)};
    front.dcOffsetI = dac(0x1A) - dcMiddle;
    front.dcOffsetQ = dac(0x1B) - dcMiddle;
    return front;
}

PathSwitches pathSwitches(const Expander& expander, std::size_t channel) {
    const SwitchPlaces& places = switchPlaces.at(channel);
    const std::uint8_t value = expander[places.index];
    PathSwitches switches;
    for (std::size_t i = 0; i < places.bits.size(); ++i) switches.settings[i] = bit(value, places.bits[i]);
    switches.settings[4] = bit(value, 0);

    switches.loFilter = value >> 1 & 7;
    if (places.filterCrossed) {
        switches.loFilter = (value >> 3 & 1) | (value >> 1 & 2) | (value << 1 & 4);
    }
    for (const PathRow& row : pathRows) {
        if (row.settings == switches.settings) switches.path = row.path;
    }
    return switches;
}

CaptureInput captureInput(std::uint32_t inputSelect, std::size_t channel) {
    return {bit(inputSelect, channel), bit(inputSelect, channelCount + channel),
            bit(inputSelect, 2 * channelCount + channel)};
}

GeneratorPath generatorPath(const UnitState& state) {
    const Expander& expander = state.expander;
    const unsigned branch = expander[4] >> 3 & 7;  // bit 2: below 1 GHz
    const bool highSynthesizer = bit(expander[3], 3);
    const unsigned outputSwitch = expander[6] >> 5;

    GeneratorPath path;
    path.attenuatorStep = expander[4] & 7;
    path.outputWord = state.generatorOutput;
    path.upperFilter = bit(expander[7], 6);
    constexpr unsigned lowBranch = 0, highBranch = 1, bottomBranch = 6;
    if (branch != lowBranch && branch != highBranch && branch != bottomBranch) return path;
    path.range = branch == bottomBranch ? GeneratorPath::Range::belowOneGHz
                 : branch == lowBranch  ? GeneratorPath::Range::low
                                        : GeneratorPath::Range::high;

    const bool low = path.range != GeneratorPath::Range::high;
    const bool middle = branch == lowBranch;
    path.on = highSynthesizer != low && outputSwitch == (low ? 3u : 5u) && bit(expander[3], 6) == middle &&
              bit(expander[7], 1) == middle && (path.outputWord == 0) == low;
    return path;
}

}  // namespace hxr::sim
