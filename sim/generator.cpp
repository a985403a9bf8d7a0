#include "sim/generator.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "sim/recorded_samples.h"
#include "sim/recording_source.h"
#include "sim/sequencer.h"

namespace hxr::sim {
namespace {

constexpr double converterRateHz = 125e6;
/// Of both converters, 14 bits each.
constexpr double fullScale = 8192.0;
/// The part of full scale at which the factory has measured the generator.
constexpr double measuredScale = 0.5;

double railOf(std::uint32_t word, int shift) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(word >> shift)) / fullScale;
}

/// What the modulator makes of a pattern, around its LO.
class Modulated final : public RecordedSamples {
  public:
    Modulated(double rateHz, const GeneratorCalibration& modulator, bool qFirst,
              std::span<const std::uint32_t> pattern)
        : rateHz_(rateHz) {
        for (const std::uint32_t word : pattern) {
            const double i = railOf(word, qFirst ? 16 : 0) - measuredScale * modulator.offsetI;
            const double q = railOf(word, qFirst ? 0 : 16) - measuredScale * modulator.offsetQ;
            // I and Q leave as gain I and cos(phase) Q - sin(phase) I, and what is below the LO is their conjugate.
            i_.push_back(static_cast<float>(modulator.gain * i));
            q_.push_back(static_cast<float>(std::sin(modulator.phase) * i - std::cos(modulator.phase) * q));
        }
    }

    std::uint64_t size() const override { return i_.size(); }
    double rateHz() const override { return rateHz_; }
    void read(std::uint64_t first, Baseband out) const override {
        const auto from = static_cast<std::ptrdiff_t>(first);
        std::copy_n(i_.begin() + from, out.size(), out.i.begin());
        std::copy_n(q_.begin() + from, out.size(), out.q.begin());
    }

  private:
    double rateHz_;
    std::vector<float> i_, q_;
};

}  // namespace

std::shared_ptr<const Source> generatorOutput(const GeneratorSettings& settings,
                                              std::span<const std::uint32_t> pattern,
                                              const GeneratorCalibration& calibration) {
    const bool qFirst = settings.path.range != GeneratorPath::Range::belowOneGHz;
    const double fullScaleDbm =
        calibration.levelDbm.at(static_cast<std::size_t>(settings.path.attenuatorStep)) -
        20.0 * std::log10(measuredScale);
    return std::make_shared<const RecordingSource>(
        std::make_unique<const Modulated>(converterRateHz * settings.timebaseRatio, calibration, qFirst,
                                          pattern),
        settings.loHz * settings.timebaseRatio, fullScaleDbm);
}

Generator::Generator(std::shared_ptr<SyncLine> line)
    : line_(line ? std::move(line) : std::make_shared<SyncLine>()) {}

void Generator::follow(const Sequencer& sequencer, const Oscillator& oscillator,
                       const UnitCalibration::Image& image) {
    const auto settings = sequencer.generatorSettings(oscillator);
    if (settings == settings_ && image == image_) return;
    settings_ = settings;
    image_ = image;
    constexpr double anyTemperature = 25.0;
    line_->play(this, settings
                          ? generatorOutput(*settings, sequencer.pattern(),
                                            UnitCalibration(image, anyTemperature).generator(settings->k))
                          : nullptr);
}

std::shared_ptr<const Scene> Generator::playInto(const std::shared_ptr<const Scene>& air) {
    auto played = line_->played();
    if (played.empty()) return air;
    if (!heard_ || air != air_ || played != played_) {
        auto scene = air ? std::make_shared<Scene>(*air) : std::make_shared<Scene>();
        for (const auto& output : played) scene->add(output);
        air_ = air;
        played_ = std::move(played);
        heard_ = std::move(scene);
    }
    return heard_;
}

}  // namespace hxr::sim
