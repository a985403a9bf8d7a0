// Time that a connect takes beyond the pauses in which the unit's chips settle, with and without a calibration cache.
// The unit is a simulated one on loopback; the pauses last as long as they say.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "api/device_table.h"
#include "hxr_api.h"
#include "sim/simulated_unit.h"

namespace {

using namespace hxr;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr const char* hostAddress = "127.9.0.1";
constexpr const char* unitAddress = "127.9.0.2";
constexpr std::uint16_t controlPort = 5000;
constexpr int rounds = 11;

/// The machine's clock, which adds up the pauses that it is asked for.
class CountingClock final : public platform::Clock {
  public:
    std::uint64_t monotonicMs() const override { return machine_.monotonicMs(); }
    std::int64_t utcSeconds() const override { return machine_.utcSeconds(); }
    void sleep(std::chrono::milliseconds pause) override {
        asked_ += pause;
        machine_.sleep(pause);
    }
    std::chrono::milliseconds timeout(std::chrono::milliseconds nominal) const override { return nominal; }

    std::chrono::milliseconds takeAsked() { return std::exchange(asked_, std::chrono::milliseconds(0)); }

  private:
    platform::Clock& machine_ = platform::systemClock();
    std::chrono::milliseconds asked_{0};
};

struct Connect {
    Milliseconds whole, pauses;
    Milliseconds beyond() const { return whole - pauses; }
};

Connect measure(CountingClock& clock) {
    int handle = -1;
    const auto before = std::chrono::steady_clock::now();
    const HXRStatus status = hxrConnectDevice(&handle, hostAddress, unitAddress, controlPort);
    const Milliseconds whole = std::chrono::steady_clock::now() - before;
    if (status != hxrNoError) throw std::runtime_error(hxrGetErrorString(status));
    hxrCloseDevice(handle);
    return {whole, clock.takeAsked()};
}

}  // namespace

int main() {
    const auto folder = std::filesystem::temp_directory_path() / "hxr_connect_bench";
    std::filesystem::remove_all(folder);
    CountingClock clock;
    api::Environment environment;
    environment.clock = &clock;
    environment.calFolder = CalFolder(folder, folder);
    api::deviceTable().useEnvironment(environment);
    sim::SimulatedUnit unit({.address = unitAddress, .controlPort = controlPort});
    unit.start();

    for (const bool cached : {false, true}) {
        std::vector<Connect> connects;
        for (int round = 0; round < rounds; ++round) {
            if (!cached) std::filesystem::remove_all(folder);
            connects.push_back(measure(clock));
        }
        std::ranges::sort(connects, {}, &Connect::beyond);
        const Connect& median = connects[rounds / 2];
        std::printf("connect %-15s %6.0f ms: %4.0f ms of pauses and %5.1f ms beyond them (%.1f to %.1f)\n",
                    cached ? "with a cache" : "without a cache", median.whole.count(), median.pauses.count(),
                    median.beyond().count(), connects.front().beyond().count(),
                    connects.back().beyond().count());
    }
    std::filesystem::remove_all(folder);
    return 0;
}
