#define HXR_KERNEL_SET avx2
#include "dsp/kernels/kernel_set.h"
