#include "sim/scene_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "recording_support.h"
#include "sim/ofdm.h"
#include "sim/recording_source.h"
#include "sim/sigmf.h"
#include "sim/sources.h"
#include "support/temporary_folder.h"

namespace hxr::sim {
namespace {

using test::listen;
using test::Samples;

constexpr std::int64_t someTime = 85'000'000'000'000'123;

struct SceneFile : ::testing::Test {
    SceneFile() {
        std::filesystem::create_directory(path.parent_path());
        test::writeSamples(path.parent_path() / "a b.cs16", SampleFormat::cs16, test::lineOf(100, 7, 0.5));
        test::writeSamples(path.parent_path() / "air.sigmf-data", SampleFormat::cu8,
                           test::lineOf(50, 3, 0.5));
        test::writeText(path.parent_path() / "air.sigmf-meta",
                        R"({"global": {"core:datatype": "cu8", "core:sample_rate": 1e6},
                            "captures": [{"core:frequency": 433.92e6}]})");
    }

    Scene read(const std::string& text) {
        test::writeText(path, text);
        return readSceneFile(path, someTime);
    }

    RecordingSource raw(std::optional<std::int64_t> onceFrom) const {
        return {RecordingFile({path.parent_path() / "a b.cs16", SampleFormat::cs16, 2.4e6, {}}), 100e6, -30.0,
                onceFrom};
    }

    test::TemporaryFolder folder;
    const std::filesystem::path path = folder.path() / "scenes" / "scene.txt";
};

TEST_F(SceneFile, EachLineSoundsAsTheSourceThatItTells) {
    const RecordingFacts sigMf = readSigMf(path.parent_path() / "air.sigmf-meta");
    const std::int64_t second = someTime / 50'000'000;
    const struct {
        std::string line;
        std::unique_ptr<const Source> source;
    } cases[] = {
        {"tone 2.4G -30", std::make_unique<Tone>(2.4e9, -30.0)},
        {"\tam 1.008M  -50.5 1k 0.6 # a station\r", std::make_unique<AmTone>(1.008e6, -50.5, 1e3, 0.6)},
        {"fm 98.5M -42 1k 75k", std::make_unique<FmTone>(98.5e6, -42.0, 1e3, 75e3)},
        {"pulse 5.3G -38 2u 0.05m", std::make_unique<PulsedTone>(5.3e9, -38.0, 2e-6, 50e-6)},
        {"ofdm 2.14G -40 18M", std::make_unique<Ofdm>(2.14e9, -40.0, OfdmGrid::ofWidth(18e6))},
        {"ofdm 700M 3 5M 100k", std::make_unique<Ofdm>(700e6, 3.0, OfdmGrid::ofWidth(5e6, 100e3))},
        {"noise -155", std::make_unique<WhiteNoise>(-155.0)},
        {"recording \"a b.cs16\" level=-30 format=cs16 rate=2.4M frequency=100M",
         std::make_unique<RecordingSource>(raw(std::nullopt))},
        {"recording \"a b.cs16\" once level=-30 format=cs16 rate=2.4M frequency=100M",
         std::make_unique<RecordingSource>(raw(someTime))},
        {"recording \"a b.cs16\" once=" + std::to_string(second) +
             " level=-30 format=cs16 rate=2.4M frequency=100M",
         std::make_unique<RecordingSource>(raw(second * 50'000'000))},
        {"recording air.sigmf-meta level=-20",
         std::make_unique<RecordingSource>(RecordingFile(sigMf), 433.92e6, -20.0)},
        {"recording air.sigmf-meta level=-20 frequency=1G",
         std::make_unique<RecordingSource>(RecordingFile(sigMf), 1e9, -20.0)},
    };
    for (const auto& test : cases) {
        const Scene scene = read("# a comment\n\n" + test.line);
        ASSERT_EQ(scene.sources().size(), 1u) << test.line;
        const double centreHz = test.source->centreHz() + 1e6;
        for (const std::int64_t first : {someTime / 50'000'000 * 50'000'000 + 100, someTime + 300}) {
            const Samples expected = listen(*test.source, centreHz, first, 300);
            const Samples heard = listen(*scene.sources()[0], centreHz, first, 300);
            for (std::size_t n = 0; n < heard.size(); ++n)
                ASSERT_NEAR(std::abs(heard[n] - expected[n]), 0.0, 1e-9) << test.line;
        }
    }
    EXPECT_EQ(read("tone 1M 0\ntone 2M 0\n\n  # none\nnoise -160").sources().size(), 3u);
    EXPECT_TRUE(read("").empty());
}

TEST_F(SceneFile, ErrorsTellFileLineAndWhatIsWrong) {
    const struct {
        const char* line;
        const char* what;
    } cases[] = {
        {"tones 1M 0", "no source \"tones\""},
        {"\"\"", "no source \"\""},
        {"\"tone 1M 0", "quote"},
        {"tone", "tone FREQ LEVEL"},
        {"tone 1M 0 0", "tone FREQ LEVEL"},
        {"tone 1X 0", "\"1X\" is not a frequency"},
        {"tone M 0", "\"M\" is not a frequency"},
        {"tone -1 0", "not a frequency"},
        {"tone nan 0", "not a frequency"},
        {"tone 1e300 0", "100 GHz"},
        {"tone 1M 0dBm", "\"0dBm\" is not a number"},
        {"tone 1M 1e9", "-300 to 100"},
        {"am 1M 0 1k 1.1", "depth"},
        {"fm 1M 0 0 1k", "at least 1 Hz"},
        {"fm 1M 0 1k 26M", "25 MHz"},
        {"pulse 1M 0 0 1m", "above 0"},
        {"pulse 1M 0 2u 1u", "shorter"},
        {"pulse 1M 0 2k 1m", "\"2k\" is not a time"},
        {"pulse 1M 0 1 1e300", "1000000 s"},
        {"ofdm 1G 0 60M", "45 MHz"},
        {"ofdm 1G 0 1M 1", "10 kHz"},
        {"ofdm 1G 0 1M 0", "above 0"},
        {"noise loud", "not a number"},
        {"recording", "needs its file"},
        {"recording none.sigmf-meta level=0", "none.sigmf-meta: can't be read"},
        {"recording air.sigmf-meta", "needs level"},
        {"recording air.sigmf-meta level", "level needs a value"},
        {"recording air.sigmf-meta level=", "not a number"},
        {"recording air.sigmf-meta level=0 level=1", "twice"},
        {"recording air.sigmf-meta level=0 once once", "twice"},
        {"recording air.sigmf-meta level=0 rate=1M", "SigMF"},
        {"recording air.sigmf-meta level=0 loud", "no \"loud\""},
        {"recording air.sigmf-meta level=0 once=1e300", "1970"},
        {"recording air.sigmf-data level=0 frequency=1M", "needs format=... and rate=..."},
        {"recording \"a b.cs16\" level=0 format=cs12 rate=1M frequency=1M", "not cs12"},
        {"recording \"a b.cs16\" level=0 format=cs16 rate=1M", "frequency=..."},
        {"recording \"a b.cs16\" level=0 format=cs16 rate=900G frequency=1M", "sample rate"},
        {"recording a b.cs16 level=0 format=cs16 rate=1M frequency=1M", "no \"b.cs16\""},
        {"recording missing level=0 format=cs16 rate=1M frequency=1M", "missing: there is no such file"},
    };
    for (const auto& test : cases) {
        try {
            read(std::string("noise -150\n\n# tone\n") + test.line + "\ntone 1M 0\n");
            ADD_FAILURE() << "no error for: " << test.line;
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_TRUE(text.starts_with(path.string() + ":4: ")) << text;
            EXPECT_NE(text.find(test.what), std::string::npos) << test.line << ": " << text;
        }
    }
    EXPECT_THROW(readSceneFile(folder.path() / "none", someTime), std::runtime_error);
    EXPECT_THROW(readSceneFile(folder.path(), someTime), std::runtime_error);
}

}  // namespace
}  // namespace hxr::sim
