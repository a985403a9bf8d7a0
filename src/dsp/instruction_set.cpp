#include "dsp/instruction_set.h"

#include <atomic>

#include "dsp/kernels/kernel_table.h"

namespace hxr {
namespace {

constinit std::atomic<const KernelTable*> kernelsInUse = &baseline::kernelTable;

const KernelTable* kernelsOf(InstructionSet set) {
    switch (set) {
        case InstructionSet::baseline:
            return &baseline::kernelTable;
#ifdef HXR_X86_KERNELS
        case InstructionSet::avx2:
            return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? &avx2::kernelTable
                                                                                   : nullptr;
        case InstructionSet::avx512:
            return kernelsOf(InstructionSet::avx2) != nullptr && __builtin_cpu_supports("avx512f") &&
                           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
                           __builtin_cpu_supports("avx512vl")
                       ? &avx512::kernelTable
                       : nullptr;
#endif
        default:
            return nullptr;
    }
}

}  // namespace

void dspUse(const KernelTable& kernels) { kernelsInUse.store(&kernels, std::memory_order_relaxed); }

bool dspUse(InstructionSet set) {
    const KernelTable* kernels = kernelsOf(set);
    if (kernels != nullptr) dspUse(*kernels);
    return kernels != nullptr;
}

void dspInitialise() {
    for (const InstructionSet set :
         {InstructionSet::avx512, InstructionSet::avx2, InstructionSet::baseline}) {
        if (dspUse(set)) return;
    }
}

const KernelTable& dspKernels() { return *kernelsInUse.load(std::memory_order_relaxed); }

}  // namespace hxr
