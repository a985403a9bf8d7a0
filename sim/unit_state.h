#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "sim/gps_chip.h"
#include "sim/operations.h"
#include "sim/synthesizers.h"

namespace hxr::sim {

/// The unit's own registers, 32 bits each.
class RegisterFile {
  public:
    static constexpr std::size_t size = 65536;

    void write(std::uint16_t address, std::uint32_t value);
    /// Nothing if it was never written.
    std::optional<std::uint32_t> read(std::uint16_t address) const;

  private:
    std::vector<std::uint32_t> values_ = std::vector<std::uint32_t>(size);
    std::vector<bool> written_ = std::vector<bool>(size);
};

/// The serial registers of the unit's chips, as last written.
class ChipShadow {
  public:
    void write(const ChipWrite& write);
    void write(const ChannelWrite& write);

    /// Register of a chip named by a word's high byte; nothing if it was never written.
    std::optional<std::uint8_t> chipRegister(std::uint8_t chip, std::uint16_t address) const;
    /// The last 24 bits sent to a per-channel chip by one kind of transfer.
    std::optional<std::uint32_t> lastTransfer(std::uint8_t nibble, std::uint8_t transfer) const;
    /// Register behind a per-channel transfer: kinds 0 and 1 carry 16 bits of address and 8 of value, kind 2
    /// the reverse.
    std::optional<std::uint32_t> channelRegister(std::uint8_t nibble, std::uint8_t transfer,
                                                 std::uint16_t address) const;

  private:
    std::map<std::uint32_t, std::uint32_t> chips_;
    std::map<std::uint32_t, std::uint32_t> channels_;
    std::map<std::uint32_t, std::uint32_t> transfers_;
};

/// The generator's pattern memory among the registers, a sample each.
struct PatternMemory {
    static constexpr std::uint16_t first = 4096;
    static constexpr std::uint16_t size = 4096;

    static constexpr bool holds(std::size_t address) { return address >= first && address < first + size; }
};

/// All that the unit holds as the result of the words it has run.
struct UnitState {
    RegisterFile registers;
    ChipShadow chips;
    Synthesizers synthesizers;
    Expander expander{};
    std::uint16_t generatorOutput = 0;  ///< word of the generator's output chip
    GpsChip gps;
    /// Register blocks that went out to the GPS chip, the latest `gpsMessageLimit`.
    std::deque<std::vector<std::uint32_t>> gpsMessages;

    std::uint16_t timebaseDac = 0x8000;  ///< where it stands, be it told or steered
    std::uint8_t timebaseMode = 0;
    std::optional<FanSetting> fan;
    std::uint16_t route = 0;
    std::uint32_t inputSelect = 0;
    std::uint8_t lowBandInputs = 0;  ///< one bit a channel: its input leads to the lower bands
    std::uint16_t chainDelay = 0;
    ContextSetup context{};
    std::uint16_t patternLastAddress = 0;
    std::uint64_t patternChanges = 0;  ///< words that have gone into the generator's pattern
    std::optional<SyncStrobe> lastStrobe;
    std::size_t strobes = 0;
    std::size_t chipRunsApplied = 0;

    bool flashReadMode = false;
    std::optional<std::uint16_t> selectedPage;

    std::uint32_t readback = 0;  ///< bytes latched since the last status

    /// Of the unit's clock, since it was last set.
    std::chrono::seconds clockAhead{0};

    bool streaming = false;
    StreamEnable stream{};  ///< the last enable word

    static constexpr std::size_t gpsMessageLimit = 256;
};

}  // namespace hxr::sim
