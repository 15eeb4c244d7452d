#include "when.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace korx::tool {
namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kLongestAge = int64_t{100000} * 366 * 86400;  // in seconds

// Takes digits from the text; -1 when there are fewer than least or more than most.
int64_t TakeNumber(const char*& text, int least, int most) {
    int64_t value = 0;
    int count = 0;
    while (isdigit(static_cast<unsigned char>(*text)) && count < most) {
        value = value * 10 + (*text++ - '0');
        ++count;
    }
    return count < least ? -1 : value;
}

bool TakeCharacter(const char*& text, char c) {
    if (*text != c)
        return false;
    ++text;
    return true;
}

std::optional<int64_t> TakeFraction(const char*& text) {
    if (!TakeCharacter(text, '.'))
        return 0;
    int64_t value = 0;
    int digits = 0;
    for (; isdigit(static_cast<unsigned char>(*text)); ++text, ++digits)
        if (digits < 6)
            value = value * 10 + (*text - '0');
    if (digits == 0)
        return std::nullopt;
    for (; digits < 6; ++digits)
        value *= 10;
    return value;
}

int DaysOfMonth(int64_t year, int64_t month) {
    const bool is_leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && is_leap ? 1 : 0);
}

bool TakeDate(const char*& text, struct tm* date) {
    const int64_t year = TakeNumber(text, 4, 4);
    if (year < 0 || !TakeCharacter(text, '-'))
        return false;
    const int64_t month = TakeNumber(text, 1, 2);
    if (month < 1 || month > 12 || !TakeCharacter(text, '-'))
        return false;
    const int64_t day = TakeNumber(text, 1, 2);
    if (day < 1 || day > DaysOfMonth(year, month))
        return false;
    date->tm_year = static_cast<int>(year - 1900);
    date->tm_mon = static_cast<int>(month - 1);
    date->tm_mday = static_cast<int>(day);
    return true;
}

bool TakeClock(const char*& text, struct tm* date, int64_t* microseconds) {
    const int64_t hour = TakeNumber(text, 1, 2);
    if (hour < 0 || hour > 23 || !TakeCharacter(text, ':'))
        return false;
    const int64_t minute = TakeNumber(text, 2, 2);
    if (minute < 0 || minute > 59)
        return false;
    int64_t second = 0;
    *microseconds = 0;
    if (TakeCharacter(text, ':')) {
        second = TakeNumber(text, 2, 2);
        const auto fraction = TakeFraction(text);
        if (second < 0 || second > 60 || !fraction)
            return false;
        *microseconds = *fraction;
    }
    date->tm_hour = static_cast<int>(hour);
    date->tm_min = static_cast<int>(minute);
    date->tm_sec = static_cast<int>(second);
    return true;
}

// "Z", "+01:00" or "+0100": seconds east.
bool TakeZone(const char*& text, int64_t* offset) {
    *offset = 0;
    if (TakeCharacter(text, 'Z'))
        return true;
    const int sign = *text == '-' ? -1 : 1;
    if (!TakeCharacter(text, '+') && !TakeCharacter(text, '-'))
        return false;
    const int64_t hours = TakeNumber(text, 2, 2);
    (void) TakeCharacter(text, ':');
    const int64_t minutes = TakeNumber(text, 2, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59)
        return false;
    *offset = sign * (hours * 3600 + minutes * 60);
    return true;
}

struct tm LocalDay(int64_t at_us, int days_back) {
    const time_t seconds = at_us / kSecond;
    struct tm date = {};
    localtime_r(&seconds, &date);
    date.tm_hour = date.tm_min = date.tm_sec = 0;
    date.tm_mday -= days_back;
    return date;
}

// Not by mktime, which takes either moment of a repeated hour as it likes. The offset is one of
// those that hold a day before and a day behind; in an hour that is left out neither is right, and
// both count.
int64_t LocalMoment(struct tm date, Twice twice) {
    constexpr int64_t kDay = 86400;
    const int64_t as_utc = timegm(&date);
    int64_t found[2];
    bool is_right[2];
    for (const int i : {0, 1}) {
        const time_t near = as_utc + (i == 0 ? -kDay : kDay);
        struct tm local = {};
        localtime_r(&near, &local);
        found[i] = as_utc - local.tm_gmtoff;
        const time_t seconds = found[i];
        const long offset = local.tm_gmtoff;
        is_right[i] = localtime_r(&seconds, &local) != nullptr && local.tm_gmtoff == offset;
    }
    if (is_right[0] != is_right[1])
        return is_right[0] ? found[0] : found[1];
    return twice == Twice::kEarlier ? std::min(found[0], found[1]) : std::max(found[0], found[1]);
}

std::optional<int64_t> ParseAge(const char* text, int64_t now_us) {
    (void) TakeCharacter(text, '-');
    int64_t age = 0;
    if (*text == '\0')
        return std::nullopt;
    while (*text != '\0') {
        const int64_t count = TakeNumber(text, 1, 9);
        const char* const units = "smhdw";
        const char* const unit = *text == '\0' ? nullptr : strchr(units, *text);
        if (count < 0 || unit == nullptr)
            return std::nullopt;
        constexpr int64_t kLengths[] = {1, 60, 3600, 86400, 604800};
        age += count * kLengths[unit - units];
        if (age > kLongestAge)
            return std::nullopt;
        ++text;
    }
    return now_us - age * kSecond;
}

std::optional<int64_t> ParseCalendar(const char* text, int64_t now_us, Twice twice) {
    struct tm date = LocalDay(now_us, 0);
    const bool has_date = strchr(text, '-') != nullptr && strchr(text, ':') != text;
    const char* const colon = strchr(text, ':');
    int64_t microseconds = 0;
    int64_t offset = 0;
    if (colon == nullptr || (has_date && strchr(text, '-') < colon)) {
        if (!TakeDate(text, &date))
            return std::nullopt;
        if (*text == '\0')
            return LocalMoment(date, twice) * kSecond;
        if (!TakeCharacter(text, ' ') && !TakeCharacter(text, 'T'))
            return std::nullopt;
    }
    if (!TakeClock(text, &date, &microseconds))
        return std::nullopt;
    if (*text == '\0')
        return LocalMoment(date, twice) * kSecond + microseconds;
    if (!TakeZone(text, &offset) || *text != '\0')
        return std::nullopt;
    return (timegm(&date) - offset) * kSecond + microseconds;
}

}  // namespace

int64_t Microseconds(const timespec& time) {
    return int64_t{time.tv_sec} * kSecond + time.tv_nsec / 1000;
}

int64_t NowMicroseconds() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return Microseconds(now);
}

std::optional<int64_t> ParseWhen(const std::string& text, int64_t now_us, Twice twice) {
    if (text == "now")
        return now_us;
    if (text == "today" || text == "yesterday") {
        return LocalMoment(LocalDay(now_us, text == "today" ? 0 : 1), twice) * kSecond;
    }
    const char* rest = text.c_str();
    if (TakeCharacter(rest, '@')) {
        const int64_t seconds = TakeNumber(rest, 1, 12);
        const auto fraction = TakeFraction(rest);
        if (seconds < 0 || !fraction || *rest != '\0')
            return std::nullopt;
        return seconds * kSecond + *fraction;
    }
    if (const auto age = ParseAge(rest, now_us))
        return age;
    return ParseCalendar(rest, now_us, twice);
}

}  // namespace korx::tool
