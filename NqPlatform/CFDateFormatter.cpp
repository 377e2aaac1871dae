#include "NqPlatform/CFDateFormatter.h"

#include "NqPlatform/UserZone.h"

#include <unicode/ucal.h>
#include <unicode/udat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

struct TCloseFormat
{
    void operator()(UDateFormat* format) const { udat_close(format); }
};
struct TCloseCalendar
{
    void operator()(UCalendar* calendar) const { ucal_close(calendar); }
};

using TFormat = std::shared_ptr<UDateFormat>;

UDateFormatStyle ToStyle(CFDateFormatterStyle style)
{
    constexpr UDateFormatStyle styles[] = {UDAT_NONE, UDAT_SHORT, UDAT_MEDIUM, UDAT_LONG, UDAT_FULL};
    return styles[style];
}

// ICU changes to the Julian calendar before 1582, where the library's dates do not.
void MakeProleptic(UDateFormat* format)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UCalendar, TCloseCalendar> calendar(ucal_clone(udat_getCalendar(format), &status));
    ucal_setGregorianChange(calendar.get(), -1e18, &status);
    if (U_SUCCESS(status)) // other calendars than the Gregorian refuse
        udat_setCalendar(format, calendar.get());
}

// What a formatter is made of.
struct TFormatKey
{
    bool operator==(const TFormatKey& other) const
    {
        return std::tie(fDateStyle, fTimeStyle, fLocale, fZone) ==
               std::tie(other.fDateStyle, other.fTimeStyle, other.fLocale, other.fZone);
    }

    CFDateFormatterStyle fDateStyle;
    CFDateFormatterStyle fTimeStyle;
    std::string fLocale;
    std::u16string fZone;
};

TFormat OpenFormat(const TFormatKey& key)
{
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UDateFormat, TCloseFormat> format(
        udat_open(ToStyle(key.fTimeStyle), ToStyle(key.fDateStyle), key.fLocale.c_str(), key.fZone.data(),
                  static_cast<int32_t>(key.fZone.size()), nullptr, 0, &status));
    if (U_FAILURE(status))
        return nullptr;
    MakeProleptic(format.get());
    return format;
}

// The formatters that a thread used last: opening one takes thousands of times as long as using it, and using one
// changes it, so that threads do not share them.
class TFormatCache
{
public:
    static TFormat Get(const TFormatKey& key)
    {
        static thread_local TFormatCache sCache;
        return sCache.Find(key);
    }

private:
    struct TEntry
    {
        TFormatKey fKey;
        TFormat fFormat; // null: free
    };

    TFormat Find(const TFormatKey& key)
    {
        const auto found =
            std::find_if(fEntries.begin(), fEntries.end(),
                         [&key](const TEntry& entry) { return entry.fFormat != nullptr && entry.fKey == key; });
        if (found != fEntries.end())
        {
            std::rotate(fEntries.begin(), found, found + 1);
            return fEntries.front().fFormat;
        }
        TEntry opened{key, OpenFormat(key)};
        if (opened.fFormat == nullptr)
            return nullptr;
        std::rotate(fEntries.begin(), fEntries.end() - 1, fEntries.end());
        fEntries.front() = std::move(opened);
        return fEntries.front().fFormat;
    }

    std::array<TEntry, 8> fEntries{}; // the last used first
};

// An instant in the range in which calendars count.
CFAbsoluteTime ToRange(CFAbsoluteTime time)
{
    constexpr double furthest = 1.8e14; // seconds: five million years
    return time != time ? 0 : std::clamp(time, -furthest, furthest);
}

// The text with plain blanks. Of the zone, which the format may write, `ioZone` says where it stands: it is left empty
// where the format has none. False when there is no text.
bool WriteDate(UDateFormat* format, CFAbsoluteTime time, std::u16string& outText, UFieldPosition& ioZone)
{
    std::array<UChar, 512> text; // the longest of any locale have about a hundred
    UErrorCode status = U_ZERO_ERROR;
    const UDate milliseconds = (time + kCFAbsoluteTimeIntervalSince1970) * 1000;
    const int32_t length =
        udat_format(format, milliseconds, text.data(), static_cast<int32_t>(text.size()), &ioZone, &status);
    if (U_FAILURE(status))
        return false;
    // Fields of a text are measured in bytes as well as in characters; with plain blanks most texts have as many of
    // both.
    constexpr UChar narrowNoBreakSpace = 0x202F;
    constexpr UChar noBreakSpace = 0x00A0;
    const auto isBlank = [](UChar unit) { return unit == narrowNoBreakSpace || unit == noBreakSpace; };
    std::replace_if(text.begin(), text.begin() + length, isBlank, UChar{' '});
    outText.assign(text.data(), static_cast<size_t>(length));
    return true;
}

} // namespace

struct NqCFDateFormatter : NqCFObject
{
    TFormat fFormat;
    bool fReadsClock = false; // the format writes GMT, and is given what the C library's clock shows
};

CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef, CFLocaleRef locale, CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle)
{
    try
    {
        auto formatter = std::make_unique<NqCFDateFormatter>();
        std::u16string zone = GetUserZone();
        formatter->fReadsClock = zone.empty();
        if (formatter->fReadsClock)
            zone = u"GMT";
        formatter->fFormat = TFormatCache::Get({dateStyle, timeStyle, locale->fName, std::move(zone)});
        return formatter->fFormat != nullptr ? formatter.release() : nullptr;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                                        CFAbsoluteTime time)
{
    try
    {
        TClock clock{ToRange(time), {}};
        if (formatter->fReadsClock)
            clock = ReadClock(clock.fShown);
        std::u16string text;
        UFieldPosition zone{UDAT_TIMEZONE_FIELD, 0, 0};
        if (!WriteDate(formatter->fFormat.get(), clock.fShown, text, zone))
            return nullptr;
        if (formatter->fReadsClock && zone.beginIndex < zone.endIndex)
            text.replace(static_cast<size_t>(zone.beginIndex), static_cast<size_t>(zone.endIndex - zone.beginIndex),
                         clock.fZoneLabel);
        const std::vector<UniChar> units(text.begin(), text.end());
        return CFStringCreateWithCharacters(allocator, units.data(), static_cast<CFIndex>(units.size()));
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}
