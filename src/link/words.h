/// The command words: one function for each form, named after what the receiver does on it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace hxr::words {

using Word = std::uint32_t;

/// RF channels of a unit: its inputs 0 to 3.
inline constexpr int channelsPerUnit = 4;

// Sequencer words act in the receiver itself.

/// Padding of a packet and filler behind several words.
inline constexpr Word noOperation = 0x00000000;

/// The filler that some sequences of peripheral words use in place of `noOperation`.
inline constexpr Word filler = 0x00000001;

/// Opens a block of `count` register values, 1 to 255, the first of which goes to `address`.
constexpr Word registerBlock(std::uint32_t count, std::uint16_t address) {
    return 0x04000000 | (count & 0xFF) << 16 | address;
}

/// Strobes that the units of a group align on.
enum class Strobe : std::uint32_t {
    streamedChannels = 0x0004,  ///< precedes streamed channels
    streamConfigured = 0x0006,  ///< closes a stream's configuration
    initiate = 0x0008,          ///< at every initiate
    openEnd = 0x000F,           ///< closes the open sequence
};

/// @param timing  of `groupTimingByte`
constexpr Word syncStrobe(std::uint8_t timing, Strobe strobe) {
    return 0x01000000 | static_cast<std::uint32_t>(timing) << 16 | static_cast<std::uint32_t>(strobe);
}

/// Makes the sequencer wait; `ticks` of 1.016 microseconds each.
constexpr Word pause(std::uint16_t ticks) { return 0x05000000 | ticks; }

/// A pause in which a newly selected capture input settles.
constexpr Word settlingPause(std::uint16_t ticks) { return 0x05010000 | ticks; }

/// A pause that a capture needs behind it.
constexpr Word capturePause(std::uint16_t ticks) { return 0x05830000 | ticks; }

/// Ticks of a pause of `microseconds`, saturating at 65535 (66.6 ms).
constexpr std::uint16_t pauseTicks(double microseconds) {
    return static_cast<std::uint16_t>(std::min(65535.0, microseconds / 1.016));
}

/// Tells the unit how long its chain of filters delays a stream, by the decimation in the receiver: 1, 2 or 4.
constexpr Word chainDelay(int hardwareDecimation) {
    constexpr Word shortest = 0x5000;
    const Word samples = hardwareDecimation == 1 ? 361 : hardwareDecimation == 2 ? 609 : 1096;
    return 0x06010000 | (shortest + samples);
}

/// How the unit's timebase is steered.
enum class TimebaseMode : std::uint32_t { external = 0, internal = 4, followGps = 8, bringUp = 12 };

constexpr Word timebase(TimebaseMode mode, std::uint16_t dac) {
    return 0x0B000000 | static_cast<std::uint32_t>(mode) << 16 | dac;
}

/// @param setPoint  in the fan controller's own units
constexpr Word fan(bool on, std::uint16_t setPoint) { return 0x0C000000 | (on ? 0U : 1U) << 16 | setPoint; }

/// Starts a stream of samples.
///
/// @param timing    of `groupTimingByte`
/// @param dataPort  of the data socket; 0 for a stream to VRT addresses
constexpr Word streamStart(std::uint8_t timing, std::uint16_t dataPort) {
    return 0x0E010000 | static_cast<std::uint32_t>(timing) << 16 | dataPort;
}

/// Ends any stream of samples to the data socket's port.
constexpr Word streamStop(std::uint16_t dataPort) { return 0x0E000000 | dataPort; }

/// Routes channels and sets up the sample path; `setup` is put together by `appendChannelRoute`.
constexpr Word channelRoute(std::uint16_t setup) { return 0x0F000000 | setup; }

/// The route that leads flash pages to the control socket.
inline constexpr Word flashRoute = channelRoute(0x0100);

/// The route that leads a channel's samples to the control socket as they come from its mixer.
constexpr Word fullBandRoute(int channel) {
    return channelRoute(static_cast<std::uint16_t>(0x3040 + (channel << 4)));
}

/// Lets context packets go out in a stream, one of each channel every `interval` sample packets.
constexpr Word contextPackets(bool enabled, std::uint16_t interval) {
    return 0x10000000 | (enabled ? 1U : 0U) << 16 | interval;
}

// The registers that fill in the context packets, a record for each channel: first which fields there are, then these.
inline constexpr std::uint16_t firstContextRegister = 0x0040;
inline constexpr std::uint16_t contextRecordRegisters = 9;
inline constexpr Word contextFields = 0xA9A64000;

/// Causes one status datagram.
inline constexpr Word statusRequest = 0x11000008;

/// Causes `datagrams` data datagrams from whatever was selected before.
constexpr Word captureAndSend(std::uint32_t datagrams) { return 0x12000000 | datagrams; }

/// Selects what captures are taken from, one bit for each channel and way; 0 clears the selection.
constexpr Word inputSelect(std::uint32_t inputs) { return 0x13000000 | inputs; }

/// On the data socket: causes `datagrams` datagrams of a running stream.
constexpr Word streamRequest(std::uint16_t datagrams) { return 0x43660000 | datagrams; }

/// Keeps the byte that a chip gives back, at a position in the `readback` of the next status. Positions are 0 to 2, and 4 to
/// 7 for its bytes 0 to 3.
constexpr Word latchReadByte(std::uint32_t position) { return 0x1D000000 | position; }

constexpr Word selectFlashPage(std::uint16_t page) { return 0x1E000000 | page; }

/// Tells the generator the last address of its pattern memory that it is to play.
constexpr Word patternLength(std::uint16_t lastAddress) { return 0x20000000 | lastAddress; }

constexpr Word flashReadMode(bool on) { return 0x1F000000 | (on ? 1U : 0U); }

// Peripheral words write a register of a chip in the unit.

/// Chips by the high byte of their words. `lowLo` of channel c is `lowLo` + c.
enum class Chip : std::uint32_t {
    lowLo = 0x41,
    sharedLo = 0x45,
    generator = 0x47,
    dds = 0x49,
    converterClock = 0x4A,
    timebaseDac = 0x4B,
    offset = 0x4D,
};

/// The `lowLo` chip of one of the four channels.
constexpr Chip lowLoOf(int channel) {
    return static_cast<Chip>(static_cast<std::uint32_t>(Chip::lowLo) + static_cast<std::uint32_t>(channel));
}

constexpr Word chipWrite(Chip chip, std::uint16_t address, std::uint8_t value) {
    return static_cast<std::uint32_t>(chip) << 24 | static_cast<std::uint32_t>(address) << 8 | value;
}

/// Set in the address of a register that a synthesizer is to give back.
inline constexpr std::uint16_t readAddress = 0x8000;

/// Asks a synthesizer for a register, to be latched once it has come.
constexpr Word chipRead(Chip chip, std::uint16_t address) {
    return chipWrite(chip, readAddress | address, 0);
}

/// A transfer of 24 bits to a chip.
constexpr Word chipTransfer(Chip chip, std::uint32_t data) {
    return static_cast<std::uint32_t>(chip) << 24 | data;
}

/// Sets the DAC behind the timebase directly, whatever mode steers it.
constexpr Word timebaseDacWrite(std::uint16_t value) {
    return chipTransfer(Chip::timebaseDac, 0x180000 | std::uint32_t{value});
}

/// The timebase value with which chips are started.
inline constexpr std::uint16_t startingTimebase = 0x9000;

/// A synthesizer's software reset.
constexpr Word synthesizerReset(Chip chip) { return chipWrite(chip, 0x0000, 0x81); }

/// The expander's register that switches the generator and chooses the reference.
inline constexpr std::uint8_t generatorAndReference = 0x04;

/// Gives the bits of `mask` in a register of the routing expander the values that they have in `bits`.
constexpr Word expanderWrite(std::uint8_t address, std::uint8_t mask, std::uint8_t bits) {
    return 0x51000000 | static_cast<std::uint32_t>(address) << 16 | static_cast<std::uint32_t>(mask) << 8 |
           bits;
}

/// Closes a run of peripheral words and applies them.
inline constexpr Word applyPeripherals = 0x4C000000;

/// Input switches of the lower bands, one nibble of channels each.
constexpr Word bandSwitch(std::uint32_t bits) { return 0x52000000 | bits; }

// Per-channel words address an RF channel of the unit by the high nibble.

/// @param input     0 to 3
/// @param transfer  kind of transfer, 0 to 15
/// @param data      24 bits for the chip
constexpr Word channelWord(int input, std::uint32_t transfer, std::uint32_t data) {
    const int nibble = input < 2 ? input + 9 : input + 11;
    return static_cast<std::uint32_t>(nibble) << 28 | transfer << 24 | data;
}

/// Chips for two channels each, by the high nibble; the two of a pair are written alike.
enum class PairedChip : std::uint32_t {
    firstConverter = 0x8,
    secondConverter = 0xC,
    firstDriver = 0xB,
    secondDriver = 0xF,
};

constexpr Word pairedWord(PairedChip chip, std::uint32_t transfer, std::uint32_t data) {
    return static_cast<std::uint32_t>(chip) << 28 | transfer << 24 | data;
}

/// Writes a register of a channel's `highLo`.
constexpr Word highLoWrite(int input, std::uint16_t address, std::uint8_t value) {
    return channelWord(input, 0, static_cast<std::uint32_t>(address) << 8 | value);
}

/// Asks a channel's `highLo` for a register.
constexpr Word highLoRead(int input, std::uint16_t address) {
    return highLoWrite(input, readAddress | address, 0);
}

/// Leads what a channel's `highLo` gives back to the unit, or ends that. Channels share the line by twos.
constexpr Word highLoReadLine(int input, bool on) {
    constexpr std::uint32_t transfer = 8, led = 2;
    return channelWord(input, transfer, on ? led | (static_cast<std::uint32_t>(input) & 1) : 0);
}

/// Switches a channel's `highLo` off.
constexpr Word highLoOff(int input) { return highLoWrite(input, 0x002B, 0x83); }

/// What a channel's front end needs to rest, one word for each kind of transfer.
struct FrontEndTransfer {
    std::uint32_t transfer;
    std::uint32_t data;
};
inline constexpr std::array frontEndRest{
    FrontEndTransfer{3, 0x000067},
    FrontEndTransfer{1, 0x000007},
    FrontEndTransfer{4, 0x000028},
};

}  // namespace hxr::words
