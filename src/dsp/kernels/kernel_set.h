// Everything of one kernel set: define HXR_KERNEL_SET, the namespace of the set, and HXR_NARROWER_SET, the
// address of the next narrower one's table, and include this.

#include "dsp/kernels/kernel_table.h"

// Each of these builds on the ones before it.

#include "dsp/kernels/simd.h"

#include "dsp/kernels/vector_kernels.h"

#include "dsp/kernels/exponential_kernels.h"

#include "dsp/kernels/fir_kernels.h"

#include "dsp/kernels/fft_kernels.h"

namespace hxr::HXR_KERNEL_SET {

constinit const KernelTable kernelTable = {
    .lanes = lanes,
    .narrower = HXR_NARROWER_SET,
    .mulConstF32 = mulConstF32,
    .addConstF32 = addConstF32,
    .addF32 = addF32,
    .maxF32 = maxF32,
    .minF32 = minF32,
    .sqrF32 = sqrF32,
    .sqrtF32 = sqrtF32,
    .lnF32 = lnF32,
    .expF32 = expF32,
    .mulF64 = mulF64,
    .mulCf32 = mulCf32,
    .mulConstCf32 = mulConstCf32,
    .magnitudeCf32 = magnitudeCf32,
    .powerCf32 = powerCf32,
    .mulCf64 = mulCf64,
    .sumF64 = sumF64,
    .sumCf32 = sumCf32,
    .flip32 = flip32,
    .firDirectReal = firDirect<false>,
    .firDirectComplex = firDirect<true>,
    .firDecimateReal = firDecimate<false>,
    .firDecimateComplex = firDecimate<true>,
    .fftOneStep = fftOneStep,
    .fftTwoSteps = fftTwoSteps,
    .i16ToF32 = i16ToF32,
    .f32ToI16Nearest = f32ToI16Nearest,
    .f32ToI16Truncated = f32ToI16Truncated,
};

}  // namespace hxr::HXR_KERNEL_SET
