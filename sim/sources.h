#pragma once

#include "sim/phase.h"
#include "sim/scene.h"

namespace hxr::sim {

/// Amplitude of a level, 1.0 being that of 0 dBm.
double amplitudeOf(double dbm);

/// A carrier of one frequency. Its phase is 0 at the beginning of 1970.
class Tone : public Source {
  public:
    Tone(double hz, double dbm);

    double centreHz() const override { return hz_; }
    double reachHz() const override { return 0.0; }
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double hz_;
    Turns perSample_;
    double amplitude_;
};

/// A carrier modulated in amplitude by a sine.
class AmTone : public Source {
  public:
    /// @param dbm    of the carrier alone
    /// @param depth  0 to 1
    AmTone(double hz, double dbm, double modulationHz, double depth);

    double centreHz() const override { return hz_; }
    double reachHz() const override { return modulationHz_; }
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double hz_;
    double modulationHz_;
    Turns perSample_;
    Turns modulationPerSample_;
    double amplitude_;
    double depth_;
};

/// A carrier modulated in frequency by a sine.
class FmTone : public Source {
  public:
    /// @param deviationHz  the largest, to either side
    FmTone(double hz, double dbm, double modulationHz, double deviationHz);

    double centreHz() const override { return hz_; }
    double reachHz() const override { return deviationHz_ + modulationHz_; }
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double hz_;
    double modulationHz_;
    double deviationHz_;
    Turns perSample_;
    Turns modulationPerSample_;
    double amplitude_;
};

/// A carrier that is keyed on for a time once a period, as a radar's. All pulses are cut out of one carrier.
class PulsedTone : public Source {
  public:
    /// @param dbm  while it is on
    PulsedTone(double hz, double dbm, double widthSeconds, double periodSeconds);

    double centreHz() const override { return hz_; }
    double reachHz() const override;
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double hz_;
    Turns perSample_;
    double amplitude_;
    std::int64_t width_;
    std::int64_t period_;
};

/// Gaussian noise of the same density at all frequencies. The same at every look at one time around one
/// centre; around another centre it is another noise.
class WhiteNoise : public Source {
  public:
    explicit WhiteNoise(double dbmPerHz);

    double centreHz() const override { return 0.0; }
    double reachHz() const override { return 1e12; }
    bool wide() const override { return true; }
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    double amplitude_;
};

}  // namespace hxr::sim
