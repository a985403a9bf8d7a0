/// A short capture of one channel's raw samples, on the caller's thread.
#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"
#include "rf/full_band_plan.h"

namespace hxr {

/// What is captured.
struct FullBandRequest {
    int channel;
    int blocks;        ///< of 2048 samples
    bool reconfigure;  ///< false: the channel stays as it is, and of `tuning` the attenuator alone is checked
    FullBandTuning tuning;
};

/// Tunes a channel of the unit, unless told not to, and takes the samples.
///
/// @param iq  receives `blocks` x 2048 complex samples, full scale 1.0; zeros where none came
/// @return as hxrAdminGetFullBandIQ
/// @throws std::bad_alloc, with nothing sent
HXRStatus captureFullBand(HXRDevice& device, FullBandRequest request, float* iq, InterfaceLock& lock);

}  // namespace hxr
