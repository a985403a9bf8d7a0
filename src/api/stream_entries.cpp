/// Streams and their settings.

#include <algorithm>
#include <cstring>

#include "api/entry.h"
#include "device/stream_output_settings.h"
#include "device/stream_settings.h"
#include "stream/stream_counters.h"
#include "stream/stream_engine.h"

using hxr::HXRDevice;
using hxr::InterfaceLock;
using hxr::api::deviceEntry;
using hxr::api::give;

HXRStatus hxrSetStreamDataType(int handle, unsigned type) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamDataType(device, type); });
}

HXRStatus hxrSetStreamFullScale(int handle, unsigned on) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamFullScale(device, on); });
}

HXRStatus hxrSetStreamRefLevel(int handle, double dBm) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.streamRefLevel = dBm;
        return hxrNoError;
    });
}

HXRStatus hxrSetStreamAtten(int handle, int atten) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamAtten(device, atten); });
}

HXRStatus hxrSetStreamSampleRate(int handle, int decimation) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamSampleRate(device, decimation); });
}

HXRStatus hxrSetStreamBandwidth(int handle, double hz) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamBandwidth(device, hz); });
}

HXRStatus hxrSetStreamTriggerEdge(int handle, unsigned edge) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamTriggerEdge(device, edge); });
}

HXRStatus hxrSetStreamMode(int handle, unsigned mode) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setStreamMode(device, mode, lock);
    });
}

HXRStatus hxrSetStreamLocalAddr(int handle, int unit, uint16_t port) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setStreamLocalAddr(device, unit, port, lock);
    });
}

HXRStatus hxrSetStreamVrtAddr(int handle, int channel, const char* address, uint16_t port, uint64_t mac) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        if (address == nullptr) return hxrNullPointerErr;
        return hxr::setStreamVrtAddr(device, channel, address, port, mac, lock);
    });
}

HXRStatus hxrSetStreamVrtChannelID(int handle, int channel, int id) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamVrtChannelID(device, channel, id); });
}

HXRStatus hxrSetStreamVrtCntxInterval(int handle, int enabled, int interval) {
    return deviceEntry(
        handle, [&](HXRDevice& device) { return hxr::setStreamVrtContext(device, enabled, interval); });
}

HXRStatus hxrSetStreamVrtEndianness(int handle, unsigned endianness) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamVrtEndianness(device, endianness); });
}

HXRStatus hxrStreamParameters(int handle, int* channelCount, double* sampleRate, double* bandwidth) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (!device.streamEngine) return hxrInvalidConfigurationErr;
        const auto& parameters = device.streamEngine->parameters();
        give(channelCount, parameters.channelCount);
        give(sampleRate, parameters.sampleRate);
        give(bandwidth, parameters.bandwidth);
        return hxrNoError;
    });
}

HXRStatus hxrStreamRecv(int handle, void** buffers, int count, uint64_t* nanoseconds, int purge,
                        int* sampleLoss, int* samplesRemaining, double* triggers, int triggerBufSize) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        const std::shared_ptr<hxr::StreamEngine> engine =
            device.streamEngine;  // an abort may stop it meanwhile
        if (!engine) return hxrInvalidConfigurationErr;
        if (count < 0 || triggerBufSize < 0) return hxrInvalidParameterErr;
        const int channels = engine->parameters().channelCount;
        const bool hasBuffers =
            buffers != nullptr &&
            std::none_of(buffers, buffers + channels, [](void* buffer) { return buffer == nullptr; });
        if ((count > 0 && !hasBuffers) || (triggerBufSize > 0 && triggers == nullptr))
            return hxrNullPointerErr;
        const hxr::Unlocked waiting(lock);
        return engine->receive({.buffers = buffers,
                                .count = count,
                                .nanoseconds = nanoseconds,
                                .purge = purge == 1,
                                .sampleLoss = sampleLoss,
                                .samplesRemaining = samplesRemaining,
                                .triggers = triggers,
                                .triggerRoom = triggerBufSize});
    });
}

HXRStatus hxrGetStreamStatistics(int handle, int unit, HXRStreamStatistics* statistics) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (statistics == nullptr) return hxrNullPointerErr;
        const auto position = static_cast<std::size_t>(unit);
        if (unit < 0 || position >= hxr::groupUnits(device).size() ||
            statistics->size < sizeof statistics->size)
            return hxrInvalidParameterErr;
        if (!device.streamCounters) return hxrInvalidConfigurationErr;
        const auto room = static_cast<std::size_t>(statistics->size);
        HXRStreamStatistics current = hxr::statisticsOf(*device.streamCounters, position);
        current.size = std::min(room, sizeof current);
        std::memcpy(statistics, &current, static_cast<std::size_t>(current.size));
        return hxrNoError;
    });
}

HXRStatus hxrStreamCorrection(int handle, int channel, float* correction) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (correction == nullptr) return hxrNullPointerErr;
        return hxr::getStreamCorrection(device, channel, *correction);
    });
}
