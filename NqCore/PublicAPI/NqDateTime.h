// Instants, and the same broken into the fields of the calendar.
//
//     TNqUserTimeRecord record;
//     record.SysTimeToTimeRecord(TNqSystemTime::GetCurrentLocalTime());
//     record.fDay += 90;
//     record.NormalizeTimeRecord();          // a date again
//     TNqSystemTime due;
//     due.TimeRecordToSysTime(record);
//     TNqString63 text;
//     due.SysDateString(text);               // as the user's language writes it
//
// The calendar is the Gregorian one for all years; the year before 1 is 0. Records are in GMT; only the texts are in
// the time zone of the user. Threads: any for different objects.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

class TNqString;
class TNqUserTimeRecord;

// An instant: seconds since 1 January 2001 00:00:00 GMT, fractions included. It has no time zone; zones matter only for
// text.
class TNqSystemTime : public TNqObject
{
public:
    TNqSystemTime() : fSeconds(0.0) {}

    // Now.
    static TNqSystemTime GetCurrentLocalTime();

    // The time of day, and the date in its short form, in the user's language and time zone: those of LC_ALL, LC_TIME
    // or LANG, and of TZ, where the system has these. The long form of the time has seconds and the zone. A text with
    // characters beyond ASCII is not handed out: "converted" is reported and `outStr` stays as it is. Throw
    // kNqErrInvalidData when the system has no locale, no form for it, or no text.
    void SysTimeString(TNqString& outStr, uint8 display_seconds) const;
    void SysDateString(TNqString& outStr) const;

    // The instant of a record, read as GMT. Of month, day, hour and minute the low 8 bits are taken, so normalise a
    // record of which they may be far out of range.
    void TimeRecordToSysTime(const TNqUserTimeRecord& inTimeRecord);

    real64 fSeconds;
};

// A date and a time of day.
class TNqUserTimeRecord : public TNqObject
{
public:
    // All fields 0, which is no date.
    TNqUserTimeRecord() : fYear(0), fMonth(0), fDay(0), fHour(0), fMinute(0), fSecond(0), fDayOfWeek(0) {}

    // All fields from an instant. Fractions of a second are cut. Of the year the low 16 bits are kept.
    void SysTimeToTimeRecord(const TNqSystemTime& t);

    static boolean IsLeapYear(int16 inYear);

    // 28 to 31. Months that there are not have 31 days.
    static int16 DaysInMonth(int16 inYear, int16 inMonth);

    // 1 is Sunday, 7 Saturday: not the numbers of fDayOfWeek. For years from 1 on; earlier ones yield some day.
    static int16 DayOfWeek(int16 inYear, int16 inMonth, int16 inDay);

    // Carries a day out of range into month and year. The month is not looked at before: one out of range has 31 days,
    // and is carried only by stepping on from it. Of a year that leaves its 16 bits the low ones are kept.
    static void NormalizeDate(int16& ioYear, int16& ioMonth, int16& ioDay);

    // Carries seconds into minutes, these into hours, those into days, and normalises the date. fDayOfWeek stays.
    void NormalizeTimeRecord();

    int16 fYear;
    int16 fMonth; // 1..12
    int16 fDay;   // 1..31
    int16 fHour;
    int16 fMinute;
    int16 fSecond;
    int16 fDayOfWeek; // 1 is Monday, 7 Sunday
};

static_assert(sizeof(TNqSystemTime) == sizeof(real64), "hosts exchange instants as one double");
static_assert(sizeof(TNqUserTimeRecord) == 14 && offsetof(TNqUserTimeRecord, fDayOfWeek) == 12,
              "records are shared with modules built elsewhere");
