#pragma once

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

namespace hxr::sim {

// What a command word asks of the unit, one type for each form, its fields named. Widths are those of the
// wire.

/// Aligns units of a group; `timing` tells the unit's place in it, 0 for a unit alone.
struct SyncStrobe {
    std::uint8_t timing;
    std::uint16_t mask;
};

/// Consecutive registers from `address` on. `announced` is the count that the word gave; fewer `values` mean
/// that the packet ended inside the block.
struct RegisterBlock {
    std::uint16_t address;
    std::uint8_t announced;
    std::vector<std::uint32_t> values;
};

/// A wait of the sequencer, in ticks of 1.016 microseconds.
struct Pause {
    std::uint8_t mode;
    std::uint16_t ticks;
};

struct ChainDelay {
    std::uint16_t delay;
};

struct Timebase {
    std::uint8_t mode;
    std::uint16_t dac;
};

struct FanSetting {
    std::uint8_t off;
    std::uint16_t setPoint;
};

/// `start` is 0 to stop the stream, 1 on a unit alone, the group timing byte plus 1 in a group.
struct StreamEnable {
    std::uint8_t start;
    std::uint16_t port;
};

/// Whether context packets go along with a stream, and one in how many.
struct ContextSetup {
    std::uint8_t enabled;
    std::uint16_t interval;
};

struct Route {
    std::uint16_t bits;
};

struct StatusRequest {};

/// Take and send datagrams: blocks of samples, or a flash page in flash read mode.
struct Capture {
    std::uint32_t datagrams;
};

struct InputSelect {
    std::uint32_t inputs;
};

/// Latches a byte that a chip has put on its read line into byte `position` of the next status.
struct LatchReadByte {
    std::uint8_t position;
};

struct SelectPage {
    std::uint16_t page;
};

struct FlashReadMode {
    bool on;
};

/// Last address of the generator's pattern memory that is played.
struct PatternLength {
    std::uint16_t lastAddress;
};

/// On the data socket: send so many sample datagrams of the running stream.
struct SampleRequest {
    std::uint16_t datagrams;
};

/// A register write in the chip that the word's high byte names.
struct ChipWrite {
    std::uint8_t chip;
    std::uint16_t address;
    std::uint8_t value;
};

/// Closes a run of chip writes and makes them take effect.
struct ApplyChips {};

/// The bits of `mask` in the routing expander's register take the values in `value`.
struct ExpanderWrite {
    std::uint8_t index;
    std::uint8_t mask;
    std::uint8_t value;
};

/// Input switches of the lower bands, one bit a channel: those in `mask` take the values in `value`.
struct BandSwitch {
    std::uint8_t mask;
    std::uint8_t value;
};

/// A transfer to a chip of one RF channel, or of one of the two converter pairs.
struct ChannelWrite {
    std::uint8_t nibble;
    std::uint8_t transfer;
    std::uint32_t bits;
};

struct UnknownWord {};

using Action = std::variant<SyncStrobe, RegisterBlock, Pause, ChainDelay, Timebase, FanSetting, StreamEnable,
                            ContextSetup, Route, StatusRequest, Capture, InputSelect, LatchReadByte,
                            SelectPage, FlashReadMode, PatternLength, SampleRequest, ChipWrite, ApplyChips,
                            ExpanderWrite, BandSwitch, ChannelWrite, UnknownWord>;

/// One command as it stood in a packet.
struct Operation {
    std::size_t position;      ///< index of its first word in the packet
    std::uint32_t word;        ///< that word as sent
    std::size_t fillerBehind;  ///< filler words (0 or 1) straight behind it, up to the next command or the
                               ///< packet's end
    Action action;
};

}  // namespace hxr::sim
