#include "Tools/nqres/Strings.h"

#include "Tools/nqres/Placeholders.h"
#include "Tools/nqres/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <new>

namespace nqres
{
namespace
{

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t";

constexpr std::string_view kHead =
    "# One string a line. Translate what stands between the quotes; leave the rest as it is.\n"
    "# \\n is a line end, \\t a tab, \\\" a quote, \\\\ a backslash.\n";

std::string_view BytesOf(const TNqString& inText)
{
    return {inText.ByteLength() != 0 ? inText.StrGet() : "", inText.ByteLength()};
}

std::string KeyText(const StringKey& inKey)
{
    const auto& [type, number, index] = inKey;
    return fmt::format("{}.{}.{}", TypeWord(type), number, index);
}

template <class Number>
bool ParseNumber(std::string_view inText, Number& outValue)
{
    const char* const end = inText.data() + inText.size();
    const auto [stop, error] = std::from_chars(inText.data(), end, outValue);
    return error == std::errc() && stop == end;
}

bool ParseKey(std::string_view inText, StringKey& outKey)
{
    const size_t first = inText.find('.');
    const size_t second = first == std::string_view::npos ? first : inText.find('.', first + 1);
    auto& [type, number, index] = outKey;
    return second != std::string_view::npos && TypeFromWord(inText.substr(0, first), type) &&
           ParseNumber(inText.substr(first + 1, second - first - 1), number) &&
           ParseNumber(inText.substr(second + 1), index);
}

void SkipBlanks(std::string_view& ioLine)
{
    ioLine.remove_prefix(std::min(ioLine.find_first_not_of(kBlanks), ioLine.size()));
}

// What is wrong with a line that holds a string; empty when nothing is.
std::string ParseLine(std::string_view inLine, StringKey& outKey, std::string& outText)
{
    if (WellFormedLength(inLine) != inLine.size())
        return "this line is not in UTF-8; save the file as UTF-8";
    const size_t keyLength = inLine.find_first_of(" \t=");
    if (!ParseKey(inLine.substr(0, keyLength), outKey))
        return fmt::format("{} is no key; expected TYPE.NUMBER.INDEX = \"text\"", Excerpt(inLine.substr(0, keyLength)));
    inLine.remove_prefix(std::min(keyLength, inLine.size()));
    SkipBlanks(inLine);
    if (inLine.empty() || inLine[0] != '=')
        return "no = behind the key; expected TYPE.NUMBER.INDEX = \"text\"";
    inLine.remove_prefix(1);
    SkipBlanks(inLine);
    if (!Unquote(inLine, outText))
        return "expected a text in quotes; write \\\" for a quote and \\\\ for a backslash inside of it";
    SkipBlanks(inLine);
    if (!inLine.empty() && inLine[0] != '#')
        return "something behind the closing quote; write \\\" for a quote inside of the text";
    if (outText.find('\0') != std::string::npos)
        return "a zero byte, which no string can hold; remove \\x00";
    return {};
}

// Takes a line off the text, which ends with LF, CR or CR LF.
std::string_view NextLine(std::string_view& ioText)
{
    const std::string_view line = ioText.substr(0, ioText.find_first_of("\r\n"));
    ioText.remove_prefix(line.size());
    ioText.remove_prefix(ioText.substr(0, 2) == "\r\n" ? 2 : std::min<size_t>(1, ioText.size()));
    return line;
}

TNqString* FindString(TNqHostResourceFile& inFile, const StringKey& inKey)
{
    const auto& [type, number, index] = inKey;
    TNqResource* const resource = inFile.FindResource(type, number);
    TResourceStrings* const strings = resource != nullptr ? resource->GetLocalizedStrings() : nullptr;
    return strings != nullptr && index < strings->GetElemCount() ? &(*strings)[index] : nullptr;
}

std::string Located(const std::string& inName, size_t inLine)
{
    return inLine == 0 ? inName : fmt::format("{}:{}", inName, inLine);
}

} // namespace

StringMap StringsOf(const TNqHostResourceFile& inFile)
{
    StringMap all;
    for (uint32 i = 0; const TNqResource* resource = inFile.GetResource(i); ++i)
    {
        const TResourceStrings* const strings = resource->GetLocalizedStrings();
        const uint32 count = strings != nullptr ? strings->GetElemCount() : 0;
        for (uint32 n = 0; n < count; ++n)
            all[{resource->GetType(), resource->GetID(), n}] = {std::string(BytesOf((*strings)[n])), 0};
    }
    return all;
}

Outcome ParseStrings(const std::string& inName, std::string_view inText, StringMap& outStrings)
{
    if (inText.substr(0, kMark.size()) == kMark)
        inText.remove_prefix(kMark.size());
    for (size_t number = 1; !inText.empty(); ++number)
    {
        std::string_view line = NextLine(inText);
        SkipBlanks(line);
        if (line.empty() || line[0] == '#')
            continue;
        StringKey key;
        StringText text = {{}, number};
        std::string fault = ParseLine(line, key, text.fText);
        if (fault.empty())
        {
            const auto [there, added] = outStrings.insert({key, text});
            if (!added)
                fault =
                    fmt::format("{} stands in line {} already; remove one of them", KeyText(key), there->second.fLine);
        }
        if (!fault.empty())
            return nqtoken::AtFault(fmt::format("{}:{}: {}", inName, number, fault));
    }
    return {};
}

std::string ExportStrings(const TNqHostResourceFile& inFile)
{
    std::string text(kHead);
    for (uint32 i = 0; const TNqResource* resource = inFile.GetResource(i); ++i)
    {
        const TResourceStrings* const strings = resource->GetLocalizedStrings();
        const uint32 count = strings != nullptr ? strings->GetElemCount() : 0;
        if (count != 0)
            text += fmt::format("\n# {}\n", Quoted(BytesOf(resource->GetName())));
        for (uint32 n = 0; n < count; ++n)
            text += fmt::format("{} = {}\n", KeyText({resource->GetType(), resource->GetID(), n}),
                                Quoted(BytesOf((*strings)[n])));
    }
    return text;
}

Outcome ImportStrings(const std::string& inName, const StringMap& inStrings, TNqHostResourceFile& ioFile,
                      size_t& outKept)
{
    std::string faults;
    for (const auto& [key, text] : inStrings)
        if (FindString(ioFile, key) == nullptr)
            faults += fmt::format("{}{}: the resource file has no string {}; remove the line, or import into the file "
                                  "that the strings were exported from",
                                  faults.empty() ? "" : "\n", Located(inName, text.fLine), KeyText(key));
    if (!faults.empty())
        return nqtoken::AtFault(faults);
    for (const auto& [key, text] : inStrings)
    {
        TNqString& string = *FindString(ioFile, key);
        string.FromText(text.fText.data(), static_cast<uint32>(text.fText.size()));
        if (string.ByteLength() != text.fText.size())
            throw std::bad_alloc();
    }
    outKept = StringsOf(ioFile).size() - inStrings.size();
    return {};
}

std::vector<std::string> CheckStrings(const StringMap& inStrings, const std::string& inName)
{
    std::vector<std::string> faults;
    for (const auto& [key, text] : inStrings)
        if (WellFormedLength(text.fText) != text.fText.size())
            faults.push_back(fmt::format("{}: {} is not in UTF-8: {}", Located(inName, text.fLine), KeyText(key),
                                         Quoted(text.fText)));
    return faults;
}

std::vector<std::string> CheckPlaceholders(const StringMap& inOriginal, const StringMap& inTranslation,
                                           const std::string& inName)
{
    std::vector<std::string> faults;
    for (const auto& [key, text] : inTranslation)
    {
        const auto original = inOriginal.find(key);
        if (original == inOriginal.end())
            continue;
        const std::string fault = ComparePlaceholders(original->second.fText, text.fText);
        if (!fault.empty())
            faults.push_back(
                fmt::format("{}: {} {}: {}", Located(inName, text.fLine), KeyText(key), fault, Quoted(text.fText)));
    }
    return faults;
}

std::vector<std::string> CompareStrings(const StringMap& inOriginal, const StringMap& inTranslation,
                                        const std::string& inName)
{
    std::vector<std::string> faults;
    StringMap translated; // those that are neither missing nor empty
    for (const auto& [key, text] : inOriginal)
    {
        const auto found = inTranslation.find(key);
        if (found == inTranslation.end())
            faults.push_back(fmt::format("{}: {} is missing: {}", inName, KeyText(key), Quoted(text.fText)));
        else if (found->second.fText.empty() && !text.fText.empty())
            faults.push_back(fmt::format("{}: {} is empty: {}", Located(inName, found->second.fLine), KeyText(key),
                                         Quoted(text.fText)));
        else
            translated.insert(*found);
    }
    const std::vector<std::string> placeholders = CheckPlaceholders(inOriginal, translated, inName);
    faults.insert(faults.end(), placeholders.begin(), placeholders.end());
    for (const auto& [key, text] : inTranslation)
        if (inOriginal.find(key) == inOriginal.end())
            faults.push_back(
                fmt::format("{}: {} is surplus: {}", Located(inName, text.fLine), KeyText(key), Quoted(text.fText)));
    return faults;
}

} // namespace nqres
