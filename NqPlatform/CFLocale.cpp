#include "NqPlatform/CFLocale.h"

#include <unicode/uloc.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

namespace
{

bool IsCLocale(std::string_view name)
{
    const std::string_view language = name.substr(0, name.find_first_of(".@"));
    return language.empty() || language == "C" || language == "POSIX";
}

// What ICU takes its default from: the variables for messages, the first that is set, even to nothing.
std::string FindNameForMessages()
{
    for (const char* const variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
    {
        if (const char* const value = std::getenv(variable))
            return value;
    }
    return {};
}

const std::string kMessagesAtStart = FindNameForMessages();

// The locale of dates, as the C library reads the environment, or as the program has told the C library.
std::string FindNameForDates()
{
    const char* const chosen = std::setlocale(LC_TIME, nullptr);
    if (chosen != nullptr && !IsCLocale(chosen))
        return chosen;
    for (const char* const variable : {"LC_ALL", "LC_TIME", "LANG"})
    {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != 0)
            return value;
    }
    return {};
}

// ICU's name of a locale of the C library, which has the encoding in it.
std::string ToIcuName(const std::string& name)
{
    if (IsCLocale(name))
        return "en_US_POSIX";
    std::array<char, ULOC_FULLNAME_CAPACITY> canonical;
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length =
        uloc_canonicalize(name.c_str(), canonical.data(), static_cast<int32_t>(canonical.size()), &status);
    return U_SUCCESS(status) ? std::string(canonical.data(), static_cast<size_t>(length)) : std::string();
}

} // namespace

CFLocaleRef CFLocaleCopyCurrent()
{
    try
    {
        auto locale = std::make_unique<NqCFLocale>();
        // As long as dates are written as messages are, the default counts: the program may have chosen it.
        const std::string name = FindNameForDates();
        locale->fName = name == kMessagesAtStart ? uloc_getDefault() : ToIcuName(name);
        return locale.release();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}
