#include "sim/faults.h"

#include <algorithm>

namespace hxr::sim {
namespace {

bool matches(const ReplyMatch& match, ReplyKind kind, std::optional<std::uint16_t> page) {
    if (match.kind != ReplyKind::any && match.kind != kind) return false;
    return !match.page || match.page == page;
}

void addTo(ReplyFault& sum, const ReplyFault& fault) {
    sum.lost |= fault.lost;
    if (fault.length) sum.length = fault.length;
    if (fault.magic) sum.magic = fault.magic;
    sum.corruptions.insert(sum.corruptions.end(), fault.corruptions.begin(), fault.corruptions.end());
    sum.delay += fault.delay;
    sum.copies = std::max(sum.copies, fault.copies);
    sum.swappedWithNext |= fault.swappedWithNext;
    if (fault.sentFrom) sum.sentFrom = fault.sentFrom;
}

}  // namespace

ReplyFault ReplyFault::lose() {
    ReplyFault fault;
    fault.lost = true;
    return fault;
}

ReplyFault ReplyFault::setLength(std::size_t bytes) {
    ReplyFault fault;
    fault.length = bytes;
    return fault;
}

ReplyFault ReplyFault::setMagic(std::uint32_t value) {
    ReplyFault fault;
    fault.magic = value;
    return fault;
}

ReplyFault ReplyFault::corrupt(std::size_t offset, std::uint8_t flippedBits) {
    ReplyFault fault;
    fault.corruptions.push_back({offset, flippedBits});
    return fault;
}

ReplyFault ReplyFault::delayBy(std::chrono::milliseconds time) {
    ReplyFault fault;
    fault.delay = time;
    return fault;
}

ReplyFault ReplyFault::duplicate(std::size_t copies) {
    ReplyFault fault;
    fault.copies = copies;
    return fault;
}

ReplyFault ReplyFault::swapWithNext() {
    ReplyFault fault;
    fault.swappedWithNext = true;
    return fault;
}

ReplyFault ReplyFault::sendFrom(Endpoint source) {
    ReplyFault fault;
    fault.sentFrom = source;
    return fault;
}

void FaultPlan::add(const ReplyMatch& match, const ReplyFault& fault) {
    if (match.times == 0) return;
    const std::lock_guard lock(mutex_);
    rules_.push_back({match, fault});
}

void FaultPlan::clear() {
    const std::lock_guard lock(mutex_);
    rules_.clear();
}

std::size_t FaultPlan::hits() const {
    const std::lock_guard lock(mutex_);
    return hits_;
}

void FaultPlan::silenceAfterDatagrams(std::size_t count) {
    const std::lock_guard lock(mutex_);
    datagramsLeft_ = count;
}

void FaultPlan::silenceAfterReplies(std::size_t count) {
    const std::lock_guard lock(mutex_);
    repliesLeft_ = count;
}

void FaultPlan::revive() {
    const std::lock_guard lock(mutex_);
    datagramsLeft_.reset();
    repliesLeft_.reset();
}

bool FaultPlan::silent() const {
    const std::lock_guard lock(mutex_);
    return datagramsLeft_ == 0u || repliesLeft_ == 0u;
}

bool FaultPlan::none() const {
    const std::lock_guard lock(mutex_);
    return rules_.empty() && !datagramsLeft_ && !repliesLeft_;
}

bool FaultPlan::takeDatagram() {
    const std::lock_guard lock(mutex_);
    if (datagramsLeft_ == 0u || repliesLeft_ == 0u) return false;
    if (datagramsLeft_) --*datagramsLeft_;
    return true;
}

ReplyFault FaultPlan::takeReply(ReplyKind kind, std::optional<std::uint16_t> page) {
    const std::lock_guard lock(mutex_);
    ReplyFault sum;
    if (repliesLeft_ == 0u) return ReplyFault::lose();
    if (repliesLeft_) --*repliesLeft_;

    bool hit = false;
    for (Rule& rule : rules_) {
        if (!matches(rule.match, kind, page)) continue;
        if (rule.match.skip > 0) {
            --rule.match.skip;
            continue;
        }
        addTo(sum, rule.fault);
        hit = true;
        if (rule.match.times != ReplyMatch::always) --rule.match.times;
    }
    std::erase_if(rules_, [](const Rule& rule) { return rule.match.times == 0; });
    if (hit) ++hits_;
    return sum;
}

}  // namespace hxr::sim
