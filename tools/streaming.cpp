#include "streaming.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tools {

void addStreamOptions(CLI::App& app, StreamOptions& options) {
    app.add_option("--channels", options.channels, "channels that stream, as 0,1,4")
        ->delimiter(',')
        ->check(CLI::Range(0, 15))
        ->capture_default_str();
    app.add_option("--freq", options.hz, "centre of all of them")
        ->transform(hertz())
        ->check(CLI::Range(100e3, 20e9))
        ->capture_default_str();
    app.add_option("--decimation", options.decimation, "50 MS/s divided by this power of two")
        ->check(CLI::IsMember({1, 2, 4, 8, 16, 32, 64, 128, 256}))
        ->capture_default_str();
    addChoice(app, "--type", options.floats, {{"int16", false}, {"float", true}}, "form of the samples");
    app.add_option("--ref", options.refLevel, "reference level in dBm, by which the attenuator is set")
        ->capture_default_str();
}

void setStream(const Group& group, const StreamOptions& options) {
    std::array<int, 16> enabled{};
    for (const int channel : options.channels) {
        if (channel >= group.channelCount()) throw noSuchChannel(group, channel);
        enabled[static_cast<std::size_t>(channel)] = 1;
        check("channel", hxrSetChannelShared(group, channel, 1));
    }
    check("channels", hxrSetChannelConfig(group, enabled.data(), -1));
    check("frequency", hxrSetSharedFreq(group, options.hz));
    check("reference level", hxrSetStreamRefLevel(group, options.refLevel));
    check("attenuator", hxrSetStreamAtten(group, -1));
    check("sample rate", hxrSetStreamSampleRate(group, options.decimation));
    check("type", hxrSetStreamDataType(group, options.floats ? 1 : 0));
    check("scale", hxrSetStreamFullScale(group, 1));
}

Stream::Stream(const Group& group, const StreamOptions& options)
    : group_(group),
      options_(options),
      sampleBytes_(options.floats ? sizeof(std::complex<float>) : 2 * sizeof(std::int16_t)) {
    std::ranges::sort(options_.channels);
    options_.channels.erase(std::unique(options_.channels.begin(), options_.channels.end()),
                            options_.channels.end());
    setStream(group, options_);
    buffers_.assign(options_.channels.size(), std::vector<char>(pieceSamples * sampleBytes_));
    check("starting the stream", hxrInitiate(group));
    check("parameters", hxrStreamParameters(group, nullptr, &rate_, nullptr));
}

Piece Stream::next(int samples) {
    constexpr int mostTriggers = 64;
    Piece piece;
    piece.triggers.resize(mostTriggers);
    std::vector<void*> places;
    for (auto& buffer : buffers_) places.push_back(buffer.data());
    int overrun = 0;
    piece.status = hxrStreamRecv(group_, places.data(), samples, &piece.time, 0, &overrun, nullptr,
                                 piece.triggers.data(), mostTriggers);
    if (piece.status < 0) check("receiving", piece.status);
    piece.overrun = overrun == 1;
    std::erase_if(piece.triggers, [](double place) { return place < 0; });
    if (expectedTime_ != 0) {
        const auto late = static_cast<double>(static_cast<std::int64_t>(piece.time - expectedTime_));
        piece.lostBefore = std::llround(late / 1e9 * rate_);
    }
    expectedTime_ = piece.time + static_cast<std::uint64_t>(std::llround(samples / rate_ * 1e9));
    return piece;
}

Statistics Stream::statistics() const {
    constexpr int channelsPerUnit = 4;
    Statistics all;
    for (int unit = 0; unit < group_.channelCount() / channelsPerUnit; ++unit) {
        HXRStreamStatistics& one = all.emplace_back();
        one.size = sizeof one;
        check("statistics", hxrGetStreamStatistics(group_, unit, &one));
    }
    return all;
}

std::uint64_t sumOf(const Statistics& statistics, std::uint64_t HXRStreamStatistics::*count) {
    std::uint64_t sum = 0;
    for (const HXRStreamStatistics& one : statistics) sum += one.*count;
    return sum;
}

std::vector<std::pair<std::string, std::uint64_t>> namedCounts(const HXRStreamStatistics& statistics) {
    std::vector<std::pair<std::string, std::uint64_t>> counts{
        {"datagrams", statistics.datagrams},
        {"contextPackets", statistics.contextPackets},
        {"samples", statistics.samples},
        {"duplicates", statistics.duplicates},
        {"outOfOrder", statistics.outOfOrder},
        {"samplesLost", statistics.samplesLost},
        {"samplesDiscarded", statistics.samplesDiscarded},
        {"overruns", statistics.overruns},
        {"adcOverflows", statistics.adcOverflows},
        {"ringPeak", statistics.ringPeak},
        {"longestGapNs", statistics.longestGapNs}};
    if (statistics.lastLossPosition != ~std::uint64_t{0}) {
        counts.emplace_back("lastLossPosition", statistics.lastLossPosition);
        counts.emplace_back("lastLossTime", statistics.lastLossTime);
    }
    return counts;
}

double Stream::levelFactor(std::size_t channel) const {
    float factor = 1;
    check("level", hxrStreamCorrection(group_, options_.channels.at(channel), &factor));
    return double{factor};
}

}  // namespace tools
