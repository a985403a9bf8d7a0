// The complex forward transform beside FFTW's, single precision, planned with FFTW_MEASURE, one thread, with
// the errors of both against FFTW's in double precision.

#include <fftw3.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "dsp/fft.h"
#include "dsp/instruction_set.h"
#include "side_by_side.h"

namespace {

using namespace hxr;

struct Row {
    bench::Times outOfPlace, inPlace;
    double ourError, theirError;
};

/// Root mean square of the error, relative to that of the spectrum; `scale` brings the result to the unscaled
/// form.
template <typename Sample>
double relativeError(const Sample* result, double scale, const fftw_complex* exact, int n) {
    double error = 0.0, power = 0.0;
    const float* values = reinterpret_cast<const float*>(result);
    for (int i = 0; i < n; ++i) {
        for (int part = 0; part < 2; ++part) {
            const double difference = double{values[2 * i + part]} * scale - exact[i][part];
            error += difference * difference;
            power += exact[i][part] * exact[i][part];
        }
    }
    return std::sqrt(error / power);
}

Row measure(int order) {
    const int n = 1 << order;
    const auto count = static_cast<std::size_t>(n);
    auto x = platform::makeAlignedArray<cf32>(count), y = platform::makeAlignedArray<cf32>(count);
    fftwf_complex* in = fftwf_alloc_complex(count);
    fftwf_complex* out = fftwf_alloc_complex(count);
    fftwf_plan plan = fftwf_plan_dft_1d(n, in, out, FFTW_FORWARD, FFTW_MEASURE);
    fftwf_plan planInPlace = fftwf_plan_dft_1d(n, in, in, FFTW_FORWARD, FFTW_MEASURE);
    fftw_complex* exact = fftw_alloc_complex(count);
    fftw_plan exactPlan = fftw_plan_dft_1d(n, exact, exact, FFTW_FORWARD, FFTW_ESTIMATE);

    std::mt19937 engine(1);
    std::normal_distribution<float> value;
    for (std::size_t i = 0; i < count; ++i) {
        x[i] = {value(engine), value(engine)};
        exact[i][0] = double{in[i][0] = x[i].re};
        exact[i][1] = double{in[i][1] = x[i].im};
    }
    const FftPlanCf32 ours = fftPlanCf32(order, fftScaleForward, fftFast);
    const auto work = ours.makeWork();
    fftw_execute(exactPlan);
    fftwf_execute(plan);
    fftForwardCf32(x.get(), y.get(), ours, work.get());
    Row row = {};
    row.ourError = relativeError(y.get(), n, exact, n);
    row.theirError = relativeError(out, 1.0, exact, n);

    const int turns = order < 18 ? 80 : 25;
    row.outOfPlace = bench::sideBySide([&] { fftForwardCf32(x.get(), y.get(), ours, work.get()); },
                                       [&] { fftwf_execute(plan); }, turns);
    // Repeated in place the unscaled transform would overflow; zeros take the same time.
    for (std::size_t i = 0; i < count; ++i) in[i][0] = in[i][1] = 0.0F;
    row.inPlace = bench::sideBySide([&] { fftForwardCf32(x.get(), x.get(), ours, work.get()); },
                                    [&] { fftwf_execute(planInPlace); }, turns);
    fftwf_destroy_plan(plan);
    fftwf_destroy_plan(planInPlace);
    fftw_destroy_plan(exactPlan);
    fftwf_free(in);
    fftwf_free(out);
    fftw_free(exact);
    return row;
}

}  // namespace

/// Arguments: the least and the greatest order, 6 and 21 unless given.
int main(int count, char** arguments) {
    dspInitialise();
    const int first = count > 1 ? std::atoi(arguments[1]) : 6,
              last = count > 2 ? std::atoi(arguments[2]) : 21;
    std::printf("%5s %10s %10s %8s %8s %6s %9s %10s %10s\n", "order", "ours us", "FFTW us", "GFlop/s", "FFTW",
                "ratio", "in place", "error", "FFTW's");
    for (int order = first; order <= last; ++order) {
        const Row row = measure(order);
        const double flops = 5.0 * (1 << order) * order * 1e-9;
        std::printf("%5d %10.3f %10.3f %8.1f %8.1f %6.2f %9.2f %10.2e %10.2e\n", order,
                    1e6 * row.outOfPlace.ours, 1e6 * row.outOfPlace.theirs, flops / row.outOfPlace.ours,
                    flops / row.outOfPlace.theirs, row.outOfPlace.ratio(), row.inPlace.ratio(), row.ourError,
                    row.theirError);
        std::fflush(stdout);
    }
}
