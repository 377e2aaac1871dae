#include "Tools/nqtoken/Text.h"

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"

#include <fmt/format.h>

#include <array>

namespace nqtoken
{
namespace
{

constexpr uint32 kNoCharacter = 0xFFFFFFFF;

bool IsHighSurrogate(uint32 inCode)
{
    return inCode >= 0xD800 && inCode < 0xDC00;
}

bool IsLowSurrogate(uint32 inCode)
{
    return inCode >= 0xDC00 && inCode < 0xE000;
}

// The character at the start of inBytes and how many bytes it takes; kNoCharacter and 1 byte when there is none.
// Surrogate halves of three bytes count as characters.
uint32 NextCharacter(std::string_view inBytes, size_t& outSize)
{
    const auto byte = [inBytes](size_t i) { return static_cast<uint32>(static_cast<uint8>(inBytes[i])); };
    const uint32 first = byte(0);
    const size_t size = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF5 ? 4
                                       : 0;
    outSize = 1;
    if (size == 0 || size > inBytes.size())
        return kNoCharacter;
    uint32 code = size == 1 ? first : first & (0xFFU >> (size + 1));
    for (size_t i = 1; i < size; ++i)
    {
        if ((byte(i) & 0xC0) != 0x80)
            return kNoCharacter;
        code = code << 6 | (byte(i) & 0x3F);
    }
    constexpr std::array<uint32, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[size] || code > 0x10FFFF)
        return kNoCharacter;
    outSize = size;
    return code;
}

void Append(std::string& ioText, uint32 inCode)
{
    const auto put = [&ioText](uint32 byte) { ioText += static_cast<char>(byte); };
    if (inCode < 0x80)
        return put(inCode);
    if (inCode < 0x800)
        put(0xC0 | inCode >> 6);
    else
    {
        if (inCode < 0x10000)
            put(0xE0 | inCode >> 12);
        else
        {
            put(0xF0 | inCode >> 18);
            put(0x80 | (inCode >> 12 & 0x3F));
        }
        put(0x80 | (inCode >> 6 & 0x3F));
    }
    put(0x80 | (inCode & 0x3F));
}

} // namespace

bool IsUTF8(std::string_view inBytes)
{
    size_t size;
    for (; !inBytes.empty(); inBytes.remove_prefix(size))
    {
        const uint32 code = NextCharacter(inBytes, size);
        if (code == kNoCharacter || IsHighSurrogate(code) || IsLowSurrogate(code))
            return false;
    }
    return true;
}

namespace
{

// At least inMaxBytes of it, or all.
std::string Escaped(std::string_view inText, size_t inMaxBytes, std::string_view inBackslashed, bool& outCut)
{
    std::string shown;
    size_t size;
    for (; !inText.empty() && shown.size() < inMaxBytes; inText.remove_prefix(size))
    {
        const uint32 code = NextCharacter(inText, size);
        const auto byte = static_cast<uint8>(inText[0]);
        if (code == '\n' || code == '\r' || code == '\t')
            shown += code == '\n' ? "\\n" : code == '\r' ? "\\r" : "\\t";
        else if (code == kNoCharacter || code < 0x20 || code == 0x7F || IsHighSurrogate(code) || IsLowSurrogate(code))
            shown += fmt::format("\\x{:02x}", byte);
        else if (code >= 0x80 && code < 0xA0) // control characters as well
            shown += fmt::format("\\x{:02x}", code);
        else
        {
            if (inBackslashed.find(inText[0]) != std::string_view::npos)
                shown += '\\';
            shown += inText.substr(0, size);
        }
    }
    outCut = !inText.empty();
    return shown;
}

} // namespace

std::string FromForeignText(std::string_view inBytes)
{
    inBytes = inBytes.substr(0, inBytes.find('\0'));
    std::string text(inBytes);
    if (IsUTF8(inBytes))
        return text;
    TNqCountedPtr<ITranscoder> windows;
    NqCreateTranscoder(windows, kAnsiTranscoder);
    if (!windows)
        return text;
    text.clear();
    for (const char byte : inBytes)
        Append(text, windows->Encode(static_cast<uint8>(byte)));
    return text;
}

void ToLibrary(const std::string& inText, TNqDynamicString& outText)
{
    std::string bytes;
    bytes.reserve(inText.size());
    std::string_view rest = inText;
    size_t size;
    for (; !rest.empty(); rest.remove_prefix(size))
    {
        const uint32 code = NextCharacter(rest, size);
        if (code == kNoCharacter || code < 0x10000)
            bytes += rest.substr(0, size);
        else
        {
            Append(bytes, 0xD800 + ((code - 0x10000) >> 10));
            Append(bytes, 0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    outText.FromText(bytes.data(), static_cast<uint32>(bytes.size()));
}

std::string FromLibrary(const TNqString& inText)
{
    std::string text;
    std::string_view rest(inText.StrGet(), inText.ByteLength());
    size_t size;
    for (; !rest.empty(); rest.remove_prefix(size))
    {
        const uint32 high = NextCharacter(rest, size);
        if (IsHighSurrogate(high) && rest.size() > size)
        {
            size_t lowSize;
            const uint32 low = NextCharacter(rest.substr(size), lowSize);
            if (IsLowSurrogate(low))
            {
                Append(text, 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
                size += lowSize;
                continue;
            }
        }
        text += rest.substr(0, size);
    }
    return text;
}

std::string Printable(std::string_view inText, size_t inMaxBytes)
{
    bool cut = false;
    std::string shown = Escaped(inText, inMaxBytes, "", cut);
    return cut ? shown + "..." : shown;
}

std::string Quoted(std::string_view inText, size_t inMaxBytes)
{
    bool cut = false;
    const std::string shown = Escaped(inText, inMaxBytes, "\"\\", cut);
    return '"' + shown + (cut ? "\"..." : "\"");
}

std::string Counted(uint64 inCount, std::string_view inOne)
{
    return fmt::format("{} {}{}", inCount, inOne, inCount == 1 ? "" : "s");
}

std::string NameText(FourCharT inToken)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const auto byte = static_cast<char>(inToken >> shift);
        text += byte == 0 ? '\'' : byte;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace nqtoken
