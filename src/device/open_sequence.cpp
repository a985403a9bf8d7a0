#include "device/open_sequence.h"

#include <algorithm>
#include <chrono>
#include <vector>

#include "cal/image.h"
#include "device/destinations.h"
#include "device/fan_and_power.h"
#include "device/health.h"
#include "device/synthesizer_service.h"
#include "device/timebase.h"
#include "device/ubx.h"
#include "link/builders.h"
#include "rf/channel_lo.h"
#include "rf/rest_words.h"
#include "rf/shared_lo.h"

namespace hxr {
namespace {

using namespace std::chrono_literals;
using words::noOperation;
using words::PairedChip;
using words::Word;

/// A stage of the sequence: one packet of words, and how long the unit takes over them.
struct Stage {
    WordRun words;
    std::chrono::milliseconds settling{0};
};

WordRun joined(std::initializer_list<WordRun> runs) {
    WordRun all;
    for (const WordRun& run : runs) all.insert(all.end(), run.begin(), run.end());
    return all;
}

Word converter(PairedChip pair, std::uint32_t data) { return words::pairedWord(pair, 1, data); }

/// Stand-ins for the fields of the context packets, until a stream gives them real ones.
WordRun contextStandIns() {
    constexpr std::uint32_t count = 5 * words::contextRecordRegisters;
    constexpr Word everyByte = 0x01010101;
    WordRun run{words::registerBlock(count, words::firstContextRegister)};
    for (std::uint32_t i = 0; i < count; ++i)
        run.push_back(i % words::contextRecordRegisters == 0 ? words::contextFields : i * everyByte);
    return run;
}

/// The host's date for the unit's calendar: the day's beginning in seconds, and day, month and year.
WordRun dateBlock(std::int64_t utcSeconds) {
    constexpr std::uint16_t dateRegister = 5;
    const std::chrono::sys_days day =
        std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(utcSeconds)));
    const std::chrono::year_month_day date(day);
    const auto year = static_cast<std::uint16_t>(static_cast<int>(date.year()));
    return {words::registerBlock(2, dateRegister),
            static_cast<Word>(std::chrono::seconds(day.time_since_epoch()).count()),
            static_cast<unsigned>(date.day()) << 24 | static_cast<unsigned>(date.month()) << 16 | year};
}

WordRun gpsAndClockWords(std::int64_t utcSeconds) {
    constexpr std::uint16_t startingClockDac = 0x8000;
    const WordRun fillers(3, noOperation);
    return joined({gpsReportMessage(),
                   contextStandIns(),
                   fillers,
                   {words::timebaseDacWrite(startingClockDac),
                    words::timebase(words::TimebaseMode::bringUp, words::startingTimebase)},
                   dateBlock(utcSeconds),
                   fillers,
                   {words::chipWrite(words::Chip::converterClock, 0x1F80, 0xA3),
                    words::chipWrite(words::Chip::converterClock, 0x1F80, 0xA2),
                    words::chipWrite(words::Chip::converterClock, 0x0019, 0x01),
                    words::chipWrite(words::Chip::converterClock, 0x0000, 0x08)}});
}

/// What loads chips and GPS receiver, before the unit knows where to send samples.
std::vector<Stage> loadingStages(std::int64_t utcSeconds) {
    return {
        {buildSharedLoBringUp(SharedLoVco::tabled), 20ms},
        {gpsAndClockWords(utcSeconds)},
        {gpsTimePulseMessage()},
        {gpsStationaryMessage()},
    };
}

/// What a paired unit is told beyond a single one: its clocks come from the group.
std::vector<Stage> pairingStages() {
    return {
        {{}, 20ms},
        {{words::expanderWrite(0x07, 0x20, 0x00)}, 20ms},
    };
}

/// Resets the converters, starts them, and aligns their clocks.
std::vector<Stage> converterStages() {
    constexpr PairedChip first = PairedChip::firstConverter, second = PairedChip::secondConverter;
    const Word converterReset = words::expanderWrite(0x07, 0x10, 0x10);
    const WordRun start(converterStart.begin(), converterStart.end());
    return {
        {{converterReset, words::pairedWord(first, 4, 0x000000), converter(first, 0x000803),
          converter(first, 0x000800), converter(first, 0x001600), words::pairedWord(second, 4, 0x000000),
          converter(second, 0x000803), converter(second, 0x000800), converter(second, 0x001600),
          words::chipWrite(words::Chip::timebaseDac, 0x1F7F, 0xFF)},
         100ms},
        {{converter(first, 0x0019F0), converter(first, 0x001AF0), converter(first, 0x000D08),
          converter(second, 0x0019F0), converter(second, 0x001AF0), converter(second, 0x000D08)},
         250ms},
        {{converterStart.front()}, 250ms},
        {{converter(first, 0x000D00), converter(second, 0x000D00)}},
        {buildSharedLoImage(SharedLoVco::tabled), 50ms},
        {start, 50ms},
        {{words::syncStrobe(0, words::Strobe::openEnd)}},
    };
}

/// Sends a stage and lets the unit take its time.
bool perform(HXRDevice& device, const ControlClaim& control, const Stage& stage) {
    const bool sent = stage.words.empty() || device.link->sendList(control, singlePacket(stage.words));
    if (sent) device.clock->sleep(stage.settling);
    return sent;
}

/// From here on a send that fails isn't looked at: the link is lost for good, and the status at the end tells.
void performAll(HXRDevice& device, const ControlClaim& control, const std::vector<Stage>& stages) {
    for (const Stage& stage : stages) perform(device, control, stage);
}

HXRStatus loadChips(HXRDevice& device, const ControlClaim& control) {
    for (const Stage& stage : loadingStages(device.clock->utcSeconds()))
        if (!perform(device, control, stage)) return device.link->lastStatus();
    return reInitChannels(device, control);
}

/// Takes over what the flash says besides the chamber's corrections.
void adoptFactoryData(HXRDevice& device) {
    const HXRCalData& flash = device.link->flashCopy();
    if (cal::hasTuningData(flash.cbb)) loadLoTables(device.loContext, flash.cbb);
    if (cal::hasPretestCorrections(flash)) cal::copyPretestSection(flash, *device.corrections->image);
}

/// Tells the unit where its samples go, and listens there.
HXRStatus openDataPath(HXRDevice& device, const ControlClaim& control, const DataClaim& data) {
    device.link->sendList(control, singlePacket({fanWord(device.fanSetPoint, device.fanEnabled)}));
    if (const HXRStatus failed = pushLocalDestinations(device, control); failed != hxrNoError) return failed;
    return device.link->openDataSocket(data, device.streamPort);
}

HXRStatus verdict(const LastStatus& status) {
    if (status.dataSyncFault) return hxrDataSyncErr;
    if (status.adcAlignFault) return hxrADCAlignmentErr;
    return hxrNoError;
}

}  // namespace

HXRStatus open(HXRDevice& device, OpenAs as) {
    // Nobody else knows the device yet, so the claims are had.
    const ControlClaim control = device.link->claimControl(EndpointOwner::lifecycle);
    const DataClaim data = device.link->claimData(EndpointOwner::lifecycle);
    if (const HXRStatus failed = loadChips(device, control); failed != hxrNoError) return failed;
    adoptFactoryData(device);
    if (const HXRStatus failed = openDataPath(device, control, data); failed != hxrNoError) return failed;

    if (as == OpenAs::pairedUnit) performAll(device, control, pairingStages());
    performAll(device, control, converterStages());
    requestStatus(device, control);

    findStartingCoarseTune(device);
    pushTimebase(device, control);
    device.link->sendList(control, singlePacket(buildLoOff(device.loContext)));
    return verdict(device.lastStatus.copy());
}

}  // namespace hxr
