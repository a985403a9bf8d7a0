#include "sim/scene.h"

#include "sim/ofdm.h"
#include "sim/sources.h"

namespace hxr::sim {

Scene demoScene() {
    Scene scene;
    // clang-format off
    scene.with<WhiteNoise>(-150.0)
        .with<Tone>(100e3, -45.0)
        .with<AmTone>(1.008e6, -50.0, 1e3, 0.6)
        .with<Tone>(27.12e6, -40.0)
        .with<FmTone>(98.5e6, -42.0, 1e3, 75e3)
        .with<FmTone>(145.6e6, -55.0, 1e3, 3e3)
        .with<Tone>(433.92e6, -60.0)
        .with<PulsedTone>(1.09e9, -48.0, 8e-6, 120e-6)
        .with<Tone>(1.57542e9, -85.0)
        .with<Ofdm>(2.14e9, -40.0, OfdmGrid::ofWidth(18e6))
        .with<Tone>(2.45e9, -50.0)
        .with<PulsedTone>(5.3e9, -38.0, 2e-6, 50e-6)
        .with<Tone>(9.41e9, -55.0)
        .with<Tone>(12.75e9, -65.0)
        .with<Tone>(20e9, -58.0);
    // clang-format on
    return scene;
}

}  // namespace hxr::sim
