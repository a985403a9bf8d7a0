/// hxr-rate: whether this computer takes a stream without losing a sample.

#include <sys/resource.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

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

/// Looks whether samples count on, as those of a unit do that streams its counter: 28 bits of them, shared out among the
/// rails above the number of the channel.
class CounterCheck {
  public:
    /// @return samples that are none, or not the next one
    std::int64_t take(const char* bytes, std::size_t samples) {
        std::int64_t wrong = 0;
        for (std::size_t i = 0; i < samples; ++i) {
            std::array<std::uint16_t, 2> rails{};
            std::memcpy(rails.data(), bytes + i * sizeof rails, sizeof rails);
            const std::uint32_t position = static_cast<std::uint32_t>(rails[1] >> 3) << 15 | rails[0] >> 1;
            wrong += next_ && *next_ != position ? 1 : 0;
            constexpr std::uint32_t mask = (1U << 28) - 1;
            next_ = (position + 1) & mask;
        }
        return wrong;
    }

  private:
    std::optional<std::uint32_t> next_;
};

struct Tally {
    std::int64_t samples = 0, lost = 0;
    std::int64_t jumps = 0;  ///< of the counter
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
    bool complete() const {
        return jumps == 0 && gaps == 0 && overruns == 0 && unitLosses == 0 && unitOverflows == 0;
    }
};

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-rate", [&] {
        CLI::App app("Streams for a while and tells whether samples were lost.");
        app.footer(
            "Examples:\n  hxr-rate --channels 0,1,2,3 --decimation 1 --time 60\n  hxr-rate --simulate "
            "--counter --time "
            "2\n");
        tools::Where where;
        tools::StreamOptions options;
        double duration = 10;
        bool counter = false;
        tools::addCommonOptions(app, where);
        tools::addStreamOptions(app, options);
        app.add_option("--time", duration, "seconds")
            ->check(tools::aboveZero())
            ->check(CLI::Range(0.1, 1e6))
            ->capture_default_str();
        app.add_flag(
            "--counter", counter,
            "look at every sample too, of a unit that counts them: hxr-sim --counter; up to decimation 4");
        tools::parse(app, argc, argv);
        if (counter && (options.floats || options.decimation > 4))
            throw tools::UsageError("a counter comes through as int16 and up to decimation 4 only");
        if (counter) where.simulatorOptions = {"--counter"};

        tools::catchInterrupts();
        const tools::Simulation simulation(where);
        const tools::Group group(where);
        tools::Stream stream(group, options);
        Tally tally;
        tools::Progress progress;
        using Clock = std::chrono::steady_clock;
        std::vector<CounterCheck> counters(counter ? stream.channelCount() : 0);
        const auto next = [&] {
            tools::Piece piece = stream.next();
            for (std::size_t channel = 0; channel < counters.size(); ++channel)
                tally.jumps += counters[channel].take(stream.data(channel), tools::Stream::pieceSamples);
            return piece;
        };
        next();  // the unit runs from now on
        const double loadBefore = processorSeconds();
        const auto start = Clock::now();
        const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
        const auto wanted = static_cast<std::int64_t>(duration * stream.rate());
        while (tally.samples < wanted && !tools::interrupted()) {
            tally.take(next(), tools::Stream::pieceSamples);
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
        const tools::Statistics statistics = stream.statistics();
        for (std::size_t unit = 0; unit < statistics.size(); ++unit) {
            std::printf("unit %zu:", unit);
            for (const auto& [name, count] : tools::namedCounts(statistics[unit]))
                std::printf(" %s %llu", name.c_str(), static_cast<unsigned long long>(count));
            std::printf("\n");
        }
        if (counter) std::printf("counters: %lld jumps\n", static_cast<long long>(tally.jumps));
        return tally.complete() ? tools::allWell : tools::dataIncomplete;
    });
}
