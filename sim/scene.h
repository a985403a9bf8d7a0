#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace hxr::sim {

/// Complex samples at 50 MS/s, the rails apart, 1.0 being the amplitude of 0 dBm.
struct Baseband {
    std::span<float> i;
    std::span<float> q;

    std::size_t size() const { return i.size(); }
    Baseband part(std::size_t first, std::size_t count) const {
        return {i.subspan(first, count), q.subspan(first, count)};
    }
};

/// The stretch of air that samples stand for: what is at the centre turns to 0 Hz. Samples count from 1970 in
/// UTC, so that captures of all channels and units see the same air.
struct Stretch {
    double centreHz;
    std::int64_t firstSample;
};

/// Something in the air. A source never changes, and any number of threads may listen to it.
class Source {
  public:
    virtual ~Source() = default;

    /// The source's middle; not used for one that fills the whole range.
    virtual double centreHz() const = 0;
    /// How far it reaches to either side.
    virtual double reachHz() const = 0;
    /// Whether a receiver's response may change from one end of the source to the other. If not, the response
    /// at its centre stands for all of it.
    virtual bool wide() const { return false; }
    /// Adds the source, times a gain. A wide source adds only what is within 25 MHz of the stretch's centre.
    virtual void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const = 0;
};

/// All that is in the air around the units. Built once, then shared by any number of them; a copy shares its sources.
class Scene {
  public:
    void add(std::shared_ptr<const Source> source) { sources_.push_back(std::move(source)); }

    template <typename Kind, typename... Properties>
    Scene& with(Properties... properties) {
        add(std::make_shared<const Kind>(properties...));
        return *this;
    }

    std::span<const std::shared_ptr<const Source>> sources() const { return sources_; }
    bool empty() const { return sources_.empty(); }

  private:
    std::vector<std::shared_ptr<const Source>> sources_;
};

/// A dozen signals from 100 kHz to 20 GHz: carriers, broadcast stations, radars, a mobile network, and noise below them.
Scene demoScene();

}  // namespace hxr::sim
