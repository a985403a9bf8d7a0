#include "device/initiate.h"

#include <algorithm>
#include <array>
#include <new>
#include <system_error>
#include <vector>

#include "cal/correction_lookup.h"
#include "device/channel_settings.h"
#include "device/gps.h"
#include "device/health.h"
#include "device/timebase.h"
#include "link/builders.h"
#include "rf/rest_words.h"
#include "stream/stream_engine.h"
#include "sweep/sweep_engine.h"
#include "vsg/generator_engine.h"

namespace hxr {
namespace {

using words::noOperation;

bool hasStreamingChannel(const HXRDevice& master) {
    for (std::size_t channel = 0; channel < static_cast<std::size_t>(master.channelCount); ++channel) {
        if (streams(master, channel)) return true;
    }
    return false;
}

void appendStrobe(CommandList& list, std::uint8_t timing, words::Strobe strobe) {
    list.append({words::pause(1), noOperation, noOperation, words::syncStrobe(timing, strobe)});
}

/// Leads the channels of a unit where the settings say, and gives the strobes that the group aligns on.
void routeAndAlign(HXRDevice& master, HXRDevice& unit, int position) {
    const int groupSize = 1 + static_cast<int>(master.slaves.size());
    const std::uint8_t timing = groupTimingByte(position, groupSize);
    const auto channels = static_cast<std::size_t>(master.channelCount);

    CommandList list;
    list.beginPacket();
    appendChannelRoute(list, position,
                       {std::span(master.channelEnabled).first(channels), master.focusChannel},
                       master.hardwareDecimation, master.localStream, master.vrtEndianness == 1);
    if (hasStreamingChannel(master)) appendStrobe(list, timing, words::Strobe::streamedChannels);
    appendStrobe(list, timing, words::Strobe::initiate);
    unit.link->sendList(list);
}

/// Moves corrections and timebase to the unit's present temperature. A unit that disciplines itself keeps its timebase.
void followTemperature(HXRDevice& unit) {
    std::array<float, diagnosticsCount> diagnostics{};
    readDiagnostics(unit, diagnostics);
    const LastStatus status = unit.lastStatus.copy();
    updateTemperature(*unit.corrections, status.temperatureA);
    if (!isDisciplined(status)) pushTimebase(unit);
}

void rememberTemperature(HXRDevice& unit) {
    unit.lastStatus.update([](LastStatus& status) {
        status.referenceTemperature = status.temperatureA;
        status.tempDrifted = false;
    });
}

/// Prepares the units of a group. The slaves come first, so that the master's strobes find them waiting.
void prepareUnits(HXRDevice& master) {
    int position = 0;
    for (HXRDevice* slave : master.slaves) {
        rememberTemperature(*slave);
        routeAndAlign(master, *slave, ++position);
        requestStatus(*slave);
        followTemperature(*slave);
    }
    rememberTemperature(master);
    routeAndAlign(master, master, 0);
    followTemperature(master);
}

/// No thread of theirs uses a link any more.
void endEngines(HXRDevice& master) {
    master.sweepEngine.reset();
    master.streamEngine.reset();
    master.fullBandPlan.reset();
}

void becomeIdle(HXRDevice& master) {
    master.initiated = false;
    master.sweepConfigured = false;
    master.streamConfigured = false;
    master.fullBandConfigured = false;
    master.vsgConfigured = false;
}

/// Built without a list: what stops a unit must not depend on there being memory.
void stopUnit(HXRDevice& unit, IdleLo idle) {
    std::array<words::Word, wordsPerPacket> packet{};  // no-operations
    auto next = packet.begin() + 3;
    *next++ = words::streamStop(unit.link->data().localPort());
    next = std::ranges::copy(generatorOffWords, next).out;
    if (idle == IdleLo::off) next = std::ranges::copy(buildLoOff(unit.loContext), next).out;
    *next = words::pause(words::pauseTicks(10'000.0));
    unit.link->sendPacket(packet);
}

/// What was planned and never told has left this host's picture of the unit out of step: the synthesizers' images are
/// loaded anew, and the clock is set.
void forgetPlan(HXRDevice& unit) {
    unit.loContext.lowLoReady.fill(false);
    unit.link->forgetTimeSeed();
}

/// Plans something of a group and starts it or makes its engine.
HXRStatus tryToConfigure(HXRDevice& master, HXRStatus (*configure)(HXRDevice&)) {
    try {
        return configure(master);
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {  // no thread to be had
    }
    forgetPlan(master);
    for (HXRDevice* slave : master.slaves) forgetPlan(*slave);
    return hxrMemoryAllocationErr;
}

/// Nothing goes on behind an initiate that failed.
void abortWhatRuns(HXRDevice& master) {
    master.initiated = true;
    abort(master, IdleLo::off);
}

}  // namespace

HXRStatus initiate(HXRDevice& device) {
    if (device.initiated) abort(device, IdleLo::off);
    prepareUnits(device);

    HXRStatus result = hxrNoError;
    if (device.vsgEnabled) {
        result = tryToConfigure(device, configureGenerator);
        if (result < 0) return result;
    }
    if (device.sweepActive) {
        result =
            device.focusChannel == -1 ? hxrInvalidConfigurationErr : tryToConfigure(device, configureSweep);
        if (result < 0) {
            if (device.vsgConfigured) abortWhatRuns(device);
            return result;
        }
        device.sweepConfigured = true;
    }
    if (device.streamActive && hasStreamingChannel(device)) {
        result = tryToConfigure(device, configureStream);
        if (result < 0) {
            abortWhatRuns(device);  // units may have been started already
            return result;
        }
        device.streamConfigured = true;
    }
    device.initiated = true;
    return result;
}

HXRStatus abort(HXRDevice& device, IdleLo idle) noexcept {
    if (!device.initiated) return hxrNoError;
    endEngines(device);
    stopUnit(device, idle);
    for (HXRDevice* slave : device.slaves) stopUnit(*slave, idle);
    becomeIdle(device);
    return device.link->lastStatus();
}

}  // namespace hxr
