#include "stream/stream_plan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "cal/correction_lookup.h"
#include "cal/fixed_point.h"
#include "cal/response_filter.h"
#include "device/channel_settings.h"
#include "link/builders.h"
#include "link/device_interface.h"
#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/frequency_grid.h"
#include "rf/front_end.h"
#include "rf/shared_lo.h"

namespace hxr {
namespace {

using words::noOperation;

constexpr int dbPerAttenuatorStep = 5;
/// The part of a rate that a stream can carry.
constexpr double usablePart = 0.8;

constexpr std::uint16_t decimationFilterRegister = 892;
constexpr std::size_t zerosAheadOfTaps = 4;
using FilterBlock = std::array<std::uint32_t, zerosAheadOfTaps + decimationWords>;

void appendPause(CommandList& list, std::uint16_t ticks) {
    list.append({words::pause(ticks), noOperation, noOperation});
}

double hardwareRateOf(const StreamSettings& settings) { return captureRateHz / settings.hardwareDecimation; }

int bandOf(double hz) { return bandForFrequency(static_cast<float>(hz)); }

void appendFilterBlock(CommandList& list, std::span<const std::int32_t, decimationWords> taps) {
    FilterBlock block{};
    std::copy(taps.begin(), taps.end(), block.begin() + zerosAheadOfTaps);
    appendRegisterBlock(list, decimationFilterRegister, block);
}

/// Loads the stored filter for a stream of the full bandwidth, a designed one for a narrower one.
void appendDecimationFilter(CommandList& list, double bandwidthRatio) {
    if (bandwidthRatio >= usablePart) {
        appendFilterBlock(list, defaultDecimationWords);
        return;
    }
    std::array<double, decimationTaps> taps;
    designDecimationTaps(bandwidthRatio, taps);
    uploadDecimationFilter(list, taps);
}

/// How a channel is tuned.
struct Tuning {
    double frequency;  ///< Hz
    double loHz;
    int band;
    int index;    ///< of the calibration tables
    bool shared;  ///< the LO comes from `sharedLo`

    /// What the NCO moves to the middle.
    double ncoHz() const { return (band == directBand ? 0.0 : loHz) - frequency; }
};

Tuning tuningOf(const ChannelSettings& settings, std::size_t channel) {
    const bool shared = settings.channelShared[channel];
    const double frequency = shared ? settings.sharedFreq : settings.channelFreq[channel];
    const double wantedLo = frequency + ifOffsetHz;
    const double fineLo = std::floor(wantedLo / fineGridHz + 0.5) * fineGridHz;
    return {.frequency = frequency,
            .loHz = shared ? wantedLo : fineLo,
            .band = bandOf(frequency),
            .index = frequencyIndexFor(wantedLo),
            .shared = shared};
}

/// Builds the lists of one unit.
class UnitPlanner {
  public:
    UnitPlanner(Settings& settings, const UnitToPlan& unit, int position, int groupSize)
        : settings_(settings),
          unit_(unit),
          position_(position),
          timing_(groupTimingByte(position, groupSize)),
          attenuator_(attenuatorIndexFor(settings.streamRefLevel, static_cast<int>(settings.streamAtten))) {}

    StreamLists plan() {
        list().beginPacket();
        lists_.start.beginPacket();
        appendRateChain();
        appendSharedLo();
        auto channel = static_cast<std::size_t>(position_) * words::channelsPerUnit;
        for (int input = 0; input < words::channelsPerUnit; ++input, ++channel) {
            if (streams(settings_, channel)) appendChannel(input, channel);
        }
        list().append(words::syncStrobe(timing_, words::Strobe::streamConfigured));
        appendPause(list(), 0x0F);
        lists_.start.append(
            words::streamStart(timing_, settings_.localStream ? unit_.port : std::uint16_t{0}));
        return std::move(lists_);
    }

  private:
    CommandList& list() { return lists_.config; }

    void appendRateChain() {
        if (unit_.timeSeed) appendTimeOf(fixOf(*unit_.timeSeed), list());
        lists_.seedsTime = unit_.timeSeed.has_value();
        list().append(words::inputSelect(0));
        list().append(words::chainDelay(settings_.hardwareDecimation));
        appendPause(list(), words::pauseTicks(1000.0));
        const bool local = settings_.localStream;
        const std::int32_t interval = local ? defaultContextInterval : settings_.vrtContextInterval;
        list().append(words::contextPackets(local || settings_.vrtContextEnabled,
                                            static_cast<std::uint16_t>(interval)));
        appendDecimationFilter(list(), settings_.hardwareBandwidth / hardwareRateOf(settings_));
    }

    /// Only the master drives the LO that the group shares.
    void appendSharedLo() {
        list().beginPacket();
        const double hz = settings_.sharedFreq;
        list().append(position_ == 0 ? tuneSharedLo(unit_.synthesizers, bandOf(hz), hz + ifOffsetHz)
                                     : takeSharedLoFromMaster());
    }

    void appendChannel(int input, std::size_t channel) {
        const Tuning tuning = tuningOf(settings_, channel);
        list().beginPacket();
        constexpr int firstIdentifierRegister = 8;
        appendRegister(list(), static_cast<std::uint16_t>(firstIdentifierRegister + input),
                       static_cast<std::uint32_t>(settings_.vrtStreamId[channel]));
        appendTuning(input, tuning);

        const CorrectionState& corrections = unit_.corrections;
        const int filterIndex = tuning.band == directBand ? 0 : tuning.index;
        const ResponseFilter filter = buildResponseFilter(corrections, tuning.shared, input,
                                                          settings_.channelDelay[channel], filterIndex);
        const float correctionDb =
            totalCorrection(lookupGain(corrections, input, attenuator_, tuning.index), filter.gainDb);
        settings_.streamCorrection[channel] = linearFactor(correctionDb);

        double phase = settings_.channelPhaseOffset[channel];
        if (tuning.shared) phase += lookupChannelPhase(corrections, input, tuning.index);
        appendPhase(input, filter.delayPhase + phase);

        list().beginPacket();
        appendRegisterBlock(list(), tapBlockAddress(input), tapBlock(filter.taps));
        appendContextFields(list(), input,
                            {.bandwidth = settings_.hardwareBandwidth,
                             .frequency = settings_.sharedFreq,
                             .referenceLevelDb = correctionDb,
                             .gainDb = static_cast<double>(-dbPerAttenuatorStep * attenuator_),
                             .sampleRate = hardwareRateOf(settings_)});
    }

    void appendTuning(int input, const Tuning& tuning) {
        const CorrectionState& corrections = unit_.corrections;
        const int sharedIndex = frequencyIndexFor(settings_.sharedFreq + ifOffsetHz);
        const LoftPair loft = lookupLoft(corrections, input, sharedIndex);
        if (tuning.shared && isHighBand(tuning.band)) list().append(buildHighLoImage(input));
        list().append(buildFrontEndImage({.channel = input,
                                          .band = tuning.band,
                                          .attenuatorDb = dbPerAttenuatorStep * attenuator_,
                                          .gainCode = lookupGainCode(corrections, input, sharedIndex),
                                          .loftI = loft.i,
                                          .loftQ = loft.q}));
        list().append(retuneChannelLo(unit_.synthesizers, input, tuning.band, tuning.loHz, tuning.shared,
                                      IdleHighLo::off));
        list().append(words::applyPeripherals);
        constexpr std::uint16_t ownTicks = 0x3F, sharedTicks = 0x3E;
        appendPause(list(), tuning.shared ? sharedTicks : ownTicks);
        appendStreamNco(list(), input, tuning.ncoHz(), tuning.shared);
    }

    /// Turns a channel's samples by a phase in radians.
    void appendPhase(int input, double phase) {
        constexpr double fullScale = 32767.0;
        constexpr int firstRegister = 0x308;
        const std::uint32_t sine = fixed16(std::sin(phase) * fullScale),
                            cosine = fixed16(std::cos(phase) * fullScale);
        appendRegisterBlock(list(), static_cast<std::uint16_t>(firstRegister + input),
                            std::array{sine << 16 | cosine});
    }

    Settings& settings_;
    const UnitToPlan& unit_;
    int position_;
    std::uint8_t timing_;
    int attenuator_;
    StreamLists lists_;
};

}  // namespace

std::vector<StreamLists> planStream(Settings& settings, std::span<const UnitToPlan> units) {
    settings.hardwareBandwidth = std::min(settings.hardwareBandwidth, usablePart * hardwareRateOf(settings));
    settings.outputBandwidth =
        std::min(settings.outputBandwidth, usablePart * captureRateHz / settings.decimation);
    std::vector<StreamLists> lists;
    for (const UnitToPlan& unit : units) {
        const auto position = static_cast<int>(lists.size());
        lists.push_back(UnitPlanner(settings, unit, position, static_cast<int>(units.size())).plan());
    }
    return lists;
}

void uploadDecimationFilter(CommandList& list, std::span<const double, decimationTaps> taps) {
    constexpr double unity = 524288.0;
    const double scale = 1.0 / std::accumulate(taps.begin(), taps.end(), 0.0);
    std::array<std::int32_t, decimationWords> counts;
    std::transform(taps.begin(), taps.begin() + decimationWords, counts.begin(),
                   [&](double tap) { return static_cast<std::int32_t>(scale * tap * unity); });
    appendFilterBlock(list, counts);
}

void appendContextFields(CommandList& list, int channel, const ContextFields& fields) {
    constexpr double hertz = 1048576.0;  // 20 bits behind the point
    constexpr float decibel = 128.0F;
    const auto count = [](double hz) {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(hz * hertz));
    };
    const auto high = [](std::uint64_t value) { return static_cast<std::uint32_t>(value >> 32); };
    const auto low = [](std::uint64_t value) { return static_cast<std::uint32_t>(value); };
    const auto level = [](double db) { return fixed16(static_cast<float>(db) * decibel); };

    const std::uint64_t bandwidth = count(fields.bandwidth), frequency = count(fields.frequency),
                        sampleRate = count(fields.sampleRate);
    const auto signExtended =
        static_cast<std::uint32_t>(static_cast<std::int16_t>(level(fields.referenceLevelDb)));
    const std::array block{words::contextFields,
                           high(bandwidth),
                           low(bandwidth),
                           high(frequency),
                           low(frequency),
                           signExtended,
                           std::uint32_t{level(fields.gainDb)},
                           high(sampleRate),
                           low(sampleRate)};
    appendRegisterBlock(
        list,
        static_cast<std::uint16_t>(words::firstContextRegister + words::contextRecordRegisters * channel),
        block);
}

}  // namespace hxr
