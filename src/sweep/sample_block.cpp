#include "sweep/sample_block.h"

#include "dsp/vector.h"

namespace hxr {

void takeBlock(const ReceiveResult& received, std::size_t position, float* out) {
    constexpr std::size_t dataDatagramBytes = 8216;
    constexpr std::size_t dataHeaderBytes = 20;
    constexpr int fullScaleBits = 15;
    if (received.lengths[position] != dataDatagramBytes) return dspZero32(out, 2 * samplesPerBlock);
    const std::byte* const samples = received.buffers[position] + dataHeaderBytes;
    dspI16ToF32(reinterpret_cast<const std::int16_t*>(samples), out, 2 * samplesPerBlock, fullScaleBits);
}

}  // namespace hxr
