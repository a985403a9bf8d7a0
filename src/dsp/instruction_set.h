/// Which kernels the signal operations run on. They are ready from load on, with the baseline that every
/// processor of the build's architecture has; `dspInitialise` changes to the best that the present one has.
#pragma once

namespace hxr {

struct KernelTable;

enum class InstructionSet { baseline, avx2, avx512 };

/// Chooses the best kernels. Called once, before the first device is connected; safe to call again, from any
/// thread.
void dspInitialise();

/// Chooses one set of kernels for all plans and operations that follow.
/// @return false, with nothing changed, if the processor or the build lacks it
bool dspUse(InstructionSet set);

/// The same with kernels that the library may not hold for this processor, such as the plain C++ ones.
void dspUse(const KernelTable& kernels);

/// The kernels in use. A plan keeps the ones that it was made with.
const KernelTable& dspKernels();

}  // namespace hxr
