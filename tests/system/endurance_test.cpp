#include <dirent.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/installation.h"
#include "support/process_resources.h"

namespace hxr {
namespace {

using test::Installation;
using test::openDescriptors;
using test::threads;

std::size_t residentPages() {
    std::size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

/// What the system tells of one thread: the value behind a name in its status file.
std::string threadField(const std::string& task, const std::string& name) {
    std::ifstream status("/proc/self/task/" + task + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) return line.substr(line.find_first_not_of(" \t", name.size() + 1));
    }
    return {};
}

std::set<std::string> threadsNamed(const std::string& name) {
    std::set<std::string> found;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string number = task.path().filename().string();
        if (threadField(number, "Name") == name) found.insert(number);
    }
    return found;
}

std::set<std::string> threadsNamed(const std::string& name, std::size_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (threadsNamed(name).size() != expected && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return threadsNamed(name);
}

class Endurance : public Installation {};

constexpr int rounds = 200;

TEST_F(Endurance, ConnectingHundredsOfTimesUsesNothingUp) {
    sim::SimulatedUnit& unit = startUnit();
    const auto round = [&](int number) {
        // Every other connect fails, each time a little later.
        unit.faults().silenceAfterReplies(number % 2 == 0 ? 1000 : static_cast<std::size_t>(number / 2 % 10));
        clock.shortenTimeouts(number % 2 == 0 ? 1 : 40);
        EXPECT_EQ(connect() == hxrNoError, number % 2 == 0) << number;
        if (number % 2 == 0) {
            EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);
        }
        // A request that the unit hasn't come to yet goes with its socket.
        unit.stop();
        unit.faults().revive();
        unit.start();
        forgetWhatWasSent(unit);
    };
    for (int i = 0; i < 20; ++i) round(i);
    while (!threadsNamed("HXR Receive").empty()) std::this_thread::yield();
    const std::size_t descriptorsBefore = openDescriptors(), threadsBefore = threads(),
                      pagesBefore = residentPages();
    for (int i = 0; i < rounds; ++i) round(i);
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
    EXPECT_EQ(threads(threadsBefore), threadsBefore);
    EXPECT_LT(residentPages(), pagesBefore + 1024);  // 4 MiB: half of one image
}

class Threads : public Installation {};

TEST_F(Threads, BlockSignalsAndEndWithTheDevice) {
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    // Of the control and of the data endpoint. A thread takes its name when it first runs.
    const auto movers = threadsNamed("HXR Receive", 2);
    EXPECT_EQ(movers.size(), 2U);
    for (const std::string& mover : movers) {
        // All but those that the system keeps for itself.
        const auto blocked = std::stoull(threadField(mover, "SigBlk"), nullptr, 16);
        constexpr unsigned long long killAndStop = 1ULL << 8 | 1ULL << 18;
        constexpr unsigned long long keptByTheSystem = 1ULL << 31 | 1ULL << 32;
        EXPECT_EQ(blocked | killAndStop | keptByTheSystem, ~0ULL) << std::hex << blocked;
    }
    const std::size_t withDevice = threads();
    hxrCloseDevice(handle);
    constexpr std::size_t holdoverWriters = 1;
    const std::size_t without = withDevice - movers.size() - holdoverWriters;
    EXPECT_EQ(threads(without), without);
    EXPECT_TRUE(threadsNamed("HXR Receive").empty());
}

}  // namespace
}  // namespace hxr
