#include "sim/rule_book.h"

#include <array>
#include <cstdio>
#include <utility>

namespace hxr::sim {

std::string hexText(std::uint32_t word) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", word);
    return text.data();
}

void RuleBook::noteUnknownWord(std::uint32_t word, const std::string& where) {
    const std::lock_guard lock(mutex_);
    ++unknownWords_;
    keep("unknown word " + hexText(word) + " " + where);
}

void RuleBook::noteBrokenRule(const std::string& text) {
    const std::lock_guard lock(mutex_);
    ++brokenRules_;
    keep(text);
}

void RuleBook::keep(std::string line) {
    constexpr std::size_t limit = 1000;
    if (lines_.size() < limit) lines_.push_back(std::move(line));
}

std::size_t RuleBook::unknownWords() const {
    const std::lock_guard lock(mutex_);
    return unknownWords_;
}

std::size_t RuleBook::brokenRules() const {
    const std::lock_guard lock(mutex_);
    return brokenRules_;
}

std::vector<std::string> RuleBook::lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
}

void RuleBook::clear() {
    const std::lock_guard lock(mutex_);
    unknownWords_ = 0;
    brokenRules_ = 0;
    lines_.clear();
}

}  // namespace hxr::sim
