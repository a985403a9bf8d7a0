#include "sim/scene_text.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <span>
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

struct Suffix {
    char letter;
    const char* exponent;
};

constexpr Suffix frequencySuffixes[] = {{'k', "e3"}, {'M', "e6"}, {'G', "e9"}};
constexpr Suffix timeSuffixes[] = {{'u', "e-6"}, {'m', "e-3"}};

/// A number of at least 0 with one of the suffixes, or none. The suffix becomes the number's exponent, so
/// that 2.14G is the double nearest to it: a product's last bit would be hundreds of turns since 1970.
double quantityFrom(const std::string& text, std::span<const Suffix> suffixes, const char* kind) {
    std::string digits = text;
    for (const Suffix& suffix : suffixes) {
        if (!text.ends_with(suffix.letter)) continue;
        digits.pop_back();
        digits += suffix.exponent;
    }
    const auto number = numberFrom(digits);
    if (!number || *number < 0.0) throw std::invalid_argument("\"" + text + "\" is not a " + kind);
    return *number;
}

}  // namespace

double numberFromText(const std::string& text) {
    const auto number = numberFrom(text);
    if (!number) throw std::invalid_argument("\"" + text + "\" is not a number");
    return *number;
}

double timeFromText(const std::string& text) { return quantityFrom(text, timeSuffixes, "time"); }

double frequencyFromText(const std::string& text) {
    return quantityFrom(text, frequencySuffixes, "frequency");
}

void addToneFromText(Scene& scene, const std::string& text) {
    const std::size_t colon = text.find(':');
    const auto level =
        colon == std::string::npos ? std::nullopt : numberFrom(std::string_view(text).substr(colon + 1));
    if (!level) throw std::invalid_argument("\"" + text + "\" is not FREQ:LEVEL");
    scene.with<Tone>(frequencyFromText(text.substr(0, colon)), *level);
}

}  // namespace hxr::sim
