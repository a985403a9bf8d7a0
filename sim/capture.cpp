#include "sim/capture.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "sim/byte_order.h"
#include "sim/phase.h"
#include "sim/rotation.h"

namespace hxr::sim {
namespace {

using Complex = std::complex<double>;

constexpr double halfCaptureHz = captureRateHz / 2;

// --- level and response ------------------------------------------------------------------------------------

/// A gain code more lifts the level by so much.
constexpr double dbPerGainCode = 0.5;

/// Amplitude of 0 dBm ahead of the response filter, 1.0 being full scale.
double amplitudeOfZeroDbm(const CaptureSettings& settings, const UnitCalibration& unit) {
    const std::size_t k = settings.k;
    const FrontEnd& front = settings.tuning.frontEnd;
    const double codeDb = dbPerGainCode * (front.gainCode - unit.gainCode(settings.channel, k));
    return std::pow(10.0, (codeDb - unit.fullScaleDbm(settings.channel, front.attenuatorDb, k)) / 20.0);
}

/// The unit's rails from the input to behind the loaded filter. The analog part is what the evening filter
/// makes even, and its level counts against that filter's gain at DC, the rails' squares added.
class Rails {
  public:
    Rails(const RailTaps& loaded, const RailTaps& evening, double amplitude)
        : loaded_(loaded), evening_(evening) {
        const RailGains atDc = gainsAt(evening, 0.0);
        amplitude_ = amplitude * std::hypot(std::abs(atDc.i), std::abs(atDc.q));
    }

    /// @param hz  from the LO
    RailGains at(double hz) const {
        // Beyond the last measured point the analog part stays as it is there, up to the converters' edge.
        constexpr double lastMeasuredHz = frontEndRateHz / 64 * layout::responsePoints;
        if (std::abs(hz) >= frontEndRateHz / 2) return {};
        const auto gains = gainsAt(loaded_, evening_, hz);
        const RailGains analog =
            std::abs(hz) <= lastMeasuredHz ? gains[1] : gainsAt(evening_, std::copysign(lastMeasuredHz, hz));
        return {amplitude_ * gains[0].i / analog.i, amplitude_ * gains[0].q / analog.q};
    }

  private:
    RailTaps loaded_;
    RailTaps evening_;
    double amplitude_;
};

// --- filter for wide sources -------------------------------------------------------------------------------

/// Points over the capture's 50 MHz at which a response is taken: of the rails alone, and of a loaded decimation
/// filter as well, whose slopes are steeper.
constexpr std::size_t railBins = 32;
constexpr std::size_t loadedBins = 256;

struct ShortFilter {
    std::vector<std::complex<float>> taps;
    std::size_t behind = 0;
};

/// The filter at 50 MS/s that has a response given over the capture's 50 MHz. Only taps that matter stay: of
/// an even response that is one.
///
/// @param response  at `railBins` or `loadedBins` points
ShortFilter shortFilter(std::span<const Complex> response, double silence) {
    constexpr double negligible = 1e-4;
    const std::size_t bins = response.size();
    const auto half = static_cast<std::ptrdiff_t>(bins / 2);
    static const auto circle = [] {
        std::array<Complex, loadedBins> points;
        for (std::size_t n = 0; n < points.size(); ++n)
            points[n] = onCircle(turns(static_cast<double>(n) / loadedBins));
        return points;
    }();
    std::vector<Complex> taps(bins);
    double largest = 0.0;
    for (std::size_t t = 0; t < bins; ++t) {
        Complex sum = 0.0;
        for (std::size_t m = 0; m < bins; ++m) {
            const auto steps = (m + bins / 2) * (t + bins / 2) % bins;
            sum += response[m] * circle[steps * (loadedBins / bins)];
        }
        taps[t] = sum / static_cast<double>(bins);
        largest = std::max(largest, std::abs(taps[t]));
    }
    if (largest <= silence) return {};

    const auto matters = [&](const Complex& tap) { return std::abs(tap) > negligible * largest; };
    const auto first = std::find_if(taps.begin(), taps.end(), matters);
    const auto last = std::find_if(taps.rbegin(), taps.rend(), matters).base();
    const std::ptrdiff_t behind = last - 1 - (taps.begin() + half);
    ShortFilter filter;
    filter.behind = static_cast<std::size_t>(std::max<std::ptrdiff_t>(behind, 0));
    const auto end = std::max(last, taps.begin() + half + 1);
    for (auto tap = std::min(first, taps.begin() + half); tap != end; ++tap) {
        filter.taps.emplace_back(static_cast<float>(tap->real()), static_cast<float>(tap->imag()));
    }
    return filter;
}

/// Every so many of a rail, from one on.
std::vector<float> everyOf(std::span<const float> rail, std::size_t first, std::size_t step) {
    std::vector<float> picked;
    picked.reserve(rail.size() / step + 1);
    for (std::size_t n = first; n < rail.size(); n += step) picked.push_back(rail[n]);
    return picked;
}

/// out[n] += sum of taps[k] * in[step * n + taps - 1 - k]
void filterInto(Baseband out, const Baseband& in, std::span<const std::complex<float>> taps,
                std::size_t step) {
    for (std::size_t phase = 0; phase < step; ++phase) {
        const auto pickedI = step == 1 ? std::vector<float>{} : everyOf(in.i, phase, step);
        const auto pickedQ = step == 1 ? std::vector<float>{} : everyOf(in.q, phase, step);
        const float* const railI = step == 1 ? in.i.data() : pickedI.data();
        const float* const railQ = step == 1 ? in.q.data() : pickedQ.data();
        for (std::size_t ahead = phase; ahead < taps.size(); ahead += step) {
            const float re = taps[taps.size() - 1 - ahead].real();
            const float im = taps[taps.size() - 1 - ahead].imag();
            const float* inI = railI + ahead / step;
            const float* inQ = railQ + ahead / step;
            for (std::size_t n = 0; n < out.size(); ++n) {
                out.i[n] += re * inI[n] - im * inQ[n];
                out.q[n] += re * inQ[n] + im * inI[n];
            }
        }
    }
}

// --- converter ---------------------------------------------------------------------------------------------

constexpr float fullScale = 32768.0f;

/// Rounds and clips to 16 bits. Returns whether it had to clip.
bool digitise(const Baseband& samples, std::span<std::uint8_t> payload) {
    constexpr float lowest = -fullScale;
    constexpr float highest = fullScale - 1.0f;
    // Adding this leaves the rounded number in the low bits of a single.
    constexpr float rounding = 12582912.0f;
    constexpr std::uint32_t codeMask = 0xFFFF;
    constexpr float halfStep = 0.5f;
    const auto code = [](float value) {
        const float above = value < lowest ? lowest : value;
        const float within = above > highest ? highest : above;
        return std::bit_cast<std::uint32_t>(within + rounding) & codeMask;
    };
    const auto over = [](float value) {
        return static_cast<std::uint32_t>(std::fabs(value + halfStep) > fullScale);
    };
    std::array<std::uint32_t, captureBlock> words;
    std::uint32_t clipped = 0;
    for (std::size_t n = 0; n < samples.size(); ++n) {
        clipped |= over(samples.i[n]) | over(samples.q[n]);
        words[n] = code(samples.i[n]) | code(samples.q[n]) << 16;
    }
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(payload.data(), words.data(), samples.size() * sizeof words[0]);
    } else {
        for (std::size_t n = 0; n < samples.size(); ++n)
            putLittle(payload, n * sizeof words[0], sizeof words[0], words[n]);
    }
    return clipped != 0;
}

}  // namespace

template <typename Response>
CapturePath::View CapturePath::makeView(const Scene& scene, double centreHz, bool mirrored, Response response,
                                        double silence) const {
    View view{centreHz, mirrored};
    for (const auto& source : scene.sources()) {
        const double offset = source->centreHz() - centreHz;
        if (source->wide()) {
            if (std::abs(offset) < halfCaptureHz + source->reachHz()) view.wide.push_back(source.get());
        } else if (std::abs(offset) < decimation_.reachHz()) {
            const Complex gain = response(source->centreHz()) * decimation_.gainAt(offset);
            if (gain != 0.0) view.lines.push_back({source.get(), gain});
        }
    }
    if (view.wide.empty()) return view;

    std::vector<Complex> bins(decimation_.isLoaded() ? loadedBins : railBins);
    for (std::size_t m = 0; m < bins.size(); ++m) {
        const double offset =
            (static_cast<double>(m) / static_cast<double>(bins.size()) - 0.5) * captureRateHz;
        bins[m] = response(centreHz + offset);
        if (decimation_.isLoaded()) bins[m] *= decimation_.gainAt(offset);
    }
    ShortFilter filter = shortFilter(bins, silence);
    view.filter = std::move(filter.taps);
    view.filterBehind = filter.behind;
    if (view.filter.empty()) view.wide.clear();
    return view;
}

CapturePath::CapturePath(const CaptureSettings& settings, const UnitCalibration& unit,
                         const RailTaps& evening, const Scene& scene)
    : decimation_(settings.decimation), ncoHz_(settings.ncoHz * settings.timebaseRatio) {
    for (auto* rails : {&straight_, &mirrored_}) {
        for (auto& rail : *rails) rail.resize(captureBlock);
    }
    for (auto& rail : fine_) rail.resize(captureBlock * decimation_.factor());
    // A capture whose front end isn't set to one band hears nothing, nor one without an LO.
    const ChannelTuning& tuning = settings.tuning;
    if (!tuning.frontEnd.band || (!isDirect(tuning) && !tuning.loHz)) return;

    const double inFullScales = static_cast<double>(fullScale) * amplitudeOfZeroDbm(settings, unit);
    const Rails rails(settings.taps, evening, inFullScales);
    const double unitPhase =
        settings.sharesOscillator ? unit.channelPhase(settings.channel, settings.k) : 0.0;
    const Complex turn = settings.turn * std::polar(1.0, unitPhase);
    // What is mirrored is turned before it.
    const Complex turnAhead = std::conj(turn);
    if (isDirect(tuning)) {
        views_.push_back(makeView(
            scene, ncoHz_, true, [&](double hz) { return turnAhead * rails.at(hz).i; }, 0.0));
        views_.push_back(makeView(
            scene, -ncoHz_, false, [&](double hz) { return turn * rails.at(hz).i; }, 0.0));
        return;
    }

    const double loHz = *tuning.loHz * settings.timebaseRatio;
    const auto wanted = [&](double hz) {
        const RailGains gains = rails.at(hz - loHz);
        return 0.5 * turn * (gains.i + gains.q);
    };
    const auto image = [&](double hz) {
        const RailGains gains = rails.at(hz - loHz);
        return 0.5 * turnAhead * (gains.i - gains.q);
    };
    views_.push_back(makeView(scene, loHz - ncoHz_, false, wanted, 0.0));
    // Of what is wide, an image 66 dB down or more isn't worth the work.
    constexpr double faint = 5e-4;
    const double silence = faint * std::abs(wanted(loHz - ncoHz_));
    views_.push_back(makeView(scene, loHz + ncoHz_, true, image, silence));

    // One count of the offset converters is one of the samples, ahead of the filter.
    const auto cancelled = unit.feedThrough(settings.channel, settings.k);
    const RailGains atDc = gainsAt(settings.taps, 0.0);
    if (std::abs(ncoHz_) >= decimation_.reachHz()) return;
    leak_ = Complex(atDc.i.real() * (tuning.frontEnd.dcOffsetI - cancelled[0]),
                    atDc.q.real() * (tuning.frontEnd.dcOffsetQ - cancelled[1])) *
            decimation_.gainAt(ncoHz_) * turn;
}

void CapturePath::look(const View& view, std::int64_t firstSample, std::size_t count) {
    auto& rails = view.mirrored ? mirrored_ : straight_;
    const Baseband out = Baseband{rails[0], rails[1]}.part(0, count);
    lookAtLines(view, firstSample, out);
    if (view.wide.empty()) return;

    const std::size_t needed = count * decimation_.factor() + view.filter.size() - 1;
    for (auto& rail : wide_) rail.assign(needed, 0.0f);
    const Baseband air{wide_[0], wide_[1]};
    const Stretch stretch{view.centreHz, firstSample - static_cast<std::int64_t>(view.filterBehind)};
    for (const Source* source : view.wide) source->addTo(air, stretch, 1.0);
    filterInto(out, air, view.filter, decimation_.factor());
}

void CapturePath::lookAtLines(const View& view, std::int64_t firstSample, Baseband out) {
    const std::size_t step = decimation_.factor();
    const Stretch stretch{view.centreHz, firstSample};
    if (step == 1) {
        for (const View::Line& line : view.lines) line.source->addTo(out, stretch, line.gain);
        return;
    }
    if (view.lines.empty()) return;
    for (auto& rail : fine_) std::fill(rail.begin(), rail.end(), 0.0f);
    const Baseband fine = Baseband{fine_[0], fine_[1]}.part(0, out.size() * step);
    for (const View::Line& line : view.lines) line.source->addTo(fine, stretch, line.gain);
    for (std::size_t n = 0; n < out.size(); ++n) {
        out.i[n] += fine.i[n * step];
        out.q[n] += fine.q[n * step];
    }
}

bool CapturePath::take(std::int64_t firstSample, std::span<std::uint8_t> payload) {
    const std::size_t count = std::min(payload.size() / sizeof(std::uint32_t), captureBlock);
    for (auto* rails : {&straight_, &mirrored_}) {
        for (auto& rail : *rails) std::fill_n(rail.begin(), count, 0.0f);
    }
    bool mirrors = false;
    for (const View& view : views_) {
        look(view, firstSample, count);
        mirrors |= view.mirrored && !(view.lines.empty() && view.wide.empty());
    }
    const Baseband out = Baseband{straight_[0], straight_[1]}.part(0, count);
    if (leak_ != 0.0) {
        const Turns perSample = turnsPerSample(ncoHz_);
        addRotation(out, {phaseAt(perSample, firstSample), perSample * decimation_.factor(), leak_});
    }
    if (mirrors) {
        for (std::size_t n = 0; n < count; ++n) {
            out.i[n] += mirrored_[0][n];
            out.q[n] -= mirrored_[1][n];
        }
    }
    return digitise(out, payload);
}

CapturePath CaptureMaker::make(const CaptureSettings& settings, const UnitCalibration::Image& image,
                               double temperature, const Scene& scene) {
    if (!unit_ || image != image_ || temperature != temperature_) {
        image_ = image;
        temperature_ = temperature;
        unit_.emplace(image, temperature);
        evenings_.clear();
    }
    const ResponseRow& row = settings.response;
    const std::size_t place =
        (row.k * layout::channels + settings.channel) * 2 + (row.grid == ResponseGrid::low);
    auto found = evenings_.find(place);
    if (found == evenings_.end()) {
        RailTaps taps = evenedBy(unit_->response(row.grid, settings.channel, row.k));
        if (row.crossed) std::swap(taps.i, taps.q);
        found = evenings_.emplace(place, taps).first;
    }
    return {settings, *unit_, found->second, scene};
}

}  // namespace hxr::sim
