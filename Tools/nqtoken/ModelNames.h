// Names as the formats of models can carry them.

#pragma once

#include <map>
#include <set>
#include <string>

namespace nqtoken
{

// What a model keeps of a name at most, in bytes: some readers have no room for more.
constexpr size_t kMaxModelName = 1000;

// A name for a format that gives it the rest of a line: control characters and bytes that are not UTF-8 become escapes
// such as \n and \x1b, a double quote becomes a single one. No blanks at its ends, and no backslash at the last one,
// which would go on with the next line.
std::string LineName(const std::string& inName);

// A name for a format that quotes names: as it is, unless it is not UTF-8 or has a zero byte in it.
std::string QuotedName(const std::string& inName);

// Names by which a format tells things apart, while a scene may use one twice, or none.
class UniqueNames
{
public:
    explicit UniqueNames(std::string inOtherwise) : fOtherwise(std::move(inOtherwise)) {}

    // The name, or inOtherwise for an empty one, with a number behind it if it has been taken.
    std::string Take(const std::string& inName);

private:
    std::string fOtherwise;
    std::set<std::string> fTaken;
    std::map<std::string, size_t> fNumbers; // last ones
};

} // namespace nqtoken
