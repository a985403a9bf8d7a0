// Streams four channels around an FM station: whether they agree in phase and time, what the station sends, and how the
// spectrum moves:  radio HOST_ADDRESS UNIT_ADDRESS PORT FOLDER
//
// Writes to the folder, for a plot: spectrum.txt (Hz, dBm) and waterfall.txt (ms, Hz, dBm).

#include <fftw3.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "example.h"

namespace {

using Sample = std::complex<float>;

constexpr double stationHz = 98.5e6;
constexpr int decimation = 32;
constexpr std::size_t channels = 4;
constexpr std::size_t length = 1 << 18;  // samples of each channel, a sixth of a second
constexpr std::size_t piece = 1 << 14;   // samples fetched at a time
constexpr double turn = 2 * std::numbers::pi;

struct Stream {
    double rate = 0;                               // samples a second
    std::array<std::vector<Sample>, channels> of;  // calibrated: 1.0 is 0 dBm
    std::uint64_t time = 0;                        // of the first, nanoseconds since 1970
    double worstStep = 0;  // nanoseconds by which a time stamp isn't where it should be
};

void setUp(int handle) {
    const std::array<int, channels> enabled{1, 1, 1, 1};
    check("channels", hxrSetChannelConfig(handle, enabled.data(), -1));
    for (int channel = 0; channel < static_cast<int>(channels); ++channel)
        check("shared", hxrSetChannelShared(handle, channel, 1));
    check("frequency", hxrSetSharedFreq(handle, stationHz));
    check("sample rate", hxrSetStreamSampleRate(handle, decimation));
    check("data type", hxrSetStreamDataType(handle, 1));
    check("initiate", hxrInitiate(handle));
}

Stream receive(int handle) {
    Stream stream;
    check("parameters", hxrStreamParameters(handle, nullptr, &stream.rate, nullptr));
    for (auto& channel : stream.of) channel.resize(length);
    // The first samples are those with which the filters fill: nobody wants them.
    std::vector<Sample> filling(100);
    std::array<void*, channels> nowhere;
    nowhere.fill(filling.data());
    check("receive", hxrStreamRecv(handle, nowhere.data(), 100, nullptr, 0, nullptr, nullptr, nullptr, 0));
    for (std::size_t at = 0; at < length; at += piece) {
        std::array<void*, channels> buffers;
        for (std::size_t i = 0; i < channels; ++i) buffers[i] = &stream.of[i][at];
        std::uint64_t time = 0;
        check("receive",
              hxrStreamRecv(handle, buffers.data(), piece, &time, 0, nullptr, nullptr, nullptr, 0));
        if (at == 0) stream.time = time;
        const double expected = static_cast<double>(at) / stream.rate * 1e9;
        stream.worstStep =
            std::max(stream.worstStep, std::abs(static_cast<double>(time - stream.time) - expected));
    }
    return stream;
}

// What an FM receiver hears: the frequency, in Hz from the centre, from one sample to the next.
std::vector<double> demodulate(std::span<const Sample> samples, double rate) {
    std::vector<double> hertz;
    for (std::size_t n = 1; n < samples.size(); ++n)
        hertz.push_back(std::arg(samples[n] * std::conj(samples[n - 1])) / turn * rate);
    return hertz;
}

// A channel beside another: the phase between them, and the time by which it is late. A delay turns the phase the more,
// the further the station swings out.
struct Match {
    double degrees, nanoseconds;
};
Match match(std::span<const Sample> one, std::span<const Sample> other, std::span<const double> hertz) {
    double phases = 0, products = 0, squares = 0;
    for (std::size_t n = 0; n < hertz.size(); ++n) {
        const double phase = std::arg(other[n] * std::conj(one[n]));
        phases += phase;
        products += phase * hertz[n];
        squares += hertz[n] * hertz[n];
    }
    return {phases / static_cast<double>(hertz.size()) / turn * 360, -products / squares / turn * 1e9};
}

void printStation(std::span<const double> hertz, double rate) {
    // Averages over 64 samples: the sound, at 24 kHz.
    constexpr std::size_t average = 64;
    const double soundRate = rate / average;
    std::vector<double> sound(hertz.size() / average);
    for (std::size_t i = 0; i < sound.size(); ++i) {
        for (std::size_t n = 0; n < average; ++n) sound[i] += hertz[i * average + n] / average;
    }
    int rises = 0;
    std::size_t first = 0, last = 0;
    for (std::size_t i = 1; i < sound.size(); ++i) {
        if (sound[i - 1] >= 0 || sound[i] < 0) continue;
        if (rises++ == 0) first = i;
        last = i;
    }
    std::printf("sound            %.0f Hz, deviation %.1f kHz\n",
                (rises - 1) * soundRate / static_cast<double>(last - first),
                *std::max_element(sound.begin(), sound.end()) / 1e3);
}

// Spectra of pieces of a stream, in dBm, lowest frequency first.
class Spectrum {
  public:
    explicit Spectrum(std::size_t points) : points_(points), window_(points), buffer_(points) {
        for (std::size_t n = 0; n < points; ++n)
            window_[n] = static_cast<float>(
                (1 - std::cos(turn * (static_cast<double>(n) + 0.5) / static_cast<double>(points))) /
                static_cast<double>(points));
        auto* const data = reinterpret_cast<fftwf_complex*>(buffer_.data());
        plan_ = fftwf_plan_dft_1d(static_cast<int>(points), data, data, FFTW_FORWARD, FFTW_ESTIMATE);
    }
    ~Spectrum() { fftwf_destroy_plan(plan_); }
    Spectrum(const Spectrum&) = delete;
    Spectrum& operator=(const Spectrum&) = delete;

    std::vector<double> of(const Sample* samples) {
        for (std::size_t n = 0; n < points_; ++n) buffer_[n] = samples[n] * window_[n];
        fftwf_execute(plan_);
        std::vector<double> dbm(points_);
        for (std::size_t i = 0; i < points_; ++i)
            dbm[i] = 10 * std::log10(double{std::norm(buffer_[(i + points_ / 2) % points_])} + 1e-20);
        return dbm;
    }
    double frequency(std::size_t i, double rate) const {
        return stationHz + (static_cast<double>(i) / static_cast<double>(points_) - 0.5) * rate;
    }

  private:
    std::size_t points_;
    std::vector<float> window_;
    std::vector<Sample> buffer_;
    fftwf_plan plan_;
};

void writeSpectra(const Stream& stream, const std::string& folder) {
    constexpr std::size_t fine = 1 << 13;
    Spectrum spectrum(fine);
    std::vector<double> highest(fine, -200);
    for (std::size_t at = 0; at + fine <= length; at += fine) {
        const auto dbm = spectrum.of(&stream.of[0][at]);
        for (std::size_t i = 0; i < fine; ++i) highest[i] = std::max(highest[i], dbm[i]);
    }
    std::ofstream file(folder + "/spectrum.txt");
    file.precision(10);
    for (std::size_t i = fine / 10; i < fine - fine / 10; ++i)  // within the stream's bandwidth
        file << spectrum.frequency(i, stream.rate) << ' ' << highest[i] << '\n';

    // Lines so short that the carrier is seen to swing.
    constexpr std::size_t coarse = 256, step = 32, lines = 240;
    Spectrum moving(coarse);
    std::ofstream waterfall(folder + "/waterfall.txt");
    waterfall.precision(10);
    for (std::size_t row = 0; row < lines; ++row) {
        const auto dbm = moving.of(&stream.of[0][row * step]);
        for (std::size_t i = coarse / 10; i < coarse - coarse / 10; ++i)
            waterfall << static_cast<double>(row * step) / stream.rate * 1e3 << ' '
                      << moving.frequency(i, stream.rate) << ' ' << dbm[i] << '\n';
        waterfall << '\n';
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 5) throw std::runtime_error("usage: radio HOST_ADDRESS UNIT_ADDRESS PORT FOLDER");
    const int unit = openUnits(argc, argv, 1);
    setUp(unit);
    const Stream stream = receive(unit);
    check("abort", hxrAbort(unit));

    std::printf("stream           %zu channels, %.6g kS/s each\n", channels, stream.rate / 1e3);
    std::printf("time stamps      within %.2f ns of the samples' count\n", stream.worstStep);
    const std::vector<double> hertz = demodulate(stream.of[0], stream.rate);
    bool inPhase = stream.worstStep < 2;
    for (std::size_t i = 1; i < channels; ++i) {
        const auto [degrees, nanoseconds] = match(stream.of[0], stream.of[i], hertz);
        std::printf("channel %zu        %+.3f degrees, %+.3f ns beside channel 0\n", i, degrees, nanoseconds);
        inPhase = inPhase && std::abs(degrees) < 0.5 && std::abs(nanoseconds) < 1;
    }
    printStation(hertz, stream.rate);
    writeSpectra(stream, argv[4]);
    if (!inPhase) std::printf("the channels don't line up\n");
    return inPhase ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
