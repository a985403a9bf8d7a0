#define HXR_KERNEL_SET baseline
#define HXR_NARROWER_SET nullptr
#include "dsp/kernels/kernel_set.h"
