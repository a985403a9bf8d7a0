#include "sim/reply_path.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "sim/byte_order.h"
#include "sim/data_datagram.h"

namespace hxr::sim {
namespace {

void damage(std::vector<std::uint8_t>& bytes, const ReplyFault& fault) {
    if (fault.magic && bytes.size() >= sizeof *fault.magic)
        putLittle(bytes, 0, sizeof *fault.magic, *fault.magic);
    for (const ReplyFault::Corruption& corruption : fault.corruptions) {
        if (corruption.offset < bytes.size()) bytes[corruption.offset] ^= corruption.flippedBits;
    }
    if (fault.length) bytes.resize(*fault.length);
}

}  // namespace

ReplyPath::ReplyPath(FaultPlan& faults, RuleBook& rules, bool paced)
    : faults_(faults),
      rules_(rules),
      pacer_(paced ? std::optional(tenGigabitBytesPerSecond) : std::nullopt, 16 * dataDatagramBytes) {}

void ReplyPath::send(Reply reply, UdpSocket& socket) {
    const ReplyFault fault = faults_.takeReply(reply.kind, reply.page);
    if (fault.lost) return;
    damage(reply.bytes, fault);
    UdpSocket* source = fault.sentFrom ? socketAt(*fault.sentFrom) : &socket;
    if (source == nullptr) return;

    Departure departure{std::move(reply), source, fault.copies};
    if (fault.delay > fault.delay.zero()) {
        delayed_.emplace(Clock::now() + fault.delay, std::move(departure));
        return;
    }
    if (fault.swappedWithNext) {
        swapped_.push_back(std::move(departure));
        return;
    }
    depart(departure);
    for (const Departure& waiting : std::exchange(swapped_, {})) depart(waiting);
}

void ReplyPath::send(const DatagramBatch& batch, const Endpoint& to, UdpSocket& socket) {
    if (faults_.none() && swapped_.empty()) {
        pacer_.wait(batch.bytes());
        batch.send(socket, to);
        return;
    }
    for (std::size_t i = 0; i < batch.count(); ++i) {
        const auto bytes = batch.datagram(i);
        send({ReplyKind::stream, std::nullopt, to, {bytes.begin(), bytes.end()}}, socket);
    }
}

void ReplyPath::depart(const Departure& departure) {
    for (std::size_t i = 0; i < departure.copies; ++i) {
        pacer_.wait(departure.reply.bytes.size());
        departure.socket->send(departure.reply.bytes, departure.reply.to);
    }
}

void ReplyPath::sendDue() {
    while (!delayed_.empty() && delayed_.begin()->first <= Clock::now()) {
        depart(delayed_.begin()->second);
        delayed_.erase(delayed_.begin());
    }
}

std::optional<ReplyPath::Clock::time_point> ReplyPath::nextDue() const {
    if (delayed_.empty()) return std::nullopt;
    return delayed_.begin()->first;
}

void ReplyPath::reset() {
    delayed_.clear();
    swapped_.clear();
    otherSockets_.clear();
}

UdpSocket* ReplyPath::socketAt(const Endpoint& source) {
    const auto known = std::find_if(otherSockets_.begin(), otherSockets_.end(),
                                    [&](const auto& entry) { return entry.first == source; });
    if (known != otherSockets_.end()) return &known->second;
    try {
        return &otherSockets_.emplace_back(source, UdpSocket(source)).second;
    } catch (const std::system_error& error) {
        rules_.noteBrokenRule(std::string("a reply that should come from elsewhere was lost: ") +
                              error.what());
        return nullptr;
    }
}

}  // namespace hxr::sim
