#include "sweep/sweep_plan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

#include "cal/correction_lookup.h"
#include "link/builders.h"
#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/frequency_grid.h"
#include "rf/front_end.h"

namespace hxr {
namespace {

constexpr double bandChangeMicroseconds = 100.0;
constexpr double sameBandMicroseconds = 10.0;
/// A sweep that begins in the low bands and ends in the high ones starts all synthesizers at its first step.
constexpr double pathCrossingMicroseconds = 500.0;

/// Noise bandwidth of a window, in bins of its length.
double windowFactorOf(std::uint32_t window) {
    constexpr std::array factors{3.7702, 2.0212, 2.65};
    return factors[window];
}

double centreOf(int step) { return step * gridSpacingHz - ifOffsetHz; }
int bandOfStep(int step) { return bandForFrequency(static_cast<float>(centreOf(step))); }

/// The steps that a sweep passes.
struct StepRange {
    int first, last;
    int count() const { return std::max(1, last - first + 1); }
};

StepRange stepsBetween(double start, double stop) {
    int first = firstStep;
    for (int k = firstStep + 1; k <= lastStep; ++k) {
        if (centreOf(k) - halfStepHz > start) {
            first = k - 1;
            break;
        }
    }
    int last = firstStep;
    while (last < lastStep && centreOf(last) + halfStepHz <= stop) ++last;
    return {first, last};
}

/// Sizes that follow from RBW and VBW.
SweepPlan planSizes(const SweepSettings& settings) {
    constexpr std::uint32_t leastFft = 64;
    SweepPlan plan;
    const auto length =
        static_cast<std::int32_t>(windowFactorOf(settings.sweepWindow) * captureRateHz / settings.sweepRBW);
    plan.windowLength = length - length % 2;
    plan.fftSize = static_cast<std::int32_t>(
        std::max(leastFft, std::bit_ceil(static_cast<std::uint32_t>(plan.windowLength))));
    plan.padLength = plan.fftSize - plan.windowLength;
    plan.vbwRatio = std::min(1.0, settings.sweepVBW / settings.sweepRBW);
    plan.fftsPerStep = static_cast<std::uint32_t>(std::ceil(1.0 / plan.vbwRatio));
    const std::int64_t samples = std::int64_t{plan.fftsPerStep - 1} * plan.hop() + plan.windowLength;
    plan.blocksPerStep =
        std::max(1, static_cast<std::int32_t>((samples + samplesPerBlock - 1) / samplesPerBlock));
    return plan;
}

/// Lets a longer sweep time take more blocks at each step, and run more FFTs over them.
void stretchTo(double sweepTime, int steps, SweepPlan& plan) {
    constexpr double secondsPerBlock = samplesPerBlock / captureRateHz;
    constexpr double secondsPerTuning = 2.5e-5;
    constexpr double mostBlocks = 1024;
    const double wanted = std::floor((sweepTime - steps * secondsPerTuning) / secondsPerBlock / steps + 0.5);
    const auto blocks = static_cast<std::int32_t>(std::clamp(wanted, 1.0, mostBlocks));
    if (blocks <= plan.blocksPerStep) return;
    plan.blocksPerStep = blocks;
    plan.fftsPerStep =
        static_cast<std::uint32_t>((blocks * samplesPerBlock - plan.windowLength) / plan.hop() + 1);
}

/// What one capture is tuned and corrected by.
struct Capture {
    int step;
    int band;
    double loHz;
    double ncoHz;
    int gainIndex;    ///< frequency index of gain and gain code
    int loftIndex;    ///< of the LO feed-through
    int filterIndex;  ///< of the response filter
    bool useFullGrid;
    bool inverted;
    unsigned firstBin64, lastBin64;
    double settleMicroseconds;
    IdleHighLo idle;
};

/// Appends captures to a sweep, each in a packet of its own.
class CaptureWriter {
  public:
    CaptureWriter(const SweptChannel& swept, int attenuator, PlannedSweep& sweep)
        : swept_(swept), attenuator_(attenuator), sweep_(sweep) {
        list().beginPacket();
        list().append(buildLowLoImage(swept_.synthesizers, swept_.channel));
        appendPause(words::pause(words::pauseTicks(1000.0)));
    }

    int previousBand() const { return previousBand_; }

    void append(const Capture& capture) {
        list().beginPacket();
        appendTuning(capture);
        const auto& [plan, result, commands] = sweep_;
        list().append(words::captureAndSend(static_cast<std::uint32_t>(plan.blocksPerStep)));
        appendPause(words::capturePause(1000));
        list().expectData(static_cast<std::uint32_t>(plan.blocksPerStep));
        previousBand_ = capture.band;
    }

    void finish() {
        list().append(words::statusRequest);
        list().expectStatus(1);
        sweep_.plan.stepCount = static_cast<std::int32_t>(sweep_.plan.steps.size());
    }

  private:
    CommandList& list() { return sweep_.commands; }

    void appendPause(words::Word pause) { list().append({pause, words::noOperation, words::noOperation}); }

    void appendTuning(const Capture& capture) {
        const auto& [synthesizers, corrections, channel] = swept_;
        const SweepStep& step = addStep(capture);
        appendRegisterBlock(list(), tapBlockAddress(channel), tapBlock(step.taps));

        constexpr int dbPerAttenuatorStep = 5;
        const LoftPair loft = lookupLoft(corrections, channel, capture.loftIndex);
        list().append(buildFrontEndImage({.channel = channel,
                                          .band = capture.band,
                                          .attenuatorDb = dbPerAttenuatorStep * attenuator_,
                                          .gainCode = lookupGainCode(corrections, channel, capture.gainIndex),
                                          .loftI = loft.i,
                                          .loftQ = loft.q}));
        if (!isHighBand(previousBand_) && isHighBand(capture.band)) {
            list().append(buildHighLoImage(channel));
            appendPause(words::pause(words::pauseTicks(100.0)));
        }
        list().append(
            retuneChannelLo(synthesizers, channel, capture.band, capture.loHz, false, capture.idle));
        list().append(words::applyPeripherals);
        appendPause(words::pause(words::pauseTicks(capture.settleMicroseconds)));
        appendNco(list(), channel, capture.ncoHz);
        appendInputSelect(list(), false, channel, capture.band);
    }

    const SweepStep& addStep(const Capture& capture) {
        const auto& [synthesizers, corrections, channel] = swept_;
        const std::int32_t bins64 = sweep_.plan.fftSize / 64;
        const ResponseFilter filter =
            buildResponseFilter(corrections, capture.useFullGrid, channel, 0.0, capture.filterIndex);
        const float gainDb = lookupGain(corrections, channel, attenuator_, capture.gainIndex);
        return sweep_.plan.steps.emplace_back(
            SweepStep{.step = static_cast<std::uint32_t>(capture.step),
                      .loFrequency = capture.loHz,
                      .gainDb = totalCorrection(gainDb, filter.gainDb),
                      .firstBin = static_cast<std::int32_t>(capture.firstBin64) * bins64,
                      .binCount = static_cast<std::int32_t>(capture.lastBin64 - capture.firstBin64) * bins64,
                      .inverted = capture.inverted,
                      .taps = filter.taps});
    }

    SweptChannel swept_;
    int attenuator_;
    PlannedSweep& sweep_;
    int previousBand_ = -1;
};

Capture splicedCapture(const LowStepSplice& row, int previousBand, IdleHighLo idle) {
    const int band = bandForFrequency(static_cast<float>(row.bandFrequency));
    return {.step = static_cast<int>(row.step),
            .band = band,
            .loHz = row.loFrequency,
            .ncoHz = row.loFrequency - row.centerFrequency,
            .gainIndex = row.inverted ? 1 : row.calIndex,
            .loftIndex = row.calIndex,
            .filterIndex = row.inverted ? 0 : row.calIndex,
            .useFullGrid = isHighBand(band),
            .inverted = row.inverted,
            .firstBin64 = row.firstBin64,
            .lastBin64 = row.lastBin64,
            .settleMicroseconds = band == previousBand ? sameBandMicroseconds : bandChangeMicroseconds,
            .idle = idle};
}

Capture plainCapture(int step, int previousBand, bool crossesPaths) {
    const int band = bandOfStep(step);
    double settleMicroseconds = bandChangeMicroseconds;
    if (band == previousBand) {
        settleMicroseconds = sameBandMicroseconds;
    } else if (previousBand == -1 && crossesPaths) {
        settleMicroseconds = pathCrossingMicroseconds;
    }
    return {.step = step,
            .band = band,
            .loHz = step * gridSpacingHz,
            .ncoHz = ifOffsetHz,
            .gainIndex = step,
            .loftIndex = step,
            .filterIndex = step,
            .useFullGrid = false,
            .inverted = false,
            .firstBin64 = firstUsedBin64,
            .lastBin64 = lastUsedBin64,
            .settleMicroseconds = settleMicroseconds,
            .idle = IdleHighLo::off};
}

/// Writes the packets of all captures.
void appendCaptures(const StepRange& range, CaptureWriter& writer) {
    // A sweep that goes on beyond 5.47 GHz keeps `highLo` running while it passes the spliced steps.
    constexpr int lastStepOfLowSweep = 140;
    const IdleHighLo idle = range.last > lastStepOfLowSweep ? IdleHighLo::parked : IdleHighLo::off;
    const bool crossesPaths = !isHighBand(bandOfStep(range.first)) && isHighBand(bandOfStep(range.last));

    int step = range.first;
    for (; step <= range.last && !rowsForStep(step).empty(); ++step) {
        for (const LowStepSplice& row : rowsForStep(step))
            writer.append(splicedCapture(row, writer.previousBand(), idle));
    }
    for (; step <= range.last; ++step) writer.append(plainCapture(step, writer.previousBand(), crossesPaths));
}

}  // namespace

PlannedSweep planSweep(const SweepSettings& settings, const SweptChannel& swept) {
    const double start = settings.sweepCenter - settings.sweepSpan / 2;
    const double stop = settings.sweepCenter + settings.sweepSpan / 2;
    const StepRange range = stepsBetween(start, stop);

    PlannedSweep sweep;
    SweepPlan& plan = sweep.plan;
    plan = planSizes(settings);
    stretchTo(settings.sweepTime, range.count(), plan);

    const double binSize = captureRateHz / plan.fftSize;
    const double windowFactor = windowFactorOf(settings.sweepWindow);
    plan.firstBin = static_cast<std::int32_t>((start - (centreOf(range.first) - halfStepHz)) / binSize);
    sweep.result = {.actualRBW = windowFactor * captureRateHz / plan.windowLength,
                    .actualVBW = settings.sweepVBW,
                    .points = static_cast<std::int32_t>(settings.sweepSpan / binSize + 2.0),
                    .startFreq = start,
                    .binSize = binSize,
                    .windowFactor = windowFactor};

    const int attenuator = attenuatorIndexFor(settings.sweepRefLevel, static_cast<int>(settings.sweepAtten));
    CaptureWriter writer(swept, attenuator, sweep);
    appendCaptures(range, writer);
    writer.finish();
    return sweep;
}

}  // namespace hxr
