/// What the pipeline of a sweep asks of the control endpoint, against one that answers as a unit does.

#include "sweep/packet_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <deque>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_folder.h"
#include "support/test_clock.h"

namespace hxr {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t noLimit = std::numeric_limits<std::size_t>::max();
constexpr std::uint32_t replyBytes = 8216;

/// A control endpoint whose unit answers a packet with as many datagrams as its first word says, each with its number
/// in it. As on the wire, a datagram that no receive is posted for is gone.
class AnsweringEndpoint final : public UDPDevice {
  public:
    bool isOpen() const override { return true; }
    bool open(const char*, const char*, std::uint16_t, std::uint16_t) override { return true; }
    bool close() override { return true; }
    std::string localAddress() const override { return {}; }
    std::string remoteAddress() const override { return {}; }
    std::uint16_t localPort() const override { return 0; }
    std::uint16_t remotePort() const override { return 0; }

    void send(int slot, const std::uint32_t* words) override {
        const std::lock_guard lock(mutex_);
        calls_.push_back("send");
        breaks_ += std::exchange(sends_[at(slot)], true) ? 1 : 0;
        if (lost_) return;
        ends_.push_back(caused_ += words[0]);
        const auto unanswered =
            std::ranges::count_if(ends_, [this](std::size_t end) { return end > taken_; });
        mostOut_ = std::max<std::size_t>(mostOut_, static_cast<std::size_t>(unanswered));
        answer();
    }

    std::size_t waitSend(int slot) override {
        const std::lock_guard lock(mutex_);
        breaks_ += std::exchange(sends_[at(slot)], false) ? 0 : 1;
        return lost_ ? 0 : sendBytes;
    }

    void postReceives(int slot, int count, unsigned) override {
        const std::lock_guard lock(mutex_);
        calls_.push_back("post " + std::to_string(count));
        Slot& posted = slots_[at(slot)];
        breaks_ += posted.posted != 0 ? 1 : 0;
        posted.posted = posted.result.count = count;
        std::fill_n(posted.result.lengths.begin(), count, 0U);
        posted.buffers.resize(at(count));
        for (std::size_t i = 0; i < at(count); ++i) posted.result.buffers[i] = posted.buffers[i].data();
        order_.push_back(slot);
        answer();
    }

    ReceiveResult* collectReceives(int number) override {
        std::unique_lock lock(mutex_);
        Slot& slot = slots_[at(number)];
        // Who waits for more than the packets that are out will cause waits until the link is lost.
        changed_.wait(lock, [&] { return lost_ || slot.arrived == slot.posted || arrived_ == caused_; });
        lost_ = lost_ || slot.arrived < slot.posted;
        slot.result.timedOut = slot.arrived < slot.posted;
        taken_ += at(slot.arrived);
        slot.posted = slot.arrived = 0;
        std::erase(order_, number);
        return &slot.result;
    }

    void discardArrived() override {}
    int withdrawReceives(int number) override {
        const std::lock_guard lock(mutex_);
        Slot& slot = slots_[at(number)];
        const int withdrawn = slot.posted - slot.arrived;
        slot.posted = slot.result.count = slot.arrived;
        std::erase(order_, number);
        return withdrawn;
    }

    bool lost() const override { return false; }

    /// So many answers may have come; what else there is comes when more may.
    void allow(std::size_t answers) {
        const std::lock_guard lock(mutex_);
        allowed_ = answers;
        answer();
    }

    /// The unit dies behind so many answers.
    void dieBehind(std::size_t answers) {
        const std::lock_guard lock(mutex_);
        last_ = answers;
    }

    std::vector<std::string> calls() const {
        const std::lock_guard lock(mutex_);
        return calls_;
    }
    std::size_t mostOut() const {
        const std::lock_guard lock(mutex_);
        return mostOut_;
    }

    /// Whether every answer has found a receive, and slots were used by the rules.
    bool inOrder() const {
        const std::lock_guard lock(mutex_);
        return gone_ == 0 && breaks_ == 0;
    }

    /// Whether no receive is open, no send unwaited and no answer still to come: others may have the endpoint.
    bool atRest() const {
        const std::lock_guard lock(mutex_);
        return std::ranges::all_of(slots_, [](const Slot& slot) { return slot.posted == 0; }) &&
               std::ranges::none_of(sends_, [](bool pending) { return pending; }) && arrived_ == caused_;
    }

  private:
    struct Slot {
        int posted = 0, arrived = 0;
        ReceiveResult result;
        std::vector<std::array<std::byte, sizeof(std::uint32_t)>> buffers;
    };

    static std::size_t at(int position) { return static_cast<std::size_t>(position); }

    void answer() {
        for (; !lost_ && arrived_ < std::min(caused_, allowed_); ++arrived_) {
            lost_ = arrived_ == last_;
            const auto open = std::ranges::find_if(order_, [this](int number) {
                return slots_[at(number)].arrived < slots_[at(number)].posted;
            });
            if (lost_) break;
            if (open == order_.end()) {
                ++gone_;
                continue;
            }
            Slot& slot = slots_[at(*open)];
            const auto number = static_cast<std::uint32_t>(arrived_);
            std::memcpy(slot.buffers[at(slot.arrived)].data(), &number, sizeof number);
            slot.result.lengths[at(slot.arrived++)] = replyBytes;
        }
        changed_.notify_all();
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::array<Slot, slotCount> slots_;
    std::array<bool, slotCount> sends_{};
    std::vector<int> order_;         ///< slots by the order of their posts
    std::vector<std::size_t> ends_;  ///< answers up to the last of each packet
    std::vector<std::string> calls_;
    std::size_t caused_ = 0, arrived_ = 0, taken_ = 0, gone_ = 0, mostOut_ = 0;
    std::size_t allowed_ = noLimit, last_ = noLimit;
    int breaks_ = 0;
    bool lost_ = false;
};

/// A list with a packet for each number of blocks; the last one asks for the status too.
CommandList listOf(const std::vector<std::uint32_t>& blocks) {
    CommandList list;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::uint32_t status = i + 1 == blocks.size() ? 1 : 0;
        list.beginPacket();
        list.append(blocks[i] + status);
        list.expectData(blocks[i]);
        list.expectStatus(status);
    }
    return list;
}

std::size_t repliesOf(const std::vector<std::uint32_t>& blocks) {
    return std::accumulate(blocks.begin(), blocks.end(), std::size_t{1});
}

/// A pipeline on a link of its own, and a consumer that looks at what it gets.
class Flow {
  public:
    Flow() { run(); }
    ~Flow() { letGo(); }
    Flow(const Flow&) = delete;
    Flow& operator=(const Flow&) = delete;

    /// Lists stay in place until the pipeline is stopped.
    void enqueue(const std::vector<std::uint32_t>& blocks) {
        if (!control_) control_ = link.claimControl(EndpointOwner::sweep);
        pipeline_->enqueue(lists_.emplace_back(listOf(blocks)), *control_);
    }
    void stop() { pipeline_->stop(); }
    void run() {
        pipeline_ = std::make_unique<PacketPipeline>(
            link, [this](const ReceiveResult& received, int count) { take(received, count); });
    }

    void waitFor(std::size_t replies) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return consumed >= replies; });
    }

    /// The consumer keeps its next batch until `letGo`.
    void hold() {
        const std::lock_guard lock(mutex_);
        held_ = true;
    }
    void letGo() {
        const std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }

  private:
    test::TestClock clock_;
    test::TemporaryFolder folder_;

  public:
    AnsweringEndpoint* endpoint = new AnsweringEndpoint;  // NOLINT: owned by the link
    DeviceInterface link{std::unique_ptr<UDPDevice>(endpoint), std::make_unique<AnsweringEndpoint>(),
                         CalFolder(folder_.path(), folder_.path()), clock_};
    // Of the consumer's; to be read when the pipeline is stopped.
    std::vector<int> batches;
    std::size_t consumed = 0, missing = 0, outOfOrder = 0;

  private:
    void take(const ReceiveResult& received, int count) {
        std::unique_lock lock(mutex_);
        batches.push_back(count);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i, ++consumed) {
            std::uint32_t number = 0;
            std::memcpy(&number, received.buffers[i], sizeof number);
            if (received.lengths[i] == 0) {
                ++missing;
            } else if (number != consumed) {
                ++outOfOrder;
            }
        }
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;
    std::deque<CommandList> lists_;
    ControlClaim control_;
    std::unique_ptr<PacketPipeline> pipeline_;
};

TEST(PacketPipeline, PacketGoesOutOnceAllItsRepliesHaveAReceive) {
    struct Case {
        const char* what;
        std::vector<std::uint32_t> blocks;
        std::vector<std::string> calls;
        std::vector<int> batches;
    };
    const Case cases[] = {
        {"one block and the status", {1}, {"post 2", "send"}, {2}},
        {"a packet without replies first", {0, 5}, {"post 6", "send", "send"}, {6}},
        {"a post that fills", {127}, {"post 128", "send"}, {128}},
        {"one more", {128}, {"post 128", "post 1", "send"}, {128, 1}},
        {"many posts", {300}, {"post 128", "post 128", "post 45", "send"}, {128, 128, 45}},
        {"two packets' replies and the status in a post",
         {28, 100, 27},
         {"post 128", "send", "send", "post 28", "send"},
         {128, 28}},
        {"a packet that begins in the other's last post",
         {200, 200},
         {"post 128", "post 128", "send", "post 128", "post 17", "send"},
         {128, 128, 128, 17}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Flow flow;
        flow.enqueue(c.blocks);
        flow.waitFor(repliesOf(c.blocks));
        flow.stop();
        EXPECT_EQ(flow.endpoint->calls(), c.calls);
        EXPECT_EQ(flow.batches, c.batches);
        EXPECT_EQ(flow.outOfOrder + flow.missing, 0);
        EXPECT_TRUE(flow.endpoint->inOrder() && flow.endpoint->atRest());
    }
}

TEST(PacketPipeline, SixteenPacketsAtMostAreOutAndEveryReplyComesInOrder) {
    constexpr std::size_t mostPackets = 16;
    struct Case {
        const char* what;
        std::vector<std::uint32_t> blocks;
    };
    const Case cases[] = {
        {"a whole sweep of single blocks", std::vector<std::uint32_t>(519, 1)},
        {"of ten", std::vector<std::uint32_t>(513, 10)},
        {"of a post and one", std::vector<std::uint32_t>(40, 129)},
        {"of the most blocks", std::vector<std::uint32_t>(5, 1180)},
        {"mixed", {1, 900, 3, 127, 128, 129, 1, 1, 1180, 256, 5, 0, 77, 1000, 2, 2, 2, 2, 2, 2, 2, 2}},
    };
    constexpr std::size_t sweeps = 3;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Flow flow;
        std::size_t replies = 0;
        // The last two are queued one behind the other.
        for (std::size_t sweep = 0; sweep < sweeps; ++sweep) {
            flow.enqueue(c.blocks);
            replies += repliesOf(c.blocks);
            if (sweep == 0) flow.waitFor(replies);
        }
        flow.waitFor(replies);
        flow.stop();
        EXPECT_EQ(flow.outOfOrder + flow.missing, 0);
        EXPECT_EQ(flow.consumed, replies);
        EXPECT_LE(flow.endpoint->mostOut(), mostPackets);
        EXPECT_LE(*std::ranges::max_element(flow.batches), 128);
        EXPECT_TRUE(flow.endpoint->inOrder() && flow.endpoint->atRest());
        EXPECT_EQ(flow.link.lastStatus(), hxrNoError);
    }
}

TEST(PacketPipeline, StopReceivesWhatIsDueAndWithdrawsTheRest) {
    // Behind the first batch ten posts are out for two packets of a thousand, and one of these packets.
    struct Case {
        const char* what;
        std::vector<std::uint32_t> blocks;
        std::size_t answeredBefore;  ///< the stop; the others come behind it
    };
    const Case cases[] = {
        {"all answers are in, some in a post of both packets", {1000, 1000}, noLimit},
        {"answers come later", {1000, 1000}, 128},
        {"some come later, into a post of both packets", {1000, 1000}, 950},
        {"single blocks", std::vector<std::uint32_t>(300, 1), 16},
        {"a single packet", {200}, 128},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Flow flow;
        flow.endpoint->allow(c.answeredBefore);
        flow.hold();
        flow.enqueue(c.blocks);
        flow.waitFor(1);
        auto stopped = std::async(std::launch::async, [&] { flow.stop(); });
        // Time for the stop to get going; should it come later there is only less to try.
        stopped.wait_for(20ms);
        flow.letGo();
        stopped.wait_for(20ms);
        flow.endpoint->allow(noLimit);
        stopped.get();
        EXPECT_TRUE(flow.endpoint->inOrder() && flow.endpoint->atRest());
        EXPECT_EQ(flow.outOfOrder + flow.missing, 0);
        EXPECT_EQ(flow.link.lastStatus(), hxrNoError);
    }
}

TEST(PacketPipeline, LostLinkDrainsAndEnds) {
    const std::vector<std::uint32_t> lists[] = {
        std::vector<std::uint32_t>(500, 1), std::vector<std::uint32_t>(50, 10), {1180, 1180, 1180}, {0, 200}};
    for (const auto& blocks : lists) {
        const std::size_t replies = repliesOf(blocks);
        for (const std::size_t answered : {std::size_t{0}, std::size_t{100}, replies / 2, replies - 1}) {
            SCOPED_TRACE(std::to_string(blocks[0]) + " blocks, lost behind " + std::to_string(answered));
            Flow flow;
            flow.endpoint->dieBehind(answered);
            // All is handed over that was asked for, then and afterwards.
            for (std::size_t sweep = 1; sweep <= 2; ++sweep) {
                flow.enqueue(blocks);
                flow.waitFor(sweep * replies);
                EXPECT_EQ(flow.link.lastStatus(), hxrConnectionLostErr);
            }
            flow.stop();
            EXPECT_EQ(flow.consumed, 2 * replies);
            EXPECT_EQ(flow.missing, 2 * replies - answered);
            EXPECT_EQ(flow.outOfOrder, 0);
        }
    }
}

TEST(PacketPipeline, StopOnALinkThatIsLostEnds) {
    Flow flow;
    flow.endpoint->dieBehind(200);
    flow.hold();
    flow.enqueue({1000, 1000});
    flow.waitFor(1);
    auto stopped = std::async(std::launch::async, [&] { flow.stop(); });
    stopped.wait_for(20ms);
    flow.letGo();
    stopped.get();
    EXPECT_EQ(flow.outOfOrder, 0);
}

}  // namespace
}  // namespace hxr
