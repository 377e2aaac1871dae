#include "Tools/nqtoken/ModelNames.h"

#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace nqtoken
{

std::string LineName(const std::string& inName)
{
    std::string name = Printable(inName, kMaxModelName);
    std::replace(name.begin(), name.end(), '"', '\'');
    const size_t first = name.find_first_not_of(' ');
    if (first == std::string::npos)
        return {};
    name = name.substr(first, name.find_last_not_of(' ') + 1 - first);
    if (name.back() == '\\')
        name.back() = '_';
    return name;
}

std::string QuotedName(const std::string& inName)
{
    const bool isText = inName.size() <= kMaxModelName && inName.find('\0') == std::string::npos && IsUTF8(inName);
    return isText ? inName : Printable(inName, kMaxModelName);
}

std::string UniqueNames::Take(const std::string& inName)
{
    const std::string& wanted = inName.empty() ? fOtherwise : inName;
    std::string name = wanted;
    // The numbers of a name rise, so that a thousand equal ones are not a million attempts.
    while (!fTaken.insert(name).second)
        name = fmt::format("{} {}", wanted, ++fNumbers.try_emplace(wanted, 1).first->second);
    return name;
}

} // namespace nqtoken
