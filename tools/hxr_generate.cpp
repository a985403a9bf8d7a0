/// hxr-generate: plays a carrier, a modulation or a pattern of the user's on a unit's generator.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "patterns.h"
#include "sweeping.h"

namespace {

struct Arguments {
    tools::Where where;
    double hz = 1e9, dBm = -10;
    tools::PatternForm form;
    std::string file;
    bool floats = true;
    double seconds = std::numeric_limits<double>::infinity();
    std::optional<int> listener;
    std::string picture, title = "what the receiver hears of its generator";
};

void addOptions(CLI::App& app, Arguments& arguments) {
    const CLI::Validator hertz = tools::hertz();
    tools::PatternForm& form = arguments.form;
    tools::addCommonOptions(app, arguments.where);
    app.add_option("--freq", arguments.hz, "frequency")->transform(hertz)->capture_default_str();
    app.add_option("--level", arguments.dBm, "dBm of a pattern of full amplitude, -80 to 10")
        ->check(CLI::Range(-80.0, 10.0))
        ->capture_default_str();
    auto* const play = app.add_option("--play", form.name, "what is played")
                           ->check(CLI::IsMember(tools::patternNames).description(""))
                           ->option_text(CLI::detail::join(tools::patternNames, "|") + " =" + form.name);
    app.add_option("--offset", form.offsetHz, "moves it away from the frequency, by up to 40 MHz")
        ->transform(hertz)
        ->check(CLI::Range(-40e6, 40e6))
        ->capture_default_str();
    app.add_option("--depth", form.depth, "of am, 0 to 1")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    app.add_option("--sound", form.soundHz,
                   "frequency that modulates am and fm; half the distance of two-tone")
        ->transform(hertz)
        ->check(CLI::Range(3e4, 40e6))
        ->capture_default_str();
    app.add_option("--deviation", form.deviationHz, "of fm; half the width of a chirp")
        ->transform(hertz)
        ->check(CLI::Range(0.0, 40e6))
        ->capture_default_str();
    app.add_option("--symbol-rate", form.symbolRate,
                   "of bpsk, qpsk and 16qam: 125M divided by a power of two")
        ->transform(hertz)
        ->check(CLI::Range(4e5, 62.5e6))
        ->capture_default_str();
    app.add_option("--pattern", arguments.file, "file with samples at 125 MS/s to play, 16 to 4096 of them")
        ->check(CLI::ExistingFile)
        ->excludes(play);
    tools::addChoice(app, "--type", arguments.floats, {{"int16", false}, {"float", true}},
                     "form of its samples");
    app.add_option("--time", arguments.seconds, "seconds to play; until Ctrl-C if not given")
        ->check(tools::aboveZero());
    auto* const listen =
        app.add_option("--listen", arguments.listener, "channel that sweeps what it hears of it")
            ->check(CLI::Range(0, 15));
    app.add_option("--png", arguments.picture, "picture of what it hears, drawn by gnuplot")->needs(listen);
    app.add_option("--title", arguments.title, "what stands above the picture");
}

/// How far below its carrier the modulator works. Its image lies on the carrier's other side.
constexpr double modulatorHz = 23.4375e6;

void setListener(const tools::Group& unit, const Arguments& arguments) {
    constexpr double below = 35e6, above = 75e6;
    tools::setSweep(unit, {.channel = *arguments.listener,
                           .startHz = arguments.hz - below,
                           .stopHz = arguments.hz + above,
                           .rbwHz = 100e3,
                           .vbwHz = 10e3,
                           .refLevel = arguments.dBm,
                           .window = 1,   // Nuttall
                           .video = 2});  // power
}

/// Shows what a channel hears: what is played, and what the modulator adds to it.
void listen(const tools::Group& unit, const Arguments& arguments, double expectedDbm) {
    Trace trace = tools::emptyTrace(unit);
    tools::check("sweep", hxrGetSweep(unit, trace.levels.data()));
    const double playedHz = arguments.hz + arguments.form.offsetHz,
                 heard = trace.power(playedHz, modulatorHz);
    const auto line = static_cast<std::size_t>(std::ranges::max_element(trace.levels) - trace.levels.begin());
    std::printf("channel %d hears  %.2f dBm, of %.2f dBm expected\n", *arguments.listener, heard,
                expectedDbm);
    std::printf("highest line     %.2f dBm at %s\n", static_cast<double>(trace.levels[line]),
                hertzText(trace.frequency(static_cast<double>(line))).c_str());
    std::printf("carrier leak     %.1f dBc\n", trace.power(arguments.hz + modulatorHz, 1e6) - heard);
    std::printf("image            %.1f dBc\n",
                trace.power(2 * (arguments.hz + modulatorHz) - playedHz, modulatorHz) - heard);
    if (!arguments.picture.empty())
        tools::drawPicture(trace, arguments.dBm, arguments.title, arguments.picture);
}

/// Lets the generator play for its time.
void wait(const tools::Group& unit, double seconds) {
    tools::Progress progress;
    tools::keepRunning(unit, seconds, [&](double part) {
        if (std::isfinite(seconds)) {
            progress.bar("playing", part);
        } else {
            progress.show("playing, until Ctrl-C");
        }
    });
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-generate", [&] {
        CLI::App app("Plays something on the generator of an HXR unit.");
        app.footer(
            "Examples:\n"
            "  hxr-generate --freq 2.45G --level -20\n"
            "  hxr-generate --freq 3.6G --play qpsk --symbol-rate 7.8125M --listen 0\n"
            "  hxr-generate --freq 915M --pattern samples.cf32 --time 60\n"
            "  hxr-generate --simulate --freq 1G --play am --listen 0 --time 1");
        Arguments arguments;
        addOptions(app, arguments);
        tools::parse(app, argc, argv);
        const tools::Pattern pattern = arguments.file.empty()
                                           ? tools::makePattern(arguments.form)
                                           : tools::readPattern(arguments.file, arguments.floats);
        const double dBm = arguments.dBm + 10 * std::log10(tools::meanPower(pattern));

        tools::catchInterrupts();
        const tools::Simulation simulation(arguments.where);
        const tools::Group unit(arguments.where);
        constexpr double lowestHz = 45e6;
        if (arguments.hz < lowestHz)
            std::fprintf(stderr, "below 45 MHz the generator has no synthesizer: it plays around 1 GHz\n");
        tools::check("generator", hxrSetVSGEnabled(unit, 1));
        tools::check("frequency", hxrSetSharedFreq(unit, arguments.hz));
        tools::check("level", hxrSetVSGLevel(unit, arguments.dBm));
        tools::setPattern(unit, pattern);
        if (arguments.listener) setListener(unit, arguments);
        tools::check("initiate", hxrInitiate(unit));
        std::printf("%zu samples at %s, %.2f dBm\n", pattern.size(), hertzText(arguments.hz).c_str(), dBm);
        if (arguments.listener) listen(unit, arguments, dBm);
        std::fflush(stdout);
        wait(unit, arguments.seconds);
        tools::check("abort", hxrAbort(unit));
        return tools::allWell;
    });
}
