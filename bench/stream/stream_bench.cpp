// I/Q streams from simulated units that go by their own clock, on the processors of the same machine: what they cost, and
// whether anything is lost; beside what a bare loop of `recvmmsg` that copies everything twice costs in the same run.
//
//   stream_bench [SECONDS [check]]   of each stream; 5 by default. With `check` the units count their samples, and every
//                                    one that comes as it was sent is looked at.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "api/device_table.h"
#include "bare_loop.h"
#include "hxr_api.h"
#include "sim/simulated_unit.h"

namespace {

using namespace hxr;
using Clock = std::chrono::steady_clock;

constexpr const char* hostAddress = "127.9.2.1";
constexpr std::uint16_t controlPort = 5000;

void check(HXRStatus status) {
    if (status != hxrNoError) throw std::runtime_error(hxrGetErrorString(status));
}

/// Processor time of the library, the caller among it, and of the simulated units.
struct ProcessorSeconds {
    double library = 0, units = 0;
};
ProcessorSeconds processorSeconds() {
    ProcessorSeconds seconds;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        double nanoseconds = 0;
        std::ifstream(thread.path() / "schedstat") >> nanoseconds;
        (name.starts_with("hxr-sim") ? seconds.units : seconds.library) += 1e-9 * nanoseconds;
    }
    return seconds;
}

std::size_t residentMebibytes() {
    std::size_t pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4096 >> 20;
}

/// A group of simulated units and the driver that is connected to it.
class Group {
  public:
    Group(int size, bool realTime, sim::StreamContent content, const std::filesystem::path& folder) {
        api::Environment environment;
        environment.calFolder = CalFolder(folder, folder);
        api::deviceTable().useEnvironment(environment);
        const auto syncLine = std::make_shared<sim::SyncLine>();
        for (int i = 0; i < size; ++i) {
            const std::string address = "127.9.2." + std::to_string(2 + i);
            units_.push_back(std::make_unique<sim::SimulatedUnit>(
                sim::UnitOptions{.address = address,
                                 .controlPort = controlPort,
                                 .identity = {.serialNumber = 555U + static_cast<std::uint32_t>(i)},
                                 .streamContent = content,
                                 .streamLoopTurns = 64,
                                 .streamsInRealTime = realTime,
                                 .syncLine = syncLine,
                                 .paced = false,
                                 .recordedPackets = 0}));
            units_.back()->start();
            check(i == 0 ? hxrConnectDevice(&handle, hostAddress, address.c_str(), controlPort)
                         : hxrPairDevice(handle, hostAddress, address.c_str(), controlPort));
        }
    }
    ~Group() {
        hxrCloseDevice(handle);
        api::deviceTable().useEnvironment({});
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    int handle = -1;

  private:
    std::vector<std::unique_ptr<sim::SimulatedUnit>> units_;
};

struct Setting {
    int units;
    int decimation;
    bool floats;
    bool realTime;
};

/// Processor time of the bare loop with the samples of a unit, nanoseconds each. The unit sends them there by itself.
double measureBareLoop(int handle, std::size_t perCall, double seconds) {
    constexpr std::uint16_t port = 4992;
    for (int channel = 0; channel < 4; ++channel)
        check(hxrSetStreamVrtAddr(handle, channel, hostAddress, port, 0));
    check(hxrSetStreamVrtCntxInterval(handle, 0, 0));
    check(hxrSetStreamMode(handle, 1));
    BareLoop loop(hostAddress, port, 4, perCall);
    check(hxrInitiate(handle));
    loop.run(0.5);
    const ProcessorSeconds before = processorSeconds();
    const double samples = loop.run(seconds);
    const ProcessorSeconds after = processorSeconds();
    check(hxrAbort(handle));
    return 1e9 * (after.library - before.library) / samples;
}

/// Where the count of a unit's samples isn't unbroken from call to call.
class CountCheck {
  public:
    /// @param samples  16-bit I and Q of a channel
    void look(std::size_t channel, const std::uint16_t* samples, int count) {
        const std::uint32_t first = std::uint32_t{samples[1]} >> 3 << 15 | samples[0] >> 1;
        const std::uint32_t input = static_cast<std::uint32_t>(channel % 4) << 1;
        std::uint32_t wrong = first ^ next_[channel].value_or(first);
        for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(count); ++i) {
            const std::uint32_t position = first + i;
            wrong |= (samples[2 * i] ^ position << 1) & 0xFFFE;
            wrong |= (samples[2 * i + 1] ^ (position >> 15 << 3 | input)) & 0xFFFE;
        }
        breaks += wrong != 0 ? 1 : 0;
        next_[channel] = (first + static_cast<std::uint32_t>(count)) & 0xFFFFFFF;
    }
    std::int64_t breaks = 0;

  private:
    std::array<std::optional<std::uint32_t>, 16> next_{};
};

void measure(const Setting& setting, double seconds, bool checked, const std::filesystem::path& folder) {
    Group group(setting.units, setting.realTime,
                checked ? sim::StreamContent::counter : sim::StreamContent::scene, folder);
    const int channels = 4 * setting.units;
    std::array<int, 16> enabled{};
    std::fill_n(enabled.begin(), channels, 1);
    check(hxrSetChannelConfig(group.handle, enabled.data(), -1));
    check(hxrSetStreamSampleRate(group.handle, setting.decimation));
    check(hxrSetStreamDataType(group.handle, setting.floats ? 1 : 0));
    check(hxrInitiate(group.handle));

    constexpr int count = 1 << 17;
    const double rate = 50e6 / setting.decimation;
    const int perCall = std::max(2048, std::min(count, static_cast<int>(rate / 400)));
    std::vector<std::vector<std::array<float, 2>>> samples(static_cast<std::size_t>(channels),
                                                           std::vector<std::array<float, 2>>(count));
    std::vector<void*> buffers;
    for (auto& channel : samples) buffers.push_back(channel.data());
    const auto fetch = [&](int* loss, int* left, std::uint64_t* time) {
        return hxrStreamRecv(group.handle, buffers.data(), perCall, time, 0, loss, left, nullptr, 0);
    };
    int loss = 0, left = 0;
    std::uint64_t time = 0;
    // Until the rings have come round once, and all their memory is there.
    for (const auto warm = Clock::now(); Clock::now() - warm < std::chrono::milliseconds(500);)
        fetch(&loss, &left, &time);

    double fetched = 0;
    int losses = 0, warnings = 0, mostLeft = 0;
    std::int64_t breaks = 0;
    CountCheck counts;
    std::uint64_t expected = time + static_cast<std::uint64_t>(perCall * 1e9 / rate + 0.5);
    const std::size_t memoryBefore = residentMebibytes();
    const ProcessorSeconds before = processorSeconds();
    const auto start = Clock::now();
    double elapsed = 0;
    for (; elapsed < seconds; elapsed = std::chrono::duration<double>(Clock::now() - start).count()) {
        const HXRStatus status = fetch(&loss, &left, &time);
        warnings += status != hxrNoError ? 1 : 0;
        losses += loss;
        mostLeft = std::max(mostLeft, left);
        // A sample that is lost leaves a gap in time.
        const auto off = static_cast<std::int64_t>(time - expected);
        breaks += off > 1000 || off < -1000 ? 1 : 0;
        expected = time + static_cast<std::uint64_t>(perCall * 1e9 / rate + 0.5);
        fetched += static_cast<double>(perCall) * channels;
        for (std::size_t i = 0; checked && !setting.floats && i < samples.size(); ++i)
            counts.look(i, reinterpret_cast<const std::uint16_t*>(samples[i].data()), perCall);
    }
    const ProcessorSeconds after = processorSeconds();
    const double library = after.library - before.library, units = after.units - before.units;
    check(hxrAbort(group.handle));
    std::printf("%5d %8d %10d %7s %6s | %9.1f %9.1f | %8.2f %8.2f %9.2f | %6d %8d %6lld %9.1f | %+5ld",
                setting.units, channels, setting.decimation, setting.floats ? "float" : "16-bit",
                setting.realTime ? "own" : "none", 1e-6 * rate * channels, 1e-6 * fetched / elapsed,
                library / elapsed, units / elapsed, 1e9 * library / fetched, losses, warnings,
                static_cast<long long>(breaks + counts.breaks), 1e3 * mostLeft / rate,
                static_cast<long>(residentMebibytes()) - static_cast<long>(memoryBefore));
    if (setting.units == 1 && setting.decimation <= 4 && setting.realTime && !checked) {
        const double bare = measureBareLoop(group.handle, static_cast<std::size_t>(perCall), seconds);
        std::printf(" | %8.2f %5.2f", bare, 1e9 * library / fetched / bare);
    }
    std::printf("\n");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 5;
    const bool checked = argc > 2 && std::string_view(argv[2]) == "check";
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "hxr-stream-bench";
    std::filesystem::create_directories(folder);
    std::printf("%30s %9s | %19s | %8s %8s %9s | %6s %8s %6s %9s | %5s | %s\n", "", "", "MS/s", "cores",
                "cores", "ns a", "", "", "time", "most left", "MiB", "bare loop");
    std::printf("%5s %8s %10s %7s %6s | %9s %9s | %8s %8s %9s | %6s %8s %6s %9s | %5s | %8s %5s\n", "units",
                "channels", "decimation", "samples", "pace", "asked", "fetched", "library", "units", "sample",
                "losses", "warnings", "breaks", "ms", "more", "ns", "ratio");
    const Setting settings[] = {
        {1, 1, false, true},  {1, 1, true, true},   {1, 2, false, true}, {1, 4, false, true},
        {1, 8, true, true},   {1, 16, true, true},  {1, 32, true, true}, {1, 64, true, true},
        {1, 128, true, true}, {1, 256, true, true}, {4, 4, false, true}, {4, 8, true, true},
        {4, 256, true, true}, {1, 1, false, false}, {1, 8, true, false},
    };
    try {
        for (const Setting& setting : settings) measure(setting, seconds, checked, folder);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    std::filesystem::remove_all(folder);
    return 0;
}
