// How fast the host can sweep: against a simulated unit on loopback that answers as fast as it can, and beside the pace
// of a receiver, which takes 25 us a step to tune and 40.96 us a block to capture.
//
// The simulated unit works on the same processors as the host, so a sweep's whole time is that of both. Processor times
// tell the two apart: "cores" is what the host would need beside a receiver that sweeps at its own pace.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <vector>

#include "api/device_table.h"
#include "device/hxr_device.h"
#include "hxr_api.h"
#include "sim/simulated_unit.h"
#include "support/allocation.h"
#include "sweep/sweep_fft.h"
#include "sweep/sweep_plan.h"
#include "thread_times.h"

namespace {

using namespace hxr;
using bench::ThreadTimes;
using bench::ThreadWork;
using Clock = std::chrono::steady_clock;

constexpr const char* hostAddress = "127.9.1.1";
constexpr const char* unitAddress = "127.9.1.2";
constexpr std::uint16_t controlPort = 5000;

constexpr double secondsPerTuning = 25e-6;
constexpr double secondsPerBlock = 40.96e-6;

struct SweepCase {
    const char* range;
    double start, stop, rbw, vbw;
};

constexpr SweepCase fullRange = {"100 kHz to 20 GHz", 100e3, 20e9, 100e3, 100e3};
constexpr SweepCase sweeps[] = {
    {"100 kHz to 20 GHz", 100e3, 20e9, 1e6, 1e6}, {"100 kHz to 20 GHz", 100e3, 20e9, 1e6, 100},
    {"100 kHz to 20 GHz", 100e3, 20e9, 1e5, 1e5}, {"100 kHz to 20 GHz", 100e3, 20e9, 1e5, 100},
    {"100 kHz to 20 GHz", 100e3, 20e9, 1e4, 1e4}, {"100 kHz to 20 GHz", 100e3, 20e9, 1e4, 100},
    {"1.0 to 1.1 GHz", 1e9, 1.1e9, 1e3, 1e3},     {"1.0 to 1.1 GHz", 1e9, 1.1e9, 1e3, 100},
    {"1.0 to 1.1 GHz", 1e9, 1.1e9, 100, 100},     {"1.00 to 1.01 GHz", 1e9, 1.01e9, 1e7, 100},
};

void check(HXRStatus status) {
    if (status != hxrNoError) throw std::runtime_error(hxrGetErrorString(status));
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// A connected unit that hears nothing, with its first channel on for sweeps.
class Bench {
  public:
    explicit Bench(const std::filesystem::path& folder)
        : unit_({.address = unitAddress, .controlPort = controlPort, .paced = false, .recordedPackets = 0}) {
        api::Environment environment;
        environment.calFolder = CalFolder(folder, folder);
        api::deviceTable().useEnvironment(environment);
        unit_.start();
        check(hxrConnectDevice(&handle_, hostAddress, unitAddress, controlPort));
        std::vector<int> enabled(mostChannels);
        enabled[0] = 1;
        check(hxrSetChannelConfig(handle_, enabled.data(), 0));
    }
    ~Bench() { hxrCloseDevice(handle_); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Takes settings over, with the shortest sweep time.
    void set(const SweepCase& settings) const {
        check(hxrSetSweepCoupling(handle_, settings.rbw, settings.vbw, 1e-6));
        check(hxrSetSweepStartStop(handle_, settings.start, settings.stop));
    }

    double initiate() const {
        const auto start = Clock::now();
        check(hxrInitiate(handle_));
        return secondsSince(start);
    }
    void abort() const { check(hxrAbort(handle_)); }

    std::vector<float> trace() const {
        int points = 0;
        check(hxrSweepGetParameters(handle_, nullptr, nullptr, nullptr, nullptr, &points));
        return std::vector<float>(static_cast<std::size_t>(points));
    }

    double sweep(std::vector<float>& trace) const {
        const auto start = Clock::now();
        check(hxrGetSweep(handle_, trace.data()));
        return secondsSince(start);
    }

    /// What the settings of the device are planned to.
    SweepPlan plan() const {
        const HXRDevice& device = *api::deviceTable().find(handle_);
        LoContext synthesizers = device.loContext;
        return planSweep(device, {synthesizers, *device.corrections, 0}).plan;
    }
    const SweepSettings& settings() const { return *api::deviceTable().find(handle_); }

  private:
    sim::SimulatedUnit unit_;
    int handle_ = -1;
};

/// Seconds that one thread takes for a step, level correction and all, straight into the trace; the best of some.
double transformAlone(const SweepPlan& plan, const SweepSettings& settings, bool silence) {
    SweepFft fft(plan, settings);
    const auto samples = platform::makeAlignedArray<cf32>(static_cast<std::size_t>(plan.samplesPerStep()));
    std::mt19937 engine(1);
    std::uniform_real_distribution<float> value(-0.1F, 0.1F);
    for (std::int32_t i = 0; i < plan.samplesPerStep() && !silence; ++i)
        samples[static_cast<std::size_t>(i)] = {value(engine), value(engine)};
    const SweepStep& step = plan.steps.back();
    const auto trace = platform::makeAlignedArray<float>(static_cast<std::size_t>(step.binCount));
    constexpr double longEnough = 0.3;
    double best = 1e9;
    for (const auto start = Clock::now(); best == 1e9 || secondsSince(start) < longEnough;) {
        const auto before = Clock::now();
        fft.transformStep(step, samples.get(), trace.get());
        best = std::min(best, secondsSince(before));
    }
    return best;
}

void printHeading() {
    std::printf("%-18s %8s %8s | %7s %6s %5s %6s | %8s %19s %9s %5s | %43s %5s | %19s\n", "", "", "",
                "points", "FFTs", "", "", "", "us a step", "receiver", "", "processor time, us a step, of",
                "", "us a transform");
    std::printf("%-18s %8s %8s | %7s %6s %5s %6s | %8s %9s %9s %9s %5s | %9s %11s %9s %11s %5s | %9s %9s\n",
                "range", "RBW kHz", "VBW kHz", "an FFT", "a step", "steps", "blocks", "sweeps/s", "median",
                "least", "us a step", "ratio", "receiving", "transforms", "caller", "the unit", "cores",
                "alone", "silence");
}

void measure(const Bench& bench, const SweepCase& settings) {
    constexpr double longEnough = 2.0;
    constexpr std::size_t fewest = 3;
    bench.set(settings);
    bench.initiate();
    const SweepPlan plan = bench.plan();
    std::vector<float> trace = bench.trace();
    bench.sweep(trace);
    bench.sweep(trace);
    std::vector<double> times;
    const ThreadTimes before = bench::threadTimes();
    for (const auto start = Clock::now(); times.size() < fewest || secondsSince(start) < longEnough;)
        times.push_back(bench.sweep(trace));
    const double steps = plan.stepCount;
    const auto each =
        bench::meanBetween(before, bench::threadTimes(), steps * static_cast<double>(times.size()));
    const SweepSettings set = bench.settings();
    bench.abort();

    const double receiver = secondsPerTuning + secondsPerBlock * plan.blocksPerStep;
    const double middle = median(times) / steps;
    std::printf("%-18s %8g %8g | %7d %6u %5d %6d | %8.2f %9.1f %9.1f %9.1f %5.2f ", settings.range,
                settings.rbw * 1e-3, settings.vbw * 1e-3, plan.fftSize, plan.fftsPerStep, plan.stepCount,
                plan.blocksPerStep, 1.0 / median(times), 1e6 * middle,
                1e6 * *std::ranges::min_element(times) / steps, 1e6 * receiver, middle / receiver);
    std::printf("| %9.1f %11.1f %9.1f %11.1f %5.2f ", 1e6 * each.of(ThreadWork::receive),
                1e6 * each.of(ThreadWork::transform), 1e6 * each.of(ThreadWork::caller),
                1e6 * each.of(ThreadWork::unit), each.host() / receiver);
    std::printf("| %9.1f %9.1f\n", 1e6 * transformAlone(plan, set, false),
                1e6 * transformAlone(plan, set, true));
    std::fflush(stdout);
}

void measureInitiate(const Bench& bench) {
    constexpr int rounds = 11;
    bench.set(fullRange);
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        times.push_back(bench.initiate());
        bench.abort();
    }
    std::ranges::sort(times);
    std::printf("initiate of %s at RBW 100 kHz: %.1f ms (%.1f to %.1f)\n", fullRange.range,
                1e3 * median(times), 1e3 * times.front(), 1e3 * times.back());
}

void measureAllocations(const Bench& bench) {
    constexpr int before = 3, counted = 7;
    const auto ofTheUnit = [](std::string_view thread) {
        return bench::workOfThread(thread) == ThreadWork::unit;
    };
    bench.set(fullRange);
    test::countAllocations(ofTheUnit);
    bench.initiate();
    const test::Allocations atStart = test::takeAllocations();
    std::vector<float> trace = bench.trace();
    for (int i = 0; i < before; ++i) bench.sweep(trace);
    test::countAllocations(ofTheUnit);
    for (int i = 0; i < counted; ++i) bench.sweep(trace);
    const test::Allocations inSweeps = test::takeAllocations();
    bench.abort();
    std::printf(
        "allocations by the host: %ld by that initiate, %.2f by a sweep; by the simulated unit %.2f\n",
        atStart.ours, static_cast<double>(inSweeps.ours) / counted,
        static_cast<double>(inSweeps.theirs) / counted);
}

}  // namespace

/// Argument: the number of one sweep, counted from 0; all unless given.
int main(int count, char** arguments) {
    const auto folder = std::filesystem::temp_directory_path() / "hxr_sweep_bench";
    std::filesystem::remove_all(folder);
    {
        const Bench bench(folder);
        printHeading();
        if (count > 1) {
            measure(bench, sweeps[std::min(std::size(sweeps) - 1, std::strtoul(arguments[1], nullptr, 10))]);
        } else {
            for (const SweepCase& settings : sweeps) measure(bench, settings);
            measureInitiate(bench);
            measureAllocations(bench);
        }
    }
    std::filesystem::remove_all(folder);
    return 0;
}
