/// hxr-sweep: takes swept spectra, shows them, and finds the lines in them.

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "hxr_api.h"
#include "peaks.h"
#include "sweeping.h"

namespace {

struct Arguments {
    tools::Where where;
    tools::SweepSettings settings;
    double centerHz = 0, spanHz = 0;
    Hold hold = Hold::last;
    int sweeps = 1;
    bool endless = false, live = false, json = false;
    int peaks = 10;
    double excursionDb = 10;
    double least = -std::numeric_limits<double>::infinity();
    std::vector<double> markers;
    std::string output, csv, picture, title;
    std::size_t columns = std::numeric_limits<std::size_t>::max();

    const char* unitName() const { return std::array{"dBm", "mV", "dBFS"}.at(settings.scale); }
    bool inDecibels() const { return settings.scale != 1; }
    int wanted() const { return endless ? std::numeric_limits<int>::max() : sweeps; }
    bool printsCsv() const { return csv == "-"; }
};

void addOptions(CLI::App& app, Arguments& arguments) {
    tools::SweepSettings& settings = arguments.settings;
    const CLI::Validator hertz = tools::hertz();
    tools::addCommonOptions(app, arguments.where);
    app.add_option("--channel", settings.channel, "channel that sweeps")
        ->check(CLI::Range(0, 15))
        ->capture_default_str();
    auto* const start =
        app.add_option("--start", settings.startHz, "lower edge")->transform(hertz)->capture_default_str();
    auto* const stop =
        app.add_option("--stop", settings.stopHz, "upper edge")->transform(hertz)->capture_default_str();
    auto* const center = app.add_option("--center", arguments.centerHz, "middle, in place of the edges")
                             ->transform(hertz)
                             ->excludes(start)
                             ->excludes(stop);
    auto* const span = app.add_option("--span", arguments.spanHz, "width around the middle")
                           ->transform(hertz)
                           ->check(tools::aboveZero())
                           ->excludes(start)
                           ->excludes(stop)
                           ->needs(center);
    center->needs(span);
    app.add_option("--rbw", settings.rbwHz, "resolution bandwidth")
        ->transform(hertz)
        ->check(tools::aboveZero())
        ->capture_default_str();
    app.add_option("--vbw", settings.vbwHz, "video bandwidth; the resolution bandwidth if not given")
        ->transform(hertz)
        ->check(tools::aboveZero());
    app.add_option("--ref", settings.refLevel, "reference level in dBm, by which the attenuator is set")
        ->capture_default_str();
    app.add_option("--atten", settings.attenuationDb,
                   "attenuator in dB, in place of what the reference asks for")
        ->check(CLI::IsMember({0, 5, 10, 15, 20, 25, 30}));
    tools::addChoice(app, "--window", settings.window, {{"flattop", 0}, {"nuttall", 1}, {"gaussian", 2}},
                     "window of the transforms");
    tools::addChoice(app, "--detector", settings.detector, {{"average", 0}, {"max", 2}},
                     "what counts of the spectra of a step");
    tools::addChoice(app, "--video", settings.video,
                     {{"log", 0}, {"voltage", 1}, {"power", 2}, {"sample", 3}}, "what is averaged");
    tools::addChoice(app, "--units", settings.scale, {{"dBm", 0}, {"mV", 1}, {"dBFS", 2}},
                     "units of the levels");
    auto* const sweeps = app.add_option("--sweeps", arguments.sweeps, "sweeps in a row")
                             ->check(CLI::Range(1, 1000000000))
                             ->capture_default_str();
    app.add_flag("--endless", arguments.endless, "sweep until Ctrl-C")->excludes(sweeps);
    tools::addChoice(
        app, "--trace", arguments.hold,
        {{"last", Hold::last}, {"max", Hold::highest}, {"min", Hold::lowest}, {"average", Hold::average}},
        "what the sweeps in a row make together");
    app.add_flag("--live", arguments.live, "draw every sweep in the terminal");
    app.add_option("--peaks", arguments.peaks, "lines to print")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_option("--excursion", arguments.excursionDb, "dB by which a line stands out")
        ->capture_default_str();
    app.add_option("--least", arguments.least, "level that a line has at least");
    app.add_option("--marker", arguments.markers, "print the level at a frequency; may be repeated")
        ->transform(hertz)
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    app.add_flag("--json", arguments.json, "print in a form for programs");
    app.add_option(
        "--csv", arguments.csv,
        "file for every sweep, - for standard output: date, time, Hz low, Hz high, Hz step, sweeps, levels");
    app.add_option("--output", arguments.output,
                   "file for the trace: frequency in Hz and level, a point a line");
    app.add_option("--columns", arguments.columns,
                   "write the highest of each of so many parts to that file in place of all points")
        ->check(CLI::PositiveNumber);
    app.add_option("--png", arguments.picture, "picture of the trace, drawn by gnuplot");
    app.add_option("--title", arguments.title, "what stands above the picture");
}

/// Draws over what was drawn before, where there is a terminal.
void draw(const Trace& trace, double refLevel) {
    winsize size{};
    const bool terminal =
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 30 && size.ws_row >= 8;
    const std::size_t columns = terminal ? size.ws_col : 80, rows = terminal ? size.ws_row - 1U : 24;
    std::printf("%s%s", terminal ? "\033[H\033[J" : "", drawSpectrum(trace, refLevel, columns, rows).c_str());
    std::fflush(stdout);
    constexpr auto frame = std::chrono::milliseconds(40);
    if (terminal) std::this_thread::sleep_for(frame);
}

/// A file that has to take all that is written.
class Output {
  public:
    explicit Output(const std::string& path) : path_(path), file_(path, std::ios::trunc) { check(); }
    std::ostream& stream() { return file_; }
    void check() {
        file_.flush();
        if (!file_) throw std::runtime_error("can't write " + path_);
    }

  private:
    std::string path_;
    std::ofstream file_;
};

struct Taken {
    int sweeps = 0;
    double milliseconds = 0;  ///< of one
};

Taken takeSweeps(const tools::Group& unit, const Arguments& arguments, Trace& trace) {
    std::optional<Output> csv;
    if (!arguments.csv.empty() && !arguments.printsCsv()) csv.emplace(arguments.csv);
    std::vector<float> sweep(trace.levels.size());
    Holder holder(arguments.hold, arguments.inDecibels());
    tools::Progress progress;
    Taken taken;
    const auto begin = std::chrono::steady_clock::now();
    while (taken.sweeps < arguments.wanted() && !(taken.sweeps > 0 && tools::interrupted())) {
        const auto take = [&] { return hxrGetSweep(unit, sweep.data()); };
        tools::check("sweep", arguments.live ? take() : progress.timed("sweeping", take));
        ++taken.sweeps;
        holder.take(sweep, trace.levels);
        if (csv) {
            writeCsv(csv->stream(), trace, taken.sweeps);
            csv->check();
        }
        if (arguments.printsCsv()) writeCsv(std::cout, trace, taken.sweeps);
        if (arguments.live) draw(trace, arguments.settings.refLevel);
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    taken.milliseconds = took.count() / taken.sweeps;
    return taken;
}

struct Line {
    double hz;
    float level;
};

std::vector<Line> linesOf(const Trace& trace, const Arguments& arguments) {
    // Two lines are told apart if a few resolution bandwidths lie between them.
    const auto apart = static_cast<std::size_t>(std::ceil(6 * trace.rbwHz / trace.binHz));
    std::vector<float> decibels = trace.levels;
    if (!arguments.inDecibels())
        std::ranges::transform(decibels, decibels.begin(),
                               [](float volts) { return 20 * std::log10(volts); });
    const double least =
        arguments.inDecibels() ? arguments.least : 20 * std::log10(std::max(arguments.least, 0.0));
    auto peaks = findPeaks(decibels, arguments.excursionDb, least, apart);
    if (peaks.size() > static_cast<std::size_t>(arguments.peaks))
        peaks.resize(static_cast<std::size_t>(arguments.peaks));
    std::ranges::sort(peaks);
    std::vector<Line> lines(peaks.size());
    std::ranges::transform(peaks, lines.begin(), [&](std::size_t place) {
        return Line{trace.frequency(middleOfLine(decibels, place)), trace.levels[place]};
    });
    return lines;
}

std::vector<Line> markersOf(const Trace& trace, const Arguments& arguments) {
    std::vector<Line> markers;
    for (const double hz : arguments.markers) {
        if (hz < trace.startHz - trace.binHz || hz > trace.stopHz() + trace.binHz)
            throw tools::UsageError("the marker at " + hertzText(hz) + " lies outside of the sweep");
        const std::size_t point = trace.pointAt(hz);
        markers.push_back({trace.frequency(static_cast<double>(point)), trace.levels[point]});
    }
    return markers;
}

void print(const Trace& trace, const Taken& taken, const Arguments& arguments) {
    std::printf("%s to %s, RBW %s, VBW %s, %zu points, %.1f ms a sweep\n", hertzText(trace.startHz).c_str(),
                hertzText(trace.stopHz()).c_str(), hertzText(trace.rbwHz, 4).c_str(),
                hertzText(trace.vbwHz, 4).c_str(), trace.levels.size(), taken.milliseconds);
    const auto list = [&](const char* name, const std::vector<Line>& lines) {
        for (const auto& [hz, level] : lines) {
            std::printf("%s%18.6f MHz %10.*f %s\n", name, hz / 1e6, arguments.inDecibels() ? 2 : 6,
                        static_cast<double>(level), arguments.unitName());
        }
    };
    list("", linesOf(trace, arguments));
    list("marker", markersOf(trace, arguments));
}

void printJson(const Trace& trace, const Taken& taken, const Arguments& arguments) {
    using Json = nlohmann::ordered_json;
    const auto list = [&](const std::vector<Line>& lines) {
        Json array = Json::array();
        for (const auto& [hz, level] : lines) array.push_back({{"hz", hz}, {"level", level}});
        return array;
    };
    const Json all{{"startHz", trace.startHz},
                   {"stopHz", trace.stopHz()},
                   {"rbwHz", trace.rbwHz},
                   {"vbwHz", trace.vbwHz},
                   {"points", trace.levels.size()},
                   {"units", arguments.unitName()},
                   {"sweeps", taken.sweeps},
                   {"millisecondsASweep", taken.milliseconds},
                   {"lines", list(linesOf(trace, arguments))},
                   {"markers", list(markersOf(trace, arguments))}};
    std::printf("%s\n", all.dump(2).c_str());
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-sweep", [&] {
        CLI::App app("Takes swept spectra of an HXR unit.");
        app.footer(
            "Examples:\n"
            "  hxr-sweep --simulate --rbw 300k --png all.png\n"
            "  hxr-sweep --start 88M --stop 108M --rbw 10k --sweeps 20 --trace max\n"
            "  hxr-sweep --center 2.45G --span 20M --rbw 30k --endless --live\n"
            "  hxr-sweep --start 400M --stop 500M --endless --csv survey.csv\n");
        Arguments arguments;
        addOptions(app, arguments);
        tools::parse(app, argc, argv);
        if (arguments.spanHz > 0) {
            arguments.settings.startHz = arguments.centerHz - arguments.spanHz / 2;
            arguments.settings.stopHz = arguments.centerHz + arguments.spanHz / 2;
        }
        if ((arguments.live || !arguments.picture.empty()) && !arguments.inDecibels())
            throw tools::UsageError("--live and --png draw decibels, no mV");
        if (arguments.json && arguments.printsCsv())
            throw tools::UsageError("--json and --csv - both want standard output");
        for (const std::string& path : {arguments.output, arguments.picture})
            if (!path.empty() && !std::ofstream(path, std::ios::app))  // before anything takes its time
                throw std::runtime_error("can't write " + path);
        tools::catchInterrupts();
        const tools::Simulation simulation(arguments.where);
        const tools::Group unit(arguments.where);
        tools::setSweep(unit, arguments.settings);
        tools::check("initiate", hxrInitiate(unit));
        Trace trace = tools::emptyTrace(unit);
        const Taken taken = takeSweeps(unit, arguments, trace);
        tools::check("abort", hxrAbort(unit));
        if (arguments.json) {
            printJson(trace, taken, arguments);
        } else if (!arguments.printsCsv()) {
            print(trace, taken, arguments);
        }
        if (!arguments.output.empty()) {
            Output file(arguments.output);
            writeColumns(file.stream(), trace, arguments.columns);
            file.check();
        }
        if (!arguments.picture.empty()) {
            tools::drawPicture(trace, arguments.settings.refLevel,
                               arguments.title.empty()
                                   ? "channel " + std::to_string(arguments.settings.channel)
                                   : arguments.title,
                               arguments.picture, arguments.unitName());
        }
        return tools::allWell;
    });
}
