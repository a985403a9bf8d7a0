/// Service of synthesizers and corrections, as the factory uses it.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>
#include <vector>

#include "cal/correction_lookup.h"
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

    /// Tunes all channels over the whole range, on their own LO and on the shared one, and tells how their own VCOs
    /// stand then. Registers hold two bits of a high one's core.
    std::vector<sim::VcoSetting> tune(sim::SimulatedUnit& unit) {
        const sim::VcoTables vcos(std::make_shared<const std::vector<std::uint8_t>>(nature));
        std::vector<sim::VcoSetting> settings;
        std::vector<float> iq(4096);
        EXPECT_EQ(hxrAdminInitFullBandLOs(handle, true, true), hxrNoError);
        for (int step = 3; step <= 513; step += 5) {
            const double loHz = step * 39'062'500.0;
            const std::size_t channel = static_cast<std::size_t>(step) % 4;
            for (const bool shared : {true, false}) {
                EXPECT_EQ(hxrAdminGetFullBandIQ(handle, step % 4, shared, loHz, 0, iq.data(), 1), hxrNoError);
                EXPECT_NEAR(unit.tuning(channel).loHz.value_or(0), loHz, 1e-3) << shared;
            }
            const sim::Synthesizers chips = unit.state().synthesizers;
            const auto low = chips.lowVco(channel, vcos), high = chips.highVco(channel, std::nullopt, vcos);
            settings.push_back(low.value_or(high.value_or(sim::VcoSetting{})));
            if (!low) settings.back().a &= 3;
        }
        return settings;
    }

    const std::vector<std::uint8_t> nature = test::imageFor(0);
};

TEST_F(Service, ReadsAllPointsBackAndTunesByThemAfterwards) {
    using namespace sim::layout;
    sim::SimulatedUnit& unit = connectBlankUnit();
    bool has = true;
    EXPECT_EQ(hxrAdminHasCBBData(handle, &has), hxrNoError);
    EXPECT_FALSE(has);
    const auto settled = tune(unit);
    ASSERT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrNoError);
    auto image = test::imageFor(0, {.cbb = false});
    const auto fill = [&](Which which, std::size_t section, std::size_t tables, std::size_t table,
                          std::size_t points) {
        for (std::size_t point = 0; point < points; ++point) {
            Bytes bytes;
            ASSERT_EQ(readBack(which, static_cast<int>(table % 4), static_cast<int>(point), bytes),
                      hxrNoError);
            std::uint8_t* const place = image.data() + section + table * points + point;
            place[0] = bytes.a;
            place[tables * points] = bytes.b;
            place[2 * tables * points] = bytes.c;
        }
    };
    for (std::size_t channel = 0; channel < 4; ++channel) {
        fill(Which::low, cbbLow, 5, channel, cbbLowPoints);
        fill(Which::high, cbbHigh, 4, channel, cbbHighPoints);
    }
    fill(Which::shared, cbbLow, 5, 4, cbbLowPoints);
    EXPECT_TRUE(std::equal(image.begin() + cbbLow, image.begin() + loftI, nature.begin() + cbbLow));

    hxrCloseDevice(handle);
    unit.loadImage(image);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(hxrAdminHasCBBData(handle, &has), hxrNoError);
    EXPECT_TRUE(has);
    EXPECT_EQ(tune(unit), settled);
}

const Words waits = registerWords(0, "05000050 1 1 1 05000050 1 1 1 05000050 1 1 1");

/// The words that read a synthesizer back, on top of `base` but for those of the sequencer; `readout` has a W for each wait.
Words readWords(std::uint32_t base, const std::string& readout) {
    Words words;
    std::istringstream list(readout);
    for (std::string entry; list >> entry;) {
        const auto number = static_cast<std::uint32_t>(entry == "W" ? 0 : std::stoul(entry, nullptr, 16));
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
        const char* end = "4C000000";  ///< of the tuning
    };
    const Words high2 = joined({{0xD8000002}, readWords(0xD0000000, high)});
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
        {Which::high, 2, 0, true, 115, "5102FFD1 43000081 43000081", high2},
        // The last that is tuned at its double, and the first that isn't.
        {Which::high, 2, 319, true, 115, "5102FFD1 43000081 43000081", high2,
         "D0001503 D00014E0 D0001100 D000103F 4C000000"},
        {Which::high, 2, 320, true, 115, "5102FFD1 43000081 43000081", high2,
         "D0001502 D0001400 D0001120 D0001020 4C000000"},
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
        const Words end = registerWords(0, test.end);
        EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), sent.rbegin())) << test.end;
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
    ControlClaim sweep = device(handle).link->claimControl(EndpointOwner::sweep);
    EXPECT_EQ(readBack(Which::low, 0, 0, bytes), hxrInvalidConfigurationErr);
    EXPECT_EQ(hxrAdminConfigureForCBBReadback(handle), hxrInvalidConfigurationErr);
    sweep.release();
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
    auto other = std::make_unique<HXRCalData>(image);
    std::ranges::fill(cal::bytesOf(*other), std::byte{5});
    const auto chamber = [](const HXRCalData& of) { return cal::bytesOf(of).subspan(0x80000); };
    const std::vector<std::byte> flash(chamber(image).begin(), chamber(image).end());
    bool has = false;
    const auto atIndex = [&](int index, double fraction) {
        return hxrInitiate(handle) == hxrNoError && corrections.tempIndex == index &&
               corrections.tempFraction == fraction;
    };
    const int h = handle;
    // Flash and cache stay as they are, and so does the pretest section.
    const auto cached = test::contentOf(cacheFile());
    const auto isLoaded = [&] {
        return !cached.empty() && test::contentOf(cacheFile()) == cached &&
               std::ranges::equal(chamber(image), chamber(*other)) && image.loftI[0][1] != 0x0505 &&
               std::ranges::equal(chamber(device(handle).link->flashCopy()), flash);
    };
#define DO(expression) [&] { return expression; }
    const struct {
        HXRStatus status;
        std::function<HXRStatus()> call;
        std::function<bool()> holds;
    } cases[] = {
        {hxrNoError, DO(hxrAdminSetCorrectionMode(h, true)), DO(atIndex(0, 0))},
        {hxrNoError, DO(hxrAdminSetCorrectionIndex(h, 4)), DO(atIndex(4, 0))},
        {hxrSettingClamped, DO(hxrAdminSetCorrectionIndex(h, -1)), DO(atIndex(0, 0))},
        {hxrSettingClamped, DO(hxrAdminSetCorrectionIndex(h, 7)), DO(atIndex(5, 1))},
        {hxrNoError, DO(hxrAdminSetCorrectionIndex(h, 0)), DO(atIndex(0, 0))},
        {hxrNoError, DO(hxrAdminSetCorrectionIndex(h, 6)), DO(atIndex(5, 1))},
        {hxrNoError, DO(hxrAdminSetCorrectionMode(h, false)), DO(!atIndex(5, 1))},
        {hxrNoError, DO(hxrAdminSetLOFT(h, -70'000, 7)),
         DO((useOverrides(device(h)), lookupLoft(corrections, 2, 300) == LoftPair{-70'000, 7}))},
        {hxrNoError, DO(hxrAdminHasPretestCorrections(h, &has)), DO(has)},
        {hxrNoError, DO((image.loftI[0][0] = -1, hxrAdminHasPretestCorrections(h, &has))), DO(!has)},
        {hxrNoError, DO(hxrAdminHasChamberCorrections(h, &has)), DO(has)},
        {hxrNoError, DO((image.calDate = ~0ULL, hxrAdminHasChamberCorrections(h, &has))), DO(!has)},
        {hxrNoError, DO(hxrAdminHasChamberCorrections(h, nullptr)), DO(!has)},
        {hxrNullPointerErr, DO(hxrAdminHasPretestCorrections(h, nullptr)), DO(!has)},
        {hxrNullPointerErr, DO(hxrAdminHasCBBData(h, nullptr)), DO(!has)},
        {hxrNullPointerErr, DO(hxrAdminManualLoadCorrections(h, nullptr)),
         DO(image.channelGainCode[0][0] != 5)},
        {hxrNoError, DO(hxrAdminManualLoadCorrections(h, other.get())), DO(isLoaded())},
        {hxrNoError, DO(hxrAdminSetDisableLOOnAbort(h, false)), DO(!device(h).disableLOOnAbort)},
        {hxrNoError, DO(hxrAdminSetDisableLOOnAbort(h, true)), DO(device(h).disableLOOnAbort)},
    };
#undef DO
    int row = 0;
    for (const auto& [status, call, holds] : cases) {
        EXPECT_EQ(call(), status) << row;
        EXPECT_TRUE(holds()) << row;
        ++row;
    }
}

}  // namespace
}  // namespace hxr
