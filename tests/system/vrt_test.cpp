/// Streams that units send by themselves: what arrives at each destination, read by nothing of the driver's.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/peer.h"
#include "support/streaming.h"

namespace hxr {
namespace {

constexpr int channels = 8, interval = 5;
constexpr double sharedHz = 2.4e9;

/// What a stream is set to, and what its packets tell: units don't decimate by more than 4.
struct Streamed {
    bool littleEndian;
    int decimation;
    double setHz;  ///< bandwidth
    double bandwidthHz, rateHz;
};

std::uint16_t portOf(int channel) { return static_cast<std::uint16_t>(7000 + channel); }
std::uint64_t hardwareAddressOf(int channel) { return 0x020000AB0000U + static_cast<unsigned>(channel); }
int identifierOf(int channel) { return 100 + 7 * channel; }

/// A packet as VITA-49 has it.
class Packet {
  public:
    explicit Packet(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::uint64_t bits(std::size_t word, int width = 32) const {
        std::uint64_t value = 0;
        for (int i = 0; i < width / 8; ++i)
            value = value << 8 | bytes_.at(4 * word + static_cast<std::size_t>(i));
        return value;
    }
    std::int32_t number(std::size_t word) const { return static_cast<std::int32_t>(bits(word)); }
    std::uint64_t type() const { return bits(0) >> 28; }
    std::uint64_t count() const { return bits(0) >> 16 & 15; }
    bool fillsItsSize() const { return (bits(0) & 0xFFFF) * 4 == bytes_.size(); }

    /// Of the counter that the unit streams.
    std::uint64_t position(std::size_t sample, bool littleEndian) const {
        const auto rail = [&](std::size_t at) {
            const unsigned first = bytes_.at(at), second = bytes_.at(at + 1);
            return littleEndian ? first | second << 8 : first << 8 | second;
        };
        const std::size_t at = 20 + 4 * sample;
        return rail(at) >> 1 | std::uint64_t{rail(at + 2) >> 3} << 15;
    }

  private:
    std::vector<std::uint8_t> bytes_;
};

class Vrt : public test::Streaming {
  protected:
    void setUp(const Streamed& setup) {
        hxrAbort(handle);
        ASSERT_EQ(hxrSetStreamMode(handle, 1), hxrNoError);
        for (int channel = 0; channel < channels; ++channel) {
            ASSERT_EQ(hxrSetStreamVrtAddr(handle, channel, test::hostAddress().c_str(), portOf(channel),
                                          hardwareAddressOf(channel)),
                      hxrNoError);
            ASSERT_EQ(hxrSetChannelShared(handle, channel, channel % 2), hxrNoError);
        }
        ASSERT_EQ(hxrSetStreamVrtCntxInterval(handle, 1, interval), hxrNoError);
        ASSERT_EQ(hxrSetStreamVrtEndianness(handle, setup.littleEndian ? 1 : 0), hxrNoError);
        ASSERT_EQ(hxrSetSharedFreq(handle, sharedHz), hxrNoError);
        ASSERT_EQ(hxrSetStreamAtten(handle, 3), hxrNoError);
        const std::vector<int> enabled(channels, 1);
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), -1), hxrNoError);
        ASSERT_EQ(hxrSetStreamSampleRate(handle, setup.decimation), hxrNoError);
        ASSERT_EQ(hxrSetStreamBandwidth(handle, setup.setHz), hxrNoError);
    }

    void checkContext(const Packet& packet, int channel, const Streamed& setup) {
        float correction = 0;
        ASSERT_EQ(hxrStreamCorrection(handle, channel, &correction), hxrNoError);
        constexpr double fraction = 1 << 20;
        EXPECT_TRUE(packet.fillsItsSize());
        EXPECT_EQ(packet.bits(5), 0xA9A64000);
        EXPECT_EQ(packet.bits(6, 64), static_cast<std::uint64_t>(setup.bandwidthHz * fraction));
        EXPECT_EQ(packet.bits(8, 64), static_cast<std::uint64_t>(sharedHz * fraction));
        EXPECT_NEAR(packet.number(10) / 128.0, 20 * std::log10(correction), 0.01);
        EXPECT_EQ(packet.bits(11), static_cast<std::uint16_t>(-15 * 128));
        EXPECT_EQ(packet.bits(12, 64), static_cast<std::uint64_t>(setup.rateHz * fraction));
        EXPECT_EQ(packet.number(14) / 64.0, 41.25);
        const auto unit = static_cast<std::size_t>(channel / 4);
        EXPECT_EQ(packet.bits(16), units[unit]->identity().serialNumber & 0xFFFF);
        EXPECT_NEAR(std::ldexp(packet.number(21), -22), units[unit]->fix().latitude, 1e-6);
        EXPECT_NEAR(std::ldexp(packet.number(22), -22), units[unit]->fix().longitude, 1e-6);
        EXPECT_NEAR(std::ldexp(packet.number(23), -5), units[unit]->fix().heightMetres, 0.05);
    }
};

/// Fields of all packets in a file, as a dissector that isn't ours reads them; nothing without it.
std::optional<std::vector<std::map<std::string, std::string>>> dissect(
    const std::filesystem::path& file, const std::vector<std::string>& fields) {
    if (std::system("command -v tshark >/dev/null") != 0) return std::nullopt;
    std::string command =
        "tshark -r " + file.string() + " -o ip.check_checksum:TRUE -T fields -E separator=,";
    for (int channel = 0; channel < channels; ++channel)
        command += " -d udp.port==" + std::to_string(portOf(channel)) + ",vrt";
    for (const std::string& field : fields) command += " -e " + field;
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen((command + " 2>/dev/null").c_str(), "r"),
                                                       ::pclose);
    std::vector<std::map<std::string, std::string>> packets;
    char line[4096];
    while (std::fgets(line, sizeof line, output.get()) != nullptr) {
        std::istringstream text(line);
        for (packets.emplace_back(); const std::string& field : fields) {
            std::getline(text, packets.back()[field], ',');
            std::erase(packets.back()[field], '\n');
        }
    }
    return packets;
}

TEST_F(Vrt, PacketsOfEveryChannelReachItsDestination) {
    sim::UnitOptions options;
    options.streamContent = sim::StreamContent::counter;
    options.streamPace = 0.02;
    options.streamBufferTurns = 1'000'000;
    options.health.temperatureA = 41.25;
    connectGroup(2, options);
    // From far to near, so that none has the number that another begins with.
    for (int channel = channels - 1; channel >= 0; --channel)
        ASSERT_EQ(hxrSetStreamVrtChannelID(handle, channel, identifierOf(channel)), hxrNoError);

    std::vector<std::unique_ptr<test::Peer>> destinations;
    for (int channel = 0; channel < channels; ++channel)
        destinations.push_back(std::make_unique<test::Peer>(test::hostAddress(), portOf(channel)));
    const Streamed setups[] = {
        {false, 2, 7e6, 7e6, 25e6}, {true, 2, 40e6, 20e6, 25e6}, {false, 256, 40e6, 10e6, 12.5e6}};
    for (const Streamed& setup : setups) {
        setUp(setup);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        int count = 0;
        EXPECT_EQ(hxrStreamParameters(handle, &count, nullptr, nullptr), hxrInvalidConfigurationErr);
        for (int channel = 0; channel < channels; ++channel) {
            std::uint64_t position = 0, data = 0, contexts = 0, nextTime = 0;
            while (contexts < 2) {
                const auto datagram = destinations[static_cast<std::size_t>(channel)]->receive();
                ASSERT_TRUE(datagram) << channel;
                const Packet packet(datagram->bytes);
                ASSERT_EQ(packet.bits(1), static_cast<unsigned>(identifierOf(channel)));
                if (packet.type() == 4) {
                    EXPECT_EQ(data % interval, 0U) << "context packets come after turns";
                    EXPECT_EQ(packet.count(), contexts++ % 16);
                    checkContext(packet, channel, setup);
                    continue;
                }
                ASSERT_EQ(packet.type(), 1U);
                EXPECT_TRUE(packet.fillsItsSize());
                EXPECT_EQ(packet.count(), data++ % 16);
                for (const std::size_t sample : {0, 1, 2047})
                    ASSERT_EQ(packet.position(sample, setup.littleEndian), position + sample) << channel;
                position += 2048;
                const std::uint64_t time = packet.bits(2) * 1'000'000'000 + packet.bits(3, 64) / 1000;
                EXPECT_TRUE(nextTime == 0 || time == nextTime);
                nextTime = time + static_cast<std::uint64_t>(2048 * 1e9 / setup.rateHz);
            }
        }
        EXPECT_EQ(hxrAbort(handle), hxrNoError);
        for (const auto& unit : units) {
            datagramsAt(*unit);
            EXPECT_FALSE(unit->state().streaming);
        }
        for (const auto& destination : destinations)
            while (destination->receive(0)) continue;
    }

    // Units that are connected anew stream to their host.
    ASSERT_EQ(hxrCloseDevice(handle), hxrNoError);
    ASSERT_EQ(connect(), hxrNoError);
    initiate({0}, 4);
    EXPECT_EQ(receive(100).status, hxrNoError);
}

TEST_F(Vrt, HeadersAreAsTheyWereSetToAnotherReader) {
    const auto file = folder.path() / "packets.pcap";
    sim::UnitOptions options;
    options.streamPace = 0.02;
    options.packetFile = file.string();
    startUnit(options);
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    ASSERT_EQ(pair(1), hxrNoError);
    setUp({.littleEndian = false, .decimation = 2, .setHz = 7e6, .bandwidthHz = 7e6, .rateHz = 25e6});
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    const auto sent = [&] { return units[0]->recording().counts().streamReplies; };
    while (sent() < 4 * 3 * (interval + 1)) std::this_thread::yield();
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    datagramsAt(*units[0]);

    const auto packets = dissect(file, {"_ws.malformed", "_ws.expert.severity", "eth.dst", "ip.src", "ip.dst",
                                        "ip.ttl", "ip.checksum.status", "udp.srcport", "udp.dstport",
                                        "vrt.type", "vrt.sid", "vrt.len", "vrt.tsi", "vrt.tsf"});
    if (!packets) GTEST_SKIP() << "no dissector here";
    ASSERT_GE(packets->size(), sent());
    std::set<std::string> kinds;
    for (const auto& packet : *packets) {
        const int channel = std::stoi(packet.at("udp.dstport")) - portOf(0);
        ASSERT_TRUE(channel >= 0 && channel < 4);
        const bool context = packet.at("vrt.type") == "4";
        kinds.insert(packet.at("udp.dstport") + packet.at("vrt.type"));
        char hardware[20], identifier[12];
        std::snprintf(hardware, sizeof hardware, "02:00:00:ab:00:%02x", channel);
        std::snprintf(identifier, sizeof identifier, "0x%08x", channel + 1);
        const std::map<std::string, std::string> expected{{"_ws.malformed", ""},
                                                          {"_ws.expert.severity", ""},
                                                          {"eth.dst", hardware},
                                                          {"ip.src", test::unitAddress()},
                                                          {"ip.dst", test::hostAddress()},
                                                          {"ip.ttl", "16"},
                                                          {"ip.checksum.status", "1"},
                                                          {"udp.srcport", "4991"},
                                                          {"udp.dstport", packet.at("udp.dstport")},
                                                          {"vrt.type", context ? "4" : "1"},
                                                          {"vrt.sid", identifier},
                                                          {"vrt.len", context ? "28" : "2054"},
                                                          {"vrt.tsi", "1"},
                                                          {"vrt.tsf", "2"}};
        ASSERT_EQ(packet, expected);
    }
    EXPECT_EQ(kinds.size(), 8U) << "data and context of four channels";
}

}  // namespace
}  // namespace hxr
