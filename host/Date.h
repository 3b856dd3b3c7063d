#pragma once

#include <cstdint>
#include <ctime>

#include "host/String.h"

namespace host {

// A moment of the wall clock. TotalSeconds counts from the Unix epoch, so differences are
// elapsed seconds; the fields show local time. Writing one field keeps the others and then
// normalises, as the host does: setting Month to 2 on the 31st lands in March.
class Date {
public:
    Date();  // the present moment
    explicit Date(double totalSeconds) : totalSeconds_(totalSeconds) {}

    double TotalSeconds() const { return totalSeconds_; }
    void SetTotalSeconds(double totalSeconds) { totalSeconds_ = totalSeconds; }

    std::int64_t Year() const;
    std::int64_t Month() const;
    std::int64_t Day() const;
    std::int64_t Hour() const;
    std::int64_t Minute() const;
    std::int64_t Second() const;
    void SetYear(std::int64_t value) { setField(&std::tm::tm_year, value, 1900); }
    void SetMonth(std::int64_t value) { setField(&std::tm::tm_mon, value, 1); }
    void SetDay(std::int64_t value) { setField(&std::tm::tm_mday, value, 0); }
    void SetHour(std::int64_t value) { setField(&std::tm::tm_hour, value, 0); }
    void SetMinute(std::int64_t value) { setField(&std::tm::tm_min, value, 0); }
    void SetSecond(std::int64_t value) { setField(&std::tm::tm_sec, value, 0); }

    // The time of day with seconds and the date, in the machine's local form.
    String LongTime() const;
    String ShortDate() const;

private:
    void setField(int std::tm::*field, std::int64_t value, int bias);

    double totalSeconds_;
};

}  // namespace host
