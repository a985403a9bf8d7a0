#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

#include "sim/recorded_samples.h"

namespace hxr::sim {

/// How a sample is stored: I, then Q, each unsigned around 127.5, signed, or an IEEE single, least significant
/// byte first. Full scale, 128 or 32768 steps or 1.0, reads as 1.0.
enum class SampleFormat { cu8, cs8, cs16, cf32 };

/// The format by its name, as "cs16".
std::optional<SampleFormat> sampleFormatFromText(std::string_view text);

/// What one has to know of a recording to play it.
struct RecordingFacts {
    std::filesystem::path samples;  ///< file of I/Q samples and nothing else
    SampleFormat format;
    double rateHz;                      ///< 1 kS/s to 500 MS/s
    std::optional<double> frequencyHz;  ///< of what is at 0 Hz in it, if that is known
};

/// The samples of a recording. It stays on the disk, and parts of it are read when they are heard:
/// at the capture's rate, an hour wouldn't fit into any memory.
class RecordingFile final : public RecordedSamples {
  public:
    /// @throws std::runtime_error that names the file, if it can't be read, is empty or ends within a sample, or
    ///         has an absurd rate
    explicit RecordingFile(const RecordingFacts& facts);
    ~RecordingFile() override;
    RecordingFile(RecordingFile&& other) noexcept;
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;
    RecordingFile& operator=(RecordingFile&&) = delete;

    std::uint64_t size() const override { return size_; }
    double rateHz() const override { return rateHz_; }

    /// What can't be read, for instance because the file has become shorter, is silence; so is what is not a
    /// finite number.
    void read(std::uint64_t first, Baseband out) const override;

  private:
    int descriptor_;
    SampleFormat format_;
    double rateHz_;
    std::uint64_t size_;
};

}  // namespace hxr::sim
