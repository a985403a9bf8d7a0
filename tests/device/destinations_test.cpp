#include "device/destinations.h"

#include <gtest/gtest.h>

#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::ScriptedUnit;
using test::StatusDatagram;
using test::Words;

using Address = std::array<unsigned, 4>;

/// The checksum of a real IPv4 header: UDP, time to live 16, no options, no fragments.
unsigned headerChecksum(const Address& from, const Address& to, unsigned totalLength) {
    const unsigned header[20] = {
        0x45, 0, totalLength >> 8, totalLength & 255, 0,       0,       0,     0,     16,    17,
        0,    0, from[0],          from[1],           from[2], from[3], to[0], to[1], to[2], to[3]};
    unsigned sum = 0;
    for (int i = 0; i < 20; i += 2) sum += header[i] << 8 | header[i + 1];
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    return sum ^ 0xFFFF;
}

/// The block that sets one slot: a data packet holds 8216 bytes behind its headers, a context packet 112.
Words slot(unsigned index, const Address& from, const Address& to, unsigned port, std::uint64_t hardware) {
    constexpr unsigned headers = 20 + 8;
    return {0x04040320 + 4 * index,
            to[0] << 24 | to[1] << 16 | to[2] << 8 | to[3],
            port << 16 | static_cast<unsigned>(hardware >> 32),
            static_cast<unsigned>(hardware),
            headerChecksum(from, to, headers + 8216) << 16 | headerChecksum(from, to, headers + 112),
            0,
            0};
}

constexpr Address host{192, 168, 2, 2}, unitItself{192, 168, 2, 10};

class Destinations : public testing::Test {
  protected:
    /// The last packet sent; fillers at its end count as padding.
    void expectSent(Words expected) {
        while (expected.back() == 0) expected.pop_back();
        const auto sent = unit.takeSent();
        ASSERT_FALSE(sent.empty());
        EXPECT_EQ(sent.back(), expected);
    }

    test::TestClock clock;
    ScriptedUnit unit{clock};
    HXRDevice& device = *unit.device;
};

TEST_F(Destinations, AreThisHostInAllSlots) {
    device.streamPort = 50'001;
    unit.answer(StatusDatagram().put16(312, 0xFEDC).put16(314, 0x5A5A).put32(316, 0x98765432));
    EXPECT_EQ(pushLocalDestinations(device), hxrNoError);
    Words expected;
    for (unsigned i = 0; i < 4; ++i) {
        const Words words = slot(i, unitItself, host, 50'001, 0xFEDC98765432);
        expected.insert(expected.end(), words.begin(), words.end());
    }
    expectSent(expected);
}

TEST_F(Destinations, OfVrtPacketsAreEachInputsOwnEnabledOrNot) {
    device.vrtDestAddress[1] = "255.255.255.255";
    device.vrtDestPort[1] = 65'535;
    device.vrtDestMAC[1] = 0xFFFFFFFFFFFF;
    device.vrtDestAddress[2] = "0.0.0.0";
    device.vrtDestAddress[3] = "10.1";  // too short for an address
    device.vrtDestPort[3] = 0;
    device.vrtDestMAC[3] = 0x010203040506;
    EXPECT_EQ(pushVrtDestinations(device), hxrNoError);
    expectSent(test::joined({slot(0, unitItself, host, 4991, 0),
                             slot(1, unitItself, {255, 255, 255, 255}, 65'535, 0xFFFFFFFFFFFF),
                             slot(2, unitItself, {0, 0, 0, 0}, 4991, 0),
                             slot(3, unitItself, {0, 0, 0, 0}, 0, 0x010203040506)}));

    // Without its control endpoint the unit has no address.
    device.vrtDestAddress.fill("10.20.30.40");
    device.vrtDestPort.fill(1);
    device.vrtDestMAC.fill(2);
    unit.control->open("", "", 0, 0);  // as a closed endpoint tells it
    EXPECT_EQ(pushVrtDestinations(device), hxrNoError);
    Words expected;
    for (unsigned i = 0; i < 4; ++i) {
        const Words words = slot(i, {0, 0, 0, 0}, {10, 20, 30, 40}, 1, 2);
        expected.insert(expected.end(), words.begin(), words.end());
    }
    expectSent(expected);
}

TEST_F(Destinations, AreNotSetOverALostLink) {
    EXPECT_EQ(pushLocalDestinations(device), hxrConnectionLostErr);  // no answer
    EXPECT_EQ(unit.takeSent(), std::vector<Words>{{0x11000008}});
    unit.control->lostAt = 0;
    EXPECT_EQ(pushVrtDestinations(device), hxrConnectionLostErr);
}

}  // namespace
}  // namespace hxr
