/// What the programs that stream share: which channels, where, how fast, and samples piece by piece.
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support.h"

namespace tools {

struct StreamOptions {
    std::vector<int> channels{0};
    double hz = 1e9;
    int decimation = 4;
    bool floats = false;
    double refLevel = -20;
};

/// Adds `--channels`, `--freq`, `--decimation`, `--type` and `--ref`.
void addStreamOptions(CLI::App& app, StreamOptions& options);

/// Sets the channels of an idle group up, without yet initiating it.
/// @throws std::runtime_error
void setStream(const Group& group, const StreamOptions& options);

/// What a stream has counted, by unit of the group.
using Statistics = std::vector<HXRStreamStatistics>;

/// The sum of a count over all units.
std::uint64_t sumOf(const Statistics& statistics, std::uint64_t HXRStreamStatistics::*count);

/// The counts of one unit by name, for people and for files.
std::vector<std::pair<std::string, std::uint64_t>> namedCounts(const HXRStreamStatistics& statistics);

/// What came with a piece of samples.
struct Piece {
    std::uint64_t time = 0;        ///< of the first sample, nanoseconds since 1970
    std::int64_t lostBefore = 0;   ///< samples that the time stamps say are missing before it
    bool overrun = false;          ///< this computer was too late, somewhere around here
    std::vector<double> triggers;  ///< samples from the first
    HXRStatus status = hxrNoError;
};

/// A stream that runs from here to the end of the scope.
class Stream {
  public:
    static constexpr int pieceSamples = 1 << 16;

    /// @throws std::runtime_error
    Stream(const Group& group, const StreamOptions& options);
    ~Stream() { hxrAbort(group_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Fetches the next piece.
    /// @throws std::runtime_error if the link is lost
    Piece next(int samples = pieceSamples);

    /// A channel's samples of the last piece, as they go into a file.
    const char* data(std::size_t channel) const { return buffers_[channel].data(); }
    std::size_t sampleBytes() const { return sampleBytes_; }
    std::size_t channelCount() const { return buffers_.size(); }
    double rate() const { return rate_; }
    /// Lowest first, each once.
    const std::vector<int>& channels() const { return options_.channels; }

    /// @throws std::runtime_error
    Statistics statistics() const;

    /// The factor that brings a channel's full-scale samples to their level, where 1.0 is 0 dBm.
    double levelFactor(std::size_t channel) const;

  private:
    const Group& group_;
    StreamOptions options_;
    double rate_ = 0;
    std::size_t sampleBytes_;
    std::vector<std::vector<char>> buffers_;
    std::uint64_t expectedTime_ = 0;
};

}  // namespace tools
