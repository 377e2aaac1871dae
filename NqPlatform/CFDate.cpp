#include "NqPlatform/CFDate.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace
{

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kDaysPer400Years = 146097;

// ---- Days and dates: years begin in March here, so that the leap day is a year's last ------------------------------------

struct TDate
{
    std::int64_t fYear;
    int fMonth;
    int fDay;
};

std::int64_t FloorDivide(std::int64_t a, std::int64_t b)
{
    return a / b - (a % b < 0 ? 1 : 0);
}

// From 1 March of the year 0 to 1 January 2001.
constexpr std::int64_t kEpochDays = 730791;

// Days of a year before its month; month 0 is March. 153 days in five months: 31, 30, 31, 30, 31.
constexpr int DaysBeforeMonth(int month)
{
    return (153 * month + 2) / 5;
}

// Since 1 January 2001; for months 1 to 12 and any day.
std::int64_t DaysOfDate(const TDate& date)
{
    const bool isEarly = date.fMonth < 3;
    const std::int64_t year = date.fYear - (isEarly ? 1 : 0);
    const std::int64_t leapDays = FloorDivide(year, 4) - FloorDivide(year, 100) + FloorDivide(year, 400);
    return year * 365 + leapDays + DaysBeforeMonth(date.fMonth + (isEarly ? 9 : -3)) + date.fDay - 1 - kEpochDays;
}

TDate DateOfDays(std::int64_t days)
{
    const std::int64_t sinceMarch = days + kEpochDays;
    const std::int64_t cycle = FloorDivide(sinceMarch, kDaysPer400Years);
    const int dayOfCycle = static_cast<int>(sinceMarch - cycle * kDaysPer400Years);
    // Without the leap days gone by, every year has 365 days: one in 4 years, but for the last of 100, but for that of
    // 400.
    const int yearOfCycle = (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
    const int dayOfYear = dayOfCycle - (365 * yearOfCycle + yearOfCycle / 4 - yearOfCycle / 100);
    const int month = (5 * dayOfYear + 2) / 153;
    const bool isEarly = month > 9;
    return {cycle * 400 + yearOfCycle + (isEarly ? 1 : 0), month + (isEarly ? -9 : 3),
            dayOfYear - DaysBeforeMonth(month) + 1};
}

// ---- Instants -------------------------------------------------------------------------------------------------------

// An instant in whole seconds and what is left; years stay far inside 32 bits.
struct TInstant
{
    explicit TInstant(CFAbsoluteTime time)
    {
        constexpr double furthest = 6.3e16;
        const double inRange = time != time ? 0 : time < -furthest ? -furthest : time > furthest ? furthest : time;
        const double floor = std::floor(inRange);
        fSeconds = static_cast<std::int64_t>(floor);
        fFraction = inRange - floor;
        fDays = FloorDivide(fSeconds, kSecondsPerDay);
    }

    std::int64_t fSeconds;
    double fFraction;
    std::int64_t fDays;
};

} // namespace

CFAbsoluteTime CFAbsoluteTimeGetCurrent()
{
    const std::chrono::duration<double> since1970 = std::chrono::system_clock::now().time_since_epoch();
    return since1970.count() - kCFAbsoluteTimeIntervalSince1970;
}

CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef)
{
    const std::int64_t month = date.month - 1;
    const std::int64_t year = date.year + FloorDivide(month, 12);
    const std::int64_t days = DaysOfDate({year, static_cast<int>(month - FloorDivide(month, 12) * 12) + 1, date.day});
    const std::int64_t minutes = (days * 24 + date.hour) * 60 + date.minute;
    return static_cast<double>(minutes * 60) + date.second;
}

CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime time, CFTimeZoneRef)
{
    const TInstant instant(time);
    const TDate date = DateOfDays(instant.fDays);
    const int secondOfDay = static_cast<int>(instant.fSeconds - instant.fDays * kSecondsPerDay);
    CFGregorianDate result;
    result.year = static_cast<SInt32>(date.fYear);
    result.month = static_cast<SInt8>(date.fMonth);
    result.day = static_cast<SInt8>(date.fDay);
    result.hour = static_cast<SInt8>(secondOfDay / 3600);
    result.minute = static_cast<SInt8>(secondOfDay / 60 % 60);
    // The sum is rounded, but never up to the next second.
    const int second = secondOfDay % 60;
    result.second = std::min(second + instant.fFraction, std::nextafter(second + 1, 0));
    return result;
}

SInt32 CFAbsoluteTimeGetDayOfWeek(CFAbsoluteTime time, CFTimeZoneRef)
{
    const std::int64_t days = TInstant(time).fDays; // the first was a Monday
    return static_cast<SInt32>(days - FloorDivide(days, 7) * 7) + 1;
}
