#include "NqCore/PublicAPI/NqDateTime.h"

#include "NqCore/Include/CFMacPtr.h"
#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqPlatform/CFDateFormatter.h"
#include "NqUtils/PublicAPI/Real.h"

namespace
{

constexpr CFTimeZoneRef kGMT = nullptr;

// ---- Text -----------------------------------------------------------------------------------------------------------

// One byte for each unit of the text: longer ones, those with other characters than ASCII, do not fit.
void CopyText(CFStringRef text, TNqString& str)
{
    TNqArray<int8> buffer(0, false);
    if (!buffer.SetElemCount(static_cast<NqSize>(CFStringGetLength(text)) + 1))
        return;
    const boolean converted =
        CFStringGetCString(text, buffer.BaseAddress(), buffer.GetElemCount(), kCFStringEncodingUTF8);
    if (NqCheck(converted))
        str.FromCPtr(buffer.BaseAddress());
}

void FormatTime(real64 seconds, CFDateFormatterStyle dateStyle, CFDateFormatterStyle timeStyle, TNqString& str)
{
    const CFMacPtr<CFLocaleRef> locale(CFLocaleCopyCurrent());
    if (locale == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    const CFMacPtr<CFDateFormatterRef> formatter(
        CFDateFormatterCreate(kCFAllocatorDefault, locale, dateStyle, timeStyle));
    if (formatter == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    const CFMacPtr<CFStringRef> text(
        CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, formatter, seconds));
    if (text == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    CopyText(text, str);
}

// ---- Calendar: in 32 bits, so that no carry of 16-bit fields is lost --------------------------------------------------

bool IsLeap(int32 year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int32 CountDays(int32 year, int32 month)
{
    if (month == 4 || month == 6 || month == 9 || month == 11)
        return 30;
    if (month == 2)
        return IsLeap(year) ? 29 : 28;
    return 31;
}

// Leap years up to this one, counted from some year long before every other.
int32 CountLeapYears(int32 year)
{
    const int32 positive = year + 80000;
    return positive / 4 - positive / 100 + positive / 400;
}

struct TDate
{
    int32 fYear;
    int32 fMonth;
    int32 fDay;

    // Most of the way in one step: as many years as cannot be too many. A year from a month on holds the leap day of
    // the year before when the month comes after February.
    void SkipYears()
    {
        const int32 years = (fDay >= 1 ? fDay - 1 : fDay) / 366;
        const int32 leapYear = fMonth > 2 ? fYear : fYear - 1;
        fDay -= 365 * years + CountLeapYears(leapYear + years) - CountLeapYears(leapYear);
        fYear += years;
    }

    void Normalize()
    {
        if (fMonth >= 1 && fMonth <= 12)
            SkipYears();
        if (fDay < 1)
            StepBack();
        else
            StepForward();
    }

    void StepBack()
    {
        while (fDay < 1)
        {
            if (fMonth == 1)
            {
                fMonth = 12;
                --fYear;
            }
            else
            {
                --fMonth;
            }
            fDay += CountDays(fYear, fMonth);
        }
    }

    void StepForward()
    {
        for (int32 days = CountDays(fYear, fMonth); fDay > days; days = CountDays(fYear, fMonth))
        {
            fDay -= days;
            if (++fMonth > 12)
            {
                fMonth -= 12;
                ++fYear;
            }
        }
    }
};

// Brings `field` into 0..size - 1; what it is carried on with.
int32 Carry(int32& field, int32 size)
{
    const int32 carry = field / size - (field % size < 0 ? 1 : 0);
    field -= carry * size;
    return carry;
}

int16 ToField(int32 value)
{
    return static_cast<int16>(value);
}

} // namespace

TNqSystemTime TNqSystemTime::GetCurrentLocalTime()
{
    TNqSystemTime now;
    now.fSeconds = CFAbsoluteTimeGetCurrent();
    return now;
}

void TNqSystemTime::SysTimeString(TNqString& str, uint8 display_seconds) const
{
    FormatTime(fSeconds, kCFDateFormatterNoStyle,
               display_seconds != 0 ? kCFDateFormatterLongStyle : kCFDateFormatterShortStyle, str);
}

void TNqSystemTime::SysDateString(TNqString& str) const
{
    FormatTime(fSeconds, kCFDateFormatterShortStyle, kCFDateFormatterNoStyle, str);
}

void TNqSystemTime::TimeRecordToSysTime(const TNqUserTimeRecord& timeRecord)
{
    CFGregorianDate date;
    date.year = timeRecord.fYear;
    date.month = static_cast<SInt8>(timeRecord.fMonth);
    date.day = static_cast<SInt8>(timeRecord.fDay);
    date.hour = static_cast<SInt8>(timeRecord.fHour);
    date.minute = static_cast<SInt8>(timeRecord.fMinute);
    date.second = timeRecord.fSecond;
    fSeconds = CFGregorianDateGetAbsoluteTime(date, kGMT);
}

void TNqUserTimeRecord::SysTimeToTimeRecord(const TNqSystemTime& t)
{
    const CFGregorianDate date = CFAbsoluteTimeGetGregorianDate(t.fSeconds, kGMT);
    fYear = ToField(date.year);
    fMonth = date.month;
    fDay = date.day;
    fHour = date.hour;
    fMinute = date.minute;
    fSecond = ToField(Real64ToInt32(date.second));
    fDayOfWeek = ToField(CFAbsoluteTimeGetDayOfWeek(t.fSeconds, kGMT));
}

boolean TNqUserTimeRecord::IsLeapYear(int16 year)
{
    return IsLeap(year);
}

int16 TNqUserTimeRecord::DaysInMonth(int16 year, int16 month)
{
    return ToField(CountDays(year, month));
}

int16 TNqUserTimeRecord::DayOfWeek(int16 year, int16 month, int16 day)
{
    const int32 y = month < 3 ? year - 1 : year;
    const int32 m = month > 2 ? month - 2 : month + 10;
    int32 sum = y + day + y / 4 - y / 100 + y / 400 + 31 * m / 12;
    Carry(sum, 7);
    return ToField(sum + 1);
}

void TNqUserTimeRecord::NormalizeDate(int16& year, int16& month, int16& day)
{
    TDate date{year, month, day};
    date.Normalize();
    year = ToField(date.fYear);
    month = ToField(date.fMonth);
    day = ToField(date.fDay);
}

void TNqUserTimeRecord::NormalizeTimeRecord()
{
    int32 second = fSecond;
    int32 minute = fMinute + Carry(second, 60);
    int32 hour = fHour + Carry(minute, 60);
    TDate date{fYear, fMonth, fDay + Carry(hour, 24)};
    date.Normalize();
    fSecond = ToField(second);
    fMinute = ToField(minute);
    fHour = ToField(hour);
    fDay = ToField(date.fDay);
    fMonth = ToField(date.fMonth);
    fYear = ToField(date.fYear);
}
