#include "device/health.h"

#include <algorithm>
#include <cmath>

#include "device/timebase.h"

namespace hxr {
namespace {

constexpr std::uint16_t alignedClocks = 0x0F00;
constexpr std::uint64_t statusLifetimeMs = 1000;

// A drift is reported beyond the first and taken back below the second, degrees: so it doesn't flicker.
constexpr float driftSets = 4.0F;
constexpr float driftClears = 3.0F;

/// Degrees Celsius of a temperature code: bit 12 the sign, bits 2 to 11 a magnitude in quarters of a degree.
float temperatureOf(std::uint16_t code) {
    const int magnitude = code >> 2 & 0x3FF;
    const bool negative = (code >> 12 & 1) != 0;
    return static_cast<float>((negative ? magnitude - 1024 : magnitude) * 0.25);
}

bool driftOf(const LastStatus& status) {
    const float distance = std::abs(status.referenceTemperature - status.temperatureA);
    return status.tempDrifted ? !(distance < driftClears) : distance > driftSets;
}

void takeOver(const StatusRecord& record, std::uint64_t ticks, LastStatus& status) {
    status.dataSyncFault = false;
    status.lastStatusTicks = ticks;

    status.railX2 = static_cast<float>(record.u16(StatusRecord::railX2Sense) * 2 / 1000.0);
    status.railX1 = static_cast<float>(record.u16(StatusRecord::railX1Sense) / 1000.0);
    status.railX5 = static_cast<float>(record.u16(StatusRecord::railX5Sense) * 5 / 1000.0);
    status.supplyVoltage = static_cast<float>(record.u16(StatusRecord::supplySense) * 11 / 1000.0);

    status.serialNumber = record.serialNumber();
    status.firmwareVersionA = record.u16(StatusRecord::versionA);
    status.firmwareVersionB = record.u16(StatusRecord::versionB);

    status.temperatureA = temperatureOf(record.u16(StatusRecord::firstTemperature));
    status.temperatureB = temperatureOf(record.u16(StatusRecord::secondTemperature));
    status.temperatureC = temperatureOf(record.u16(StatusRecord::thirdTemperature));

    status.timebaseReadback = record.u16(StatusRecord::timebase);
    status.clockStatus = record.u16(StatusRecord::clockStatus);

    status.readingA = static_cast<float>(record.u16(StatusRecord::readingA) / 10000.0);
    status.readingB = static_cast<float>(record.u16(StatusRecord::readingB) / 10000.0);
    status.readingQ8 = static_cast<float>(record.u16(StatusRecord::readingQ8) * 0.00390625);
    status.fpgaTemperature =
        static_cast<float>(record.u16(StatusRecord::fpgaTemperature) * 0.6767578125 - 265.0);

    status.statusFlags = record.u32(StatusRecord::flags);
    status.adcAlignFault = (status.clockStatus & alignedClocks) != alignedClocks;

    const auto gpsBlock = record.bytes().subspan<StatusRecord::gpsBlock, StatusRecord::gpsBlockSize>();
    std::copy(gpsBlock.begin(), gpsBlock.end(), status.gpsBlock.begin());

    status.tempDrifted = driftOf(status);
}

}  // namespace

void parseStatus(HXRDevice& device, const StatusRecord* record) {
    if (record == nullptr) return;
    if (!record->magicIsRight()) {
        device.lastStatus.update([](LastStatus& status) { status.dataSyncFault = true; });
        return;
    }
    const std::uint64_t now = device.clock->monotonicMs();
    device.lastStatus.update([&](LastStatus& status) { takeOver(*record, now, status); });
    followGps(device);
}

void requestStatus(HXRDevice& device, const ControlClaim& control) {
    StatusRecord record;
    device.link->readStatus(control, &record);
    parseStatus(device, &record);
}

bool refreshStatus(HXRDevice& device, InterfaceLock& lock) {
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return false;
    const Unlocked traffic(lock);
    requestStatus(device, control);
    return true;
}

HXRStatus statusOfCapture(const HXRDevice& unit, int channel) {
    constexpr int firstOverflowBit = 12;
    if (unit.link->lastStatus() != hxrNoError) return unit.link->lastStatus();
    const LastStatus status = unit.lastStatus.copy();
    if (status.dataSyncFault) return hxrDataSyncErr;
    if (status.adcAlignFault) return hxrADCAlignmentErr;
    const bool overflow = (status.statusFlags >> (firstOverflowBit + channel) & 1) != 0;
    return overflow ? hxrADCOverflow : hxrNoError;
}

bool statusIsOld(const HXRDevice& device) {
    return device.clock->monotonicMs() - device.lastStatus.copy().lastStatusTicks > statusLifetimeMs;
}

HXRStatus readDiagnostics(HXRDevice& device, std::span<float, diagnosticsCount> out, InterfaceLock& lock) {
    if (statusIsOld(device)) refreshStatus(device, lock);
    const LastStatus status = device.lastStatus.copy();
    const std::array<float, diagnosticsCount> values{
        status.supplyVoltage,   status.railX2,       status.railX1,       status.railX5,
        status.fpgaTemperature, status.temperatureC, status.temperatureA, status.temperatureB,
        status.readingQ8,       status.readingA,     status.readingB};
    std::copy(values.begin(), values.end(), out.begin());
    return device.link->lastStatus();
}

}  // namespace hxr
