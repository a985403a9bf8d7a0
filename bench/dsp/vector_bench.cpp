// The element-wise operations beside VOLK's, on the sizes of a sample packet and of a long sweep transform.

#include <volk/volk.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "dsp/instruction_set.h"
#include "dsp/vector.h"
#include "side_by_side.h"

namespace {

using namespace hxr;

struct Buffers {
    explicit Buffers(int n)
        : count(n),
          a(2 * static_cast<std::size_t>(n)),
          b(a.size()),
          ours(a.size()),
          theirs(a.size()),
          words(a.size()) {
        std::mt19937 engine(1);
        std::uniform_real_distribution<float> value(0.001F, 1.0F);
        for (float& x : a) x = value(engine);
        for (float& x : b) x = value(engine);
        for (std::int16_t& x : words) x = static_cast<std::int16_t>(engine());
    }

    int count;
    std::vector<float> a, b, ours, theirs;
    std::vector<std::int16_t> words;

    unsigned size() const { return static_cast<unsigned>(count); }
    static const cf32* complex(const std::vector<float>& v) {
        return reinterpret_cast<const cf32*>(v.data());
    }
    static const lv_32fc_t* volkComplex(const std::vector<float>& v) {
        return reinterpret_cast<const lv_32fc_t*>(v.data());
    }
};

struct Row {
    const char* name;
    std::function<void(Buffers&)> ours, theirs;
};

const Row rows[] = {
    {"int16 to float", [](Buffers& x) { dspI16ToF32(x.words.data(), x.ours.data(), x.count, 15); },
     [](Buffers& x) { volk_16i_s32f_convert_32f(x.theirs.data(), x.words.data(), 32768.0F, x.size()); }},
    {"float to int16",
     [](Buffers& x) { dspF32ToI16(x.a.data(), x.words.data(), x.count, dspRoundToNearest, -15); },
     [](Buffers& x) { volk_32f_s32f_convert_16i(x.words.data(), x.a.data(), 32768.0F, x.size()); }},
    {"power", [](Buffers& x) { dspPowerCf32(Buffers::complex(x.a), x.ours.data(), x.count); },
     [](Buffers& x) {
         volk_32fc_magnitude_squared_32f(x.theirs.data(), Buffers::volkComplex(x.a), x.size());
     }},
    {"magnitude", [](Buffers& x) { dspMagnitudeCf32(Buffers::complex(x.a), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32fc_magnitude_32f(x.theirs.data(), Buffers::volkComplex(x.a), x.size()); }},
    {"complex multiply",
     [](Buffers& x) {
         dspMulCf32(Buffers::complex(x.a), Buffers::complex(x.b), reinterpret_cast<cf32*>(x.ours.data()),
                    x.count);
     },
     [](Buffers& x) {
         volk_32fc_x2_multiply_32fc(reinterpret_cast<lv_32fc_t*>(x.theirs.data()), Buffers::volkComplex(x.a),
                                    Buffers::volkComplex(x.b), x.size());
     }},
    {"logarithm (VOLK's to base 2)", [](Buffers& x) { dspLnF32(x.a.data(), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_log2_32f(x.theirs.data(), x.a.data(), x.size()); }},
    {"exponential", [](Buffers& x) { dspExpF32(x.a.data(), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_exp_32f(x.theirs.data(), x.a.data(), x.size()); }},
    {"multiply by a constant", [](Buffers& x) { dspMulConstF32(x.a.data(), 4.34F, x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_s32f_multiply_32f(x.theirs.data(), x.a.data(), 4.34F, x.size()); }},
    {"add", [](Buffers& x) { dspAddF32(x.a.data(), x.b.data(), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_x2_add_32f(x.theirs.data(), x.a.data(), x.b.data(), x.size()); }},
    {"maximum", [](Buffers& x) { dspMaxF32(x.a.data(), x.b.data(), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_x2_max_32f(x.theirs.data(), x.a.data(), x.b.data(), x.size()); }},
    {"square root", [](Buffers& x) { dspSqrtF32(x.a.data(), x.ours.data(), x.count); },
     [](Buffers& x) { volk_32f_sqrt_32f(x.theirs.data(), x.a.data(), x.size()); }},
};

}  // namespace

int main() {
    dspInitialise();
    std::printf("%-30s %8s %12s %12s %7s\n", "operation", "elements", "ours ns", "VOLK ns", "ratio");
    for (const int n : {2048, 4096, 65536}) {
        Buffers buffers(n);
        for (const Row& row : rows) {
            const auto times = bench::sideBySide([&] { row.ours(buffers); }, [&] { row.theirs(buffers); });
            std::printf("%-30s %8d %12.1f %12.1f %7.2f\n", row.name, n, 1e9 * times.ours, 1e9 * times.theirs,
                        times.ratio());
        }
    }
}
