#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "link/command_list.h"
#include "link/device_interface.h"
#include "platform/thread.h"

namespace hxr {

/// A queue of a fixed size, without memory of its own to ask for.
template <typename Value, std::size_t capacity>
class FixedQueue {
  public:
    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    Value& front() { return values_[first_]; }
    const Value& front() const { return values_[first_]; }
    Value& operator[](std::size_t position) { return values_[(first_ + position) % capacity]; }
    void push(const Value& value) { values_[(first_ + count_++) % capacity] = value; }
    void pop() {
        first_ = (first_ + 1) % capacity;
        --count_;
    }
    void dropLast() { --count_; }

  private:
    std::array<Value, capacity> values_{};
    std::size_t first_ = 0, count_ = 0;
};

/// Keeps a unit busy with prepared packets: sends several ahead and takes in the datagrams that they cause.
///
/// The unit's control endpoint keeps a datagram only if a receive was posted before it came, so a packet goes out only
/// after all of its replies have one. While packets are out the endpoint belongs to the pipeline's thread.
class PacketPipeline {
  public:
    /// Takes a batch of replies, in the order in which they were caused, on the pipeline's thread. `received` holds
    /// `count` datagrams; of those that a lost link has swallowed the length is 0.
    using Consume = std::function<void(const ReceiveResult& received, int count)>;

    /// @param link  outlives the pipeline
    /// @throws std::bad_alloc, std::system_error
    PacketPipeline(DeviceInterface& link, Consume consume);
    ~PacketPipeline() { stop(); }
    PacketPipeline(const PacketPipeline&) = delete;
    PacketPipeline& operator=(const PacketPipeline&) = delete;

    /// Queues all packets of a list, which stays in place until their replies have been consumed.
    /// @param control  the claimed control endpoint of the link; the claim lasts until then or until `stop` returns
    /// @throws std::bad_alloc, with nothing queued
    void enqueue(const CommandList& commands, UDPDevice& control);

    /// Drops what has not gone out, receives and throws away what is still due, and ends the thread: the link is in
    /// order for whoever comes next. The consumer must not wait any more.
    void stop();

  private:
    static constexpr int slots = 16;  ///< of the endpoint, used in turn
    static constexpr std::size_t mostOutstanding = 16;
    static constexpr std::uint32_t postSize = 128;
    static constexpr std::size_t postsAhead = 10;

    /// A packet on its way out.
    struct Packet {
        const std::uint32_t* words = nullptr;
        std::uint32_t replies = 0;
        std::uint32_t unposted = 0;  ///< replies that no receive is posted for
    };

    /// Positions of the endpoint's slots, each with its own turn.
    struct Slots {
        int post = 0, collect = 0, send = 0, wait = 0;
    };
    static int taken(int& slot) {
        const int turn = slot;
        slot = (slot + 1) % slots;
        return turn;
    }

    void run();
    bool waitForWork();
    bool queueIsEmpty() const { return nextQueued_ == sendQueue_.size(); }
    bool takePackets();
    void postReceives(std::uint32_t count);
    void sendPosted();
    bool oldestBatchIsDue() const;
    void collect();
    void retireAnswered(std::uint32_t replies);
    void withdrawUnsent();
    void drain();

    UDPDevice& endpoint() { return *endpoint_; }

    DeviceInterface& link_;
    Consume consume_;

    std::mutex queueLock_;  ///< guards the next five
    std::condition_variable wake_;
    std::vector<Packet> sendQueue_;
    std::size_t nextQueued_ = 0;  ///< of the queue, the first that isn't taken
    bool running_ = true;
    UDPDevice* endpoint_ = nullptr;  ///< changes only while the thread has nothing to do

    // The thread's own.
    FixedQueue<Packet, mostOutstanding> unsent_;  ///< taken from the queue
    FixedQueue<std::uint32_t, mostOutstanding>
        answers_;                               ///< replies still missing of each packet that is out
    FixedQueue<std::uint32_t, slots> batches_;  ///< receives of each post that isn't collected
    std::uint64_t due_ = 0;                     ///< replies still missing of all packets that are out
    std::uint64_t unposted_ = 0;                ///< of all packets taken
    Slots slots_;

    platform::Thread thread_;
};

}  // namespace hxr
