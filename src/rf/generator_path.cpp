#include "rf/generator_path.h"

#include "rf/band_plan.h"

namespace hxr {

std::array<words::Word, 5> buildGeneratorPath(int band, double hz, int attenuatorCode) {
    const bool low = !isHighBand(band);
    const bool below1GHz = hz < 1e9;
    const std::uint32_t amplifier = below1GHz ? 2 : low ? 0 : 1;
    const bool direct = amplifier == 0;

    const std::uint32_t output =
        (below1GHz ? 0x20U : 0U) + amplifier * 8 + (static_cast<std::uint32_t>(attenuatorCode) >> 2 & 7);
    const bool upperFilter = low || (hz > 8e9 && !(hz >= 13e9 && hz <= 16e9));
    return {
        words::expanderWrite(words::generatorAndReference, 0x3F, static_cast<std::uint8_t>(output)),
        words::expanderWrite(0x03, 0x48, static_cast<std::uint8_t>((direct ? 0x40 : 0) + (low ? 0 : 0x08))),
        words::expanderWrite(0x06, 0xE0, static_cast<std::uint8_t>(0x20 + (low ? 0x40 : 0x80))),
        words::expanderWrite(0x07, 0x42,
                             static_cast<std::uint8_t>((direct ? 0x02 : 0) + (upperFilter ? 0x40 : 0))),
        low ? words::chipWrite(words::Chip::generator, 0x0600, 0x00)
            : words::chipWrite(words::Chip::generator, 0x0602, 0xAE) + (hz > 13e9 ? 8U : 0U),
    };
}

}  // namespace hxr
