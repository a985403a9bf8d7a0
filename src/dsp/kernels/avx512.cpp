#define HXR_KERNEL_SET avx512
#include "dsp/kernels/kernel_set.h"
