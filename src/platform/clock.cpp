#include "platform/clock.h"

#include <thread>

namespace hxr::platform {
namespace {

class SystemClock final : public Clock {
  public:
    std::uint64_t monotonicMs() const override {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    }

    std::int64_t utcSeconds() const override {
        const auto now = std::chrono::system_clock::now();
        return std::chrono::floor<std::chrono::seconds>(now).time_since_epoch().count();
    }

    void sleep(std::chrono::milliseconds pause) override { std::this_thread::sleep_for(pause); }

    std::chrono::milliseconds timeout(std::chrono::milliseconds nominal) const override { return nominal; }
};

constexpr std::int64_t secondsPerDay = 86400;

}  // namespace

Clock& systemClock() {
    static SystemClock clock;
    return clock;
}

std::int64_t secondsSince1970(const UtcTime& time) {
    // Months are brought into 1 to 12 first: the calendar takes days beyond a month's end as they come.
    const int monthsFromZero = time.month - 1;
    const int carriedYears = monthsFromZero >= 0 ? monthsFromZero / 12 : (monthsFromZero - 11) / 12;
    const std::chrono::year_month_day firstOfMonth{
        std::chrono::year{time.year + carriedYears},
        std::chrono::month{static_cast<unsigned>(monthsFromZero - 12 * carriedYears + 1)},
        std::chrono::day{1}};
    const std::int64_t days = std::chrono::sys_days{firstOfMonth}.time_since_epoch().count() + time.day - 1;
    return days * secondsPerDay + time.hour * 3600 + time.minute * 60 + time.second;
}

std::int64_t startOfDay(std::int64_t seconds) {
    const std::int64_t intoDay = ((seconds % secondsPerDay) + secondsPerDay) % secondsPerDay;
    return seconds - intoDay;
}

}  // namespace hxr::platform
