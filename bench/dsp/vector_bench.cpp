// The element-wise operations beside VOLK's, on the sizes of a sample packet and of a long sweep transform, with the
// errors of both against double precision.

#include <volk/volk.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <random>

#include "dsp/instruction_set.h"
#include "dsp/vector.h"
#include "side_by_side.h"

namespace {

using namespace hxr;

/// Sources and results, aligned as the driver's own buffers are. Both libraries write to the same place: where results lie
/// relative to the sources is a matter of a tenth or two.
struct Buffers {
    explicit Buffers(int n)
        : count(n),
          a(platform::makeAlignedArray<float>(2 * size())),
          b(platform::makeAlignedArray<float>(2 * size())),
          result(platform::makeAlignedArray<float>(2 * size())),
          words(platform::makeAlignedArray<std::int16_t>(size())),
          resultWords(platform::makeAlignedArray<std::int16_t>(size())) {
        std::mt19937 engine(1);
        std::uniform_real_distribution<float> value(0.001F, 1.0F);
        for (std::size_t i = 0; i < 2 * size(); ++i) {
            a[i] = value(engine);
            b[i] = value(engine);
        }
        for (std::size_t i = 0; i < size(); ++i) words[i] = static_cast<std::int16_t>(engine());
    }

    int count;
    platform::AlignedArray<float> a, b, result;
    platform::AlignedArray<std::int16_t> words, resultWords;

    unsigned size() const { return static_cast<unsigned>(count); }
    static cf32* complex(const platform::AlignedArray<float>& v) { return reinterpret_cast<cf32*>(v.get()); }
    static lv_32fc_t* volkComplex(const platform::AlignedArray<float>& v) {
        return reinterpret_cast<lv_32fc_t*>(v.get());
    }
    std::complex<double> sample(const platform::AlignedArray<float>& v, std::size_t i) const {
        return {double{v[2 * i]}, double{v[2 * i + 1]}};
    }
};

/// What an operation's result is compared with: element i in double precision.
using Exact = std::function<std::complex<double>(const Buffers&, std::size_t i)>;

Exact ofReal(double (*operation)(double a, double b)) {
    return [operation](const Buffers& x, std::size_t i) { return operation(double{x.a[i]}, double{x.b[i]}); };
}

enum class Result { real, complex, words };

struct Row {
    const char* name;
    std::function<void(Buffers&)> ours, theirs;
    Exact exact, exactOfTheirs;
    Result result = Result::real;
};

/// Root mean square of the error, relative to that of the exact result.
double relativeError(Buffers& x, const std::function<void(Buffers&)>& run, const Exact& exactly,
                     Result kind) {
    run(x);
    double error = 0.0, power = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::complex<double> exact = exactly(x, i);
        const std::complex<double> result = kind == Result::complex ? x.sample(x.result, i)
                                            : kind == Result::words ? 1.0 * x.resultWords[i]
                                                                    : double{x.result[i]};
        error += std::norm(result - exact);
        power += std::norm(exact);
    }
    return std::sqrt(error / power);
}

const Row rows[] = {
    {"int16 to float", [](Buffers& x) { dspI16ToF32(x.words.get(), x.result.get(), x.count, 15); },
     [](Buffers& x) { volk_16i_s32f_convert_32f(x.result.get(), x.words.get(), 32768.0F, x.size()); },
     [](const Buffers& x, std::size_t i) { return x.words[i] / 32768.0; }, nullptr},
    {"float to int16",
     [](Buffers& x) { dspF32ToI16(x.a.get(), x.resultWords.get(), x.count, dspRoundToNearest, -15); },
     [](Buffers& x) { volk_32f_s32f_convert_16i(x.resultWords.get(), x.a.get(), 32768.0F, x.size()); },
     ofReal([](double a, double) { return a * 32768.0; }), nullptr, Result::words},
    {"power", [](Buffers& x) { dspPowerCf32(Buffers::complex(x.a), x.result.get(), x.count); },
     [](Buffers& x) { volk_32fc_magnitude_squared_32f(x.result.get(), Buffers::volkComplex(x.a), x.size()); },
     [](const Buffers& x, std::size_t i) { return std::norm(x.sample(x.a, i)); }, nullptr},
    {"magnitude", [](Buffers& x) { dspMagnitudeCf32(Buffers::complex(x.a), x.result.get(), x.count); },
     [](Buffers& x) { volk_32fc_magnitude_32f(x.result.get(), Buffers::volkComplex(x.a), x.size()); },
     [](const Buffers& x, std::size_t i) { return std::abs(x.sample(x.a, i)); }, nullptr},
    {"complex multiply",
     [](Buffers& x) {
         dspMulCf32(Buffers::complex(x.a), Buffers::complex(x.b), Buffers::complex(x.result), x.count);
     },
     [](Buffers& x) {
         volk_32fc_x2_multiply_32fc(Buffers::volkComplex(x.result), Buffers::volkComplex(x.a),
                                    Buffers::volkComplex(x.b), x.size());
     },
     [](const Buffers& x, std::size_t i) { return x.sample(x.a, i) * x.sample(x.b, i); }, nullptr,
     Result::complex},
    {"logarithm (VOLK's to base 2)", [](Buffers& x) { dspLnF32(x.a.get(), x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_log2_32f(x.result.get(), x.a.get(), x.size()); },
     ofReal([](double a, double) { return std::log(a); }),
     ofReal([](double a, double) { return std::log2(a); })},
    {"exponential", [](Buffers& x) { dspExpF32(x.a.get(), x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_exp_32f(x.result.get(), x.a.get(), x.size()); },
     ofReal([](double a, double) { return std::exp(a); }), nullptr},
    {"multiply by a constant", [](Buffers& x) { dspMulConstF32(x.a.get(), 4.34F, x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_s32f_multiply_32f(x.result.get(), x.a.get(), 4.34F, x.size()); },
     ofReal([](double a, double) { return a * double{4.34F}; }), nullptr},
    {"add", [](Buffers& x) { dspAddF32(x.a.get(), x.b.get(), x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_x2_add_32f(x.result.get(), x.a.get(), x.b.get(), x.size()); },
     ofReal([](double a, double b) { return a + b; }), nullptr},
    {"maximum", [](Buffers& x) { dspMaxF32(x.a.get(), x.b.get(), x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_x2_max_32f(x.result.get(), x.a.get(), x.b.get(), x.size()); },
     ofReal([](double a, double b) { return std::max(a, b); }), nullptr},
    {"square root", [](Buffers& x) { dspSqrtF32(x.a.get(), x.result.get(), x.count); },
     [](Buffers& x) { volk_32f_sqrt_32f(x.result.get(), x.a.get(), x.size()); },
     ofReal([](double a, double) { return std::sqrt(a); }), nullptr},
};

}  // namespace

int main() {
    dspInitialise();
    std::printf("%-30s %8s %10s %10s %6s %9s %9s\n", "operation", "elements", "ours ns", "VOLK ns", "ratio",
                "error", "VOLK's");
    for (const int n : {2048, 4096, 65536}) {
        Buffers buffers(n);
        for (const Row& row : rows) {
            const auto times = bench::sideBySide([&] { row.ours(buffers); }, [&] { row.theirs(buffers); });
            std::printf("%-30s %8d %10.1f %10.1f %6.2f %9.1e %9.1e\n", row.name, n, 1e9 * times.ours,
                        1e9 * times.theirs, times.ratio(),
                        relativeError(buffers, row.ours, row.exact, row.result),
                        relativeError(buffers, row.theirs, row.exactOfTheirs ? row.exactOfTheirs : row.exact,
                                      row.result));
        }
    }
}
