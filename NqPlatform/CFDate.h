// Instants and the Gregorian calendar of the CoreFoundation stand-in. The calendar has no beginning and no end: the
// rules of today hold for all years, and the year before 1 is 0. The only time zone is GMT, which a null stands for.
//
//     const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(CFAbsoluteTimeGetCurrent(), nullptr);
//
// Threads: any. Every value is taken: what is not a number is the instant 0, one further away than two thousand million
// years is that far away.

#pragma once

#include <cstdint>

using SInt8 = signed char;
using SInt32 = std::int32_t;
using CFTimeInterval = double;         // seconds
using CFAbsoluteTime = CFTimeInterval; // since 1 January 2001 00:00:00 GMT
using CFTimeZoneRef = const void*;     // null: GMT

constexpr CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

struct CFGregorianDate
{
    SInt32 year;
    SInt8 month; // 1..12
    SInt8 day;   // 1..31
    SInt8 hour;
    SInt8 minute;
    double second; // with its fraction
};

CFAbsoluteTime CFAbsoluteTimeGetCurrent();

// A month, day or time out of range counts on from where it stands: 32 January is 1 February.
CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef zone);

CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime time, CFTimeZoneRef zone);

// 1 is Monday, 7 Sunday.
SInt32 CFAbsoluteTimeGetDayOfWeek(CFAbsoluteTime time, CFTimeZoneRef zone);
