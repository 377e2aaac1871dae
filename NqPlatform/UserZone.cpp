#include "NqPlatform/UserZone.h"

#include <unicode/ucal.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string_view>

namespace
{

std::optional<std::string> GetVariable(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

// What ICU made its default of, unless the program has given it another one.
const std::optional<std::string> kZoneAtStart = GetVariable("TZ");

std::u16string ToUnits(std::string_view text)
{
    std::u16string units;
    for (const char c : text)
        units += static_cast<unsigned char>(c);
    return units;
}

bool IsInIcu(const std::u16string& name)
{
    std::array<UChar, 128> canonical;
    UErrorCode status = U_ZERO_ERROR;
    ucal_getCanonicalTimeZoneID(name.data(), static_cast<int32_t>(name.size()), canonical.data(),
                                static_cast<int32_t>(canonical.size()), nullptr, &status);
    return U_SUCCESS(status) && name != u"Etc/Unknown";
}

// Whether a value of TZ is the name of a zone. ICU also takes PST, which is none to the C library, and GMT+5, which
// goes to the west there.
bool IsZoneName(const std::string& value)
{
    if (!IsInIcu(ToUnits(value)))
        return false;
    if (value.find('/') != std::string::npos)
        return true;
    const std::string folder = GetVariable("TZDIR").value_or("/usr/share/zoneinfo");
    std::error_code ignored;
    return std::filesystem::exists(folder + "/" + value, ignored);
}

std::u16string GetIcuDefault()
{
    std::array<UChar, 128> name;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = ucal_getDefaultTimeZone(name.data(), static_cast<int32_t>(name.size()), &status);
    return U_SUCCESS(status) ? std::u16string(name.data(), static_cast<size_t>(length)) : std::u16string();
}

} // namespace

std::u16string GetUserZone()
{
    const std::optional<std::string> zone = GetVariable("TZ");
    if (zone.has_value())
    {
        const std::string value = zone->substr(zone->rfind(':', 0) == 0 ? 1 : 0);
        if (!IsZoneName(value))
            return {};
        if (zone != kZoneAtStart)
            return ToUnits(value);
    }
    else if (kZoneAtStart.has_value())
    {
        return {};
    }
    const std::u16string name = GetIcuDefault();
    return IsInIcu(name) ? name : std::u16string();
}

TClock ReadClock(CFAbsoluteTime time)
{
    const std::time_t instant = static_cast<std::time_t>(std::floor(time + kCFAbsoluteTimeIntervalSince1970));
    std::tm shown{};
    tzset(); // localtime_r alone keeps to the zone of its first call
    if (localtime_r(&instant, &shown) == nullptr)
        return {time, u"GMT"};
    CFGregorianDate date;
    date.year = shown.tm_year + 1900;
    date.month = static_cast<SInt8>(shown.tm_mon + 1);
    date.day = static_cast<SInt8>(shown.tm_mday);
    date.hour = static_cast<SInt8>(shown.tm_hour);
    date.minute = static_cast<SInt8>(shown.tm_min);
    date.second = shown.tm_sec;
    return {CFGregorianDateGetAbsoluteTime(date, nullptr), ToUnits(shown.tm_zone)};
}
