#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "sim/generator_settings.h"
#include "sim/scene.h"
#include "sim/sync_line.h"
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

/// The generator of a unit, whose output the group's cable leads to the receivers.
class Generator {
  public:
    /// @param line  null: the cable goes to the unit's own receivers alone
    explicit Generator(std::shared_ptr<SyncLine> line);
    ~Generator() { line_->play(this, nullptr); }
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    /// Plays what the unit's registers say by now.
    /// @param image  what the unit is
    void follow(const Sequencer& sequencer, const Oscillator& oscillator,
                const UnitCalibration::Image& image);

    /// The air with what is played at the moment in it. It is the same from call to call until one of both changes.
    /// @param air  may be null
    std::shared_ptr<const Scene> playInto(const std::shared_ptr<const Scene>& air);

  private:
    std::shared_ptr<SyncLine> line_;
    std::optional<GeneratorSettings> settings_;
    UnitCalibration::Image image_;
    std::vector<std::shared_ptr<const Source>> played_;
    std::shared_ptr<const Scene> air_, heard_;
};

}  // namespace hxr::sim
