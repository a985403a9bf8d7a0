#include "sim/sigmf.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace hxr::sim {
namespace {

using Json = nlohmann::json;

constexpr struct {
    std::string_view name;
    SampleFormat format;
} datatypes[] = {{"cu8", SampleFormat::cu8},
                 {"ci8", SampleFormat::cs8},
                 {"ci16_le", SampleFormat::cs16},
                 {"cf32_le", SampleFormat::cf32}};

SampleFormat formatOf(const std::string& datatype) {
    for (const auto& known : datatypes) {
        if (known.name == datatype) return known.format;
    }
    throw std::runtime_error("core:datatype \"" + datatype + "\" is none of cu8, ci8, ci16_le and cf32_le");
}

/// What would have to be read in another way mustn't be played as noise.
void refuseOtherLayouts(const Json& global, const Json& capture) {
    if (global.value("core:num_channels", 1) != 1) throw std::runtime_error("has more than one channel");
    if (global.contains("core:dataset")) throw std::runtime_error("core:dataset names another file");
    if (capture.value("core:header_bytes", 0) != 0 || global.value("core:trailing_bytes", 0) != 0)
        throw std::runtime_error("has more in its data file than samples");
}

RecordingFacts factsFrom(std::istream& text, const std::filesystem::path& dataPath) {
    const Json meta = Json::parse(text);
    const Json& global = meta.at("global");
    const Json captures = meta.value("captures", Json::array());
    const Json capture = captures.empty() ? Json::object() : captures.at(0);
    refuseOtherLayouts(global, capture);
    RecordingFacts facts{dataPath, formatOf(global.at("core:datatype").get<std::string>()),
                         global.at("core:sample_rate").get<double>(), std::nullopt};
    if (capture.contains("core:frequency")) facts.frequencyHz = capture.at("core:frequency").get<double>();
    return facts;
}

}  // namespace

RecordingFacts readSigMf(const std::filesystem::path& metaPath) {
    std::ifstream file(metaPath);
    if (!file) throw std::runtime_error(metaPath.string() + ": can't be read");
    std::filesystem::path dataPath = metaPath;
    dataPath.replace_extension(".sigmf-data");
    try {
        return factsFrom(file, dataPath);
    } catch (const std::exception& error) {
        throw std::runtime_error(metaPath.string() + ": " + error.what());
    }
}

}  // namespace hxr::sim
