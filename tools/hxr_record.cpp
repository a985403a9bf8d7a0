/// hxr-record: samples of a stream into SigMF files.

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "streaming.h"

namespace {

using Json = nlohmann::ordered_json;

std::string utcText(std::uint64_t nanoseconds) {
    constexpr std::uint64_t second = 1'000'000'000;
    const auto time = static_cast<std::time_t>(nanoseconds / second);
    std::tm utc{};
    std::array<char, 32> day{};
    std::strftime(day.data(), day.size(), "%Y-%m-%dT%H:%M:%S", gmtime_r(&time, &utc));
    const std::string fraction = std::to_string(nanoseconds % second);
    return day.data() + ("." + std::string(9 - fraction.size(), '0')) + fraction + 'Z';
}

/// One recording: a file of samples, and what is known of them.
class Recording {
  public:
    Recording(std::string name, Json global) : name_(std::move(name)), global_(std::move(global)) {
        data_.open(name_ + ".sigmf-data", std::ios::binary | std::ios::trunc);
        if (!data_) throw std::runtime_error("can't write " + name_ + ".sigmf-data");
        meta_.open(name_ + ".sigmf-meta", std::ios::trunc);
        if (!meta_) throw std::runtime_error("can't write " + name_ + ".sigmf-meta");
    }

    /// @return false if the disk is full
    bool write(const char* bytes, std::size_t count) {
        data_.write(bytes, static_cast<std::streamsize>(count));
        return static_cast<bool>(data_);
    }

    void startCapture(std::int64_t sample, double hz, std::uint64_t time) {
        captures_.push_back(
            {{"core:sample_start", sample}, {"core:frequency", hz}, {"core:datetime", utcText(time)}});
    }
    /// Labels samples. One that goes on where the last one of its label ends is the same event.
    void annotate(std::int64_t sample, std::int64_t count, const std::string& label) {
        const auto last =
            std::ranges::find(annotations_.rbegin(), annotations_.rend(), label, &Annotation::label);
        if (last != annotations_.rend() && count > 1 && last->start + last->count == sample) {
            last->count += count;
        } else {
            annotations_.push_back({sample, count, label});
        }
    }

    /// @param statistics  of the stream, by unit
    /// @return false if the disk is full
    bool finish(const Json& statistics) {
        data_.close();
        global_["hxr:stream_statistics"] = statistics;
        std::ranges::stable_sort(annotations_, {}, &Annotation::start);
        Json annotations = Json::array();
        for (const auto& [start, count, label] : annotations_)
            annotations.push_back(
                {{"core:sample_start", start}, {"core:sample_count", count}, {"core:label", label}});
        const Json all{{"global", global_}, {"captures", captures_}, {"annotations", annotations}};
        meta_ << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
        return static_cast<bool>(data_) && static_cast<bool>(meta_.flush());
    }

  private:
    std::string name_;
    Json global_;
    struct Annotation {
        std::int64_t start, count;
        std::string label;
    };

    Json captures_ = Json::array();
    std::vector<Annotation> annotations_;
    std::ofstream data_, meta_;
};

/// The samples of all channels in turn.
void interleave(const tools::Stream& stream, int samples, std::vector<char>& out) {
    const std::size_t bytes = stream.sampleBytes(), channels = stream.channelCount();
    out.resize(static_cast<std::size_t>(samples) * bytes * channels);
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t n = 0; n < static_cast<std::size_t>(samples); ++n)
            std::copy_n(stream.data(channel) + n * bytes, bytes, &out[(n * channels + channel) * bytes]);
    }
}

/// What happened since the last look, by the stream's statistics: a warning of the driver can stay set.
class Events {
  public:
    /// @return a label for each
    std::vector<std::string> since(const tools::Statistics& now, HXRStatus status) {
        std::vector<std::string> labels;
        const auto note = [&](std::uint64_t HXRStreamStatistics::*count, const char* label) {
            if (tools::sumOf(now, count) > tools::sumOf(before_, count)) labels.emplace_back(label);
        };
        note(&HXRStreamStatistics::adcOverflows, hxrGetErrorString(hxrADCOverflow));
        note(&HXRStreamStatistics::samplesLost, hxrGetErrorString(hxrUncalData));
        note(&HXRStreamStatistics::overruns, "samples lost by this computer");
        if (status == hxrDDRBufferOverflow && !std::exchange(bufferOverflowed_, true))
            labels.emplace_back(hxrGetErrorString(status));
        if (status == hxrUncalData && labels.empty()) labels.emplace_back(hxrGetErrorString(status));
        before_ = now;
        return labels;
    }

  private:
    tools::Statistics before_;
    bool bufferOverflowed_ = false;
};

Json jsonOf(const tools::Statistics& statistics) {
    Json units = Json::array();
    for (const HXRStreamStatistics& one : statistics) {
        Json counts;
        for (const auto& [name, count] : tools::namedCounts(one)) counts[name] = count;
        units.push_back(counts);
    }
    return units;
}

struct Arguments {
    tools::Where where;
    tools::StreamOptions stream;
    std::string output = "recording", description;
    double seconds = 1;
    bool multichannel = false;
};

Json globalOf(const tools::Group& group, const tools::Stream& stream, const Arguments& arguments,
              const std::vector<std::size_t>& channels) {
    int serial = 0;
    tools::check("serial number", hxrGetSerialNumber(group, &serial));
    Json factors = Json::array(), numbers = Json::array();
    for (const std::size_t channel : channels) {
        factors.push_back(stream.levelFactor(channel));
        numbers.push_back(stream.channels()[channel]);
    }
    Json global{{"core:datatype", arguments.stream.floats ? "cf32_le" : "ci16_le"},
                {"core:sample_rate", stream.rate()},
                {"core:num_channels", channels.size()},
                {"core:version", "1.0.0"},
                {"core:recorder", std::string("hxr-record ") + hxrGetAPIVersion()},
                {"core:hw", "HXR " + std::to_string(serial)},
                {"hxr:channels", numbers},
                {"hxr:level_factors", factors}};
    if (!arguments.description.empty()) global["core:description"] = arguments.description;
    return global;
}

int record(const Arguments& arguments) {
    const tools::Group group(arguments.where);
    tools::Stream stream(group, arguments.stream);
    std::vector<std::unique_ptr<Recording>> recordings;
    std::vector<std::size_t> all;
    for (std::size_t channel = 0; channel < stream.channelCount(); ++channel) all.push_back(channel);
    if (arguments.multichannel) {
        recordings.push_back(
            std::make_unique<Recording>(arguments.output, globalOf(group, stream, arguments, all)));
    } else {
        for (const std::size_t channel : all) {
            const std::string name =
                stream.channelCount() == 1
                    ? arguments.output
                    : arguments.output + "-" + std::to_string(stream.channels()[channel]);
            recordings.push_back(
                std::make_unique<Recording>(name, globalOf(group, stream, arguments, {channel})));
        }
    }

    const auto wanted = static_cast<std::int64_t>(arguments.seconds * stream.rate());
    std::int64_t written = 0, lost = 0;
    bool room = true, wasLost = false;
    Events events;
    tools::Statistics statistics;
    std::vector<char> together;
    std::exception_ptr broken;  // what has come till then is kept
    try {
        tools::Progress progress;
        while (written < wanted && room && !tools::interrupted()) {
            const int count =
                static_cast<int>(std::min<std::int64_t>(wanted - written, tools::Stream::pieceSamples));
            const tools::Piece piece = stream.next(count);
            const bool newCapture = written == 0 || piece.lostBefore != 0;
            lost += std::max<std::int64_t>(piece.lostBefore, 0);
            wasLost = wasLost || piece.overrun || piece.lostBefore != 0 || piece.status > 0;
            statistics = stream.statistics();
            const std::vector<std::string> labels = events.since(statistics, piece.status);
            for (auto& recording : recordings) {
                if (newCapture) recording->startCapture(written, arguments.stream.hz, piece.time);
                for (const double trigger : piece.triggers)
                    recording->annotate(written + static_cast<std::int64_t>(trigger), 1, "trigger");
                for (const std::string& label : labels) recording->annotate(written, count, label);
            }
            const auto bytes = static_cast<std::size_t>(count) * stream.sampleBytes();
            if (arguments.multichannel) {
                interleave(stream, count, together);
                room = recordings[0]->write(together.data(), together.size());
            } else {
                for (const std::size_t channel : all)
                    room = recordings[channel]->write(stream.data(channel), bytes) && room;
            }
            written += count;
            progress.bar(
                "recording" + (lost > 0 ? ", " + std::to_string(lost) + " samples lost" : std::string()),
                static_cast<double>(written) / static_cast<double>(wanted));
        }
    } catch (const std::runtime_error&) {
        broken = std::current_exception();
    }
    for (auto& recording : recordings) room = recording->finish(jsonOf(statistics)) && room;
    if (broken && (written == 0 || !room)) std::rethrow_exception(broken);
    if (!room) throw std::runtime_error("the disk is full; what was written until then may be used");
    std::printf("%lld samples of %zu channels at %.6g MS/s, %lld lost\n", static_cast<long long>(written),
                stream.channelCount(), stream.rate() / 1e6, static_cast<long long>(lost));
    if (broken && !tools::interrupted()) {
        // What came before is a whole recording, but not all that was asked for.
        try {
            std::rethrow_exception(broken);
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "hxr-record: %s\n", error.what());
        }
        return tools::dataIncomplete;
    }
    return wasLost ? tools::dataIncomplete : tools::allWell;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-record", [&] {
        CLI::App app("Records I/Q samples to SigMF files.");
        app.footer(
            "Examples:\n  hxr-record --channels 0 --freq 98.5M --decimation 32 --time 10 --output station\n"
            "  hxr-record --simulate --channels 0,1,2,3 --multichannel --time 0.1\n"
            "\nCtrl-C ends a recording early and leaves it whole.");
        Arguments arguments;
        tools::addCommonOptions(app, arguments.where);
        tools::addStreamOptions(app, arguments.stream);
        app.add_option("--time", arguments.seconds, "seconds")
            ->check(tools::aboveZero())
            ->check(CLI::Range(1e-6, 1e6))
            ->capture_default_str();
        app.add_option("--output", arguments.output,
                       "name of the files; the channel's number is added if there are several")
            ->capture_default_str();
        app.add_flag("--multichannel", arguments.multichannel, "all channels in one file");
        app.add_option("--description", arguments.description, "a text that goes into the files");
        tools::parse(app, argc, argv);
        tools::catchInterrupts();
        const tools::Simulation simulation(arguments.where);
        return record(arguments);
    });
}
