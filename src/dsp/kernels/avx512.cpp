#define HXR_KERNEL_SET avx512
#define HXR_NARROWER_SET &avx2::kernelTable
#include "dsp/kernels/kernel_set.h"
