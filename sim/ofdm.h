#pragma once

#include <cstddef>
#include <vector>

#include "sim/phase.h"
#include "sim/scene.h"

namespace hxr::sim {

/// The carriers of an OFDM signal.
struct OfdmGrid {
    double spacingHz = 30e3;  ///< at least 10 kHz; rounded so that a symbol is whole samples at 50 MS/s
    std::size_t sideCarriers = 300;  ///< to either side of the middle one, over at most 45 MHz in all
    double prefix = 0.125;           ///< length of the cyclic prefix in symbols, 0.01 to 1

    /// As many carriers as fit into a width.
    static OfdmGrid ofWidth(double hz, double spacingHz = 30e3);
    double widthHz() const { return spacingHz * static_cast<double>(2 * sideCarriers + 1); }
};

/// A band full of carriers, as of a broadcast or mobile network: QPSK of pseudo-random data, and a prefix ahead
/// of each symbol, through which one symbol fades into the next. After 32 symbols it begins again, so that
/// its spectrum consists of lines a few hundred hertz apart.
class Ofdm : public Source {
  public:
    /// @param dbm  over all of its width
    /// @throws std::invalid_argument for a grid out of its limits
    Ofdm(double hz, double dbm, const OfdmGrid& grid);

    double centreHz() const override { return hz_; }
    double reachHz() const override { return reachHz_; }
    bool wide() const override { return true; }
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double hz_;
    double reachHz_;
    Turns perSample_;
    double amplitude_;
    std::vector<float> loopI_, loopQ_;  ///< of power 1
};

}  // namespace hxr::sim
