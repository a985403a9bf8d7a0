#include "sim/simulated_unit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "capture_support.h"
#include "sim/byte_order.h"
#include "sim/data_datagram.h"
#include "sim/fault_text.h"
#include "sim/sources.h"
#include "support/loopback.h"
#include "support/peer.h"
#include "synthesizer_images.h"

namespace hxr::sim {
namespace {

using test::Peer;
using namespace std::chrono_literals;

constexpr std::uint16_t controlPort = 5000;
constexpr std::uint16_t dataPort = 4991;
constexpr auto aMoment = 30;

using test::Words;
const Words statusRequest = {0x11000008};
const Words flashModeOn = {0x0F000100, 0x1F000001, 0x05000001, 0, 0};

UnitOptions optionsAt(const std::string& address) {
    UnitOptions options;
    options.address = address;
    options.image = makeBlankImage();
    return options;
}

struct SimulatedUnitTest : ::testing::Test {
    void SetUp() override { unit.start(); }

    void send(const Words& words) { host.sendWords(unit.address(), controlPort, words); }
    /// The number of datagrams that a request of one status brings.
    std::size_t repliesToStatus() {
        send(statusRequest);
        std::size_t count = host.receive().has_value() ? 1 : 0;
        while (host.receive(aMoment)) ++count;
        return count;
    }

    SimulatedUnit unit{optionsAt(test::nextAddress())};
    Peer host{test::nextAddress(), controlPort};
};

TEST_F(SimulatedUnitTest, CountsUnknownWordsAndDatagramsOfAWrongLength) {
    send({0x02000000, 0x11000008});
    ASSERT_TRUE(host.receive()) << "the words behind an unknown one still run";
    host.send(unit.address(), controlPort, std::vector<std::uint8_t>(2047));
    ASSERT_TRUE(unit.recording().waitForPackets(2, 10s));
    EXPECT_EQ(unit.unknownWords(), 1u);
    EXPECT_EQ(unit.brokenRules(), 1u);
    EXPECT_EQ(unit.breaches().size(), 2u);
    unit.clearBreaches();
    EXPECT_EQ(unit.unknownWords() + unit.brokenRules(), 0u);
}

TEST_F(SimulatedUnitTest, SendsAsManySampleDatagramsAsACaptureAsksFor) {
    send({0x12000028, 0x11000008});
    for (int i = 0; i < 40; ++i) {
        const auto samples = host.receive();
        ASSERT_TRUE(samples);
        ASSERT_EQ(samples->bytes.size(), 8216u);
        EXPECT_EQ(samples->bytes[1] & 15, i % 16) << "the packet count";
    }
    const auto status = host.receive();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->bytes.size(), statusRecordBytes);
}

TEST_F(SimulatedUnitTest, HearsItsSceneWithoutAGapAndReportsWhenItIsOverdriven) {
    const struct {
        double dbm;
        bool overdriven;
    } cases[] = {{-20, false}, {6, true}, {-20, false}};
    for (const auto& test : cases) {
        auto scene = std::make_shared<Scene>();
        scene->with<Tone>(3'882'812'500.0 + 1'250e3, test.dbm);
        unit.setScene(scene);
        Words words = test::lowImage(0x41);
        for (const Words& more :
             {test::passThrough(), test::stepOneHundred, {0x12000002, 0x11000008, 0x11000008}})
            test::append(words, more);
        send(words);

        test::Samples samples;
        for (int i = 0; i < 2; ++i) {
            const auto block = host.receive();
            ASSERT_TRUE(block && block->bytes.size() == dataDatagramBytes);
            const auto part = test::samplesOf(std::span(block->bytes).subspan(20, dataPayloadBytes));
            samples.insert(samples.end(), part.begin(), part.end());
        }
        if (!test.overdriven) {
            EXPECT_NEAR(std::abs(test::lineAt(samples, 1'250e3)), 0.1 * std::sqrt(2.0), 3e-4);
        }
        for (const bool first : {true, false}) {
            const auto status = host.receive();
            ASSERT_TRUE(status && status->bytes.size() == statusRecordBytes);
            EXPECT_EQ(getLittle32(status->bytes, 308) >> 12 & 15, test.overdriven && first ? 1u : 0u);
        }
    }
    unit.setScene(nullptr);
    send({0x12000001});
    const auto silence = host.receive();
    ASSERT_TRUE(silence);
    for (std::size_t i = 20; i < 20 + dataPayloadBytes; ++i) ASSERT_EQ(silence->bytes[i], 0);
    EXPECT_TRUE(unit.breaches().empty());
}

TEST_F(SimulatedUnitTest, BringsEachKindOfDamageToAReply) {
    const struct {
        const char* fault;
        std::function<bool(const Peer::Datagram&)> seen;
    } cases[] = {
        {"status:length=0", [](const auto& d) { return d.bytes.empty(); }},
        {"any:length=9001", [](const auto& d) { return d.bytes.size() == 9001; }},
        {"status:magic=0x52000051", [](const auto& d) { return d.bytes[0] == 0x51; }},
        {"status:corrupt=12^0xFF", [](const auto& d) { return d.bytes[12] == 0xFF; }},
        {"status:from=127.0.0.1/0", [](const auto& d) { return d.fromAddress == "127.0.0.1"; }},
        {"any:delay=40", [](const auto&) { return true; }},
    };
    for (const auto& test : cases) {
        addFaultFromText(unit.faults(), test.fault);
        const auto begin = std::chrono::steady_clock::now();
        send(statusRequest);
        const auto reply = host.receive();
        ASSERT_TRUE(reply) << test.fault;
        EXPECT_TRUE(test.seen(*reply)) << test.fault;
        if (std::string(test.fault) == "any:delay=40") {
            EXPECT_GE(std::chrono::steady_clock::now() - begin, 40ms);
        }
    }
    EXPECT_EQ(unit.faults().hits(), std::size(cases));
    addFaultFromText(unit.faults(), "status:duplicate");
    EXPECT_EQ(repliesToStatus(), 2u);
    EXPECT_TRUE(unit.breaches().empty());
}

TEST_F(SimulatedUnitTest, LetsRepliesOvertakeOneThatIsSwappedOrDelayed) {
    send(flashModeOn);
    for (const char* fault : {"page:swap", "page:delay=40"}) {
        addFaultFromText(unit.faults(), fault);
        send({0x1E000080, 0x12000001, 0x11000008});
        const auto first = host.receive();
        const auto second = host.receive();
        ASSERT_TRUE(first && second);
        EXPECT_EQ(first->bytes.size(), statusRecordBytes) << fault;
        EXPECT_EQ(second->bytes.size(), 8216u) << fault;
    }
}

TEST_F(SimulatedUnitTest, FallsSilentInTheMiddleUntilRevived) {
    unit.faults().silenceAfterReplies(2);
    EXPECT_EQ(repliesToStatus() + repliesToStatus(), 2u);
    EXPECT_TRUE(unit.faults().silent());
    send(statusRequest);
    EXPECT_FALSE(host.receive(aMoment));
    unit.faults().revive();
    EXPECT_EQ(repliesToStatus(), 1u);

    unit.faults().silenceAfterDatagrams(1);
    EXPECT_EQ(repliesToStatus(), 1u);
    send(statusRequest);
    EXPECT_FALSE(host.receive(aMoment));
}

TEST_F(SimulatedUnitTest, TellsInItsStatusHowSynthesizersAndTimebaseStand) {
    const auto stands = [this](const Words& words) {
        send(words);
        const auto record = host.receive();
        if (!record) return std::tuple(0, 0, 0);
        const int flags = record->bytes[308] | record->bytes[309] << 8;
        return std::tuple(record->bytes[288] | record->bytes[289] << 8, flags & 255, flags >> 9 & 1);
    };
    unit.setOscillator({.trueDac = 0x8123});
    Words words = test::lowImage(0x43);
    words.push_back(0x0B088000);
    words.push_back(statusRequest[0]);
    EXPECT_EQ(stands(words), std::tuple(0x8123, 0b0100, 1));
    unit.setFix(GpsFix::none());
    EXPECT_EQ(stands({0x0B088000, 0x43000081, statusRequest[0]}), std::tuple(0x8000, 0, 0));
    unit.changeHealth([](Health& health) {
        health.firstLockFlags = 3;
        health.secondLockFlags = 8;
        health.timebaseReadback = 0x7777;
        health.disciplined = true;
    });
    EXPECT_EQ(stands(statusRequest), std::tuple(0x7777, 0x83, 1));
}

TEST(FaultText, RefusesWhatItDoesNotKnow) {
    FaultPlan plan;
    for (const char* text :
         {"", "status", "status:break", "page=x:lose", "pages:lose", "status:lose:twice", "status:lose:#0",
          "status:corrupt=5", "status:from=nowhere", "a:b:c:d", "dies-after="}) {
        EXPECT_THROW(addFaultFromText(plan, text), std::invalid_argument) << text;
    }
    EXPECT_FALSE(plan.takeReply(ReplyKind::status, {}).lost);
}

TEST_F(SimulatedUnitTest, StartsAgainAfterStopAndRefusesAnAddressInUse) {
    SimulatedUnit second(optionsAt(unit.address()));
    try {
        second.start();
        FAIL() << "two units on one address";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find(unit.address() + ":5000"), std::string::npos)
            << error.what();
    }
    EXPECT_FALSE(second.running());
    for (int round = 0; round < 3; ++round) {
        unit.stop();
        unit.start();
        EXPECT_EQ(repliesToStatus(), 1u);
    }
    unit.stop();
    second.start();
    EXPECT_EQ(repliesToStatus(), 1u);
    EXPECT_EQ(second.recording().counts().statusReplies, 1u);
}

TEST(SimulatedUnits, ServeFourAtATimeAndEndAPauseOnStop) {
    std::vector<std::unique_ptr<SimulatedUnit>> units;
    Peer host(test::nextAddress(), controlPort);
    for (std::uint32_t i = 0; i < 4; ++i) {
        UnitOptions options = optionsAt(test::nextAddress());
        options.identity.serialNumber = 100 + i;
        options.honourPauses = true;
        units.push_back(std::make_unique<SimulatedUnit>(options));
        units.back()->start();
    }
    for (const auto& unit : units) host.sendWords(unit->address(), controlPort, statusRequest);
    std::map<std::string, unsigned> serials;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto record = host.receive();
        ASSERT_TRUE(record);
        serials[record->fromAddress] = record->bytes[15];
    }
    for (std::uint32_t i = 0; i < 4; ++i) EXPECT_EQ(serials[units[i]->address()], 100 + i);

    // 60 packets of 170 pauses of 66 ms would take eleven minutes.
    Words pauses;
    for (int i = 0; i < 170; ++i) pauses.insert(pauses.end(), {0x0500FFFF, 0, 0});
    for (int i = 0; i < 60; ++i) host.sendWords(units[0]->address(), controlPort, pauses);
    while (units[0]->recording().counts().pauseTicks == 0) std::this_thread::yield();
    units[0]->stop();
    EXPECT_LT(units[0]->recording().counts().packetsDone, 60u);
}

TEST(SimulatedUnits, RefuseImpossibleOptions) {
    UnitOptions options = optionsAt("nowhere");
    EXPECT_THROW(SimulatedUnit{options}, std::invalid_argument);
    options = optionsAt(test::nextAddress());
    options.controlPort = dataPort;
    EXPECT_THROW(SimulatedUnit{options}, std::invalid_argument);
    options = optionsAt(test::nextAddress());
    options.image.pop_back();
    EXPECT_THROW(SimulatedUnit{options}, std::invalid_argument);
}

}  // namespace
}  // namespace hxr::sim
