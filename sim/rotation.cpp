#include "sim/rotation.h"

#include <array>
#include <cstddef>

namespace hxr::sim {
namespace {

/// Several points of a rotation, side by side, so that none waits for the one before it.
constexpr std::size_t lanes = 8;

/// Calls `step(n, re, im)` for every sample n, with the rotation's value there.
template <typename Step>
void turnThrough(std::size_t count, const Rotation& rotation, Step step) {
    std::array<double, lanes> re, im;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        const std::complex<double> start =
            rotation.amplitude * onCircle(rotation.phase + lane * rotation.perSample);
        re[lane] = start.real();
        im[lane] = start.imag();
    }
    const std::complex<double> turn = onCircle(lanes * rotation.perSample);
    const double turnRe = turn.real();
    const double turnIm = turn.imag();

    const std::size_t whole = count / lanes * lanes;
    for (std::size_t n = 0; n < whole; n += lanes) {
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            step(n + lane, static_cast<float>(re[lane]), static_cast<float>(im[lane]));
            const double next = re[lane] * turnRe - im[lane] * turnIm;
            im[lane] = re[lane] * turnIm + im[lane] * turnRe;
            re[lane] = next;
        }
    }
    for (std::size_t n = whole; n < count; ++n)
        step(n, static_cast<float>(re[n - whole]), static_cast<float>(im[n - whole]));
}

}  // namespace

void addRotation(Baseband out, const Rotation& rotation) {
    float* const outI = out.i.data();
    float* const outQ = out.q.data();
    turnThrough(out.size(), rotation, [=](std::size_t n, float re, float im) {
        outI[n] += re;
        outQ[n] += im;
    });
}

void rotate(Baseband samples, const Rotation& rotation) {
    float* const i = samples.i.data();
    float* const q = samples.q.data();
    turnThrough(samples.size(), rotation, [=](std::size_t n, float re, float im) {
        const float rotated = i[n] * re - q[n] * im;
        q[n] = i[n] * im + q[n] * re;
        i[n] = rotated;
    });
}

void addRotated(Baseband out, const Baseband& in, const Rotation& rotation) {
    float* const outI = out.i.data();
    float* const outQ = out.q.data();
    const float* const inI = in.i.data();
    const float* const inQ = in.q.data();
    turnThrough(out.size(), rotation, [=](std::size_t n, float re, float im) {
        outI[n] += inI[n] * re - inQ[n] * im;
        outQ[n] += inI[n] * im + inQ[n] * re;
    });
}

}  // namespace hxr::sim
