/// Every entry on every slot of a group while somebody else owns the endpoints.

#include <array>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "device/group_access.h"
#include "link/win_udp_interface.h"
#include "support/installation.h"
#include "support/signatures.h"

namespace hxr {
namespace {

using namespace std::chrono_literals;

/// Holds up whoever sends while it is closed.
class Gate {
  public:
    void close() { set(true); }
    void open() { set(false); }
    void awaitSomebody() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return waiting_ > 0; });
    }
    void pass() {
        std::unique_lock lock(mutex_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !closed_; });
        --waiting_;
    }

  private:
    void set(bool closed) {
        const std::lock_guard lock(mutex_);
        closed_ = closed;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    int waiting_ = 0;
};

/// An endpoint whose sends go through a gate.
class GatedEndpoint final : public UDPDevice {
  public:
    GatedEndpoint(platform::Clock& clock, Gate& gate) : endpoint_(clock), gate_(gate) {}

    bool isOpen() const override { return endpoint_.isOpen(); }
    bool open(const char* local, const char* remote, std::uint16_t localPort,
              std::uint16_t remotePort) override {
        return endpoint_.open(local, remote, localPort, remotePort);
    }
    bool close() override { return endpoint_.close(); }
    std::string localAddress() const override { return endpoint_.localAddress(); }
    std::string remoteAddress() const override { return endpoint_.remoteAddress(); }
    std::uint16_t localPort() const override { return endpoint_.localPort(); }
    std::uint16_t remotePort() const override { return endpoint_.remotePort(); }
    void send(int slot, const std::uint32_t* words) override {
        gate_.pass();
        endpoint_.send(slot, words);
    }
    std::size_t waitSend(int slot) override { return endpoint_.waitSend(slot); }
    void postReceives(int slot, int count, unsigned timeoutMs) override {
        endpoint_.postReceives(slot, count, timeoutMs);
    }
    ReceiveResult* collectReceives(int slot) override { return endpoint_.collectReceives(slot); }
    int withdrawReceives(int slot) override { return endpoint_.withdrawReceives(slot); }
    void discardArrived() override { endpoint_.discardArrived(); }
    bool lost() const override { return endpoint_.lost(); }

  private:
    WinUDPInterface endpoint_;
    Gate& gate_;
};

/// A row of the table in the maintainers' guide.
struct Entry {
    std::string name, endpoints, allowed;
};

std::vector<Entry> entriesOfTheGuide() {
    std::ifstream guide(HXR_MAINTAINERS_GUIDE);
    const std::string begin = "| `hxr", between = " | ";
    std::vector<Entry> entries;
    for (std::string line; std::getline(guide, line);) {
        if (!line.starts_with(begin)) continue;
        const std::size_t nameEnd = line.find('`', begin.size()), second = nameEnd + 1 + between.size(),
                          third = line.find(between, second) + between.size();
        entries.push_back({line.substr(3, nameEnd - 3), line.substr(second, third - between.size() - second),
                           line.substr(third, line.rfind(" |") - third)});
    }
    return entries;
}

using Calls = std::map<std::string, std::function<HXRStatus(int)>>;

#define CALL(entry, ...)                                                   \
    {                                                                      \
#entry, [=](int h) { return entry(h __VA_OPT__(, ) __VA_ARGS__); } \
    }

/// A call of each entry with a handle, its arguments in order. Those that take a group over stand apart.
Calls allCalls() {
    static std::array<int, 16> ints;
    static std::array<float, 2 * 2048> floats;
    static std::array<double, 3> doubles;
    static std::array<unsigned char, 3> bytes;
    static std::uint64_t time;
    static std::uint16_t coarse;
    static unsigned number;
    static bool flag;
    static HXRStreamStatistics statistics;
    statistics.size = sizeof statistics;
    static const auto image = std::make_unique<HXRCalData>();
    int* const i = ints.data();
    float* const f = floats.data();
    double* const d = doubles.data();
    Calls calls{
        CALL(hxrPairDevice, "127.0.0.1", "no address", 5000),
        CALL(hxrGetSerialNumber, i),
        CALL(hxrGetFirmwareVersion, i, i, i),
        CALL(hxrGetCalDate, &number),
        CALL(hxrGetChannelCount, i),
        CALL(hxrGetDeviceDiagnostics, f, f, f),
        CALL(hxrGetFullDeviceDiagnostics, f),
        CALL(hxrSetLowPowerState),
        CALL(hxrSetFanEnabled, 1),
        CALL(hxrGetFanEnabled, &number),
        CALL(hxrSetFanSetPoint, 40.0F),
        CALL(hxrGetFanSetPoint, f),
        CALL(hxrSetChannelConfig, i, -1),
        CALL(hxrGetChannelConfig, i, i),
        CALL(hxrSetChannelShared, 0, 0),
        CALL(hxrGetChannelShared, 0, i),
        CALL(hxrSetChannelFreq, 0, 1e9),
        CALL(hxrGetChannelFreq, 0, d),
        CALL(hxrSetChannelPhaseOffset, 0, 0.0),
        CALL(hxrGetChannelPhaseOffset, 0, d),
        CALL(hxrSetChannelDelay, 0, 0.0),
        CALL(hxrGetChannelDelay, 0, d),
        CALL(hxrSetSharedFreq, 1e9),
        CALL(hxrGetSharedFreq, d),
        CALL(hxrSetStreamDataType, 0),
        CALL(hxrSetStreamFullScale, 0),
        CALL(hxrSetStreamRefLevel, -20.0),
        CALL(hxrSetStreamAtten, 0),
        CALL(hxrSetStreamSampleRate, 1),
        CALL(hxrSetStreamBandwidth, 4e7),
        CALL(hxrSetStreamTriggerEdge, 0),
        CALL(hxrSetStreamVrtChannelID, 3, 100),
        CALL(hxrSetStreamVrtCntxInterval, 1, 63),
        CALL(hxrSetStreamVrtEndianness, 0),
        CALL(hxrStreamParameters, i, d, d),
        CALL(hxrStreamRecv, nullptr, 0, &time, 0, i, i, nullptr, 0),
        CALL(hxrStreamCorrection, 1, f),
        CALL(hxrGetStreamStatistics, 0, &statistics),
        CALL(hxrSetSweepRefLevel, -20.0),
        CALL(hxrSetSweepAtten, -1),
        CALL(hxrSetSweepCenterSpan, 1e9, 1e6),
        CALL(hxrSetSweepStartStop, 1e9, 1.1e9),
        CALL(hxrSetSweepCoupling, 1e6, 1e6, 1e-3),
        CALL(hxrSetSweepDetector, 0, 0),
        CALL(hxrSetSweepScale, 0),
        CALL(hxrSetSweepWindow, 0),
        CALL(hxrSetVSGEnabled, 0),
        CALL(hxrSetVSGLevel, 20.0),
        CALL(hxrSetVSGPattern, f, 16, 1),
        CALL(hxrSweepGetParameters, d, d, d, d, i),
        CALL(hxrSweepStart),
        CALL(hxrGetSweep, nullptr),
        CALL(hxrSetReference, 1),
        CALL(hxrGetReference, &number),
        CALL(hxrSetGPSTimebaseUpdate, 1),
        CALL(hxrGetGPSTimebaseUpdate, &number),
        CALL(hxrGetGPSHoldoverInfo, i, &time),
        CALL(hxrGetGPSState, i),
        CALL(hxrGetGPSInfo, 1, i, &time, d, d, d),
        CALL(hxrWriteMessageToGPS, 0x20110021, 2, 1),
        CALL(hxrGetPairedDevices, i),
        CALL(hxrAdminGetLOLockFlags, i, i),
        CALL(hxrAdminGetCoarseTuneVal, &coarse),
        CALL(hxrAdminSetCoarseTuneVal, 0x8000),
        CALL(hxrAdminInitFullBandLOs, false, false),
        CALL(hxrAdminReInitChans),
        CALL(hxrAdminConfigureForCBBReadback),
        CALL(hxrAdminHasCBBData, &flag),
        CALL(hxrAdminSetDisableLOOnAbort, true),
        CALL(hxrAdminSetCorrectionMode, false),
        CALL(hxrAdminSetCorrectionIndex, 0),
        CALL(hxrAdminHasPretestCorrections, &flag),
        CALL(hxrAdminHasChamberCorrections, &flag),
        CALL(hxrAdminSetLOFT, 0, 0),
        CALL(hxrAdminManualLoadCorrections, image.get()),
        CALL(hxrAdminSetVSGPatternDirect, f, 16),
        CALL(hxrAdminSetVSGAtten, 0),
        CALL(hxrAdminGetFullBandIQ, 0, false, 1e9, 0, f, 1),
    };
    calls["hxrAdminCBBReadback"] = [](int h) {
        return hxrAdminCBBReadback(h, false, true, 0, 0, bytes[0], bytes[1], bytes[2]);
    };
    // Entries that name a unit of the group by its position: that of the slot, so that both slots mean the same unit.
    calls["hxrSetStreamMode"] = [](int h) { return hxrSetStreamMode(h, 1); };
    calls["hxrSetStreamLocalAddr"] = [](int h) { return hxrSetStreamLocalAddr(h, 0, 5100); };
    calls["hxrSetStreamVrtAddr"] = [](int h) { return hxrSetStreamVrtAddr(h, 0, "10.1.2.3", 6000, 0); };
    return calls;
}

Calls takeoverCalls() { return {CALL(hxrInitiate), CALL(hxrAbort), CALL(hxrCloseDevice)}; }

#undef CALL

/// A group of two units of which something is in progress: the master's slot is 0, the slave's 1.
class Ownership : public test::Installation {
  protected:
    void SetUp() override {
        api::Environment environment;
        environment.clock = &clock;
        environment.calFolder = CalFolder(machineFolder, fallbackFolder);
        environment.makeEndpoint = [this](platform::Clock& time) {
            return std::make_unique<GatedEndpoint>(time, gate);
        };
        api::deviceTable().useEnvironment(environment);
        startUnit();
        startUnit();
        ASSERT_EQ(connect(), hxrNoError);
        ASSERT_EQ(pair(1), hxrNoError);
        clock.advance(1001ms);  // so that health wants a new status
    }

    void initiate(std::vector<int> channels, int focus) {
        std::array<int, 8> enabled{};
        for (const int channel : channels) enabled[static_cast<std::size_t>(channel)] = 1;
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), focus), hxrNoError);
        ASSERT_EQ(hxrSetSweepStartStop(handle, 1e9, 1.1e9), hxrNoError);
        ASSERT_EQ(hxrSetSweepCoupling(handle, 1e6, 1e6, 1e-6), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    }

    bool owned(const Entry& entry, int slot) const {
        const GroupUnits group = groupUnits(device(slot));
        const std::size_t needed = entry.endpoints.ends_with("of the group") ? group.size() : 1;
        for (std::size_t u = 0; u < needed; ++u) {
            const DeviceInterface& link = *group[u].link;
            const bool control = link.control().owner() != EndpointOwner::nobody;
            const bool data = link.data().owner() != EndpointOwner::nobody;
            if (entry.endpoints.starts_with("both") && (control || data)) return true;
            if (entry.endpoints.starts_with("data") && data) return true;
            if (entry.endpoints.starts_with("control") && entry.endpoints != "control, if free" && control)
                return true;
        }
        return false;
    }

    /// What the guide says of an entry now: refused, or not.
    bool isRefused(const Entry& entry, int slot) const {
        const InterfaceLock lock = api::deviceTable().lock();
        if (entry.allowed.starts_with("idle") && isInitiated(device(slot))) return true;
        const HXRDevice& unit = device(slot);
        const HXRDevice& master = unit.isSlave() ? *unit.master : unit;
        if (entry.allowed == "no sweep, no stream" && (master.sweepConfigured || master.streamConfigured))
            return true;
        if (entry.allowed == "sweep" && !unit.sweepEngine) return true;
        if (entry.allowed == "local stream" && !unit.streamEngine) return true;
        if (entry.allowed == "stream" && !unit.streamConfigured) return true;
        if (entry.allowed == "after a local stream" && !unit.streamCounters) return true;
        return owned(entry, slot);
    }

    /// Calls all entries on both slots: what is refused changes nothing and sends nothing.
    void callAll(const Calls& calls) {
        for (const Entry& entry : entriesOfTheGuide()) {
            const auto call = calls.find(entry.name);
            if (call == calls.end()) continue;
            for (const int slot : {0, 1}) {
                SCOPED_TRACE(entry.name + " on slot " + std::to_string(slot));
                const bool refused = isRefused(entry, slot);
                const bool masterOnly = slot == 1 && entry.allowed.ends_with("master");
                const bool sweeping = isSweeping(slot);
                const auto before = sent();
                const HXRStatus status = call->second(slot);
                if (masterOnly) {
                    EXPECT_EQ(status, hxrMultiReceiverErr);
                } else if (entry.endpoints.ends_with("hxrSweepFinish") && sweeping) {
                    EXPECT_EQ(status, hxrSweepAlreadyStartedErr);
                } else {
                    EXPECT_EQ(status == hxrInvalidConfigurationErr, refused) << status;
                }
                if (refused || masterOnly) {
                    EXPECT_EQ(sent(), before);
                }
            }
        }
    }

    /// Calls everything from another thread as well while `operation` is held up at the gate.
    void callAllDuring(HXRStatus (*operation)(int)) {
        gate.close();
        HXRStatus status = hxrMemoryAllocationErr;
        std::thread other([&] { status = operation(handle); });
        gate.awaitSomebody();
        callAll(allCalls());
        for (const auto& [name, call] : takeoverCalls())
            EXPECT_EQ(call(0), hxrInvalidConfigurationErr) << name;
        gate.open();
        other.join();
        EXPECT_EQ(status, hxrNoError);
    }

    static bool isSweeping(int slot) {
        const InterfaceLock lock = api::deviceTable().lock();
        return device(slot).link->control().owner() == EndpointOwner::sweep && device(slot).sweepEngine;
    }

    /// Datagrams that the units have had on their control port.
    std::array<std::size_t, 2> sent() const {
        return {units[0]->recording().counts().packets, units[1]->recording().counts().packets};
    }

    Gate gate;
};

TEST_F(Ownership, TableOfTheGuideNamesEveryEntry) {
    std::map<std::string, int> rows;
    for (const Entry& entry : entriesOfTheGuide()) ++rows[entry.name];
    const auto names = test::exportedEntries(HXR_SIGNATURES);
    EXPECT_GT(names.size(), 100U);
    for (const std::string& name : names) EXPECT_EQ(rows[name], 1) << name;
    const Calls calls = allCalls(), takeovers = takeoverCalls();
    for (const Entry& entry : entriesOfTheGuide()) {
        const bool needsNoUnit = entry.allowed == "-" || entry.name == "hxrConnectDevice";
        const bool wouldEndTheSweep = entry.name == "hxrSweepFinish";
        EXPECT_EQ(calls.contains(entry.name) || takeovers.contains(entry.name),
                  !needsNoUnit && !wouldEndTheSweep)
            << entry.name;
    }
}

TEST_F(Ownership, OfASweepIsTheControlEndpointOfItsUnit) {
    for (const int focus : {1, 5}) {
        initiate({focus}, focus);
        ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
        callAll(allCalls());
        EXPECT_EQ(hxrSweepFinish(handle, nullptr), hxrNoError);
        ASSERT_EQ(hxrAbort(handle), hxrNoError);
        ASSERT_EQ(hxrSetStreamLocalAddr(handle, 0, 4991), hxrNoError);
        ASSERT_EQ(hxrSetStreamLocalAddr(handle, 1, 4991), hxrNoError);
    }
}

TEST_F(Ownership, OfAStreamAreTheDataEndpointsOfItsGroup) {
    for (const unsigned mode : {0U, 1U}) {
        ASSERT_EQ(hxrSetStreamMode(handle, mode), hxrNoError);
        initiate({1, 5}, -1);
        callAll(allCalls());
        std::vector<std::int16_t> samples(2 * 4096);
        std::array<void*, 2> buffers{samples.data(), samples.data()};
        EXPECT_EQ(hxrStreamRecv(handle, buffers.data(), 4096, nullptr, 0, nullptr, nullptr, nullptr, 0),
                  mode == 0 ? hxrNoError : hxrInvalidConfigurationErr);
        EXPECT_EQ(hxrAbort(handle), hxrNoError);
    }
}

TEST_F(Ownership, OfAnInitiateOrAnAbortAreAllEndpointsOfTheGroup) {
    initiate({1, 5, 6}, 1);
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    callAllDuring(hxrInitiate);
    ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
    callAllDuring(hxrAbort);
    EXPECT_FALSE(isInitiated(device(handle)));
}

TEST_F(Ownership, AnAbortEndsTheWaitsForASweepAndForSamples) {
    initiate({1, 5}, 1);
    units[0]->faults().add({.kind = sim::ReplyKind::samples, .times = sim::ReplyMatch::always},
                           sim::ReplyFault::lose());
    units[1]->faults().add({.kind = sim::ReplyKind::stream, .times = sim::ReplyMatch::always},
                           sim::ReplyFault::lose());
    clock.shortenTimeouts(4);
    ASSERT_EQ(hxrSweepStart(handle), hxrNoError);
    std::array<HXRStatus, 2> ended{};
    std::vector<std::int16_t> samples(2 * 4096);
    std::array<void*, 1> buffers{samples.data()};
    std::thread sweep([&] { ended[0] = hxrSweepFinish(handle, nullptr); });
    std::thread stream([&] {
        do {
            ended[1] = hxrStreamRecv(handle, buffers.data(), 4096, nullptr, 0, nullptr, nullptr, nullptr, 0);
        } while (ended[1] == hxrNoError);
    });
    // Either thread may come before or after the abort.
    EXPECT_EQ(hxrAbort(handle), hxrConnectionLostErr);
    sweep.join();
    stream.join();
    EXPECT_TRUE(ended[0] == hxrInvalidConfigurationErr || ended[0] == hxrSweepNotStartedErr ||
                ended[0] == hxrConnectionLostErr);
    EXPECT_TRUE(ended[1] == hxrInvalidConfigurationErr || ended[1] == hxrConnectionLostErr);
    EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
}

}  // namespace
}  // namespace hxr
