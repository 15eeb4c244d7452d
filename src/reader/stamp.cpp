#include "reader/stamp.h"

#include <time.h>

namespace korx {
namespace {

constexpr int64_t kDaySeconds = 86400;
constexpr int kTolerated = 3;  // wrong bytes in a damaged stamp

constexpr char kClockShape[] = "-00:00:00.000000]";
constexpr size_t kClockLength = sizeof kClockShape - 1;

// A year before 2000 or after 2099 makes the two-digit year longer: it is printed as the unsigned
// difference to 2000. A board whose clock was never set writes 4294967266 for 1970.
constexpr size_t kMaxYearDigits = 10;

bool IsDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

uint32_t Number(const char* digits, size_t count) {
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value * 10 + static_cast<uint32_t>(digits[i] - '0');
    return value;
}

bool HasShape(const char* text, const char* shape, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (shape[i] == '0' ? !IsDigit(text[i]) : text[i] != shape[i])
            return false;
    }
    return true;
}

bool IsLeap(int32_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

uint32_t DaysIn(int32_t year, uint32_t month) {
    constexpr uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

bool IsTime(const CivilTime& time) {
    return time.month >= 1 && time.month <= 12 && time.day >= 1 &&
           time.day <= DaysIn(time.year, time.month) && time.hour < 24 && time.minute < 60 &&
           time.second <= 60;
}

void ParseClock(const char* text, CivilTime* time) {
    time->hour = Number(text, 2);
    time->minute = Number(text + 3, 2);
    time->second = Number(text + 6, 2);
    time->micros = Number(text + 9, 6);
}

size_t ParseDashed(std::string_view stamp, CivilTime* time) {
    const char* const text = stamp.data();
    if (stamp.size() < kDashedStamp || !HasShape(text, kDashedShape, kDashedStamp))
        return 0;
    time->year = static_cast<int32_t>(Number(text + 1, 4));
    time->month = Number(text + 6, 2);
    time->day = Number(text + 9, 2);
    ParseClock(text + 12, time);
    return IsTime(*time) ? kDashedStamp : 0;
}

// Year, month and day in one run of digits.
size_t ParseRun(size_t min_year_digits, int32_t first_year, std::string_view stamp,
                CivilTime* time) {
    const char* const text = stamp.data();
    const size_t length = stamp.size();
    if (length < 1 || text[0] != '[')
        return 0;
    size_t digits = 0;
    while (1 + digits < length && digits <= kMaxYearDigits + 4 && IsDigit(text[1 + digits]))
        ++digits;
    if (digits < min_year_digits + 4 || digits > kMaxYearDigits + 4)
        return 0;
    const char* const clock = text + 1 + digits;
    if (length - 1 - digits < kClockLength || !HasShape(clock, kClockShape, kClockLength))
        return 0;
    const uint32_t year = Number(text + 1, digits - 4);
    time->year = static_cast<int32_t>(year + static_cast<uint32_t>(first_year));
    time->month = Number(clock - 4, 2);
    time->day = Number(clock - 2, 2);
    ParseClock(clock + 1, time);
    const bool sane = time->year >= 0 && time->year <= 9999 && IsTime(*time);
    return sane ? 1 + digits + kClockLength : 0;
}

// Days since the Epoch, for any year of the common calendar.
int64_t DayNumber(int32_t year, uint32_t month, uint32_t day) {
    const int64_t y = int64_t{year} - (month <= 2 ? 1 : 0);
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t year_of_era = y - era * 400;
    const int64_t shifted = (int64_t{month} + 9) % 12;  // March is 0, so that leap days come last
    const int64_t day_of_year = (153 * shifted + 2) / 5 + int64_t{day} - 1;
    const int64_t day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * 146097 + day_of_era - 719468;
}

int32_t OffsetAt(int64_t seconds) {
    const auto moment = static_cast<time_t>(seconds);
    struct tm local = {};
    return localtime_r(&moment, &local) == nullptr ? 0 : static_cast<int32_t>(local.tm_gmtoff);
}

}  // namespace

size_t ParseStamp(StampStyle style, std::string_view text, CivilTime* time) {
    switch (style) {
        case StampStyle::kDashed:
            return ParseDashed(text, time);
        case StampStyle::kShort:
            return ParseRun(2, 2000, text, time);
        case StampStyle::kCompact:
            return ParseRun(4, 0, text, time);
    }
    return 0;
}

bool ResemblesStamp(StampStyle style, std::string_view text) {
    const auto [shape, wanted] = ShapeOf(style);
    if (text.size() < wanted)
        return false;
    int wrong = 0;
    for (size_t i = 0; i < wanted; ++i) {
        wrong += shape[i] == '0' ? !IsDigit(text[i]) : text[i] != shape[i];
        if (wrong > kTolerated)
            return false;
    }
    return true;
}

bool BeginsStamp(StampStyle style, std::string_view text) {
    const auto [shape, length] = ShapeOf(style);
    return text.size() < length && HasShape(text.data(), shape, text.size());
}

LocalClock::LocalClock() {
    tzset();  // localtime_r does not look for a changed zone by itself
}

void LocalClock::look_up(int64_t day) {
    // Whatever the offset, the local day lies within these two moments.
    day_ = day;
    before_ = OffsetAt((day - 1) * kDaySeconds);
    behind_ = OffsetAt((day + 2) * kDaySeconds);
}

LocalClock::Moment LocalClock::resolve(const CivilTime& time, int64_t after) {
    const int64_t day = DayNumber(time.year, time.month, time.day);
    if (day != day_)
        look_up(day);
    const int64_t seconds =
        day * kDaySeconds + int64_t{time.hour} * 3600 + int64_t{time.minute} * 60 + time.second;
    const auto at = [&](int32_t offset) {
        return Moment{(seconds - offset) * kMicrosPerSecond + int64_t{time.micros}, offset};
    };
    if (before_ == behind_)
        return at(before_);

    const bool old_fits = OffsetAt(seconds - before_) == before_;
    const bool new_fits = OffsetAt(seconds - behind_) == behind_;
    if (old_fits && new_fits)
        return at(before_).micros >= after ? at(before_) : at(behind_);
    return new_fits ? at(behind_) : at(before_);
}

}  // namespace korx
