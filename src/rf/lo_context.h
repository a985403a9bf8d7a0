#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "hxr_api.h"
#include "link/words.h"

namespace hxr {

inline constexpr std::size_t lowLoRows = 513;
inline constexpr std::size_t highLoRows = 705;

/// How the shared synthesizer's VCO is set for an output.
struct SharedVcoRow {
    std::uint32_t index;
    double frequencyGHz;  ///< of its output
    std::uint32_t core;   ///< 1, 2, 4 or 8
    std::uint32_t band;   ///< 0 to 255
    std::int32_t bias;    ///< 0 to 15
};

/// One point of the factory's tuning data of a synthesizer.
struct LoTableRow {
    double frequencyMHz = 0;
    std::uint32_t a = 0, b = 0, c = 0;  ///< of `lowLo` and `sharedLo`: core, band and bias of the VCO
};

/// What a unit's synthesizers are tuned by, and what they hold as far as the lists built so far have told them.
///
/// `lowLoReady` changes when a list is built, not when it is sent: a list that is built and not sent leaves it out of
/// step until the next rebuild. It belongs to the thread that configures the unit.
struct LoContext {
    LoContext();

    std::vector<SharedVcoRow> sharedVcoTable;  ///< 513 rows: outputs of 8 to 16 GHz in steps of 15.625 MHz

    // The last tuning of `sharedLo`.
    bool aboveTwelveGHz = false;    ///< its prescaler divides by 4, not by 2
    std::uint32_t offsetCount = 0;  ///< divider of the offset chip
    bool offsetAboveRef = false;    ///< the DDS is on the upper side of 1000 MHz
    bool mainAboveOffset = false;   ///< the divided output is above the offset
    double ddsMHz = 0;              ///< DDS frequency
    std::uint32_t mainDivider = 0;  ///< of the synthesizer's own loop
    std::int32_t vcoCore = 0, vcoBand = 0, vcoBias = 0, pumpCode = 0;
    std::int32_t sharedBandCode = 0;

    // The factory's tuning data, zeros on a unit without. Low row i is a VCO of 4000 + 7.8125 i MHz, high row i one of
    // 11000 + 15.625 i MHz, listed by half these frequencies.
    std::array<std::vector<LoTableRow>, words::channelsPerUnit + 1>
        lowLoTables;  ///< channels 0 to 3, `sharedLo`
    std::array<std::vector<LoTableRow>, words::channelsPerUnit> highLoTables;
    bool cbbLoaded = false;  ///< the tables hold the factory's tuning data

    std::array<bool, words::channelsPerUnit> lowLoReady{};  ///< by channel: its `lowLo` holds its full image
};

/// Plans something that goes out as a whole: where `plan` throws, none of it does, and `lowLoReady` stays as it was.
template <typename Plan>
auto planWhole(LoContext& context, Plan&& plan) {
    const auto ready = context.lowLoReady;
    try {
        return plan();
    } catch (...) {
        context.lowLoReady = ready;
        throw;
    }
}

/// Takes a unit's factory tuning data over: from now on synthesizers are loaded with their VCO settings.
void loadLoTables(LoContext& context, const HXRCBBData& data);

}  // namespace hxr
