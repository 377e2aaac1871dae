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
void CopyText(CFStringRef inText, TNqString& outStr)
{
    TNqArray<int8> buffer(0, false);
    if (!buffer.SetElemCount(static_cast<NqSize>(CFStringGetLength(inText)) + 1))
        return;
    const boolean converted =
        CFStringGetCString(inText, buffer.BaseAddress(), buffer.GetElemCount(), kCFStringEncodingUTF8);
    if (NqCheck(converted))
        outStr.FromCPtr(buffer.BaseAddress());
}

void FormatTime(real64 inSeconds, CFDateFormatterStyle inDateStyle, CFDateFormatterStyle inTimeStyle, TNqString& outStr)
{
    const CFMacPtr<CFLocaleRef> locale(CFLocaleCopyCurrent());
    if (locale == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    const CFMacPtr<CFDateFormatterRef> formatter(
        CFDateFormatterCreate(kCFAllocatorDefault, locale, inDateStyle, inTimeStyle));
    if (formatter == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    const CFMacPtr<CFStringRef> text(
        CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, formatter, inSeconds));
    if (text == nullptr)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    CopyText(text, outStr);
}

// ---- Calendar: in 32 bits, so that no carry of 16-bit fields is lost --------------------------------------------------

bool IsLeap(int32 inYear)
{
    return (inYear % 4 == 0 && inYear % 100 != 0) || inYear % 400 == 0;
}

int32 CountDays(int32 inYear, int32 inMonth)
{
    if (inMonth == 4 || inMonth == 6 || inMonth == 9 || inMonth == 11)
        return 30;
    if (inMonth == 2)
        return IsLeap(inYear) ? 29 : 28;
    return 31;
}

// Leap years up to this one, counted from some year long before every other.
int32 CountLeapYears(int32 inYear)
{
    const int32 positive = inYear + 80000;
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

// Brings `ioField` into 0..size - 1; what it is carried on with.
int32 Carry(int32& ioField, int32 inSize)
{
    const int32 carry = ioField / inSize - (ioField % inSize < 0 ? 1 : 0);
    ioField -= carry * inSize;
    return carry;
}

int16 ToField(int32 inValue)
{
    return static_cast<int16>(inValue);
}

} // namespace

TNqSystemTime TNqSystemTime::GetCurrentLocalTime()
{
    TNqSystemTime now;
    now.fSeconds = CFAbsoluteTimeGetCurrent();
    return now;
}

void TNqSystemTime::SysTimeString(TNqString& outStr, uint8 display_seconds) const
{
    FormatTime(fSeconds, kCFDateFormatterNoStyle,
               display_seconds != 0 ? kCFDateFormatterLongStyle : kCFDateFormatterShortStyle, outStr);
}

void TNqSystemTime::SysDateString(TNqString& outStr) const
{
    FormatTime(fSeconds, kCFDateFormatterShortStyle, kCFDateFormatterNoStyle, outStr);
}

void TNqSystemTime::TimeRecordToSysTime(const TNqUserTimeRecord& inTimeRecord)
{
    CFGregorianDate date;
    date.year = inTimeRecord.fYear;
    date.month = static_cast<SInt8>(inTimeRecord.fMonth);
    date.day = static_cast<SInt8>(inTimeRecord.fDay);
    date.hour = static_cast<SInt8>(inTimeRecord.fHour);
    date.minute = static_cast<SInt8>(inTimeRecord.fMinute);
    date.second = inTimeRecord.fSecond;
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

boolean TNqUserTimeRecord::IsLeapYear(int16 inYear)
{
    return IsLeap(inYear);
}

int16 TNqUserTimeRecord::DaysInMonth(int16 inYear, int16 inMonth)
{
    return ToField(CountDays(inYear, inMonth));
}

int16 TNqUserTimeRecord::DayOfWeek(int16 inYear, int16 inMonth, int16 inDay)
{
    const int32 y = inMonth < 3 ? inYear - 1 : inYear;
    const int32 m = inMonth > 2 ? inMonth - 2 : inMonth + 10;
    int32 sum = y + inDay + y / 4 - y / 100 + y / 400 + 31 * m / 12;
    Carry(sum, 7);
    return ToField(sum + 1);
}

void TNqUserTimeRecord::NormalizeDate(int16& ioYear, int16& ioMonth, int16& ioDay)
{
    TDate date{ioYear, ioMonth, ioDay};
    date.Normalize();
    ioYear = ToField(date.fYear);
    ioMonth = ToField(date.fMonth);
    ioDay = ToField(date.fDay);
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
