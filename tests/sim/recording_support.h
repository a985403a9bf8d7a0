#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>

#include "capture_support.h"
#include "sim/recording_file.h"

namespace hxr::test {

inline void writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

/// Samples as a recorder would store them, full scale being 1.0.
inline void writeSamples(const std::filesystem::path& path, sim::SampleFormat format,
                         const Samples& samples) {
    std::string bytes;
    const auto put = [&](std::uint64_t value, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i) bytes.push_back(static_cast<char>(value >> 8 * i));
    };
    const auto putNumber = [&](double value) {
        using enum sim::SampleFormat;
        if (format == cu8) put(static_cast<std::uint64_t>(std::lround(127.5 + 128.0 * value)), 1);
        if (format == cs8) put(static_cast<std::uint64_t>(std::lround(128.0 * value)), 1);
        if (format == cs16) put(static_cast<std::uint64_t>(std::lround(32768.0 * value)), 2);
        if (format == cf32) put(std::bit_cast<std::uint32_t>(static_cast<float>(value)), 4);
    };
    for (const auto& sample : samples) {
        putNumber(sample.real());
        putNumber(sample.imag());
    }
    writeText(path, bytes);
}

/// A line with a whole number of cycles.
inline Samples lineOf(std::size_t length, double cycles, double amplitude) {
    Samples samples;
    for (std::size_t n = 0; n < length; ++n) {
        const double turn = cycles * static_cast<double>(n) / static_cast<double>(length);
        samples.push_back(std::polar(amplitude, 2.0 * std::numbers::pi * turn));
    }
    return samples;
}

}  // namespace hxr::test
