#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "sim/generator_settings.h"
#include "sim/scene.h"
#include "sim/unit_calibration.h"

namespace hxr::sim {

class Sequencer;

/// What comes out of a generator: its pattern, again and again at 125 MS/s, through a modulator with its errors, at the
/// level of its attenuator. Of the two sidebands it is the lower one: what turns forward in the pattern lies below the LO.
///
/// @param pattern  words of two rails, the first in the low half. Q is the first, but for an LO below 1 GHz.
std::shared_ptr<const Source> generatorOutput(const GeneratorSettings& settings,
                                              std::span<const std::uint32_t> pattern,
                                              const GeneratorCalibration& calibration);

/// The generator of a unit, whose output a cable leads back to the unit's receivers.
class Generator {
  public:
    /// The air with what the generator plays at the moment in it. It is the same from call to call until one of both
    /// changes.
    ///
    /// @param air    may be null
    /// @param image  what the unit is
    std::shared_ptr<const Scene> playInto(const std::shared_ptr<const Scene>& air, const Sequencer& sequencer,
                                          const Oscillator& oscillator, const UnitCalibration::Image& image);

  private:
    std::optional<GeneratorSettings> settings_;
    UnitCalibration::Image image_;
    std::shared_ptr<const Source> output_;
    std::shared_ptr<const Scene> air_, heard_;
};

}  // namespace hxr::sim
