#include "sim/fault_text.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace hxr::sim {
namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

/// A number, hexadecimal behind "0x".
template <typename Value>
Value number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x");
    if (hexadecimal) text.remove_prefix(2);
    Value value{};
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || last != end)
        throw std::invalid_argument("not a number: " + std::string(text));
    return value;
}

/// "name" or "name=value".
struct Term {
    std::string_view name;
    std::string_view value;
};

Term termOf(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return {text, {}};
    return {text.substr(0, equals), text.substr(equals + 1)};
}

ReplyMatch matchOf(const Term& term) {
    ReplyMatch match;
    if (term.name == "any")
        match.kind = ReplyKind::any;
    else if (term.name == "status")
        match.kind = ReplyKind::status;
    else if (term.name == "samples")
        match.kind = ReplyKind::samples;
    else if (term.name == "stream")
        match.kind = ReplyKind::stream;
    else if (term.name == "page")
        match.kind = ReplyKind::page;
    else
        throw std::invalid_argument("no kind of reply: " + std::string(term.name));
    if (!term.value.empty()) match.page = number<std::uint16_t>(term.value);
    return match;
}

ReplyFault faultOf(const Term& term) {
    if (term.name == "lose") return ReplyFault::lose();
    if (term.name == "swap") return ReplyFault::swapWithNext();
    if (term.name == "duplicate") return ReplyFault::duplicate();
    if (term.name == "length") return ReplyFault::setLength(number<std::uint16_t>(term.value));
    if (term.name == "magic") return ReplyFault::setMagic(number<std::uint32_t>(term.value));
    if (term.name == "delay")
        return ReplyFault::delayBy(std::chrono::milliseconds(number<std::uint32_t>(term.value)));
    if (term.name == "corrupt") {
        const auto parts = split(term.value, '^');
        if (parts.size() == 2)
            return ReplyFault::corrupt(number<std::size_t>(parts[0]), number<std::uint8_t>(parts[1]));
    }
    if (term.name == "from") {
        const auto parts = split(term.value, '/');
        const std::uint16_t port = parts.size() > 1 ? number<std::uint16_t>(parts[1]) : std::uint16_t{0};
        return ReplyFault::sendFrom(Endpoint::of(std::string(parts[0]), port));
    }
    throw std::invalid_argument("no kind of fault: " + std::string(term.name));
}

void limit(ReplyMatch& match, std::string_view when) {
    if (when == "always") {
        match.times = ReplyMatch::always;
    } else if (when.starts_with('#')) {
        const auto which = number<std::size_t>(when.substr(1));
        if (which == 0) throw std::invalid_argument("replies are counted from #1");
        match.skip = which - 1;
    } else {
        throw std::invalid_argument("neither \"always\" nor a number like #3: " + std::string(when));
    }
}

}  // namespace

const char* const faultTextForm =
    "REPLY:FAULT[:WHEN], or dies-after=DATAGRAMS.\n"
    "REPLY is any, status, page, page=NUMBER, samples or stream.\n"
    "FAULT is lose, swap, duplicate, length=BYTES, magic=WORD, delay=MILLISECONDS, corrupt=OFFSET^BITS or\n"
    "from=ADDRESS[/PORT].\n"
    "WHEN is always, or #3 for the third such reply alone; without it the first one is hit.";

void addFaultFromText(FaultPlan& plan, const std::string& text) {
    const auto parts = split(text, ':');
    const Term first = termOf(parts[0]);
    if (first.name == "dies-after") {
        plan.silenceAfterDatagrams(number<std::size_t>(first.value));
        return;
    }
    if (parts.size() < 2 || parts.size() > 3)
        throw std::invalid_argument("not of the form REPLY:FAULT: " + text);
    ReplyMatch match = matchOf(first);
    if (parts.size() == 3) limit(match, parts[2]);
    plan.add(match, faultOf(termOf(parts[1])));
}

}  // namespace hxr::sim
