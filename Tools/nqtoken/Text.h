// Between the tool's own text (UTF-8 in std::string) and the strings of the library, whose characters are 16 bits wide.

#pragma once

#include "NqCore/PublicAPI/NqString.h"

#include <string>
#include <string_view>

namespace nqtoken
{

// Surrogate halves are not UTF-8.
bool IsUTF8(std::string_view inBytes);

// UTF-8 from a model: as it is when it is UTF-8, else read as Windows-1252. Ends before a zero byte.
std::string FromForeignText(std::string_view inBytes);

// A character beyond U+FFFF becomes its two surrogate halves, as everywhere in the library, and is joined again on the
// way back.
void ToLibrary(const std::string& inText, TNqDynamicString& outText);
std::string FromLibrary(const TNqString& inText);

// For a terminal: control characters become escapes such as \n and \x1b, bytes that are not UTF-8 become \x.., and a
// text of more than inMaxBytes ends with "...".
std::string Printable(std::string_view inText, size_t inMaxBytes);

// The same between quotes, with a backslash before each quote and backslash. The "..." stands behind the quotes.
std::string Quoted(std::string_view inText, size_t inMaxBytes);

// "1 byte", "2 bytes".
std::string Counted(uint64 inCount, std::string_view inOne);

// The four characters of a name. Trailing blanks are dropped.
std::string NameText(FourCharT inToken);

} // namespace nqtoken
