/// Raw captures.

#include <optional>

#include "api/entry.h"
#include "sweep/full_band_capture.h"

using hxr::HXRDevice;
using hxr::ResponseTaps;

namespace {

std::optional<ResponseTaps> tapsFrom(const float* pairs) {
    if (pairs == nullptr) return std::nullopt;
    ResponseTaps taps;
    for (hxr::TapPair& tap : taps) {
        tap = {pairs[0], pairs[1]};
        pairs += 2;
    }
    return taps;
}

/// @param taps  gives the filter; the caller's isn't read before handle and pointer have been checked
template <typename Taps>
HXRStatus capture(int handle, hxr::FullBandRequest request, float* iq, Taps&& taps) {
    return hxr::api::deviceEntry(handle, [&](HXRDevice& device, hxr::InterfaceLock& lock) {
        if (iq == nullptr) return hxrNullPointerErr;
        request.tuning.taps = taps();
        return hxr::captureFullBand(device, request, iq, lock);
    });
}

}  // namespace

HXRStatus hxrAdminGetFullBandIQ(int handle, int channel, bool fullBand, double loHz, int attenuatorIndex,
                                float* iq, int blocks, bool reconfigure, float* const taps) {
    return capture(handle, {channel, blocks, reconfigure, {fullBand, loHz, attenuatorIndex, {}}}, iq,
                   [&] { return reconfigure ? tapsFrom(taps) : std::nullopt; });
}

HXRStatus hxrAdminGetFullBandIQ(int handle, int channel, bool fullBand, double loHz, int attenuatorIndex,
                                float* iq, int blocks) {
    return capture(handle, {channel, blocks, true, {fullBand, loHz, attenuatorIndex, {}}}, iq,
                   [] { return std::optional(hxr::passThroughTaps()); });
}
