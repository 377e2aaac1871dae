// Codes and texts as the tool's files show them.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>
#include <string_view>

namespace nqres
{

// A type of letters and digits as it is, any other as 0x and eight digits: a word in either case.
std::string TypeWord(FourCharT inType);
// The type that such a word stands for; false when it stands for none.
bool TypeFromWord(std::string_view inWord, FourCharT& outType);
FourCharT TypeFromBytes(std::string_view inFourBytes);

// The place, from 1 on, of a byte in a text whose lines end with CR, LF or CR LF.
struct Place
{
    size_t fLine = 1;
    size_t fColumn = 1; // in bytes
};
Place PlaceOf(std::string_view inText, size_t inOffset);

// A text on one line between quotes: \n, \r, \t, \", \\, and \xHH for other control characters and for bytes that are
// no UTF-8, so that every editor can show it.
std::string Quoted(std::string_view inText);
// The start of a text for a message, quoted.
std::string Excerpt(std::string_view inText);
// The way back from Quoted. Starts at the opening quote and removes the string from ioLine; false when there is none.
bool Unquote(std::string_view& ioLine, std::string& outText);

// Bytes at the front that are well-formed UTF-8.
size_t WellFormedLength(std::string_view inText);

} // namespace nqres
