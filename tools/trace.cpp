#include "trace.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

template <typename... Values>
std::string format(const char* form, Values... values) {
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), form, values...);
    return text.data();
}

double powerOf(float decibels) { return std::pow(10, static_cast<double>(decibels) / 10); }

/// A column of blocks, an eighth of a character fine, from the bottom to a height in eighths.
const char* blockAt(int eighths) {
    constexpr std::array blocks{" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                "\u2585", "\u2586", "\u2587", "\u2588"};
    return blocks[static_cast<std::size_t>(std::clamp(eighths, 0, 8))];
}

}  // namespace

std::size_t Trace::pointAt(double hz) const {
    const double last = static_cast<double>(levels.size()) - 1;
    return static_cast<std::size_t>(std::clamp(std::round((hz - startHz) / binHz), 0.0, last));
}

double Trace::power(double hz, double width) const {
    double sum = 0;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if (std::abs(frequency(static_cast<double>(i)) - hz) <= width / 2)
            sum += powerOf(levels[i]) * binHz / rbwHz;
    }
    return 10 * std::log10(sum);
}

void Holder::take(std::span<const float> sweep, std::vector<float>& levels) {
    ++taken_;
    if (taken_ == 1 || hold_ == Hold::last) {
        levels.assign(sweep.begin(), sweep.end());
    } else if (hold_ == Hold::highest) {
        std::ranges::transform(levels, sweep, levels.begin(),
                               [](float a, float b) { return std::max(a, b); });
    } else if (hold_ == Hold::lowest) {
        std::ranges::transform(levels, sweep, levels.begin(),
                               [](float a, float b) { return std::min(a, b); });
    }
    if (hold_ != Hold::average) return;
    sums_.resize(sweep.size());
    for (std::size_t i = 0; i < sweep.size(); ++i) {
        sums_[i] += inDecibels_ ? powerOf(sweep[i]) : static_cast<double>(sweep[i]);
        const double mean = sums_[i] / taken_;
        levels[i] = static_cast<float>(inDecibels_ ? 10 * std::log10(mean) : mean);
    }
}

std::vector<std::size_t> highestOfParts(std::span<const float> levels, std::size_t parts) {
    const std::size_t points = levels.size();
    parts = std::min(parts, points);
    std::vector<std::size_t> places(parts);
    for (std::size_t part = 0; part < parts; ++part) {
        const std::size_t first = part * points / parts, last = (part + 1) * points / parts;
        const auto within = levels.subspan(first, last - first);
        places[part] = first + static_cast<std::size_t>(std::ranges::max_element(within) - within.begin());
    }
    return places;
}

void writeColumns(std::ostream& out, const Trace& trace, std::size_t parts) {
    for (const std::size_t place : highestOfParts(trace.levels, parts)) {
        out << format("%.3f %.6g\n", trace.frequency(static_cast<double>(place)),
                      static_cast<double>(trace.levels[place]));
    }
}

void writeCsv(std::ostream& out, const Trace& trace, int sweeps) {
    constexpr std::size_t pointsOfALine = 4096;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::array<char, 24> when{};
    std::strftime(when.data(), when.size(), "%Y-%m-%d, %H:%M:%S", localtime_r(&now, &local));
    for (std::size_t first = 0; first < trace.levels.size(); first += pointsOfALine) {
        const std::size_t end = std::min(first + pointsOfALine, trace.levels.size());
        out << when.data()
            << format(", %.0f, %.0f, %.6f, %d", trace.frequency(static_cast<double>(first)),
                      trace.frequency(static_cast<double>(end)), trace.binHz, sweeps);
        for (std::size_t i = first; i < end; ++i)
            out << format(", %.6g", static_cast<double>(trace.levels[i]));
        out << '\n';
    }
    out.flush();  // who reads along sees whole sweeps
}

std::string drawSpectrum(const Trace& trace, double refLevel, std::size_t columns, std::size_t rows) {
    constexpr std::size_t scaleWidth = 8;
    constexpr double range = 100;
    auto places = highestOfParts(trace.levels, columns - scaleWidth);
    if (const std::size_t points = places.size(); points > 0 && points < columns - scaleWidth) {
        places.resize(columns - scaleWidth);  // fewer points than columns: each takes several
        for (std::size_t column = 0; column < places.size(); ++column)
            places[column] = column * points / places.size();
    }
    const std::size_t height = rows - 2;
    std::string text;
    for (std::size_t row = 0; row < height; ++row) {
        const double top = refLevel - range * static_cast<double>(row) / static_cast<double>(height);
        text += format("%6.1f |", top);
        for (const std::size_t place : places) {
            const double above = (static_cast<double>(trace.levels[place]) - refLevel + range) / range;
            const double below = static_cast<double>(height - row - 1);
            text += blockAt(static_cast<int>(
                std::floor(8 * (std::clamp(above, 0.0, 1.0) * static_cast<double>(height) - below))));
        }
        text += '\n';
    }
    const std::string left = hertzText(trace.startHz), right = hertzText(trace.stopHz());
    const std::string middle = hertzText((trace.startHz + trace.stopHz()) / 2);
    const std::size_t room = columns - scaleWidth;
    std::string scale(room, ' ');
    const auto put = [&](std::size_t at, const std::string& name) {
        if (at + name.size() <= room) scale.replace(at, name.size(), name);
    };
    put(0, left);
    if (room > left.size() + middle.size() + right.size() + 4) put((room - middle.size()) / 2, middle);
    put(room - std::min(room, right.size()), right);
    text += std::string(scaleWidth, ' ') + scale + '\n';
    if (!trace.levels.empty()) {
        const auto highest =
            static_cast<std::size_t>(std::ranges::max_element(trace.levels) - trace.levels.begin());
        text += format("highest %.2f at ", static_cast<double>(trace.levels[highest])) +
                hertzText(trace.frequency(static_cast<double>(highest))) + '\n';
    }
    return text;
}

std::string hertzText(double hz, int digits) {
    constexpr struct {
        double least;
        const char* name;
    } prefixes[] = {{1e9, "GHz"}, {1e6, "MHz"}, {1e3, "kHz"}};
    for (const auto& [least, name] : prefixes)
        if (std::abs(hz) >= least) return format("%.*g %s", digits, hz / least, name);
    return format("%.*g Hz", digits, hz);
}
