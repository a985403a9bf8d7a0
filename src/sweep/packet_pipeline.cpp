#include "sweep/packet_pipeline.h"

#include <algorithm>

namespace hxr {
namespace {

constexpr unsigned replyTimeoutMs = 4000;

}  // namespace

PacketPipeline::PacketPipeline(DeviceInterface& link, Consume consume)
    : link_(link),
      consume_(std::move(consume)),
      thread_("Sweep USB Thread", platform::ThreadPriority::timeCritical, [this] { run(); }) {}

void PacketPipeline::enqueue(const CommandList& commands, UDPDevice& control) {
    const std::lock_guard lock(queueLock_);
    if (queueIsEmpty()) {
        sendQueue_.clear();
        nextQueued_ = 0;
    }
    sendQueue_.reserve(sendQueue_.size() + commands.packetCount());
    for (std::size_t i = 0; i < commands.packetCount(); ++i) {
        const std::uint32_t replies = commands.dataReplies()[i] + commands.statusReplies()[i];
        sendQueue_.push_back({commands.packet(i).data(), replies, replies});
    }
    endpoint_ = &control;
    wake_.notify_one();
}

void PacketPipeline::stop() {
    {
        const std::lock_guard lock(queueLock_);
        running_ = false;
        wake_.notify_one();
    }
    thread_.join();
}

void PacketPipeline::run() {
    while (waitForWork()) {
        const bool allTaken = takePackets();
        const bool full = unsent_.size() + answers_.size() == mostOutstanding;
        if (unposted_ >= postSize || ((full || allTaken) && !unsent_.empty())) {
            postReceives(static_cast<std::uint32_t>(std::min<std::uint64_t>(unposted_, postSize)));
            sendPosted();
        }
        const bool enoughAhead = batches_.size() >= postsAhead || full || (allTaken && unposted_ == 0);
        if (enoughAhead && oldestBatchIsDue()) collect();
    }
    drain();
}

/// @return false once the pipeline is stopped
bool PacketPipeline::waitForWork() {
    std::unique_lock lock(queueLock_);
    if (queueIsEmpty() && batches_.empty() && unsent_.empty()) {
        slots_ = {};
        wake_.wait(lock, [this] { return !queueIsEmpty() || !running_; });
    }
    return running_;
}

/// Takes as many packets as may be out at a time, and as few as keep a full post ahead.
/// @return whether the queue is empty now
bool PacketPipeline::takePackets() {
    const std::lock_guard lock(queueLock_);
    while (!queueIsEmpty() && unsent_.size() + answers_.size() < mostOutstanding && unposted_ < postSize) {
        unsent_.push(sendQueue_[nextQueued_++]);
        unposted_ += unsent_[unsent_.size() - 1].replies;
    }
    return queueIsEmpty();
}

void PacketPipeline::postReceives(std::uint32_t count) {
    if (count > 0) {
        endpoint().postReceives(taken(slots_.post), static_cast<int>(count), replyTimeoutMs);
        batches_.push(count);
        unposted_ -= count;
    }
    for (std::size_t i = 0; i < unsent_.size() && count > 0; ++i) {
        const std::uint32_t covered = std::min(count, unsent_[i].unposted);
        unsent_[i].unposted -= covered;
        count -= covered;
    }
}

/// Sends the packets whose replies all have a receive.
void PacketPipeline::sendPosted() {
    for (; !unsent_.empty() && unsent_.front().unposted == 0; unsent_.pop()) {
        const Packet& packet = unsent_.front();
        endpoint().send(taken(slots_.send), packet.words);
        answers_.push(packet.replies);
        due_ += packet.replies;
    }
    retireAnswered(0);
}

/// Whether all replies of the oldest batch belong to packets that are out: with long captures a batch can begin with
/// the last replies of one and end with the first of the next, which isn't sent before the rest of its receives are
/// posted.
bool PacketPipeline::oldestBatchIsDue() const { return !batches_.empty() && batches_.front() <= due_; }

void PacketPipeline::collect() {
    const std::uint32_t count = batches_.front();
    const ReceiveResult* const received = endpoint().collectReceives(taken(slots_.collect));
    if (received->timedOut) link_.loseLink();
    batches_.pop();
    // First, since the last replies free the endpoint for the next user, who takes the same slots.
    retireAnswered(count);
    consume_(*received, static_cast<int>(count));
}

/// Takes answers off the packets that are out, and lets go of those that are answered whole.
void PacketPipeline::retireAnswered(std::uint32_t replies) {
    due_ -= replies;
    while (!answers_.empty()) {
        const std::uint32_t answered = std::min(replies, answers_.front());
        answers_.front() -= answered;
        replies -= answered;
        if (answers_.front() != 0) return;
        endpoint().waitSend(taken(slots_.wait));
        answers_.pop();
    }
}

/// Withdraws the receives of packets that never went out, the latest posts first. A batch that also has room for the
/// last answers that are due goes with them, and as many as are then missing are posted anew.
void PacketPipeline::withdrawUnsent() {
    std::uint64_t posted = 0;
    for (std::size_t i = 0; i < batches_.size(); ++i) posted += batches_[i];
    while (posted > due_) {
        posted -= batches_[batches_.size() - 1];
        batches_.dropLast();
        slots_.post = (slots_.post + slots - 1) % slots;
        endpoint().withdrawReceives(slots_.post);
        const ReceiveResult* const arrived = endpoint().collectReceives(slots_.post);
        if (arrived->timedOut) return;
        due_ -= static_cast<std::uint64_t>(arrived->count);
    }
    unposted_ = due_ - posted;
    postReceives(static_cast<std::uint32_t>(unposted_));
}

void PacketPipeline::drain() {
    unsent_ = {};
    withdrawUnsent();
    for (; !batches_.empty(); batches_.pop()) {
        if (endpoint().collectReceives(taken(slots_.collect))->timedOut) link_.loseLink();
    }
    for (; !answers_.empty(); answers_.pop()) endpoint().waitSend(taken(slots_.wait));
}

}  // namespace hxr
