#include "NqPlatform/CFString.h"

#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

// The reference type of a string: its units.
struct NqCFString : NqCFObject
{
    std::u16string fUnits;
};

namespace
{

// The collator of one locale, kept because opening it costs far more than a comparison.
class TLocaleCollator
{
public:
    // Null when ICU has no data.
    static const UCollator* GetDefault()
    {
        static thread_local TLocaleCollator sCollator;
        const char* const locale = uloc_getDefault();
        if (sCollator.fLocale != locale)
            sCollator.Open(locale);
        return sCollator.fCollator.get();
    }

private:
    struct TClose
    {
        void operator()(UCollator* collator) const { ucol_close(collator); }
    };

    void Open(const char* locale)
    {
        fLocale = locale;
        // The order of the C locale is that of the bytes, no reader's: the order common to all languages is.
        const bool isCLocale = std::strstr(locale, "POSIX") != nullptr;
        UErrorCode status = U_ZERO_ERROR;
        fCollator.reset(ucol_open(isCLocale ? "" : locale, &status));
        if (U_FAILURE(status))
            fCollator.reset();
    }

    std::string fLocale;
    std::unique_ptr<UCollator, TClose> fCollator;
};

CFComparisonResult ToResult(int order)
{
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

} // namespace

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars)
{
    try
    {
        auto string = std::make_unique<NqCFString>();
        string->fUnits.assign(chars, chars + numChars);
        return string.release();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

CFIndex CFStringGetLength(CFStringRef string)
{
    return static_cast<CFIndex>(string->fUnits.size());
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding)
{
    if (bufferSize < 1)
        return false;
    buffer[0] = 0;
    if (encoding != kCFStringEncodingUTF8)
        return false;
    constexpr CFIndex kLargest = 0x7FFFFFFF;
    const int32_t capacity = static_cast<int32_t>(bufferSize < kLargest ? bufferSize : kLargest);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strToUTF8(buffer, capacity, &length, string->fUnits.data(), static_cast<int32_t>(string->fUnits.size()), &status);
    if (U_SUCCESS(status) && length < capacity)
        return true;
    buffer[0] = 0;
    return false;
}

CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2, CFStringCompareFlags flags)
{
    const std::u16string& a = string1->fUnits;
    const std::u16string& b = string2->fUnits;
    const UCollator* const collator = (flags & kCFCompareLocalized) != 0 ? TLocaleCollator::GetDefault() : nullptr;
    if (collator == nullptr)
        return ToResult(a.compare(b));
    return ToResult(
        ucol_strcoll(collator, a.data(), static_cast<int32_t>(a.size()), b.data(), static_cast<int32_t>(b.size())));
}
