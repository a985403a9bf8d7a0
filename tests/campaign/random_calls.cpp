/// Calls all exported entries from several threads with arguments at random, valid and not, against simulated units: none
/// may crash, hang or return something else than a status. Service calls in the midst of a stream break rules of the
/// units' sequencing; these are printed, by kind.

#include <CLI/CLI.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "netconfig/config_net_table.h"
#include "support/installation.h"
#include "support/signatures.h"

namespace {

using namespace std::chrono_literals;
using hxr::test::controlPort, hxr::test::hostAddress, hxr::test::unitAddress;

constexpr int mostUnits = 4;

/// Arguments at random, and room for all that entries write.
class Dice {
  public:
    explicit Dice(std::uint64_t seed) : random_(seed) {
        for (std::size_t i = 0; i < streams_.size(); ++i) streamBuffers_[i] = streams_[i].data();
    }

    bool oneIn(unsigned n) { return random_() % n == 0; }
    int between(int low, int high) {
        return low + static_cast<int>(random_() % static_cast<unsigned>(high - low + 1));
    }
    template <typename Value>
    Value anyOf(std::initializer_list<Value> values) {
        return values.begin()[random_() % values.size()];
    }
    /// A null pointer now and then.
    template <typename Value>
    Value* maybe(Value* pointer) {
        return oneIn(30) ? nullptr : pointer;
    }

    int handle() { return oneIn(20) ? anyOf({-1, 4, 99}) : between(0, mostUnits - 1); }
    int channel() { return oneIn(10) ? anyOf({-1, 16, 1000}) : between(0, 15); }
    unsigned selector() { return static_cast<unsigned>(oneIn(10) ? 77 : between(0, 3)); }
    double hertz() {
        return anyOf({1e5, 3e7, 98.5e6, 1e9, 2.45e9, 5.3e9, 1.2e10, 2e10, -1.0, 1e30,
                      std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()});
    }
    /// No sweep of more points than there is room for.
    double resolution() { return anyOf({1e6, 3e6, 1e7, 1e12, std::numeric_limits<double>::quiet_NaN()}); }
    double decibels() {
        return anyOf({-100.0, -30.0, 0.0, 15.0, 1e300, std::numeric_limits<double>::quiet_NaN()});
    }

    static constexpr int mostSamples = 5000;
    std::array<int, 16> ints{};
    std::array<double, 64> doubles{};
    std::array<unsigned, 4> numbers{};
    std::array<unsigned char, 4> bytes{};
    std::array<bool, 4> flags{};
    std::array<char, 64> text{};
    std::uint64_t time = 0;
    std::uint16_t coarse = 0;
    std::vector<float> samples = std::vector<float>(2 * 255 * 2048);
    std::vector<float> trace = std::vector<float>(8'000'000);
    std::vector<std::uint8_t> flash = std::vector<std::uint8_t>(sizeof(HXRCalData));
    std::unique_ptr<HXRCalData> image = std::make_unique<HXRCalData>();
    HXRStreamStatistics statistics{};
    void** streamBuffers() { return streamBuffers_.data(); }

  private:
    std::mt19937_64 random_;
    std::array<std::vector<float>, 16> streams_ = [] {
        std::array<std::vector<float>, 16> all;
        all.fill(std::vector<float>(2 * mostSamples));
        return all;
    }();
    std::array<void*, 16> streamBuffers_{};
};

/// Which simulated units are connected: each once, since the second connect would take the unit from the first.
class Connections {
  public:
    HXRStatus connect(Dice& dice, bool pair) {
        const std::lock_guard lock(mutex_);
        const int unit = dice.between(0, units - 1);
        if (handles_[static_cast<std::size_t>(unit)] >= 0) return hxrNoError;
        int handle = dice.handle();
        const std::string host = dice.oneIn(30) ? "no address" : hostAddress(), address = unitAddress(unit);
        const HXRStatus status =
            pair ? hxrPairDevice(handle, host.c_str(), address.c_str(), controlPort)
                 : hxrConnectDevice(dice.maybe(&handle), host.c_str(), address.c_str(), controlPort);
        if (status >= 0) handles_[static_cast<std::size_t>(unit)] = handle;
        return status;
    }
    HXRStatus close(int handle) {
        const std::lock_guard lock(mutex_);
        const HXRStatus status = hxrCloseDevice(handle);
        // A slave goes with its master, whose handle it is noted by.
        if (status == hxrNoError) std::ranges::replace(handles_, handle, -1);
        return status;
    }

    int units = 1;

  private:
    std::mutex mutex_;
    std::array<int, mostUnits> handles_{-1, -1, -1, -1};
};

using Call = std::function<HXRStatus(Dice&, Connections&)>;

#define CALL(entry, ...)                                                  \
    {                                                                     \
#entry, [](Dice & d, Connections&) { return entry(__VA_ARGS__); } \
    }
#define VALUE(entry, ...)                              \
    {                                                  \
#entry, [](Dice& d, Connections&) {                  \
         static_cast<void>(d);                            \
         static_cast<void>(entry(__VA_ARGS__));           \
         return hxrNoError;                               \
     } \
    }

const std::map<std::string, Call>& calls() {
    static const std::map<std::string, Call> all{
        {"hxrConnectDevice", [](Dice& d, Connections& c) { return c.connect(d, false); }},
        {"hxrPairDevice", [](Dice& d, Connections& c) { return c.connect(d, true); }},
        {"hxrCloseDevice", [](Dice& d, Connections& c) { return d.oneIn(20) ? c.close(d.handle()) : hxrNoError; }},
        CALL(hxrGetSerialNumber, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrGetFirmwareVersion, d.handle(), d.maybe(d.ints.data()), d.ints.data(), d.ints.data()),
        CALL(hxrGetCalDate, d.handle(), d.maybe(d.numbers.data())),
        CALL(hxrGetChannelCount, d.handle(), d.maybe(d.ints.data())),
        VALUE(hxrGetAPIVersion),
        VALUE(hxrGetErrorString, static_cast<HXRStatus>(d.between(-20, 20))),
        CALL(hxrGetDeviceDiagnostics, d.handle(), d.maybe(d.samples.data()), d.samples.data(), d.samples.data()),
        CALL(hxrGetFullDeviceDiagnostics, d.handle(), d.maybe(d.samples.data())),
        CALL(hxrSetLowPowerState, d.handle()),
        CALL(hxrSetFanEnabled, d.handle(), d.selector()),
        CALL(hxrGetFanEnabled, d.handle(), d.maybe(d.numbers.data())),
        CALL(hxrSetFanSetPoint, d.handle(), static_cast<float>(d.decibels())),
        CALL(hxrGetFanSetPoint, d.handle(), d.maybe(d.samples.data())),
        {"hxrSetChannelConfig",
         [](Dice& d, Connections&) {
             for (int& enabled : d.ints) enabled = d.oneIn(3) ? 1 : 0;
             return hxrSetChannelConfig(d.handle(), d.maybe(d.ints.data()), d.oneIn(2) ? -1 : d.channel());
         }},
        CALL(hxrGetChannelConfig, d.handle(), d.maybe(d.ints.data()), d.maybe(d.ints.data())),
        CALL(hxrSetChannelShared, d.handle(), d.channel(), d.between(-1, 2)),
        CALL(hxrGetChannelShared, d.handle(), d.channel(), d.maybe(d.ints.data())),
        CALL(hxrSetChannelFreq, d.handle(), d.channel(), d.hertz()),
        CALL(hxrGetChannelFreq, d.handle(), d.channel(), d.maybe(d.doubles.data())),
        CALL(hxrSetChannelPhaseOffset, d.handle(), d.channel(), d.decibels()),
        CALL(hxrGetChannelPhaseOffset, d.handle(), d.channel(), d.maybe(d.doubles.data())),
        CALL(hxrSetChannelDelay, d.handle(), d.channel(), d.decibels() * 1e-10),
        CALL(hxrGetChannelDelay, d.handle(), d.channel(), d.maybe(d.doubles.data())),
        CALL(hxrSetSharedFreq, d.handle(), d.hertz()),
        CALL(hxrGetSharedFreq, d.handle(), d.maybe(d.doubles.data())),
        CALL(hxrSetStreamDataType, d.handle(), d.selector()),
        CALL(hxrSetStreamFullScale, d.handle(), d.selector()),
        CALL(hxrSetStreamRefLevel, d.handle(), d.decibels()),
        CALL(hxrSetStreamAtten, d.handle(), d.between(-2, 7)),
        CALL(hxrSetStreamSampleRate, d.handle(), d.anyOf({1, 2, 4, 8, 16, 64, 256, 0, 3, -8, 512})),
        CALL(hxrSetStreamBandwidth, d.handle(), d.hertz()),
        CALL(hxrSetStreamTriggerEdge, d.handle(), d.selector()),
        CALL(hxrSetStreamMode, d.handle(), d.selector()),
        CALL(hxrSetStreamLocalAddr, d.handle(), d.between(-1, 4),
             static_cast<std::uint16_t>(d.anyOf({4991, 4992, 5000}))),
        CALL(hxrSetStreamVrtAddr, d.handle(), d.channel(),
             d.maybe(d.anyOf({"192.168.2.3", "10.1", "", "300.1.1.1", "one.two"})), 4991, 0x0123456789AB),
        CALL(hxrSetStreamVrtChannelID, d.handle(), d.channel(), d.between(-1, 100)),
        CALL(hxrSetStreamVrtCntxInterval, d.handle(), d.between(-1, 2), d.between(0, 5000)),
        CALL(hxrSetStreamVrtEndianness, d.handle(), d.selector()),
        CALL(hxrStreamParameters, d.handle(), d.maybe(d.ints.data()), d.doubles.data(), d.doubles.data()),
        CALL(hxrStreamRecv, d.handle(), d.maybe(d.streamBuffers()), d.between(-1, Dice::mostSamples), &d.time,
             d.between(0, 3), d.ints.data(), d.maybe(d.ints.data()), d.maybe(d.doubles.data()), d.between(-1, 64)),
        {"hxrGetStreamStatistics",
         [](Dice& d, Connections&) {
             d.statistics.size = d.oneIn(10) ? static_cast<std::uint64_t>(d.between(0, 40)) : sizeof d.statistics;
             return hxrGetStreamStatistics(d.handle(), d.between(-1, 4), d.maybe(&d.statistics));
         }},
        CALL(hxrStreamCorrection, d.handle(), d.channel(), d.maybe(d.samples.data())),
        CALL(hxrSetSweepRefLevel, d.handle(), d.decibels()),
        CALL(hxrSetSweepAtten, d.handle(), d.between(-2, 7)),
        CALL(hxrSetSweepCenterSpan, d.handle(), d.hertz(), d.anyOf({0.0, 1e6, 1e8, -1.0})),
        CALL(hxrSetSweepStartStop, d.handle(), 1e9, 1e9 + d.anyOf({0.0, 1e6, 1e9})),
        CALL(hxrSetSweepCoupling, d.handle(), d.resolution(), d.resolution(), 1e-6),
        CALL(hxrSetSweepDetector, d.handle(), d.selector(), d.selector()),
        CALL(hxrSetSweepScale, d.handle(), d.selector()),
        CALL(hxrSetSweepWindow, d.handle(), d.selector()),
        CALL(hxrSetVSGEnabled, d.handle(), d.between(0, 1)),
        CALL(hxrSetVSGLevel, d.handle(), d.decibels()),
        CALL(hxrSetVSGPattern, d.handle(), d.maybe(d.samples.data()), d.between(-16, 300) * 16, d.selector()),
        CALL(hxrInitiate, d.handle()),
        CALL(hxrAbort, d.handle()),
        CALL(hxrSweepGetParameters, d.handle(), d.doubles.data(), d.doubles.data(), d.doubles.data(),
             d.doubles.data(), d.maybe(d.ints.data())),
        CALL(hxrSweepStart, d.handle()),
        CALL(hxrSweepFinish, d.handle(), d.maybe(d.trace.data())),
        CALL(hxrGetSweep, d.handle(), d.maybe(d.trace.data())),
        CALL(hxrSetReference, d.handle(), d.selector()),
        CALL(hxrGetReference, d.handle(), d.maybe(d.numbers.data())),
        CALL(hxrSetGPSTimebaseUpdate, d.handle(), d.selector()),
        CALL(hxrGetGPSTimebaseUpdate, d.handle(), d.maybe(d.numbers.data())),
        CALL(hxrGetGPSHoldoverInfo, d.handle(), d.maybe(d.ints.data()), d.maybe(&d.time)),
        CALL(hxrGetGPSState, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrGetGPSInfo, d.handle(), d.between(0, 1), d.maybe(d.ints.data()), &d.time, d.doubles.data(),
             d.doubles.data(), d.doubles.data()),
        CALL(hxrWriteMessageToGPS, d.handle(), 0x20110021, 2, d.oneIn(3) ? 9 : 1),
        CALL(hxrNetworkConfigGetDeviceList, d.maybe(d.ints.data()), d.ints.data() + 8),
        CALL(hxrNetworkConfigOpenDevice, d.maybe(d.ints.data()), 20000001),
        CALL(hxrNetworkConfigCloseDevice, d.handle()),
        CALL(hxrNetworkConfigGetMAC, d.handle(), d.maybe(d.text.data())),
        CALL(hxrNetworkConfigSetIP, d.handle(), d.maybe("192.168.2.10"), 1),
        CALL(hxrNetworkConfigGetIP, d.handle(), d.maybe(d.text.data())),
        CALL(hxrNetworkConfigSetPort, d.handle(), 5000, 0),
        CALL(hxrNetworkConfigGetPort, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrGetPairedDevices, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrAdminGetLOLockFlags, d.handle(), d.maybe(d.ints.data()), d.maybe(d.ints.data())),
        CALL(hxrAdminGetCoarseTuneVal, d.handle(), d.maybe(&d.coarse)),
        CALL(hxrAdminSetCoarseTuneVal, d.handle(), 0x8000),
        CALL(hxrAdminInitFullBandLOs, d.handle(), d.oneIn(2), d.oneIn(2)),
        CALL(hxrAdminReInitChans, d.handle()),
        CALL(hxrAdminConfigureForCBBReadback, d.handle()),
        CALL(hxrAdminCBBReadback, d.handle(), d.oneIn(2), d.oneIn(2), d.channel(), d.between(-1, 800), d.bytes[0],
             d.bytes[1], d.bytes[2]),
        CALL(hxrAdminHasCBBData, d.handle(), d.maybe(d.flags.data())),
        CALL(hxrAdminSetDisableLOOnAbort, d.handle(), d.oneIn(2)),
        {"hxrAdminSetLOCalMode",
         [](Dice& d, Connections&) {
             hxrAdminSetLOCalMode(d.oneIn(2));
             return hxrNoError;
         }},
        VALUE(hxrAdminIsLOCalMode),
        CALL(hxrAdminSetPreselectorFilter, d.oneIn(2) ? 3 : 18),
        VALUE(hxrAdminSetAutoPreselectorFilter),
        CALL(hxrAdminSetCorrectionMode, d.handle(), d.oneIn(2)),
        CALL(hxrAdminSetCorrectionIndex, d.handle(), d.between(-1, 8)),
        CALL(hxrAdminHasPretestCorrections, d.handle(), d.maybe(d.flags.data())),
        CALL(hxrAdminHasChamberCorrections, d.handle(), d.maybe(d.flags.data())),
        CALL(hxrAdminSetLOFT, d.handle(), d.between(-100'000, 100'000), d.between(-100, 100)),
        CALL(hxrAdminManualLoadCorrections, d.handle(), d.maybe(d.image.get())),
        CALL(hxrAdminGetFullBandIQ, d.handle(), d.between(-1, 4), d.oneIn(2), d.hertz(), d.between(-1, 7),
             d.maybe(d.samples.data()), d.anyOf({1, 2, 10, 255, 0, 256}), true,
             d.oneIn(2) ? nullptr : d.samples.data()),
        CALL(hxrAdminSetVSGPatternDirect, d.handle(), d.maybe(d.samples.data()), d.between(-16, 5000)),
        CALL(hxrAdminSetVSGAtten, d.handle(), d.between(-1, 8)),
        CALL(hxrConfigNetGetDeviceList, d.maybe(d.ints.data()), d.ints.data() + 8),
        CALL(hxrConfigNetOpenDevice, d.maybe(d.ints.data()), 20000001),
        CALL(hxrConfigNetBootstrapDevice, d.maybe(d.ints.data()), d.maybe("nothing")),
        CALL(hxrConfigNetCloseDevice, d.handle()),
        CALL(hxrConfigNetPreset, d.handle()),
        CALL(hxrConfigNetGetFPGAStatus, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrConfigNetGetFirmwareVersion, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrConfigNetSetMAC, d.handle(), d.maybe("02:1B:C5:00:12:AF")),
        CALL(hxrConfigNetGetMAC, d.handle(), d.maybe(d.text.data())),
        CALL(hxrConfigNetSetIP, d.handle(), d.maybe("192..2.3"), d.oneIn(2)),
        CALL(hxrConfigNetGetIP, d.handle(), d.maybe(d.text.data())),
        CALL(hxrConfigNetSetPort, d.handle(), 5000, d.oneIn(2)),
        CALL(hxrConfigNetGetPort, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrConfigNetGetSerialFromFlash, d.handle(), d.maybe(d.ints.data())),
        CALL(hxrConfigNetWriteFlashPage, d.handle(), 70'000, d.maybe(d.flash.data())),
        CALL(hxrConfigNetReadFlashPage, d.handle(), 1024, d.maybe(d.flash.data())),
        CALL(hxrConfigNetEraseFlashPage, d.handle(), 70'000),
        CALL(hxrConfigNetWriteFx3, d.handle(), d.maybe("nothing"), 1),
        CALL(hxrConfigNetClearFx3, d.handle()),
        CALL(hxrConfigNetWriteFGPA, d.handle(), d.maybe("nothing")),
        CALL(hxrConfigNetClearFPGA, d.handle()),
        CALL(hxrConfigNetWriteCorrections, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetReadCorrections, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetClearCorrections, d.handle()),
        CALL(hxrConfigNetClearChamber, d.handle()),
        CALL(hxrConfigNetWriteCBB, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetReadCBB, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetClearCBB, d.handle()),
        CALL(hxrConfigNetWritePretest, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetReadPretest, d.handle(), d.maybe(d.flash.data())),
        CALL(hxrConfigNetClearPretest, d.handle()),
        VALUE(hxrCalGetTempFromIndex, d.between(-2, 9)),
        VALUE(hxrCalDoesFlashHeaderExist, d.maybe(d.image.get())),
        VALUE(hxrCalHasPretestCorrections, d.maybe(d.image.get())),
        VALUE(hxrCalDoesCorrectionsExist, d.maybe(d.flash.data())),
        VALUE(hxrCalDoesCBBDataExist, d.maybe(&d.image->cbb)),
        VALUE(hxrCalFlashDataPresent, d.maybe(d.flash.data()), d.between(-1, 1000)),
        VALUE(hxrCalGetCorrectionCalDate, d.maybe(d.image.get())),
        {"hxrCalBuildDummyCorrections",
         [](Dice& d, Connections&) {
             if (d.oneIn(50)) hxrCalBuildDummyCorrections(d.maybe(d.image.get()));
             return hxrNoError;
         }},
        {"hxrCalPropagateSingleTempCal",
         [](Dice& d, Connections&) {
             if (d.oneIn(50)) hxrCalPropagateSingleTempCal(*d.image, d.between(-1, 7), d.between(-1, 7));
             return hxrNoError;
         }},
        VALUE(hxrCalLoadFromFile, d.maybe("nothing"), d.maybe(d.image.get())),
    };
    return all;
}

#undef CALL
#undef VALUE

/// The entries of the header that no call is made of.
std::set<std::string> forgotten() {
    std::set<std::string> names;
    for (const std::string& name : hxr::test::exportedEntries(HXR_SIGNATURES)) {
        if (!calls().contains(name)) names.insert(name);
    }
    return names;
}

/// What a thread is calling, for the watchdog.
struct Activity {
    std::atomic<const char*> entry = "nothing";
    std::atomic<std::chrono::steady_clock::duration> since{};
    std::atomic<std::uint64_t> calls = 0;
};

struct Options {
    std::uint64_t seed = std::random_device()();
    double seconds = 60;
    int threads = 4, units = mostUnits;
};

class Campaign {
  public:
    explicit Campaign(const Options& options)
        : options_(options), activities_(static_cast<std::size_t>(options.threads)), left_(options.threads) {
        clock_.shortenTimeouts(20);
        hxr::api::Environment environment;
        environment.clock = &clock_;
        environment.calFolder = hxr::CalFolder(folder_.path() / "cache", folder_.path() / "local");
        hxr::api::deviceTable().useEnvironment(environment);
        hxr::configNetTable().useEnvironment(hxr::platform::systemUsbBus(), clock_);
        const auto line = std::make_shared<hxr::sim::SyncLine>();
        for (int i = 0; i < options.units; ++i) {
            hxr::sim::UnitOptions unit;
            unit.address = unitAddress(i);
            unit.syncLine = line;
            unit.identity.serialNumber = 12345678 + static_cast<std::uint32_t>(i);
            unit.image = hxr::test::imageFor(i);
            units_.push_back(std::make_unique<hxr::sim::SimulatedUnit>(std::move(unit)));
            units_.back()->start();
        }
        connections_.units = options.units;
    }

    bool run() {
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < activities_.size(); ++i)
            threads.emplace_back([this, i] { callAtRandom(activities_[i], options_.seed + i); });
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options_.seconds);
        while (std::chrono::steady_clock::now() < end && good_) {
            std::this_thread::sleep_for(100ms);
            clock_.advance(100ms);
            watch();
        }
        running_ = false;
        while (left_ > 0) {
            watch();
            std::this_thread::sleep_for(10ms);
        }
        for (std::thread& thread : threads) thread.join();
        std::uint64_t total = 0;
        for (const Activity& activity : activities_) total += activity.calls;
        for (int handle = 0; handle < mostUnits; ++handle) hxrCloseDevice(handle);
        std::map<std::string, int> breaches;
        for (const auto& unit : units_) {
            for (const std::string& breach : unit->breaches())
                ++breaches[breach.substr(0, breach.find(" ("))];
        }
        for (const auto& [breach, count] : breaches) std::printf("%d times: %s\n", count, breach.c_str());
        std::printf("%llu calls of %zu entries\n", static_cast<unsigned long long>(total), calls().size());
        return good_;
    }

  private:
    void callAtRandom(Activity& activity, std::uint64_t seed) {
        Dice dice(seed);
        std::vector<const std::pair<const std::string, Call>*> entries;
        for (const auto& entry : calls()) entries.push_back(&entry);
        while (running_) {
            const auto& [name, call] =
                *entries[static_cast<std::size_t>(dice.between(0, static_cast<int>(entries.size()) - 1))];
            activity.since = std::chrono::steady_clock::now().time_since_epoch();
            activity.entry = name.c_str();
            const HXRStatus status = call(dice, connections_);
            activity.entry = "nothing";
            ++activity.calls;
            if (status < hxrSweepNotStartedErr || status > hxrCalChecksumFailed) {
                std::printf("%s returned %d\n", name.c_str(), static_cast<int>(status));
                good_ = false;
            }
        }
        --left_;
    }

    /// A call that lasts for a minute hangs.
    void watch() const {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        for (const Activity& activity : activities_) {
            const std::string entry = activity.entry.load();
            if (entry == "nothing" || now - activity.since.load() < 60s) continue;
            std::printf("%s hangs; seed %llu; the threads call:\n", entry.c_str(),
                        static_cast<unsigned long long>(options_.seed));
            for (const Activity& each : activities_) std::printf("  %s\n", each.entry.load());
            std::fflush(stdout);
            std::abort();
        }
    }

    const Options options_;
    hxr::test::TestClock clock_;
    hxr::test::TemporaryFolder folder_;
    std::vector<std::unique_ptr<hxr::sim::SimulatedUnit>> units_;
    Connections connections_;
    std::vector<Activity> activities_;
    std::atomic<bool> running_ = true, good_ = true;
    std::atomic<int> left_;  ///< threads that go on
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Calls all entries at random.");
    Options options;
    app.add_option("--seed", options.seed, "of the random numbers");
    app.add_option("--seconds", options.seconds, "how long")->capture_default_str();
    app.add_option("--threads", options.threads, "that call")
        ->check(CLI::Range(1, 16))
        ->capture_default_str();
    app.add_option("--units", options.units, "simulated")
        ->check(CLI::Range(1, mostUnits))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    for (const std::string& name : forgotten()) std::printf("never called: %s\n", name.c_str());
    if (!forgotten().empty()) return 1;
    std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
    std::fflush(stdout);
    return Campaign(options).run() ? 0 : 1;
}
