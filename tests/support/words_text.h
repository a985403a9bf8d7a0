/// Expected words, written as the chips' register lists are.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace hxr::test {

using Words = std::vector<std::uint32_t>;

/// Words for a list of "register=value" in hexadecimal, each on top of `base`; other entries stand for themselves, and
/// "D" for `pause` with three filler words.
inline Words registerWords(std::uint32_t base, const std::string& text, std::uint32_t pause = 0) {
    Words words;
    std::istringstream list(text);
    for (std::string entry; list >> entry;) {
        const auto number = [](const std::string& digits) {
            return static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
        };
        const auto equals = entry.find('=');
        if (entry == "D") {
            words.insert(words.end(), {pause, 1, 1, 1});
        } else if (equals == std::string::npos) {
            words.push_back(number(entry));
        } else {
            words.push_back(base + number(entry.substr(0, equals)) * 256 + number(entry.substr(equals + 1)));
        }
    }
    return words;
}

inline Words joined(std::initializer_list<Words> parts) {
    Words all;
    for (const Words& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace hxr::test
