#include "sim/recording_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "recording_support.h"
#include "sim/phase.h"
#include "sim/sigmf.h"
#include "support/temporary_folder.h"

namespace hxr::sim {
namespace {

using test::decibels;
using test::lineAt;
using test::lineOf;
using test::listen;
using test::Samples;
using enum SampleFormat;

constexpr std::int64_t someTime = 85'000'000'000'000'123;
constexpr double middleHz = 1e9;

struct RecordingTest : ::testing::Test {
    /// Plays samples with their full scale at -20 dBm.
    RecordingSource play(const Samples& samples, double rateHz, SampleFormat format = cf32,
                         std::optional<std::int64_t> onceFrom = {}) {
        const auto path = folder.path() / "samples";
        test::writeSamples(path, format, samples);
        return {RecordingFile({path, format, rateHz, {}}), middleHz, -20.0, onceFrom};
    }

    test::TemporaryFolder folder;
};

/// What remains of samples without a line, in dB below full scale at -20 dBm.
double restWithout(const Samples& samples, double hz) {
    const auto line = lineAt(samples, hz);
    double power = 0.0;
    for (std::size_t n = 0; n < samples.size(); ++n) {
        const double turn = hz / 50e6 * static_cast<double>(n);
        power += std::norm(samples[n] - line * std::polar(1.0, 2.0 * std::numbers::pi * turn));
    }
    return 10.0 * std::log10(power / static_cast<double>(samples.size()) + 1e-30) + 20.0;
}

TEST_F(RecordingTest, LineLandsInItsPlaceAtItsLevelAndAloneHoweverOftenTheRecordingRepeats) {
    const struct {
        SampleFormat format;
        double rateHz;
        std::size_t length;
        double cycles;
        double centreHz;  // from the recording's middle
        double restDb;    // of images, aliases and the format's own steps
    } cases[] = {{cu8, 2.4e6, 100, 31, -1.7e6, -45},
                 {cs8, 2.4e6, 100, -41, 3e6, -45},
                 {cs16, 2.4e6, 100, 41, -20e6, -75},
                 {cf32, 2.4e6, 1, 0, 1.1e6, -75},
                 {cf32, 48e3, 12, 5, 5e6, -75},
                 {cs16, 33.333e6, 200, 83, 1e6, -75},
                 {cf32, 33.333e6, 4, -1, -9e6, -75},
                 {cf32, 50e6, 1000, 417, 0.0, -75},
                 {cu8, 61.44e6, 300, -100, -0.3e6, -45},
                 {cs16, 61.44e6, 300, 100, 1e6, -75},
                 {cf32, 122.88e6, 768, 250, 30e6, -75},
                 {cf32, 122.88e6, 768, -260, -55e6, -75},
                 {cs16, 499.999e6, 1000, 400, 200e6, -75},
                 {cf32, 40.001e6, 5, -2, -30e6, -75}};
    for (const auto& test : cases) {
        const double lineHz = test.cycles / static_cast<double>(test.length) * test.rateHz;
        const auto source = play(lineOf(test.length, test.cycles, 0.5), test.rateHz, test.format);
        const Samples samples = listen(source, middleHz + test.centreHz, someTime, 4096);
        EXPECT_NEAR(decibels(std::abs(lineAt(samples, lineHz - test.centreHz))), -26.02, 0.05)
            << test.rateHz << " " << test.cycles;
        EXPECT_LT(restWithout(samples, lineHz - test.centreHz), test.restDb)
            << test.rateHz << " " << test.cycles;
    }
}

TEST_F(RecordingTest, NothingComesBackInAtTheOtherEdge) {
    const struct {
        double rateHz;
        double cycles;  // of 1000
        double centreHz;
    } cases[] = {{61.44e6, 450, 0.0}, {61.44e6, -420, 14e6},  {122.88e6, 250, 0.0}, {122.88e6, -400, 20e6},
                 {40e6, 400, -15e6},  {33.333e6, -400, 20e6}, {20e6, 420, -18e6}};
    for (const auto& test : cases) {
        const auto source = play(lineOf(1000, test.cycles, 1.0), test.rateHz);
        for (const auto& sample : listen(source, middleHz + test.centreHz, someTime, 512))
            ASSERT_LT(decibels(std::abs(sample)), -20.0 - 70.0) << test.rateHz << " " << test.cycles;
    }
}

TEST_F(RecordingTest, GoesOnWithoutASeamFromOneStretchToTheNext) {
    const struct {
        double rateHz;
        double centreHz;
    } cases[] = {{2.4e6, 1e6}, {33.333e6, 15e6}, {61.44e6, 2e6}, {122.88e6, -31e6}, {122.88e6, -50e6}};
    for (const auto& test : cases) {
        Samples several = lineOf(1500, 100, 0.5);
        for (std::size_t n = 0; n < several.size(); ++n)
            several[n] += lineOf(1500, -500, 0.3)[n] * (n % 7 < 3 ? 1.0 : -1.0);
        const auto source = play(several, test.rateHz);
        const Samples whole = listen(source, middleHz + test.centreHz, someTime, 4096);
        const Samples part = listen(source, middleHz + test.centreHz, someTime + 1001, 777);
        for (std::size_t n = 0; n < part.size(); ++n)
            ASSERT_NEAR(std::abs(part[n] - whole[n + 1001]), 0.0, 2e-6) << test.rateHz << " " << n;
    }
}

TEST_F(RecordingTest, AllCentresSeeTheSamePhase) {
    const double lineHz = 40e6;
    const auto source = play(lineOf(768, 250, 1.0), 122.88e6);
    const auto phaseSeenFrom = [&](double centreHz) {
        const Samples samples = listen(source, middleHz + centreHz, someTime, 2048);
        return lineAt(samples, lineHz - centreHz) *
               onCircle(phaseAt(turnsPerSample(middleHz + centreHz), someTime));
    };
    for (const double centreHz : {25e6, 36e6, 45e6, 55e6}) {
        EXPECT_NEAR(std::abs(phaseSeenFrom(centreHz) - phaseSeenFrom(30e6)), 0.0, 1e-4) << centreHz;
    }
}

TEST_F(RecordingTest, PlaysOnceFromItsStartToItsEnd) {
    // 1000 samples at 2.5 MS/s are 20000 of a capture; the filter reaches over 640 of these.
    const auto source = play(Samples(1000, 1.0), 2.5e6, cs16, someTime);
    const struct {
        std::int64_t first;
        double amplitude;
    } cases[] = {{-std::int64_t{90'000'000'000}, 0.0},
                 {-700 - 512, 0.0},
                 {700, 0.1},
                 {10'000, 0.1},
                 {19'300 - 512, 0.1},
                 {20'700, 0.0},
                 {90'000'000'000, 0.0}};
    for (const auto& test : cases) {
        for (const auto& sample : listen(source, middleHz, someTime + test.first, 512))
            ASSERT_NEAR(std::abs(sample), test.amplitude, 1e-4) << test.first;
    }
    // Half of the way up at the first sample, within the sample.
    EXPECT_NEAR(std::abs(listen(source, middleHz, someTime - 10, 1)[0]), 0.05, 0.01);
    EXPECT_NEAR(std::abs(listen(source, middleHz, someTime + 20'000 - 10, 1)[0]), 0.05, 0.01);
}

TEST_F(RecordingTest, AFileThatIsCutWhileItPlaysFallsSilentAndOddNumbersAreSilence) {
    const auto source = play(Samples(100'000, 1.0), 50e6);
    std::filesystem::resize_file(folder.path() / "samples", 0);
    EXPECT_EQ(listen(source, middleHz, someTime, 1)[0], 0.0);

    const double inf = std::numeric_limits<double>::infinity();
    const auto broken = play({{inf, -inf}, {std::nan(""), 0.0}}, 50e6);
    EXPECT_EQ(listen(broken, middleHz, someTime, 1)[0], 0.0);
}

TEST_F(RecordingTest, SigMfTellsWhatItsDataAre) {
    const struct {
        const char* datatype;
        SampleFormat format;
    } cases[] = {{"cu8", cu8}, {"ci8", cs8}, {"ci16_le", cs16}, {"cf32_le", cf32}};
    const auto meta = folder.path() / "air.sigmf-meta";
    for (const auto& test : cases) {
        test::writeText(meta, std::string(R"({"global": {"core:version": "1.0.0", "core:datatype": ")") +
                                  test.datatype + R"(", "core:sample_rate": 2400000}, "annotations": [],
            "captures": [{"core:sample_start": 0, "core:frequency": 433.92e6}]})");
        const RecordingFacts facts = readSigMf(meta);
        EXPECT_EQ(facts.format, test.format);
        EXPECT_EQ(facts.rateHz, 2.4e6);
        EXPECT_EQ(facts.frequencyHz, 433.92e6);
        EXPECT_EQ(facts.samples, folder.path() / "air.sigmf-data");
    }
    test::writeText(meta, R"({"global": {"core:datatype": "cu8", "core:sample_rate": 1e6}, "captures": []})");
    EXPECT_FALSE(readSigMf(meta).frequencyHz);
}

TEST_F(RecordingTest, WhatCannotBePlayedIsNamed) {
    const auto path = folder.path() / "odd one";
    const auto meta = folder.path() / "odd one.sigmf-meta";
    const auto raw = [&](const char* bytes, SampleFormat format, double rateHz) {
        return [=] {
            test::writeText(path, bytes);
            RecordingFile({path, format, rateHz, {}});
        };
    };
    const auto sigMf = [&](const std::string& text) {
        return [=] {
            test::writeText(meta, text);
            readSigMf(meta);
        };
    };
    const auto global = [&](const std::string& fields) { return sigMf("{\"global\": {" + fields + "}}"); };
    const std::string good = R"("core:datatype": "cu8", "core:sample_rate": 1e6)";
    const struct {
        std::function<void()> load;
        const char* what;
    } cases[] = {
        {[&] {
             RecordingFile({folder.path() / "odd one.cu8", cu8, 1e6, {}});
         },
         "no such file"},
        {[&] {
             RecordingFile({folder.path() / "..", cu8, 1e6, {}});
         },
         "plain file"},
        {raw("", cs16, 1e6), "empty"},
        {raw("123", cu8, 1e6), "within a sample"},
        {raw("123456", cs16, 1e6), "within a sample"},
        {raw("12", cu8, 0.0), "rate"},
        {raw("12", cu8, 1e12), "rate"},
        {raw("12", cu8, std::nan("")), "rate"},
        {[&] { readSigMf(folder.path() / "odd one.none"); }, "can't be read"},
        {sigMf(""), "parse error"},
        {sigMf("[1, 2"), "parse error"},
        {sigMf("7"), "odd one"},
        {sigMf("{}"), "global"},
        {sigMf(R"({"global": []})"), "odd one"},
        {sigMf(R"({"global": {)" + good + R"(}, "captures": 3})"), "odd one"},
        {sigMf(R"({"global": {)" + good + R"(}, "captures": [{"core:header_bytes": 16}]})"),
         "more in its data"},
        {sigMf(R"({"global": {)" + good + R"(}, "captures": [{"core:frequency": "high"}]})"), "odd one"},
        {global(R"("core:sample_rate": 1e6)"), "core:datatype"},
        {global(R"("core:datatype": "rf64_be", "core:sample_rate": 1e6)"), "rf64_be"},
        {global(R"("core:datatype": 8, "core:sample_rate": 1e6)"), "odd one"},
        {global(R"("core:datatype": "cu8")"), "core:sample_rate"},
        {global(R"("core:datatype": "cu8", "core:sample_rate": "fast")"), "odd one"},
        {global(good + R"(, "core:num_channels": 2)"), "channel"},
        {global(good + R"(, "core:dataset": "x.bin")"), "another file"},
    };
    for (const auto& test : cases) {
        try {
            test.load();
            ADD_FAILURE() << "no error for case " << &test - cases;
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_NE(text.find(test.what), std::string::npos) << text;
            EXPECT_NE(text.find(folder.path().string()), std::string::npos) << text;
        }
    }
}

}  // namespace
}  // namespace hxr::sim
