#include "sim/recording.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "sim/byte_order.h"
#include "sim/decoder.h"

namespace hxr::sim {

std::vector<std::uint32_t> ReceivedPacket::content() const {
    const auto last =
        std::find_if(words.rbegin(), words.rend(), [](std::uint32_t word) { return word != 0; });
    return {words.begin(), last.base()};
}

Recording::Recording(std::size_t packetLimit) : packetLimit_(packetLimit) {}

TrafficCounts Recording::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

std::vector<ReceivedPacket> Recording::select(bool onDataSocket) const {
    const std::lock_guard lock(mutex_);
    std::vector<ReceivedPacket> selected;
    std::copy_if(packets_.begin(), packets_.end(), std::back_inserter(selected),
                 [&](const ReceivedPacket& packet) { return packet.onDataSocket == onDataSocket; });
    return selected;
}

std::vector<ReceivedPacket> Recording::packets() const { return select(false); }

std::vector<ReceivedPacket> Recording::dataPackets() const { return select(true); }

std::vector<std::uint32_t> Recording::words() const {
    std::vector<std::uint32_t> words;
    for (const ReceivedPacket& packet : packets()) {
        std::copy_if(packet.words.begin(), packet.words.end(), std::back_inserter(words),
                     [](std::uint32_t word) { return word != 0; });
    }
    return words;
}

std::vector<Operation> Recording::operations() const {
    std::vector<Operation> operations;
    for (const ReceivedPacket& packet : packets()) {
        PacketDecoder decoder(packet.words);
        while (auto operation = decoder.next()) operations.push_back(std::move(*operation));
    }
    return operations;
}

std::map<std::uint16_t, std::size_t> Recording::pagesServed() const {
    const std::lock_guard lock(mutex_);
    return pages_;
}

template <typename Predicate>
bool Recording::waitUntil(Predicate reached, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return reached(counts_); });
}

bool Recording::waitForPackets(std::size_t count, std::chrono::milliseconds timeout) const {
    return waitUntil([=](const TrafficCounts& counts) { return counts.packetsDone >= count; }, timeout);
}

bool Recording::waitForStatusReplies(std::size_t count, std::chrono::milliseconds timeout) const {
    return waitUntil([=](const TrafficCounts& counts) { return counts.statusReplies >= count; }, timeout);
}

bool Recording::waitForPages(std::size_t count, std::chrono::milliseconds timeout) const {
    return waitUntil([=](const TrafficCounts& counts) { return counts.pageReplies >= count; }, timeout);
}

void Recording::clear() {
    const std::lock_guard lock(mutex_);
    packetCounts_ = false;
    counts_ = {};
    packets_.clear();
    pages_.clear();
}

void Recording::notePacket(std::span<const std::uint8_t> datagram, const Endpoint& sender,
                           bool onDataSocket) {
    ReceivedPacket packet{std::chrono::steady_clock::now(), sender, onDataSocket, datagram.size(), {}};
    packet.words.reserve(datagram.size() / 4);
    for (std::size_t offset = 0; offset + 4 <= datagram.size(); offset += 4) {
        packet.words.push_back(getLittle32(datagram, offset));
    }
    const auto zeros = std::count(packet.words.begin(), packet.words.end(), 0u);

    const std::lock_guard lock(mutex_);
    packetCounts_ = true;
    ++(onDataSocket ? counts_.dataPackets : counts_.packets);
    counts_.words += packet.words.size() - static_cast<std::size_t>(zeros);
    packets_.push_back(std::move(packet));
    if (packets_.size() > packetLimit_) packets_.pop_front();
}

void Recording::notePacketDone() {
    {
        const std::lock_guard lock(mutex_);
        if (packetCounts_) ++counts_.packetsDone;
    }
    changed_.notify_all();
}

void Recording::noteReply(ReplyKind kind, std::uint16_t page) {
    {
        const std::lock_guard lock(mutex_);
        if (kind == ReplyKind::status) ++counts_.statusReplies;
        if (kind == ReplyKind::samples) ++counts_.sampleReplies;
        if (kind == ReplyKind::page) {
            ++counts_.pageReplies;
            ++pages_[page];
        }
    }
    changed_.notify_all();
}

void Recording::noteStreamReplies(std::size_t count) {
    {
        const std::lock_guard lock(mutex_);
        counts_.streamReplies += count;
    }
    changed_.notify_all();
}

void Recording::notePause(std::uint16_t ticks) {
    const std::lock_guard lock(mutex_);
    counts_.pauseTicks += ticks;
}

}  // namespace hxr::sim
