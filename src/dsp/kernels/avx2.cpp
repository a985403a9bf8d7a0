#define HXR_KERNEL_SET avx2
#define HXR_NARROWER_SET &baseline::kernelTable
#include "dsp/kernels/kernel_set.h"
