#include "device/initiate.h"

#include <algorithm>
#include <array>
#include <new>
#include <system_error>

#include "cal/correction_lookup.h"
#include "device/channel_settings.h"
#include "device/gps.h"
#include "device/group_access.h"
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

bool hasStreamingChannel(const ChannelSettings& settings) {
    for (std::size_t channel = 0; channel < static_cast<std::size_t>(settings.channelCount); ++channel) {
        if (streams(settings, channel)) return true;
    }
    return false;
}

void appendStrobe(CommandList& list, std::uint8_t timing, words::Strobe strobe) {
    list.append({words::pause(1), noOperation, noOperation, words::syncStrobe(timing, strobe)});
}

/// Leads the channels of a unit where the settings say, and gives the strobes that the group aligns on.
void routeAndAlign(const Settings& settings, const UnitAccess& unit, int position, int groupSize) {
    const std::uint8_t timing = groupTimingByte(position, groupSize);
    const auto channels = static_cast<std::size_t>(settings.channelCount);

    CommandList list;
    list.beginPacket();
    appendChannelRoute(list, position,
                       {std::span(settings.channelEnabled).first(channels), settings.focusChannel},
                       settings.hardwareDecimation, settings.localStream, settings.vrtEndianness == 1);
    if (hasStreamingChannel(settings)) appendStrobe(list, timing, words::Strobe::streamedChannels);
    appendStrobe(list, timing, words::Strobe::initiate);
    unit.device->link->sendList(unit.control, list);
}

/// Moves corrections and timebase to the unit's present temperature. A unit that disciplines itself keeps its timebase.
void followTemperature(const UnitAccess& unit) {
    HXRDevice& device = *unit.device;
    if (statusIsOld(device)) requestStatus(device, unit.control);
    const LastStatus status = device.lastStatus.copy();
    updateTemperature(*device.corrections, status.temperatureA);
    if (!isDisciplined(status)) pushTimebase(device, unit.control);
}

void rememberTemperature(HXRDevice& unit) {
    unit.lastStatus.update([](LastStatus& status) {
        status.referenceTemperature = status.temperatureA;
        status.tempDrifted = false;
    });
}

/// Prepares the units of a group. The slaves come first, so that the master's strobes find them waiting.
void prepareUnits(GroupTakeover& group, const Settings& settings) {
    const auto size = static_cast<int>(group.size());
    for (int position = 1; position < size; ++position) {
        const UnitAccess& slave = group[static_cast<std::size_t>(position)];
        rememberTemperature(*slave.device);
        routeAndAlign(settings, slave, position, size);
        requestStatus(*slave.device, slave.control);
        followTemperature(slave);
    }
    const UnitAccess& master = group[0];
    rememberTemperature(*master.device);
    routeAndAlign(settings, master, 0, size);
    followTemperature(master);
}

/// Built without a list: what stops a unit must not depend on there being memory.
void stopUnit(const UnitAccess& unit, IdleLo idle) {
    std::array<words::Word, wordsPerPacket> packet{};  // no-operations
    auto next = packet.begin() + 3;
    *next++ = words::streamStop(unit.data->localPort());
    next = std::ranges::copy(generatorOffWords, next).out;
    if (idle == IdleLo::off) next = std::ranges::copy(buildLoOff(unit.device->loContext), next).out;
    *next = words::pause(words::pauseTicks(10'000.0));
    unit.device->link->sendPacket(unit.control, packet);
}

/// Stops the engines, so that none of their threads uses a link any more, then the units.
void stopGroup(GroupTakeover& group, IdleLo idle) {
    group.stopEngines();
    for (const UnitAccess& unit : group.units()) stopUnit(unit, idle);
}

void becomeIdle(HXRDevice& master) {
    master.fullBandPlan.reset();
    master.initiated = false;
    master.sweepConfigured = false;
    master.streamConfigured = false;
    master.fullBandConfigured = false;
    master.vsgConfigured = false;
}

/// What an initiate has started.
struct Started {
    bool generator = false;
    std::shared_ptr<SweepEngine> sweep;
    bool stream = false;  ///< local or VRT
    std::shared_ptr<StreamEngine> streamEngine;
};

/// Plans something of a group and tells it to the units. What was planned and never told leaves this host's
/// picture of the units out of step: their synthesizers' images are loaded anew then.
template <typename Step>
HXRStatus tryTo(GroupTakeover& group, Step&& step) {
    try {
        step();
        return hxrNoError;
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {  // no thread to be had
    }
    for (const UnitAccess& unit : group.units()) unit.device->loContext.lowLoReady.fill(false);
    return hxrMemoryAllocationErr;
}

/// @param settings  the plans put the values in that they use
HXRStatus startAcquisitions(GroupTakeover& group, Settings& settings, Started& started) {
    HXRStatus result = hxrNoError;
    if (settings.vsgEnabled) {
        result = tryTo(group, [&] { started.generator = configureGenerator(group[0], settings); });
        if (result < 0) return result;
    }
    if (settings.sweepActive) {
        if (settings.focusChannel == -1) return hxrInvalidConfigurationErr;
        result = tryTo(group, [&] { started.sweep = configureSweep(group.units(), settings); });
        if (result < 0) return result;
    }
    if (settings.streamActive && hasStreamingChannel(settings)) {
        started.stream = true;  // from the first list on units may stream
        result = tryTo(group, [&] { started.streamEngine = configureStream(group.units(), settings); });
    }
    return result;
}

/// Nothing goes on behind an initiate that failed.
void stopStarted(GroupTakeover& group, Started& started) {
    if (started.sweep) started.sweep->stop();
    if (!started.generator && !started.stream) return;
    for (const UnitAccess& unit : group.units()) stopUnit(unit, IdleLo::off);
}

/// Makes the group initiated with what was started.
void adopt(HXRDevice& master, GroupTakeover& group, const Settings& used, Started started) {
    master.initiated = true;
    master.vsgConfigured = started.generator;
    master.sweepConfigured = started.sweep != nullptr;
    master.streamConfigured = started.stream;
    if (started.generator) {
        master.vsgAtten = used.vsgAtten;
        master.vsgScale = used.vsgScale;
    }
    master.sweepEngine = std::move(started.sweep);
    if (!started.stream) return;
    master.hardwareBandwidth = used.hardwareBandwidth;
    master.outputBandwidth = used.outputBandwidth;
    master.streamCorrection = used.streamCorrection;
    if (started.streamEngine) master.streamCounters = started.streamEngine->counters();
    master.streamEngine = std::move(started.streamEngine);
    for (std::size_t u = 0; u < group.size(); ++u) {
        group[u].data.changeOwner(EndpointOwner::stream);
        master.streamData[u] = std::move(group[u].data);
    }
}

}  // namespace

HXRStatus initiate(HXRDevice& device, InterfaceLock& lock) {
    GroupTakeover group(device);
    if (!group) return hxrInvalidConfigurationErr;
    Settings settings = static_cast<const Settings&>(device);
    for (const UnitAccess& unit : group.units()) useOverrides(*unit.device);
    Started started;
    HXRStatus result = hxrNoError;
    {
        const Unlocked traffic(lock);
        if (device.initiated) stopGroup(group, IdleLo::off);
        result = tryTo(group, [&] { prepareUnits(group, settings); });
        if (result >= 0) result = startAcquisitions(group, settings, started);
        if (result < 0) stopStarted(group, started);
    }
    becomeIdle(device);
    if (result >= 0) adopt(device, group, settings, std::move(started));
    return result;
}

HXRStatus abort(HXRDevice& device, IdleLo idle, InterfaceLock& lock) {
    if (device.changing) return hxrInvalidConfigurationErr;
    if (!device.initiated) return hxrNoError;
    GroupTakeover group(device);
    if (!group) return hxrInvalidConfigurationErr;
    {
        const Unlocked traffic(lock);
        stopGroup(group, idle);
    }
    becomeIdle(device);
    return device.link->lastStatus();
}

void abortForDestruction(HXRDevice& device) noexcept {
    try {
        std::mutex nobodyElse;
        InterfaceLock lock(nobodyElse);
        abort(device, IdleLo::off, lock);
    } catch (...) {
        return;  // the unit goes on until somebody connects to it
    }
}

}  // namespace hxr
