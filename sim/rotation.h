#pragma once

#include <complex>

#include "sim/phase.h"
#include "sim/scene.h"

namespace hxr::sim {

/// amplitude * e^(j phase), the phase going on by `perSample` from sample to sample.
struct Rotation {
    Turns phase;
    Turns perSample;
    std::complex<double> amplitude = 1.0;
};

/// out += rotation
void addRotation(Baseband out, const Rotation& rotation);

/// samples *= rotation
void rotate(Baseband samples, const Rotation& rotation);

/// out += in * rotation
///
/// @param in  as long as `out`
void addRotated(Baseband out, const Baseband& in, const Rotation& rotation);

}  // namespace hxr::sim
