// The strings of resource files for translators: one line each, TYPE.NUMBER.INDEX = "text", in UTF-8. Docs:
// docs/resource-text.md.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqHost/PublicAPI/NqHostResourceFile.h"

#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace nqres
{

using nqtoken::Outcome;

// Sorts as the file does: type, number, place in the table.
using StringKey = std::tuple<FourCharT, int16, uint32>;
struct StringText
{
    std::string fText;
    size_t fLine = 0; // where it stands in a text; 0 when it is from a resource file
};
using StringMap = std::map<StringKey, StringText>;

StringMap StringsOf(const TNqHostResourceFile& inFile);
// Refuses at the first line that is not as it should be: "NAME:LINE: what is wrong".
Outcome ParseStrings(const std::string& inName, std::string_view inText, StringMap& outStrings);

// The text that ParseStrings reads, with the names of the resources as comments.
std::string ExportStrings(const TNqHostResourceFile& inFile);

// Puts the strings in place of those in the file. When some have no place there the outcome is a fault for each, a line
// each, and the file is as it was. outKept: how many strings of the file the text has not; they stay.
Outcome ImportStrings(const std::string& inName, const StringMap& inStrings, TNqHostResourceFile& ioFile,
                      size_t& outKept);

// Those that are no UTF-8, a line for each.
std::vector<std::string> CheckStrings(const StringMap& inStrings, const std::string& inName);

// What is wrong with a translation, a line for each fault: strings that are missing, surplus, or empty where those of
// the original are not, and those whose placeholders differ.
std::vector<std::string> CompareStrings(const StringMap& inOriginal, const StringMap& inTranslation,
                                        const std::string& inName);

// Only the strings whose placeholders differ (Placeholders.h), a line for each.
std::vector<std::string> CheckPlaceholders(const StringMap& inOriginal, const StringMap& inTranslation,
                                           const std::string& inName);

} // namespace nqres
