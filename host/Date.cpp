#include "host/Date.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <ctime>

namespace host {

namespace {

// Past this many seconds the year no longer fits the int of struct tm, and a double no longer
// converts to time_t without overflow.
constexpr double kSecondsLimit = 1e17;

bool toLocal(double totalSeconds, std::tm& parts) {
    if (!(std::fabs(totalSeconds) < kSecondsLimit)) {
        return false;
    }
    auto seconds = static_cast<std::time_t>(std::floor(totalSeconds));
    return localtime_r(&seconds, &parts) != nullptr;
}

// Fields of a date no struct tm can show read as zeros.
std::tm fields(double totalSeconds) {
    std::tm parts{};
    if (!toLocal(totalSeconds, parts)) {
        parts = std::tm{};
    }
    return parts;
}

int clampToInt(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, INT_MIN, INT_MAX));
}

String format(double totalSeconds, const char* pattern) {
    std::tm parts{};
    if (!toLocal(totalSeconds, parts)) {
        return {};
    }
    std::array<char, 64> text{};
    std::size_t size = std::strftime(text.data(), text.size(), pattern, &parts);
    return {std::string_view(text.data(), size)};
}

}  // namespace

Date::Date() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    totalSeconds_ = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::int64_t Date::Year() const {
    return fields(totalSeconds_).tm_year + std::int64_t{1900};
}

std::int64_t Date::Month() const {
    return fields(totalSeconds_).tm_mon + std::int64_t{1};
}

std::int64_t Date::Day() const {
    return fields(totalSeconds_).tm_mday;
}

std::int64_t Date::Hour() const {
    return fields(totalSeconds_).tm_hour;
}

std::int64_t Date::Minute() const {
    return fields(totalSeconds_).tm_min;
}

std::int64_t Date::Second() const {
    return fields(totalSeconds_).tm_sec;
}

// Sets one field (the host's value minus `bias`) and lets mktime carry any overflow into the
// others; a date mktime cannot represent stays as it was.
void Date::setField(int std::tm::*field, std::int64_t value, int bias) {
    std::tm parts{};
    if (!toLocal(totalSeconds_, parts)) {
        return;
    }
    parts.*field = clampToInt(static_cast<std::int64_t>(clampToInt(value)) - bias);
    parts.tm_isdst = -1;
    // mktime's -1 is also a real moment; an untouched tm_wday is the only sure sign of failure.
    parts.tm_wday = -1;
    std::time_t seconds = std::mktime(&parts);
    if (parts.tm_wday == -1) {
        return;
    }
    totalSeconds_ = static_cast<double>(seconds) + (totalSeconds_ - std::floor(totalSeconds_));
}

String Date::LongTime() const {
    return format(totalSeconds_, "%X");
}

String Date::ShortDate() const {
    return format(totalSeconds_, "%x");
}

}  // namespace host
