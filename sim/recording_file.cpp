#include "sim/recording_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

constexpr struct {
    std::string_view name;
    SampleFormat format;
} formats[] = {{"cu8", SampleFormat::cu8},
               {"cs8", SampleFormat::cs8},
               {"cs16", SampleFormat::cs16},
               {"cf32", SampleFormat::cf32}};

/// Bytes of one of a sample's two numbers.
constexpr std::size_t railBytes(SampleFormat format) {
    switch (format) {
        case SampleFormat::cu8:
        case SampleFormat::cs8:
            return 1;
        case SampleFormat::cs16:
            return 2;
        case SampleFormat::cf32:
            return 4;
    }
    return 0;
}

float finite(float value) { return std::isfinite(value) ? value : 0.0f; }

/// The number stored at an offset.
template <SampleFormat format>
float numberAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
    constexpr float byteScale = 128.0f;
    constexpr float wordScale = 32768.0f;
    if constexpr (format == SampleFormat::cu8)
        return (static_cast<float>(bytes[offset]) - 127.5f) / byteScale;
    else if constexpr (format == SampleFormat::cs8)
        return static_cast<float>(static_cast<std::int8_t>(bytes[offset])) / byteScale;
    else if constexpr (format == SampleFormat::cs16)
        return static_cast<float>(static_cast<std::int16_t>(bytes[offset] | bytes[offset + 1] << 8)) /
               wordScale;
    else
        return finite(std::bit_cast<float>(getLittle32(bytes, offset)));
}

template <SampleFormat format>
void decode(std::span<const std::uint8_t> bytes, Baseband out) {
    constexpr std::size_t width = railBytes(format);
    for (std::size_t n = 0; n < out.size(); ++n) {
        out.i[n] = numberAt<format>(bytes, 2 * width * n);
        out.q[n] = numberAt<format>(bytes, 2 * width * n + width);
    }
}

void decodeAs(SampleFormat format, std::span<const std::uint8_t> bytes, Baseband out) {
    switch (format) {
        case SampleFormat::cu8:
            return decode<SampleFormat::cu8>(bytes, out);
        case SampleFormat::cs8:
            return decode<SampleFormat::cs8>(bytes, out);
        case SampleFormat::cs16:
            return decode<SampleFormat::cs16>(bytes, out);
        case SampleFormat::cf32:
            return decode<SampleFormat::cf32>(bytes, out);
    }
}

/// Fills the buffer from the file, as far as that is possible. Returns how many bytes there were.
std::size_t readAt(int descriptor, std::uint64_t offset, std::span<std::uint8_t> buffer) {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t got =
            pread(descriptor, buffer.data() + done, buffer.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& what) {
    throw std::runtime_error(path.string() + ": " + what);
}

}  // namespace

std::optional<SampleFormat> sampleFormatFromText(std::string_view text) {
    for (const auto& known : formats) {
        if (known.name == text) return known.format;
    }
    return std::nullopt;
}

RecordingFile::RecordingFile(const RecordingFacts& facts)
    : descriptor_(-1), format_(facts.format), rateHz_(facts.rateHz), size_(0) {
    const std::filesystem::path& path = facts.samples;
    constexpr double lowestRateHz = 1e3, highestRateHz = 500e6;
    if (!(rateHz_ >= lowestRateHz && rateHz_ <= highestRateHz))
        fail(path, "a sample rate is from 1 kS/s to 500 MS/s");
    std::error_code error;
    const auto kind = std::filesystem::status(path, error).type();
    if (kind == std::filesystem::file_type::not_found) fail(path, "there is no such file");
    if (kind != std::filesystem::file_type::regular) fail(path, "is not a plain file");
    const std::uintmax_t bytes = std::filesystem::file_size(path, error);
    if (error) fail(path, error.message());
    const std::size_t sampleBytes = 2 * railBytes(format_);
    if (bytes == 0) fail(path, "is empty");
    if (bytes % sampleBytes != 0) fail(path, "ends within a sample");
    size_ = bytes / sampleBytes;
    if (size_ > std::numeric_limits<std::uint32_t>::max()) fail(path, "has 2^32 samples or more");

    descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) fail(path, std::generic_category().message(errno));
}

RecordingFile::~RecordingFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

RecordingFile::RecordingFile(RecordingFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      format_(other.format_),
      rateHz_(other.rateHz_),
      size_(other.size_) {}

void RecordingFile::read(std::uint64_t first, Baseband out) const {
    constexpr std::size_t pieceBytes = 8192;
    const std::size_t sampleBytes = 2 * railBytes(format_);
    std::array<std::uint8_t, pieceBytes> piece;
    for (std::size_t done = 0; done < out.size();) {
        const std::size_t count = std::min(out.size() - done, pieceBytes / sampleBytes);
        const std::size_t bytes =
            readAt(descriptor_, (first + done) * sampleBytes, std::span(piece).first(count * sampleBytes));
        const Baseband part = out.part(done, count);
        const std::size_t there = bytes / sampleBytes;
        decodeAs(format_, piece, part.part(0, there));
        std::fill(part.i.begin() + static_cast<std::ptrdiff_t>(there), part.i.end(), 0.0f);
        std::fill(part.q.begin() + static_cast<std::ptrdiff_t>(there), part.q.end(), 0.0f);
        done += count;
    }
}

}  // namespace hxr::sim
