#include "device/health.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "support/scripted_endpoint.h"
#include "support/status_datagram.h"
#include "support/test_clock.h"

namespace hxr {
namespace {

using test::StatusDatagram;

class Health : public testing::Test {
  protected:
    LastStatus parse(const StatusDatagram& datagram) {
        const StatusRecord record = datagram.record();
        parseStatus(device, &record);
        return device.lastStatus.copy();
    }

    test::TestClock clock;
    HXRDevice device{std::make_unique<DeviceInterface>(std::make_unique<test::ScriptedEndpoint>(),
                                                       std::make_unique<test::ScriptedEndpoint>(),
                                                       CalFolder("", ""), clock),
                     clock};
};

/// The code of a temperature that is a whole number of quarter degrees.
unsigned codeOf(double degrees) {
    const int quarters = static_cast<int>(degrees * 4);
    return static_cast<unsigned>(quarters >= 0 ? quarters << 2 : (quarters + 1024) << 2 | 1 << 12);
}

TEST_F(Health, ReadsEveryFieldAtItsPlace) {
    StatusDatagram datagram;
    datagram.put32(12, 0x4E61BC00).put16(272, 1100).put16(274, 1003).put16(276, 1800).put16(278, 1650);
    datagram.put16(280, 0x0102).put16(282, 0x0304).put16(284, 100 << 2).put16(286, 0x1000 | 1023 << 2);
    datagram.put16(288, 0x8123)
        .put16(294, 0xE003 | 2 << 2)
        .put16(296, 10001)
        .put16(298, 20002)
        .put16(300, 640);
    datagram.put16(302, 500).put32(308, 0x80010200).put16(16, 0xBEEF).put16(270, 0xFACE);
    clock.advance(std::chrono::milliseconds(77));
    const LastStatus status = parse(datagram);

    EXPECT_EQ(status.serialNumber, 0x00BC614EU);
    EXPECT_FLOAT_EQ(status.supplyVoltage, 12.1F);
    EXPECT_FLOAT_EQ(status.railX5, 5.015F);
    EXPECT_FLOAT_EQ(status.railX1, 1.8F);
    EXPECT_FLOAT_EQ(status.railX2, 3.3F);
    EXPECT_EQ(status.firmwareVersionA, 0x0102U);
    EXPECT_EQ(status.firmwareVersionB, 0x0304U);
    EXPECT_EQ(status.temperatureA, 25.0F);
    EXPECT_EQ(status.temperatureB, -0.25F);
    EXPECT_EQ(status.temperatureC, 0.5F);  // bits that belong to no field are not looked at
    EXPECT_EQ(status.timebaseReadback, 0x8123U);
    EXPECT_EQ(status.clockStatus, 0x0F00);
    EXPECT_FLOAT_EQ(status.readingB, 1.0001F);
    EXPECT_FLOAT_EQ(status.readingA, 2.0002F);
    EXPECT_EQ(status.readingQ8, 2.5F);
    EXPECT_FLOAT_EQ(status.fpgaTemperature, 73.37890625F);
    EXPECT_EQ(status.statusFlags, 0x80010200U);
    EXPECT_EQ(status.gpsBlock.front(), std::byte{0xEF});
    EXPECT_EQ(status.gpsBlock.back(), std::byte{0xFA});
    EXPECT_EQ(status.lastStatusTicks, 1'000'077U);
    EXPECT_FALSE(status.dataSyncFault);
}

TEST_F(Health, RefusesWhatIsNoRecordAndKeepsAllElse) {
    parse(StatusDatagram().put16(272, 1000));
    clock.advance(std::chrono::milliseconds(500));
    std::vector<StatusDatagram> noRecords;
    for (const std::size_t size : {0U, 3U, 319U}) noRecords.push_back(StatusDatagram().resize(size));
    noRecords.push_back(StatusDatagram().put32(0, 0x52000051));
    noRecords.push_back(StatusDatagram().put32(0, 0));
    for (const StatusDatagram& datagram : noRecords) {
        const LastStatus status = parse(datagram);
        EXPECT_TRUE(status.dataSyncFault);
        EXPECT_EQ(status.supplyVoltage, 11.0F);
        EXPECT_EQ(status.lastStatusTicks, 1'000'000U);
    }
    parseStatus(device, nullptr);
    EXPECT_TRUE(device.lastStatus.copy().dataSyncFault);
    EXPECT_FALSE(parse(StatusDatagram()).dataSyncFault);
    EXPECT_FALSE(parse(StatusDatagram().resize(2000)).dataSyncFault);
}

TEST_F(Health, ClocksAreAlignedWithAllFourBitsOnly) {
    for (const auto& [bits, fault] : {std::pair{0x0F00, false},
                                      {0xFFFF, false},
                                      {0x0E00, true},
                                      {0x0700, true},
                                      {0xF0FF, true},
                                      {0, true}}) {
        EXPECT_EQ(parse(StatusDatagram().put16(290, static_cast<unsigned>(bits))).adcAlignFault, fault)
            << bits;
    }
}

TEST_F(Health, DriftHasAHysteresis) {
    device.lastStatus.update([](LastStatus& status) { status.referenceTemperature = 20.0F; });
    for (const auto& [degrees, drifted] : {std::pair{24.0, false},
                                           {24.25, true},
                                           {23.0, true},
                                           {22.75, false},
                                           {24.0, false},
                                           {15.75, true},
                                           {17.0, true},
                                           {17.25, false}}) {
        EXPECT_EQ(parse(StatusDatagram().put16(284, codeOf(degrees))).tempDrifted, drifted) << degrees;
    }
}

TEST_F(Health, TakesThePeersAddressAroundTheGap) {
    const StatusRecord record =
        StatusDatagram().put16(312, 0x0211).put16(314, 0xFFFF).put32(316, 0xA2B3C4D5).record();
    EXPECT_EQ(record.peerAddress(), 0x0211A2B3C4D5U);
}

TEST_F(Health, ReadersSeeWholeRecordsOnly) {
    std::thread writer([&] {
        for (unsigned i = 0; i < 2000; ++i) parse(StatusDatagram().put16(280, i % 500).put16(282, i % 500));
    });
    for (int i = 0; i < 2000; ++i) {
        const LastStatus status = device.lastStatus.copy();
        ASSERT_EQ(status.firmwareVersionA, status.firmwareVersionB);
    }
    writer.join();
}

TEST(NewDevice, HasItsDefaults) {
    test::TestClock clock;
    HXRDevice device{std::make_unique<DeviceInterface>(std::make_unique<test::ScriptedEndpoint>(),
                                                       std::make_unique<test::ScriptedEndpoint>(),
                                                       CalFolder("", ""), clock),
                     clock};
    EXPECT_EQ(groupUnits(device).size(), 1U);
    EXPECT_EQ(device.channelCount, 4);
    EXPECT_EQ(device.vrtStreamId.front(), 1);
    EXPECT_EQ(device.vrtStreamId.back(), 16);
    EXPECT_EQ(device.focusChannel, -1);
    EXPECT_EQ(device.streamPort, 4991);
    EXPECT_EQ(device.vrtDestAddress[15], "192.168.2.2");
    EXPECT_EQ(device.timebase.copy().coarseTune, 0x8000);
    ASSERT_EQ(device.vsgPattern.size(), 16U);
    EXPECT_NEAR(device.vsgPattern[4].imag(), -1.0F, 1e-6F);  // three turns in sixteen samples
    EXPECT_NEAR(device.vsgPattern[4].real(), 0.0F, 1e-6F);
}

}  // namespace
}  // namespace hxr
