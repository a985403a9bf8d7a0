#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace hxr::sim {

/// Counts what the host does that a unit wouldn't understand or stand. May be read from any thread.
class RuleBook {
  public:
    void noteUnknownWord(std::uint32_t word, const std::string& where);
    void noteBrokenRule(const std::string& text);

    std::size_t unknownWords() const;
    std::size_t brokenRules() const;
    std::vector<std::string> lines() const;
    void clear();

  private:
    void keep(std::string line);

    mutable std::mutex mutex_;
    std::size_t unknownWords_ = 0;
    std::size_t brokenRules_ = 0;
    std::vector<std::string> lines_;
};

/// A word as eight digits behind "0x".
std::string hexText(std::uint32_t word);

}  // namespace hxr::sim
