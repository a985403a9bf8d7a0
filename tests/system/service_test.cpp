/// Service of synthesizers and corrections, as the factory uses it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "cal/image.h"
#include "sim/image_layout.h"
#include "support/installation.h"
#include "support/words_text.h"

namespace hxr {
namespace {

using namespace std::chrono_literals;
using sim::ReplyFault;
using sim::ReplyKind;
using test::joined;
using test::registerWords;
using test::Words;

/// A setting of a VCO as it is read back.
struct Bytes {
    unsigned char a = 101, b = 102, c = 103;
    bool operator==(const Bytes&) const = default;
};

enum class Which { low, high, shared };

class Service : public test::Installation {
  protected:
    /// A unit with VCOs of its own, of which its flash says nothing.
    sim::SimulatedUnit& connectBlankUnit() {
        sim::SimulatedUnit& unit =
            startUnit({.image = test::imageFor(0, {.cbb = false}), .trueImage = nature});
        EXPECT_EQ(connect(), hxrNoError);
        return unit;
    }

    HXRStatus readBack(Which which, int channel, int point, Bytes& bytes) const {
        return hxrAdminCBBReadback(handle, which == Which::shared, which == Which::low, channel, point,
                                   bytes.a, bytes.b, bytes.c);
    }

    const std::vector<std::uint8_t> nature = test::imageFor(0);
};

/// Puts what is read back where the factory's table has it.
void store(const Bytes& bytes, std::size_t section, std::size_t tables, std::size_t points, std::size_t at,
           std::vector<std::uint8_t>& image) {
    std::uint8_t* const first = image.data() + section + at;
    const std::size_t plane = tables * points;
    first[0] = bytes.a;
    first[plane] = bytes.b;
    first[2 * plane] = bytes.c;
}

TEST_F(Service, ReadsAllPointsBackAndTunesByThemAfterwards) {
    using namespace sim::layout;
    sim::SimulatedUnit& unit = connectBlankUnit();
    bool has = true;
    EXPECT_EQ(hxrAdminHasCBBData(handle, &has), hxrNoError);
    EXPECT_FALSE(has);
    ASSERT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrNoError);
    auto image = test::imageFor(0, {.cbb = false});
    const auto fill = [&](Which which, std::size_t section, std::size_t tables, std::size_t points) {
        const std::size_t first = which == Which::shared ? 4 : 0, last = which == Which::shared ? 5 : 4;
        for (std::size_t table = first; table < last; ++table) {
            for (std::size_t point = 0; point < points; ++point) {
                Bytes bytes;
                const int channel = static_cast<int>(table % 4);
                ASSERT_EQ(readBack(which, channel, static_cast<int>(point), bytes), hxrNoError);
                store(bytes, section, tables, points, table * points + point, image);
            }
        }
    };
    fill(Which::low, cbbLow, 5, cbbLowPoints);
    fill(Which::shared, cbbLow, 5, cbbLowPoints);
    fill(Which::high, cbbHigh, 4, cbbHighPoints);
    constexpr std::size_t tableEnd = 16159, leader = 4;
    for (std::size_t at = leader; at < tableEnd; ++at)
        ASSERT_EQ(image[at], nature[at]) << at;  // all points of all planes

    // Own and shared LO over the whole range, without the table and with it.
    const sim::VcoTables vcos(std::make_shared<const std::vector<std::uint8_t>>(nature));
    const auto tune = [&](bool byTable) {
        EXPECT_EQ(hxrAdminInitFullBandLOs(handle, true, true), hxrNoError);
        std::vector<float> iq(4096);
        for (int step = 2; step <= 513; step += 7) {
            const double loHz = step * 39'062'500.0;
            const std::size_t channel = static_cast<std::size_t>(step) % 4;
            for (const bool shared : {false, true}) {
                ASSERT_EQ(
                    hxrAdminGetFullBandIQ(handle, static_cast<int>(channel), shared, loHz, 0, iq.data(), 1),
                    hxrNoError);
                EXPECT_NEAR(unit.tuning(channel).loHz.value_or(0), loHz, 1e-3) << byTable << shared;
                // Its VCO then stands where it had settled by itself at that point, or at the next below. Registers hold
                // two bits of a high one's core.
                const auto point = [](double vcoHz, double first, double spacing) {
                    return first + spacing * std::floor((vcoHz - first) / spacing + 1e-6);
                };
                const sim::UnitState state = unit.state();
                const auto& chips = state.synthesizers;
                const auto sharedHz = chips.sharedLoHz(state.expander);
                const bool high = loHz > 5.63e9;
                if (high && (byTable || !shared)) {
                    const double output = *chips.highLoHz(channel, shared ? sharedHz : std::nullopt);
                    const auto settled =
                        vcos.high(channel, point(output < 11e9 ? 2 * output : output, 11e9, 15'625'000));
                    const auto set = *chips.highVco(channel, sharedHz, vcos);
                    EXPECT_EQ(set.a & 3, settled.a & 3) << loHz << byTable << shared;
                    EXPECT_EQ(set.b, settled.b) << loHz << byTable << shared;
                    EXPECT_EQ(set.c, settled.c) << loHz << byTable << shared;
                } else if (!high && !shared) {
                    double vcoHz = loHz;
                    while (vcoHz < 4e9) vcoHz *= 2;
                    EXPECT_EQ(chips.lowVco(channel, vcos), vcos.low(channel, point(vcoHz, 4e9, 7'812'500)))
                        << loHz << byTable;
                }
                if (shared && byTable) {
                    // Its row is chosen for another temperature, which between two points may make it the upper.
                    const double lower = point(*chips.sharedVcoHz(state.expander), 8e9, 15'625'000);
                    const auto set = *chips.sharedVco(state.expander, vcos);
                    EXPECT_TRUE(set == vcos.shared(lower) || set == vcos.shared(lower + 15'625'000)) << loHz;
                }
            }
        }
    };
    tune(false);
    hxrCloseDevice(handle);
    unit.loadImage(image);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(hxrAdminHasCBBData(handle, &has), hxrNoError);
    EXPECT_TRUE(has);
    tune(true);
}

const Words waits = registerWords(0, "05000050 1 1 1 05000050 1 1 1 05000050 1 1 1");

/// The words that read a synthesizer back; `readout` has a W for each wait.
Words readWords(std::uint32_t base, const std::string& readout) {
    Words words;
    std::istringstream list(readout);
    for (std::string entry; list >> entry;) {
        const auto number = static_cast<std::uint32_t>(entry == "W" ? 0 : std::stoul(entry, nullptr, 16));
        // Words for the sequencer stand as they are.
        const bool own = number >> 24 == 0x11 || number >> 24 == 0x1D;
        words = joined({words, entry == "W" ? waits : Words{own ? number : base + number}});
    }
    return words;
}

TEST_F(Service, CalibratesAndReadsWordForWord) {
    const std::string low =
        "2010 332C W 806F00 W 1D000000 806E00 W 1D000001 336C W 806E00 W 1D000002 11000008 2018";
    const std::string high =
        "W 805F00 W 1D000004 805F00 W 1D000004 805E00 W 1D000005 805900 W 1D000006 805A00 W 1D000007 8000000 "
        "11000008";
    struct Case {
        Which which;
        int channel, point;
        bool ready;  ///< the channel's low synthesizer holds its image
        std::size_t imageWords;
        const char* tuning;  ///< behind the image
        Words readout;
    };
    // Without tuning data the low synthesizer is given its image of 60 words where it has none, the high one always its
    // image and a pause of 115.
    const Case cases[] = {
        {Which::low, 3, 512, false, 61,
         "E0002B83 44000018 44002505 44002490 44001700 44001600 44001040 1 1 4C000000",
         readWords(0x44000000, low)},
        {Which::low, 3, 0, true, 0,
         "5105FF26 E0002B83 44000018 44002506 44002490 44001700 44001600 44001020 1 1 4C000000",
         readWords(0x44000000, low)},
        {Which::shared, 2, 1, true, 0,
         "450070E3 4500251E 45002490 45001E18 45001700 45001620 45001020 1 1 4C000000",
         readWords(0x45000000, low)},
        {Which::shared, 0, 4000, true, 0,
         "45007003 4500251E 45002490 45001E18 45001701 450016FF 4500103F 1 1 4C000000",
         readWords(0x45000000, low)},
        {Which::high, 2, 0, true, 115, "5102FFD1 43000081 43000081",
         joined({{0xD8000002}, readWords(0xD0000000, high)})},
        {Which::high, 1, 704, false, 115, "5101FFE1 42000081 A0002B01",
         joined({{0xA8000003}, readWords(0xA0000000, high)})},
    };
    sim::SimulatedUnit& unit = connectBlankUnit();
    forgetWhatWasSent(unit);
    ASSERT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrNoError);
    EXPECT_EQ(datagramsAt(unit), 1U);
    const Words bringUp = unit.recording().packets().at(0).content();
    EXPECT_EQ(bringUp.size(), 136U);
    EXPECT_EQ(std::ranges::count(bringUp, 0x4500349EU), 2);
    EXPECT_EQ(clock.sleeps().back(), 20ms);
    for (const Case& test : cases) {
        device(handle).loContext.lowLoReady.fill(test.ready);
        forgetWhatWasSent(unit);
        Bytes bytes;
        EXPECT_EQ(readBack(test.which, test.channel, test.point, bytes), hxrNoError);
        EXPECT_EQ(clock.sleeps().back(), 32ms);
        const auto packets = unit.recording().packets();
        ASSERT_EQ(packets.size(), 2U);
        const Words tuning = registerWords(0, test.tuning), sent = packets[0].content();
        ASSERT_GE(sent.size(), test.imageWords + tuning.size());
        EXPECT_TRUE(
            std::equal(tuning.begin(), tuning.end(), sent.begin() + static_cast<long>(test.imageWords)))
            << test.tuning;
        EXPECT_EQ(sent.back(), 0x4C000000U);
        EXPECT_EQ(packets[1].content(), test.readout) << test.tuning;
        EXPECT_EQ(test.readout.size(), test.which == Which::high ? 85U : 71U);
        EXPECT_EQ(device(handle).loContext.lowLoReady[static_cast<std::size_t>(test.channel)],
                  test.which == Which::low || (test.which == Which::shared && test.ready));
    }
}

TEST_F(Service, ReadsNothingBackWhereItCannot) {
    sim::SimulatedUnit& unit = connectBlankUnit();
    ASSERT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrNoError);
    forgetWhatWasSent(unit);
    Bytes bytes;
    for (const Which which : {Which::low, Which::high, Which::shared}) {
        EXPECT_EQ(readBack(which, -1, 0, bytes), hxrInvalidParameterErr);
        EXPECT_EQ(readBack(which, 4, 0, bytes), hxrInvalidParameterErr);
        EXPECT_EQ(readBack(which, 0, -1, bytes), hxrInvalidParameterErr);
    }
    ASSERT_TRUE(device(handle).acquisitionMutex.try_lock());  // as a sweep under way
    EXPECT_EQ(readBack(Which::low, 0, 0, bytes), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrInvalidConfigurationErr);
    device(handle).acquisitionMutex.unlock();
    EXPECT_EQ(datagramsAt(unit), 0U);

    unit.faults().add({.kind = ReplyKind::status}, ReplyFault::setMagic(0));
    EXPECT_EQ(readBack(Which::low, 0, 0, bytes), hxrDataSyncErr);
    EXPECT_EQ(bytes, Bytes{});
    EXPECT_EQ(readBack(Which::low, 0, 0, bytes), hxrNoError);
    EXPECT_NE(bytes, Bytes{});
    const Bytes before = bytes;
    unit.faults().add({.kind = ReplyKind::status}, ReplyFault::lose());
    clock.shortenTimeouts(20);
    EXPECT_EQ(readBack(Which::high, 0, 0, bytes), hxrConnectionLostErr);
    EXPECT_EQ(readBack(Which::high, 0, 0, bytes), hxrConnectionLostErr);
    EXPECT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrConnectionLostErr);
    EXPECT_EQ(bytes, before);
}

TEST_F(Service, StoresWhatItIsTold) {
    startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    const CorrectionState& corrections = *device(handle).corrections;
    HXRCalData& image = *device(handle).corrections->image;
    auto other = std::make_unique<HXRCalData>();
    std::memcpy(other.get(), test::imageFor(1).data(), sizeof *other);
    const auto before = std::make_unique<HXRCalData>(image);
    const auto same = [](const HXRCalData& left, const HXRCalData& right, std::size_t from, std::size_t to) {
        const auto a = cal::bytesOf(left), b = cal::bytesOf(right);
        return std::equal(a.begin() + static_cast<long>(from), a.begin() + static_cast<long>(to),
                          b.begin() + static_cast<long>(from));
    };
    bool has = false;
    const auto index = [&](int set, HXRStatus status, int stored) {
        EXPECT_EQ(hxrAdminSetCorrectionIndex(handle, set), status) << set;
        EXPECT_EQ(corrections.manualTempIndex, stored) << set;
        EXPECT_EQ(hxrInitiate(handle), hxrNoError);
        EXPECT_EQ(corrections.tempIndex, std::min(stored, 5)) << set;
        EXPECT_EQ(corrections.tempFraction, stored == 6 ? 1.0 : 0.0) << set;
    };
    const struct {
        const char* what;
        std::function<HXRStatus(int)> call;
        HXRStatus status;
        std::function<bool()> holds;
    } cases[] = {
        {"manual corrections", [](int h) { return hxrAdminSetCorrectionMode(h, true); }, hxrNoError,
         [&] { return corrections.manualTemp; }},
        {"offsets", [](int h) { return hxrAdminSetLOFT(h, -70'000, 70'000); }, hxrNoError,
         [&] {
             return corrections.loftOverride && corrections.loftOverrideI == -70'000 &&
                    corrections.loftOverrideQ == 70'000;
         }},
        {"pretest", [&](int h) { return hxrAdminHasPretestCorrections(h, &has); }, hxrNoError,
         [&] { return has; }},
        {"no pretest",
         [&](int h) {
             image.loftI[0][0] = -1;
             return hxrAdminHasPretestCorrections(h, &has);
         },
         hxrNoError, [&] { return !has; }},
        {"chamber", [&](int h) { return hxrAdminHasChamberCorrections(h, &has); }, hxrNoError,
         [&] { return has; }},
        {"placeholders",
         [&](int h) {
             cal::buildDummyCorrections(image);
             return hxrAdminHasChamberCorrections(h, &has);
         },
         hxrNoError, [&] { return has == (image.calDate != ~std::uint64_t{0}); }},
        {"nothing to write to", [](int h) { return hxrAdminHasChamberCorrections(h, nullptr); }, hxrNoError,
         [] { return true; }},
        {"no pointer", [](int h) { return hxrAdminHasPretestCorrections(h, nullptr); }, hxrNullPointerErr,
         [] { return true; }},
        {"none for tuning data", [](int h) { return hxrAdminHasCBBData(h, nullptr); }, hxrNullPointerErr,
         [] { return true; }},
        {"no image", [](int h) { return hxrAdminManualLoadCorrections(h, nullptr); }, hxrNullPointerErr,
         [&] { return !same(image, *other, 0x80000, sizeof image); }},
        {"an image", [&](int h) { return hxrAdminManualLoadCorrections(h, other.get()); }, hxrNoError,
         [&] {
             return same(image, *other, 0x80000, sizeof image) && !same(image, *other, 0, 0x80000) &&
                    same(device(handle).link->flashCopy(), *before, 0x80000, sizeof image);
         }},
        {"synthesizers kept", [](int h) { return hxrAdminSetDisableLOOnAbort(h, false); }, hxrNoError,
         [&] { return !device(handle).disableLOOnAbort; }},
        {"and off again", [](int h) { return hxrAdminSetDisableLOOnAbort(h, true); }, hxrNoError,
         [&] { return device(handle).disableLOOnAbort; }},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.call(handle), test.status) << test.what;
        EXPECT_TRUE(test.holds()) << test.what;
    }
    index(0, hxrNoError, 0);
    index(-1, hxrSettingClamped, 0);
    index(4, hxrNoError, 4);
    index(6, hxrNoError, 6);
    index(7, hxrSettingClamped, 6);
    EXPECT_EQ(hxrAdminSetCorrectionMode(handle, false), hxrNoError);
    EXPECT_FALSE(corrections.manualTemp);
}

}  // namespace
}  // namespace hxr
