#include "device/timebase.h"

#include <cmath>
#include <cstdlib>
#include <span>

#include "cal/correction_lookup.h"
#include "device/gps.h"
#include "device/holdover_record.h"
#include "link/builders.h"

namespace hxr {
namespace {

/// Movements of the DAC up to this many counts are no news.
constexpr int deadBand = 8;

std::uint16_t dacFor(const HXRDevice& device, std::uint16_t coarseTune) {
    return static_cast<std::uint16_t>(temperaturePartOf(device) + coarseTune);
}

/// The used entries of the factory's history.
std::span<const std::uint16_t> factoryTunes(const HXRDevice& device) {
    constexpr std::uint16_t end = 0xFFFF;
    const std::span log(device.corrections->image->coarseTuneLog);
    return log.first(static_cast<std::size_t>(std::find(log.begin(), log.end(), end) - log.begin()));
}

}  // namespace

std::int32_t temperaturePartOf(const HXRDevice& device) {
    // Calibration data with gaps give no number.
    const double counts = interpolateCoarseTune(*device.corrections);
    return std::isnan(counts) ? 0 : static_cast<std::int32_t>(counts);
}

HXRStatus sendTimebase(HXRDevice& device, const ControlClaim& control) {
    CommandList list;
    list.beginPacket();
    appendTimebaseWords(list, device.timebase.copy().timebaseDAC, device.reference, device.gpsTimebaseUpdate);
    device.link->sendList(control, list);
    return device.link->lastStatus();
}

void pushTimebase(HXRDevice& device, const ControlClaim& control) {
    device.timebase.update(
        [&](TimebaseState& timebase) { timebase.timebaseDAC = dacFor(device, timebase.coarseTune); });
    sendTimebase(device, control);
}

HXRStatus setReference(HXRDevice& device, unsigned reference, InterfaceLock& lock) {
    if (reference > 1) return hxrInvalidParameterErr;
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    if (reference == device.reference) return hxrNoError;
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return hxrInvalidConfigurationErr;
    device.reference = reference;
    const Unlocked traffic(lock);
    return sendTimebase(device, control);
}

HXRStatus setGpsTimebaseUpdate(HXRDevice& device, unsigned on, InterfaceLock& lock) {
    if (on > 1) return hxrInvalidParameterErr;
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    if ((on == 1) == device.gpsTimebaseUpdate) return hxrNoError;
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return hxrInvalidConfigurationErr;
    device.gpsTimebaseUpdate = on == 1;
    const Unlocked traffic(lock);
    return sendTimebase(device, control);
}

HXRStatus setCoarseTune(HXRDevice& device, std::uint16_t value, InterfaceLock& lock) {
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return hxrInvalidConfigurationErr;
    device.timebase.update([&](TimebaseState& timebase) { timebase.coarseTune = value; });
    const Unlocked traffic(lock);
    pushTimebase(device, control);
    return device.link->lastStatus();
}

std::uint64_t lastFactoryTuneDate(const HXRDevice& device) {
    const auto tunes = factoryTunes(device);
    return tunes.empty() ? 0 : device.corrections->image->coarseTuneDate[tunes.size() - 1];
}

void findStartingCoarseTune(HXRDevice& device) {
    const auto tunes = factoryTunes(device);
    const std::uint64_t factoryDate = lastFactoryTuneDate(device);
    const auto holdover = readHoldoverRecord(device.link->calFolder(), device.lastStatus.copy().serialNumber);
    device.timebase.update([&](TimebaseState& timebase) {
        if (!tunes.empty()) timebase.coarseTune = tunes.back();
        if (!holdover) return;
        timebase.holdoverValid = true;
        timebase.holdoverTime = holdover->time;
        timebase.holdoverCoarseTune = holdover->coarseTune;
        if (factoryDate < holdover->time)
            timebase.coarseTune = static_cast<std::uint16_t>(holdover->coarseTune);
    });
}

void followGps(HXRDevice& device) {
    const LastStatus status = device.lastStatus.copy();
    if (!isDisciplined(status) || !fixOf(status).isGood()) return;

    const auto readback = static_cast<std::uint16_t>(status.timebaseReadback);
    HoldoverRecord record{};
    bool moved = false;
    device.timebase.update([&](TimebaseState& timebase) {
        moved = std::abs(int{readback} - int{timebase.timebaseDAC}) > deadBand;
        if (!moved) return;
        timebase.timebaseDAC = readback;
        timebase.coarseTune = static_cast<std::uint16_t>(readback - temperaturePartOf(device));
        timebase.holdoverCoarseTune = timebase.coarseTune;
        timebase.holdoverTime = static_cast<std::uint64_t>(device.clock->utcSeconds());
        record = {timebase.holdoverTime, timebase.holdoverCoarseTune};
    });
    if (moved) device.holdoverWriter.write(status.serialNumber, record);
}

}  // namespace hxr
