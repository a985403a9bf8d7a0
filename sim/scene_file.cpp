#include "sim/scene_file.h"

#include <cmath>
#include <fstream>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/ofdm.h"
#include "sim/phase.h"
#include "sim/recording_source.h"
#include "sim/scene_text.h"
#include "sim/sigmf.h"
#include "sim/sources.h"

namespace hxr::sim {

namespace {

using Words = std::vector<std::string>;

/// What a line's words refer to besides themselves.
struct Surroundings {
    std::filesystem::path folder;
    std::int64_t now;
};

[[noreturn]] void refuse(const std::string& what) { throw std::invalid_argument(what); }

// --- words -------------------------------------------------------------------------------------------------

/// The words of a line up to a comment. Quotes keep blanks and # in a word.
Words wordsOf(std::string_view line) {
    constexpr std::string_view blanks = " \t\r";
    Words words;
    bool inWord = false, quoted = false;
    for (const char letter : line) {
        if (letter == '"') {
            quoted = !quoted;
            if (!inWord) words.emplace_back();
            inWord = true;
        } else if (!quoted && letter == '#') {
            break;
        } else if (!quoted && blanks.find(letter) != std::string_view::npos) {
            inWord = false;
        } else {
            if (!inWord) words.emplace_back();
            inWord = true;
            words.back().push_back(letter);
        }
    }
    if (quoted) refuse("a quote doesn't end");
    return words;
}

double levelOf(const std::string& text) {
    constexpr double lowest = -300.0, highest = 100.0;
    const double level = numberFromText(text);
    if (level < lowest || level > highest) refuse("a level is from -300 to 100 dBm, not " + text);
    return level;
}

double frequencyOf(const std::string& text) {
    constexpr double highestHz = 100e9;
    const double hz = frequencyFromText(text);
    if (hz > highestHz) refuse("a frequency is at most 100 GHz, not " + text);
    return hz;
}

/// A frequency or a time that may not be 0.
double positive(double value, const std::string& text) {
    if (!(value > 0.0)) refuse("\"" + text + "\" has to be above 0");
    return value;
}

// --- sources of few words ----------------------------------------------------------------------------------

void addTone(Scene& scene, std::span<const std::string> values) {
    scene.with<Tone>(frequencyOf(values[0]), levelOf(values[1]));
}

void addAm(Scene& scene, std::span<const std::string> values) {
    const double depth = numberFromText(values[3]);
    if (depth < 0.0 || depth > 1.0) refuse("a depth is from 0 to 1, not " + values[3]);
    scene.with<AmTone>(frequencyOf(values[0]), levelOf(values[1]), frequencyOf(values[2]), depth);
}

void addFm(Scene& scene, std::span<const std::string> values) {
    constexpr double lowestHz = 1.0, largestHz = 25e6;
    const double modulationHz = frequencyOf(values[2]);
    const double deviationHz = frequencyOf(values[3]);
    if (modulationHz < lowestHz) refuse("a modulation is at least 1 Hz, not " + values[2]);
    if (deviationHz > largestHz) refuse("a deviation is at most 25 MHz, not " + values[3]);
    scene.with<FmTone>(frequencyOf(values[0]), levelOf(values[1]), modulationHz, deviationHz);
}

void addPulse(Scene& scene, std::span<const std::string> values) {
    constexpr double longestSeconds = 1e6;
    const double width = positive(timeFromText(values[2]), values[2]);
    const double period = timeFromText(values[3]);
    if (period < width) refuse("the period is shorter than the pulse");
    if (period > longestSeconds) refuse("a period is at most 1000000 s, not " + values[3]);
    scene.with<PulsedTone>(frequencyOf(values[0]), levelOf(values[1]), width, period);
}

void addOfdm(Scene& scene, std::span<const std::string> values) {
    const double widthHz = frequencyOf(values[2]);
    const OfdmGrid grid = values.size() > 3
                              ? OfdmGrid::ofWidth(widthHz, positive(frequencyOf(values[3]), values[3]))
                              : OfdmGrid::ofWidth(widthHz);
    scene.with<Ofdm>(frequencyOf(values[0]), levelOf(values[1]), grid);
}

void addNoise(Scene& scene, std::span<const std::string> values) {
    scene.with<WhiteNoise>(levelOf(values[0]));
}

constexpr struct {
    std::string_view name;
    std::size_t fewest, most;  ///< values behind the name
    const char* form;
    const char* example;
    void (*add)(Scene&, std::span<const std::string>);
} kinds[] = {
    {"tone", 2, 2, "tone FREQ LEVEL", "tone 2.4G -30", addTone},
    {"am", 4, 4, "am FREQ LEVEL MODULATION DEPTH", "am 1.008M -50 1k 0.6", addAm},
    {"fm", 4, 4, "fm FREQ LEVEL MODULATION DEVIATION", "fm 98.5M -42 1k 75k", addFm},
    {"pulse", 4, 4, "pulse FREQ LEVEL WIDTH PERIOD", "pulse 5.3G -38 2u 50u", addPulse},
    {"ofdm", 3, 4, "ofdm FREQ LEVEL WIDTH [SPACING]", "ofdm 2.14G -40 18M", addOfdm},
    {"noise", 1, 1, "noise LEVEL", "noise -155, in 1 Hz", addNoise},
};

// --- recordings --------------------------------------------------------------------------------------------

struct RecordingWords {
    std::optional<std::string> format, rate, frequency, level, once;
};

RecordingWords recordingWords(std::span<const std::string> words) {
    RecordingWords found;
    const std::pair<std::string_view, std::optional<std::string>*> known[] = {{"format", &found.format},
                                                                              {"rate", &found.rate},
                                                                              {"frequency", &found.frequency},
                                                                              {"level", &found.level},
                                                                              {"once", &found.once}};
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        std::optional<std::string>* place = nullptr;
        for (const auto& [knownName, value] : known) {
            if (knownName == name) place = value;
        }
        if (place == nullptr) refuse("a recording has no \"" + name + "\"");
        if (*place) refuse(name + " is told twice");
        if (equals == std::string::npos && name != "once") refuse(name + " needs a value behind =");
        *place = equals == std::string::npos ? "" : word.substr(equals + 1);
    }
    return found;
}

RecordingFacts factsOf(const std::filesystem::path& path, const RecordingWords& words) {
    if (path.extension() == ".sigmf-meta") {
        if (words.format || words.rate) refuse("format and rate are told by the SigMF file");
        return readSigMf(path);
    }
    if (!words.format || !words.rate)
        refuse("a recording needs format=... and rate=..., unless it is a .sigmf-meta");
    const auto format = sampleFormatFromText(*words.format);
    if (!format) refuse("a format is cu8, cs8, cs16 or cf32, not " + *words.format);
    return {path, *format, frequencyFromText(*words.rate), std::nullopt};
}

/// The sample with which a recording begins that plays once; nothing if it repeats.
std::optional<std::int64_t> beginningOf(const std::optional<std::string>& once, std::int64_t now) {
    constexpr double latestSeconds = 1e11;  // within the 64 bits of a sample's number
    if (!once) return std::nullopt;
    if (once->empty()) return now;
    const double seconds = timeFromText(*once);
    if (seconds > latestSeconds) refuse("a recording begins at most 1e11 s after 1970, not " + *once);
    return std::llround(seconds * captureRateHz);
}

void addRecording(Scene& scene, std::span<const std::string> values, const Surroundings& surroundings) {
    if (values.empty()) refuse("a recording needs its file");
    const RecordingWords words = recordingWords(values.subspan(1));
    const RecordingFacts facts = factsOf(surroundings.folder / values[0], words);
    if (!words.level) refuse("a recording needs level=...");
    const auto frequencyHz =
        words.frequency ? std::optional(frequencyOf(*words.frequency)) : facts.frequencyHz;
    if (!frequencyHz) refuse("a recording that doesn't tell its frequency needs frequency=...");
    const double level = levelOf(*words.level);
    const auto onceFrom = beginningOf(words.once, surroundings.now);
    scene.add(std::make_unique<const RecordingSource>(RecordingFile(facts), *frequencyHz, level, onceFrom));
}

// --- lines -------------------------------------------------------------------------------------------------

void addLine(Scene& scene, std::string_view line, const Surroundings& surroundings) {
    const Words words = wordsOf(line);
    if (words.empty()) return;
    const auto values = std::span(words).subspan(1);
    if (words[0] == "recording") return addRecording(scene, values, surroundings);
    for (const auto& kind : kinds) {
        if (kind.name != words[0]) continue;
        if (values.size() < kind.fewest || values.size() > kind.most)
            refuse(std::string("the form is: ") + kind.form);
        return kind.add(scene, values);
    }
    refuse("there is no source \"" + words[0] + "\"");
}

}  // namespace

std::string sceneFileForm() {
    constexpr std::size_t column = 37;
    std::string text =
        "A scene's file has one source a line, and comments behind #. Levels are in dBm; frequencies may "
        "end\n"
        "in k, M or G, times in u or m:\n";
    for (const auto& kind : kinds) {
        std::string form = kind.form;
        form.resize(column, ' ');
        text += "  " + form + "as " + kind.example + "\n";
    }
    return text +
           "  recording FILE.sigmf-meta level=LEVEL [frequency=FREQ] [once[=START]]\n"
           "  recording FILE format=cu8|cs8|cs16|cf32 rate=RATE frequency=FREQ level=LEVEL [once[=START]]\n"
           "A recording's level is that of its full scale, its path relative to the scene's file, in quotes "
           "if\n"
           "it has blanks. It repeats, or plays once: from the unit's start, or from START in seconds since "
           "1970.\n";
}

Scene readSceneFile(const std::filesystem::path& path, std::int64_t now) {
    std::ifstream file(path);
    if (!file || !std::filesystem::is_regular_file(path))
        throw std::runtime_error(path.string() + ": can't be read");
    const Surroundings surroundings{path.parent_path(), now};
    Scene scene;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        try {
            addLine(scene, line, surroundings);
        } catch (const std::exception& error) {
            throw std::runtime_error(path.string() + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    return scene;
}

}  // namespace hxr::sim
