#include "sweep/sweep_engine.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

#include "device/health.h"
#include "device/hxr_device.h"
#include "sweep/packet_pipeline.h"
#include "sweep/sample_block.h"
#include "sweep/step_ring.h"
#include "sweep/sweep_fft.h"
#include "sweep/sweep_plan.h"

namespace hxr {

/// A plan with all that runs it.
class SweepEngine::Run {
  public:
    Run(HXRDevice& unit, int channel, const SweepSettings& settings, PlannedSweep planned)
        : unit_(unit),
          channel_(channel),
          plan_(std::move(planned.plan)),
          commands_(std::move(planned.commands)),
          result(planned.result),
          ring_(plan_),
          stepFft_{SweepFft(plan_, settings), SweepFft(plan_, settings)} {
        traceStart_.reserve(plan_.steps.size() + 1);
        traceStart_.push_back(0);
        for (const SweepStep& step : plan_.steps) traceStart_.push_back(traceStart_.back() + step.binCount);

        // The threads come last, so that they find all else made; where one can't be had the others end.
        try {
            for (std::size_t i = 0; i < workers_.size(); ++i) {
                workers_[i] = platform::Thread("Sweep Work Thread", platform::ThreadPriority::normal,
                                               [this, i] { transformSteps(stepFft_[i]); });
            }
            pipeline_ = std::make_unique<PacketPipeline>(
                *unit_.link,
                [this](const ReceiveResult& received, int count) { consumeReplies(received, count); });
        } catch (...) {
            ring_.stop();
            throw;
        }
    }

    ~Run() { stop(); }

    HXRStatus start() {
        ControlClaim control = unit_.link->claimControl(EndpointOwner::sweep);
        if (!control) {
            const bool sweeping = unit_.link->control().owner() == EndpointOwner::sweep;
            return sweeping ? hxrSweepAlreadyStartedErr : hxrInvalidConfigurationErr;
        }
        if (!trace_) trace_ = platform::makeAlignedArray<float>(static_cast<std::size_t>(traceStart_.back()));
        beginRun(*control);
        control_ = std::move(control);
        return hxrNoError;
    }

    HXRStatus finish(float* sweep, InterfaceLock& lock) {
        if (!control_) return hxrSweepNotStartedErr;
        if (std::exchange(finishing_, true)) return hxrInvalidConfigurationErr;
        {
            const Unlocked waiting(lock);
            if (waitForEnd() && sweep != nullptr) copyTrace(sweep);
        }
        finishing_ = false;
        if (!control_) return hxrInvalidConfigurationErr;  // whoever stopped the engine has it
        const HXRStatus status = statusOfRun();
        control_.release();
        return status;
    }

    bool hasControlOf(const HXRDevice& unit) const { return &unit == &unit_ && control_; }

    ControlClaim takeControl() { return std::move(control_); }

    void stop() {
        {
            const std::lock_guard lock(progress_);
            stopped_ = true;
            progressMade_.notify_all();
        }
        ring_.stop();
        if (pipeline_) pipeline_->stop();
        for (platform::Thread& worker : workers_) worker.join();
    }

  private:
    void beginRun(UDPDevice& control);
    bool waitForEnd();
    void consumeReplies(const ReceiveResult& received, int count);
    void transformSteps(SweepFft& fft);
    void copyTrace(float* sweep) const;
    HXRStatus statusOfRun() const;

    HXRDevice& unit_;
    const int channel_;
    const SweepPlan plan_;
    const CommandList commands_;

  public:
    const SweepResult result;

  private:
    StepRing ring_;
    std::array<SweepFft, 2> stepFft_;
    std::vector<std::int64_t> traceStart_;  ///< where each step's bins stand in the trace, and its end
    platform::AlignedArray<float> trace_;   ///< made by the first start
    ControlClaim control_;                  ///< of a sweep that has been started
    bool finishing_ = false;                ///< a thread is in `finish`

    std::mutex progress_;  ///< guards the next four
    std::condition_variable progressMade_;
    std::int64_t dataLeft_ = 0;    ///< datagrams still to come
    std::int64_t statusLeft_ = 0;  ///< status datagrams still to come
    std::int32_t stepsLeft_ = 0;   ///< not yet transformed
    bool stopped_ = false;

    std::array<platform::Thread, 2> workers_;
    std::unique_ptr<PacketPipeline> pipeline_;
};

void SweepEngine::Run::beginRun(UDPDevice& control) {
    const auto sum = [](const std::vector<std::uint32_t>& counts) {
        return std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
    };
    ring_.restart();
    {
        const std::lock_guard lock(progress_);
        dataLeft_ = sum(commands_.dataReplies());
        statusLeft_ = sum(commands_.statusReplies());
        stepsLeft_ = plan_.stepCount;
    }
    pipeline_->enqueue(commands_, control);
}

/// @return false if the engine is stopped before the sweep's end
bool SweepEngine::Run::waitForEnd() {
    std::unique_lock lock(progress_);
    const auto isOver = [this] { return stepsLeft_ == 0 && dataLeft_ == 0 && statusLeft_ == 0; };
    progressMade_.wait(lock, [&] { return stopped_ || isOver(); });
    return isOver();
}

/// Datagrams come in the order in which they were caused: all samples of a sweep, then its status.
void SweepEngine::Run::consumeReplies(const ReceiveResult& received, int count) {
    std::int64_t dataLeft;
    {
        const std::lock_guard lock(progress_);
        dataLeft = dataLeft_;
    }
    const int blocks = static_cast<int>(std::min<std::int64_t>(count, dataLeft));
    if (blocks > 0) {
        if (!ring_.waitForRoom(blocks)) return;
        for (int i = 0; i < blocks; ++i) {
            takeBlock(received, static_cast<std::size_t>(i), &ring_.writePlace()->re);
            ring_.advance();
        }
        ring_.publish(blocks);
    }
    if (blocks < count) {
        const auto last = static_cast<std::size_t>(count - 1);
        const StatusRecord record({received.buffers[last], received.lengths[last]});
        parseStatus(unit_, &record);
    }
    const std::lock_guard lock(progress_);
    dataLeft_ -= blocks;
    statusLeft_ -= count - blocks;
    progressMade_.notify_all();
}

void SweepEngine::Run::transformSteps(SweepFft& fft) {
    while (const auto claim = ring_.claim()) {
        const auto step = static_cast<std::size_t>(claim->step);
        fft.transformStep(plan_.steps[step], claim->samples, trace_.get() + traceStart_[step]);
        ring_.release(*claim);
        const std::lock_guard lock(progress_);
        if (--stepsLeft_ == 0) progressMade_.notify_all();
    }
}

void SweepEngine::Run::copyTrace(float* sweep) const {
    // The last points can lie beyond the last step's edge: they repeat what stands there.
    const std::int64_t end = traceStart_.back();
    const std::int64_t count = std::min<std::int64_t>(result.points, end - plan_.firstBin);
    std::copy_n(trace_.get() + plan_.firstBin, count, sweep);
    std::fill(sweep + count, sweep + result.points, trace_[static_cast<std::size_t>(end - 1)]);
}

HXRStatus SweepEngine::Run::statusOfRun() const {
    const HXRStatus status = statusOfCapture(unit_, channel_);
    if (status != hxrNoError) return status;
    return unit_.lastStatus.copy().tempDrifted ? hxrTempDriftWarning : hxrNoError;
}

SweepEngine::SweepEngine(HXRDevice& unit, int channel, const SweepSettings& settings, PlannedSweep planned)
    : run_(std::make_unique<Run>(unit, channel, settings, std::move(planned))) {}

SweepEngine::~SweepEngine() = default;

const SweepResult& SweepEngine::result() const { return run_->result; }

HXRStatus SweepEngine::start() { return run_->start(); }

HXRStatus SweepEngine::finish(float* sweep, InterfaceLock& lock) { return run_->finish(sweep, lock); }

bool SweepEngine::hasControlOf(const HXRDevice& unit) const { return run_->hasControlOf(unit); }

ControlClaim SweepEngine::takeControl() { return run_->takeControl(); }

void SweepEngine::stop() { run_->stop(); }

}  // namespace hxr
