// hxr-sweep: takes swept spectra of a unit, prints the lines that stand in them and writes the trace for a plot.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "hxr_api.h"
#include "peaks.h"
#include "support.h"

namespace {

struct Arguments {
    tools::Where where;
    int channel = 0;
    double startHz = 100e3;
    double stopHz = 20e9;
    double rbwHz = 1e6;
    double vbwHz = 0;
    double refLevel = -20;
    unsigned window = 0;
    unsigned detector = 0;
    unsigned video = 0;
    int sweeps = 1;
    int peaks = 10;
    double excursionDb = 10;
    double leastDbm = -std::numeric_limits<double>::infinity();
    std::string output;
    std::size_t columns = 0;
};

void addOptions(CLI::App& app, Arguments& arguments) {
    const CLI::Validator hertz = tools::hertz();
    tools::addCommonOptions(app, arguments.where);
    app.add_option("--channel", arguments.channel, "channel that sweeps")
        ->check(CLI::Range(0, 15))
        ->capture_default_str();
    app.add_option("--start", arguments.startHz, "lower edge")->transform(hertz)->capture_default_str();
    app.add_option("--stop", arguments.stopHz, "upper edge")->transform(hertz)->capture_default_str();
    app.add_option("--rbw", arguments.rbwHz, "resolution bandwidth")->transform(hertz)->capture_default_str();
    app.add_option("--vbw", arguments.vbwHz, "video bandwidth; the resolution bandwidth if not given")
        ->transform(hertz);
    app.add_option("--ref", arguments.refLevel, "reference level in dBm")->capture_default_str();
    app.add_option("--window", arguments.window, "window of the transforms")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, unsigned>{{"flattop", 0}, {"nuttall", 1}, {"gaussian", 2}}))
        ->default_str("flattop");
    app.add_option("--detector", arguments.detector, "what counts of the spectra of a step")
        ->transform(CLI::CheckedTransformer(std::map<std::string, unsigned>{{"average", 0}, {"max", 2}}))
        ->default_str("average");
    app.add_option("--video", arguments.video, "what is averaged")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, unsigned>{{"log", 0}, {"voltage", 1}, {"power", 2}, {"sample", 3}}))
        ->default_str("log");
    app.add_option("--sweeps", arguments.sweeps, "so many sweeps in a row, the highest of each point counts")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--peaks", arguments.peaks, "lines to print")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_option("--excursion", arguments.excursionDb, "dB by which a line stands out")
        ->capture_default_str();
    app.add_option("--least", arguments.leastDbm, "dBm that a line has at least");
    app.add_option("--output", arguments.output,
                   "file for the trace: frequency in Hz and level in dBm, a point a line");
    app.add_option("--columns", arguments.columns,
                   "write the highest of each of so many parts in place of all points");
}

struct Trace {
    double startHz = 0, binHz = 0, rbwHz = 0, vbwHz = 0;
    std::vector<float> levels;

    double frequency(double point) const { return startHz + point * binHz; }
};

Trace takeSweeps(const tools::Group& unit, const Arguments& arguments) {
    std::array<int, 16> enabled{};
    enabled[static_cast<std::size_t>(arguments.channel)] = 1;
    tools::check("channel", hxrSetChannelConfig(unit, enabled.data(), arguments.channel));
    tools::check("reference level", hxrSetSweepRefLevel(unit, arguments.refLevel));
    tools::check("range", hxrSetSweepStartStop(unit, arguments.startHz, arguments.stopHz));
    const double vbw = arguments.vbwHz > 0 ? arguments.vbwHz : arguments.rbwHz;
    tools::check("bandwidths", hxrSetSweepCoupling(unit, arguments.rbwHz, vbw, 1e-6));
    tools::check("window", hxrSetSweepWindow(unit, arguments.window));
    tools::check("detector", hxrSetSweepDetector(unit, arguments.detector, arguments.video));
    tools::check("initiate", hxrInitiate(unit));

    Trace trace;
    int points = 0;
    tools::check("parameters", hxrSweepGetParameters(unit, &trace.rbwHz, &trace.vbwHz, &trace.startHz,
                                                     &trace.binHz, &points));
    trace.levels.assign(static_cast<std::size_t>(points), -std::numeric_limits<float>::infinity());
    std::vector<float> sweep(trace.levels.size());
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < arguments.sweeps; ++i) {
        tools::check("sweep", hxrGetSweep(unit, sweep.data()));
        std::ranges::transform(trace.levels, sweep, trace.levels.begin(),
                               [](float a, float b) { return std::max(a, b); });
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    tools::check("abort", hxrAbort(unit));
    std::printf("%.6g to %.6g MHz, RBW %.4g kHz, VBW %.4g kHz, %d points, %.1f ms a sweep\n",
                arguments.startHz / 1e6, arguments.stopHz / 1e6, trace.rbwHz / 1e3, trace.vbwHz / 1e3, points,
                took.count() / arguments.sweeps);
    return trace;
}

void printPeaks(const Trace& trace, const Arguments& arguments) {
    // Two lines are told apart if a few resolution bandwidths lie between them.
    const auto apart = static_cast<std::size_t>(std::ceil(6 * trace.rbwHz / trace.binHz));
    auto peaks = findPeaks(trace.levels, arguments.excursionDb, arguments.leastDbm, apart);
    if (peaks.size() > static_cast<std::size_t>(arguments.peaks))
        peaks.resize(static_cast<std::size_t>(arguments.peaks));
    std::ranges::sort(peaks);
    for (const std::size_t place : peaks) {
        std::printf("%18.6f MHz %10.2f dBm\n", trace.frequency(middleOfLine(trace.levels, place)) / 1e6,
                    double{trace.levels[place]});
    }
}

void writeTrace(const Trace& trace, const Arguments& arguments) {
    std::ofstream file(arguments.output, std::ios::trunc);
    const std::size_t points = trace.levels.size();
    const std::size_t columns = arguments.columns == 0 ? points : std::min(arguments.columns, points);
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t first = column * points / columns, last = (column + 1) * points / columns;
        const auto part = std::span(trace.levels).subspan(first, last - first);
        const std::size_t place =
            first + static_cast<std::size_t>(std::ranges::max_element(part) - part.begin());
        char line[64];
        const int length =
            std::snprintf(line, sizeof line, "%.3f %.3f\n", trace.frequency(static_cast<double>(place)),
                          double{trace.levels[place]});
        file.write(line, length);
    }
    if (!file.flush()) throw std::runtime_error("can't write " + arguments.output);
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-sweep", [&] {
        CLI::App app("Takes swept spectra of an HXR unit.");
        app.footer(
            "Examples:\n  hxr-sweep --simulate --rbw 300k\n  hxr-sweep --unit 192.168.2.10 --start 88M "
            "--stop "
            "108M --rbw 10k");
        Arguments arguments;
        addOptions(app, arguments);
        CLI11_PARSE(app, argc, argv);
        const tools::Simulation simulation(arguments.where);
        const tools::Group unit(arguments.where);
        const Trace trace = takeSweeps(unit, arguments);
        printPeaks(trace, arguments);
        if (!arguments.output.empty()) writeTrace(trace, arguments);
        return tools::allWell;
    });
}
