#include "sim/scene_text.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "sim/sources.h"

namespace hxr::sim {
namespace {

std::optional<double> numberFrom(std::string_view text) {
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<double> scaleOf(char suffix) {
    switch (suffix) {
        case 'k':
            return 1e3;
        case 'M':
            return 1e6;
        case 'G':
            return 1e9;
        default:
            return std::nullopt;
    }
}

}  // namespace

double frequencyFromText(const std::string& text) {
    std::string_view digits = text;
    const auto scale = text.empty() ? std::nullopt : scaleOf(text.back());
    if (scale) digits.remove_suffix(1);
    const auto number = numberFrom(digits);
    if (!number || *number < 0.0) throw std::invalid_argument("\"" + text + "\" is not a frequency");
    return *number * scale.value_or(1.0);
}

void addToneFromText(Scene& scene, const std::string& text) {
    const std::size_t colon = text.find(':');
    const auto level =
        colon == std::string::npos ? std::nullopt : numberFrom(std::string_view(text).substr(colon + 1));
    if (!level) throw std::invalid_argument("\"" + text + "\" is not FREQ:LEVEL");
    scene.with<Tone>(frequencyFromText(text.substr(0, colon)), *level);
}

}  // namespace hxr::sim
