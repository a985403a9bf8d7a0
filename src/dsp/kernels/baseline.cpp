#define HXR_KERNEL_SET baseline
#include "dsp/kernels/kernel_set.h"
