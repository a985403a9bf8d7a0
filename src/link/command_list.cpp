#include "link/command_list.h"

#include <algorithm>

#include "link/udp_device.h"

namespace hxr {

void CommandList::beginPacket() {
    writeIndex_ = static_cast<std::int32_t>(words_.size());
    words_.resize(words_.size() + wordsPerPacket);
    dataReplies_.push_back(0);
    statusReplies_.push_back(0);
}

void CommandList::clear() {
    words_.clear();
    dataReplies_.clear();
    statusReplies_.clear();
    writeIndex_ = 0;
}

void CommandList::append(std::span<const std::uint32_t> run) {
    const auto position = static_cast<std::size_t>(writeIndex_);
    if (run.size() > words_.size() - position) return;
    std::copy(run.begin(), run.end(), words_.begin() + writeIndex_);
    writeIndex_ += static_cast<std::int32_t>(run.size());
}

std::span<const std::uint32_t> CommandList::packet(std::size_t position) const {
    return std::span(words_).subspan(position * wordsPerPacket, wordsPerPacket);
}

CommandList singlePacket(std::span<const std::uint32_t> words) {
    CommandList list;
    list.beginPacket();
    list.append(words);
    return list;
}

}  // namespace hxr
