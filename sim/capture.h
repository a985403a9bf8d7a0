#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "sim/capture_settings.h"
#include "sim/rail_filter.h"
#include "sim/scene.h"
#include "sim/unit_calibration.h"

namespace hxr::sim {

/// Samples of a data datagram.
inline constexpr std::size_t captureBlock = 2048;

/// What a capture sees of a scene.
///
/// Above 45 MHz the mixer has its LO above the wanted band: a signal at f comes out at f - LO, as a turning
/// pair of rails. The analog response and the filter's taps work on the rails at 125 MS/s. What they leave
/// uneven appears once more, mirrored at the LO. The digital oscillator then turns everything up by its
/// frequency w, so that LO - w comes to rest in the middle: f lands at f - (LO - w), not reversed.
///
/// Below, in band 0, the input leads to the converter of the I rail as it is. A signal at f there is a line
/// at f and a line at -f, and it is the second that the oscillator, turning the same way, brings to the
/// middle: f lands at w - f, reversed. Close to 0 Hz the other one comes into view as well, at w + f.
///
/// Of the 125 MS/s the decimation filter leaves 50, flat over the middle 39.06 MHz; in a stream 50, 25 or 12.5,
/// through the taps that are loaded.
class CapturePath {
  public:
    /// Keeps references to the scene.
    ///
    /// @param evening  the filter that makes the unit's present response even
    CapturePath(const CaptureSettings& settings, const UnitCalibration& unit, const RailTaps& evening,
                const Scene& scene);

    /// The samples from so many since 1970 on, as 16-bit pairs, least significant byte first.
    ///
    /// @param firstSample  counted at 50 MS/s also where less goes out
    /// @param payload      a multiple of four bytes, at most `captureBlock` samples
    /// @returns whether the converter was driven over its range
    bool take(std::int64_t firstSample, std::span<std::uint8_t> payload);

  private:
    /// One way for the air into the samples.
    struct View {
        double centreHz = 0.0;
        bool mirrored = false;
        struct Line {
            const Source* source;
            std::complex<double> gain;
        };
        std::vector<Line> lines{};
        std::vector<const Source*> wide{};
        std::vector<std::complex<float>> filter{};  ///< for what is wide
        std::size_t filterBehind = 0;               ///< taps behind the present sample
    };

    template <typename Response>
    /// @param response  gain of the view for the air at a frequency, ahead of the decimation
    /// @param silence   what is wide counts only where it is larger than this
    View makeView(const Scene& scene, double centreHz, bool mirrored, Response response,
                  double silence) const;
    void look(const View& view, std::int64_t firstSample, std::size_t count);
    void lookAtLines(const View& view, std::int64_t firstSample, Baseband out);

    DecimationFilter decimation_;
    std::vector<View> views_;
    double ncoHz_;
    std::complex<double> leak_{};  ///< LO feed-through as it comes out of the filter
    std::array<std::vector<float>, 2> straight_, mirrored_, fine_, wide_;
};

/// Makes the capture paths of one unit and keeps what is costly about them from one to the next.
class CaptureMaker {
  public:
    CapturePath make(const CaptureSettings& settings, const UnitCalibration::Image& image, double temperature,
                     const Scene& scene);

  private:
    UnitCalibration::Image image_;
    double temperature_ = 0.0;
    std::optional<UnitCalibration> unit_;
    std::map<std::size_t, RailTaps> evenings_;
};

}  // namespace hxr::sim
