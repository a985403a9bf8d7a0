/// hxr-rate: whether this computer takes a stream without losing a sample.

#include <sys/resource.h>

#include <chrono>
#include <cstdio>

#include "streaming.h"

namespace {

/// Seconds of processor time that this process has used.
double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Tally {
    std::int64_t samples = 0, lost = 0;
    int overruns = 0, gaps = 0, unitLosses = 0, unitOverflows = 0, overloads = 0;

    void take(const tools::Piece& piece, int count) {
        samples += count;
        lost += std::max<std::int64_t>(piece.lostBefore, 0);
        gaps += piece.lostBefore != 0 ? 1 : 0;
        overruns += piece.overrun ? 1 : 0;
        unitLosses += piece.status == hxrUncalData ? 1 : 0;
        unitOverflows += piece.status == hxrDDRBufferOverflow ? 1 : 0;
        overloads += piece.status == hxrADCOverflow ? 1 : 0;
    }
    bool complete() const { return gaps == 0 && overruns == 0 && unitLosses == 0 && unitOverflows == 0; }
};

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-rate", [&] {
        CLI::App app("Streams for a while and tells whether samples were lost.");
        app.footer(
            "Examples:\n  hxr-rate --channels 0,1,2,3 --decimation 1 --time 60\n  hxr-rate --simulate --time "
            "2\n"
            "\nExit status: 0, 2 if samples were lost, 1 if something else went wrong.");
        tools::Where where;
        tools::StreamOptions options;
        double duration = 10;
        tools::addCommonOptions(app, where);
        tools::addStreamOptions(app, options);
        app.add_option("--time", duration, "seconds")->check(CLI::Range(0.1, 1e6))->capture_default_str();
        CLI11_PARSE(app, argc, argv);

        tools::catchInterrupts();
        const tools::Simulation simulation(where);
        const tools::Group group(where);
        tools::Stream stream(group, options);
        Tally tally;
        tools::Progress progress;
        using Clock = std::chrono::steady_clock;
        stream.next();  // the unit runs from now on
        const double loadBefore = processorSeconds();
        const auto start = Clock::now();
        const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
        const auto wanted = static_cast<std::int64_t>(duration * stream.rate());
        while (tally.samples < wanted && !tools::interrupted()) {
            tally.take(stream.next(), tools::Stream::pieceSamples);
            progress.bar("streaming",
                         std::min(static_cast<double>(tally.samples) / static_cast<double>(wanted), 1.0));
        }
        const double seconds = elapsed(), load = processorSeconds() - loadBefore;
        const auto channels = static_cast<double>(stream.channelCount());
        progress.show("");
        std::printf("%zu channels at %.6g MS/s: %.3f MS/s of all for %.2f s, %.2f processors\n",
                    stream.channelCount(), stream.rate() / 1e6,
                    static_cast<double>(tally.samples) * channels / seconds / 1e6, seconds, load / seconds);
        std::printf(
            "lost: %lld samples of each channel in %d gaps, %d overruns here, %d losses and %d overflows in "
            "the "
            "unit; %d overloads\n",
            static_cast<long long>(tally.lost), tally.gaps, tally.overruns, tally.unitLosses,
            tally.unitOverflows, tally.overloads);
        return tally.complete() ? tools::allWell : tools::samplesLost;
    });
}
