#include "Tools/nqres/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace nqres
{
namespace
{

constexpr size_t kTypeDigits = 8;
constexpr std::string_view kHexPrefix = "0x";

bool IsWordByte(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

template <class Number>
bool ParseHex(std::string_view inDigits, Number& outValue)
{
    const char* const end = inDigits.data() + inDigits.size();
    const auto [stop, error] = std::from_chars(inDigits.data(), end, outValue, 16);
    return error == std::errc() && stop == end;
}

// Bytes of the well-formed character at the front, 0 when there is none: no overlong forms, surrogates, or codes beyond
// 0x10FFFF.
size_t CharacterLength(std::string_view inText)
{
    const auto byte = [&](size_t i) -> unsigned { return i < inText.size() ? static_cast<uint8>(inText[i]) : 0; };
    const auto follows = [&](size_t i) { return (byte(i) & 0xC0) == 0x80; };
    const unsigned first = byte(0);
    if (first < 0x80)
        return inText.empty() ? 0 : 1;
    if (first >= 0xC2 && first <= 0xDF)
        return follows(1) ? 2 : 0;
    const unsigned lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (first < 0xE0 || first > 0xF4 || byte(1) < lowest || byte(1) > highest || !follows(2))
        return 0;
    return first < 0xF0 ? 3 : follows(3) ? 4 : 0;
}

} // namespace

FourCharT TypeFromBytes(std::string_view inFourBytes)
{
    FourCharT type = 0;
    for (const char c : inFourBytes)
        type = type << 8 | static_cast<uint8>(c);
    return type;
}

std::string TypeWord(FourCharT inType)
{
    std::string word;
    for (int shift = 24; shift >= 0; shift -= 8)
        word += static_cast<char>(inType >> shift);
    return std::all_of(word.begin(), word.end(), IsWordByte) ? word : fmt::format("0x{:08X}", inType);
}

bool TypeFromWord(std::string_view inWord, FourCharT& outType)
{
    if (inWord.size() == 4 && std::all_of(inWord.begin(), inWord.end(), IsWordByte))
    {
        outType = TypeFromBytes(inWord);
        return true;
    }
    return inWord.size() == kHexPrefix.size() + kTypeDigits && inWord.substr(0, kHexPrefix.size()) == kHexPrefix &&
           ParseHex(inWord.substr(kHexPrefix.size()), outType);
}

Place PlaceOf(std::string_view inText, size_t inOffset)
{
    Place place;
    for (size_t i = 0; i < inOffset && i < inText.size(); ++i)
    {
        const bool endsLine = inText[i] == '\n' || (inText[i] == '\r' && inText.substr(i + 1, 1) != "\n");
        place = endsLine ? Place{place.fLine + 1, 1} : Place{place.fLine, place.fColumn + 1};
    }
    return place;
}

size_t WellFormedLength(std::string_view inText)
{
    size_t at = 0;
    while (const size_t length = CharacterLength(inText.substr(at)))
        at += length;
    return at;
}

std::string Quoted(std::string_view inText)
{
    std::string out = "\"";
    while (!inText.empty())
    {
        const char c = inText[0];
        const size_t length = CharacterLength(inText);
        if (c == '"' || c == '\\')
            (out += '\\') += c;
        else if (c == '\n' || c == '\r' || c == '\t')
            out += c == '\n' ? "\\n" : c == '\r' ? "\\r" : "\\t";
        else if (length == 0 || static_cast<uint8>(c) < ' ' || c == 0x7F)
            out += fmt::format("\\x{:02X}", static_cast<uint8>(c));
        else
            out += inText.substr(0, length);
        inText.remove_prefix(std::max<size_t>(length, 1));
    }
    return out + '"';
}

std::string Excerpt(std::string_view inText)
{
    constexpr size_t kMost = 40;
    return Quoted(inText.substr(0, kMost));
}

bool Unquote(std::string_view& ioLine, std::string& outText)
{
    outText.clear();
    if (ioLine.empty() || ioLine[0] != '"')
        return false;
    size_t i = 1;
    for (; i < ioLine.size() && ioLine[i] != '"'; ++i)
    {
        char c = ioLine[i];
        if (c == '\\')
        {
            constexpr std::string_view kEscapes = "nrt\"\\";
            c = ++i < ioLine.size() ? ioLine[i] : '\0';
            uint8 code = 0;
            if (const size_t known = kEscapes.find(c); known != std::string_view::npos)
                c = "\n\r\t\"\\"[known];
            else if (c == 'x' && i + 2 < ioLine.size() && ParseHex(ioLine.substr(i + 1, 2), code))
            {
                c = static_cast<char>(code);
                i += 2;
            }
            else
                return false;
        }
        outText += c;
    }
    if (i >= ioLine.size())
        return false;
    ioLine.remove_prefix(i + 1);
    return true;
}

} // namespace nqres
