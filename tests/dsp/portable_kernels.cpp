// The kernels in plain C++, which the library holds only for processors without vector kernels.
#include "dsp_test.h"

#define HXR_PORTABLE_KERNELS
#define HXR_KERNEL_SET portable
#define HXR_NARROWER_SET nullptr
#include "dsp/kernels/kernel_set.h"
