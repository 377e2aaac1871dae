#include "NqCore/PublicAPI/NqString.h"

#include "NqCore/Include/NqNumberText.h"
#include "NqCore/Include/NqStringWalk.h"
#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqAsciiTranslationTable.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqStringUtils.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale.h>

namespace
{

constexpr uint32 kMaxByteLength = std::numeric_limits<uint32>::max() - 1; // a terminator follows
constexpr uint16 kFormFeed = 12;
constexpr char kCR = '\r';
constexpr char kLF = '\n';

const uint8* AsBytes(const int8* inText)
{
    return reinterpret_cast<const uint8*>(inText);
}

bool IsNegative(uint32 inIndex)
{
    return static_cast<int32>(inIndex) < 0;
}

// A size that does not fit stays too large for any string.
uint32 ClampByteLength(uint64 inByteLength)
{
    return inByteLength > kMaxByteLength ? kMaxByteLength + 1 : static_cast<uint32>(inByteLength);
}

// Where a pattern stands in the bytes of a text, from a byte index on; kNqNotFound when it does not.
uint32 FindBytes(const int8* inText, uint32 inByteLength, uint32 inFrom, const int8* inPattern, uint32 inPatternLength)
{
    const void* const found = memmem(inText + inFrom, inByteLength - inFrom, inPattern, inPatternLength);
    return found != nullptr ? static_cast<uint32>(static_cast<const int8*>(found) - inText) : kNqNotFound;
}

// The bytes before the first NUL, in which the characters stand.
uint32 GetCharBytes(const int8* inText, uint32 inByteLength)
{
    return static_cast<uint32>(strnlen(inText, inByteLength));
}

template <class TWord>
bool IsAsciiWord(const int8* inBytes)
{
    constexpr TWord kEveryByte = static_cast<TWord>(0x0101010101010101);
    constexpr TWord kHighBits = static_cast<TWord>(0x8080808080808080);
    TWord word;
    std::memcpy(&word, inBytes, sizeof word);
    return (((word - kEveryByte) | word) & kHighBits) == 0; // a 0 borrows
}

// Whether each of up to sixteen bytes is a character by itself and no NUL, as in most names. Two words tell, in the
// sizes in which such bytes are copied: a walk, or a load of bytes just stored in other sizes, takes as long as all the
// rest of an assignment.
bool IsShortAscii(const int8* inBytes, uint32 inByteLength)
{
    if (inByteLength > 16)
        return false;
    if (inByteLength >= 8)
        return IsAsciiWord<uint64>(inBytes) && IsAsciiWord<uint64>(inBytes + inByteLength - 8);
    if (inByteLength >= 4)
        return IsAsciiWord<uint32>(inBytes) && IsAsciiWord<uint32>(inBytes + inByteLength - 4);
    return std::all_of(inBytes, inBytes + inByteLength, [](int8 byte) { return byte > 0; });
}

// Numbers are printed and parsed as in the C locale, whatever locale the host has set for itself.
class CWhileInCLocale
{
public:
    CWhileInCLocale() : fPrevious(uselocale(GetCLocale())) {}
    ~CWhileInCLocale() { uselocale(fPrevious); }
    CWhileInCLocale(const CWhileInCLocale&) = delete;
    CWhileInCLocale& operator=(const CWhileInCLocale&) = delete;

private:
    static locale_t GetCLocale()
    {
        static const locale_t sLocale = newlocale(LC_ALL_MASK, "C", nullptr);
        return sLocale;
    }

    locale_t fPrevious;
};

// The decimal point as it was when first needed, so that numbers of one run agree.
char GetDecimalPoint()
{
    static char sDecimalPoint = 0;
    if (sDecimalPoint == 0)
        sDecimalPoint = NqGetDecimalPt();
    return sDecimalPoint;
}

// The largest number, 1.8E308 with two decimals, has 313 characters; 255 significant digits have fewer.
constexpr int kNumberBufferSize = 400;

void SetFromNumber(TNqString& outText, const char* inFormat, int inDigits, real64 inValue)
{
    char text[kNumberBufferSize];
    {
        const CWhileInCLocale cLocale;
        std::snprintf(text, sizeof text, inFormat, inDigits, inValue);
    }
    std::replace(text, text + std::strlen(text), '.', GetDecimalPoint());
    outText.FromCAsciiPtr(text);
}

} // namespace

// ---- Buffers and counts ---------------------------------------------------------------------------------------------

TNqString::TByteRun TNqString::GetText(const char* inString)
{
    if (inString == nullptr)
        return {inString, 0};
    const NqSize byteLength = std::strlen(inString);
    NqCheckText(byteLength <= static_cast<NqSize>(std::numeric_limits<uint32>::max()),
                "(strlen(inString)) <= static_cast<NqSize>(std::numeric_limits<uint32>::max())");
    return {inString, ClampByteLength(byteLength)};
}

TNqString::TByteRun TNqString::GetText(const TNqString& inString)
{
    const int8* const buffer = inString.GetString();
    return {buffer != nullptr ? buffer : "", inString.fByteLength};
}

TNqString::TByteRun TNqString::GetText(const TNqString& inString, uint32 nIndex, uint32 nCount)
{
    if (nIndex >= inString.fLength)
        return {"", 0};
    const uint32 left = inString.fLength - nIndex;
    const uint32 count = nCount == 0 || nCount > left ? left : nCount;
    const TByteRun text = GetText(inString);
    const uint32 start = UTF8CharIndex(AsBytes(text.fBytes), nIndex, text.fByteLength);
    return {text.fBytes + start, inString.GetSubStringByteLength(nIndex, count)};
}

void TNqString::Initialize(char* myData, uint32 inMaxLen, const char* inData, uint32 inDataLength)
{
    fMaxLength = inMaxLen;
    SetByteLength(inDataLength);
    if (inData != nullptr && fByteLength != 0)
    {
        std::memcpy(myData, inData, fByteLength);
        TerminateAndCount(myData);
        return;
    }
    fLength = 0;
    fByteLength = 0;
    std::memset(myData, 0, static_cast<NqSize>(inMaxLen) + 1);
}

void TNqString::TerminateAndCount(int8* inBuffer)
{
    Terminate(inBuffer, IsShortAscii(inBuffer, fByteLength));
}

void TNqString::Terminate(int8* inBuffer, bool inIsAscii)
{
    inBuffer[fByteLength] = 0;
    fLength = inIsAscii ? fByteLength : UTF8StrLen(AsBytes(inBuffer), fByteLength);
    CorrectLength();
}

void TNqString::CorrectLength()
{
    if (!NqCheckText(fLength <= fByteLength, "fLength<=fByteLength"))
        fLength = fByteLength;
}

void TNqString::SetByteLength(uint32 byteLength)
{
    NqCheck(byteLength <= fMaxLength);
    fByteLength = Nq_Min(byteLength, fMaxLength);
}

void TNqString::SetMaxLength(uint32) {}

void TNqString::SpliceBytes(int8* inBuffer, uint32 inByteIndex, TByteRun inText)
{
    const uint64 gapEnd = static_cast<uint64>(inByteIndex) + inText.fByteLength;
    if (gapEnd < fByteLength)
        std::memmove(inBuffer + gapEnd, inBuffer + inByteIndex, fByteLength - gapEnd);
    // A string inserted into itself is still whole: its old bytes end where the gap ends, or before.
    std::memmove(inBuffer + inByteIndex, inText.fBytes, Nq_Min(inText.fByteLength, fByteLength - inByteIndex));
}

uint32 TNqString::GetSubStringByteLength(uint32 inIndex, uint32 inLength) const
{
    if (inLength == 0)
        return 0;
    if (!NqCheckText(static_cast<uint64>(inIndex) + inLength <= fLength, "Substring extends past end of string!"))
    {
        if (inIndex >= fLength)
            return 0;
        inLength = fLength - inIndex;
    }
    const TByteRun text = GetText(*this);
    const uint8* const bytes = AsBytes(text.fBytes);
    const uint32 first = UTF8CharIndex(bytes, inIndex, text.fByteLength);
    const uint32 last = first + UTF8CharIndex(bytes + first, inLength - 1, text.fByteLength - first);
    if (last >= text.fByteLength)
        return text.fByteLength - first;
    return last + NqCharWidth(bytes, text.fByteLength, last) - first;
}

void TNqString::SetLength(uint32 length)
{
    int8* const buffer = GetString();
    if (!NqCheckText(buffer != nullptr && !NqCheckDeceased(buffer), "Bad Pointer"))
        return;
    if (length == fLength || !NqCheck(length < fLength))
        return;
    SetByteLength(GetSubStringByteLength(0, length));
    TerminateAndCount(buffer);
}

uint16 TNqString::GetCharAt(uint32 inCharIndex) const
{
    if (!NqCheckText(!IsNegative(inCharIndex), "Index Pb in GetChar"))
        inCharIndex = 0;
    if (inCharIndex >= fLength)
        return 0;
    const TByteRun text = GetText(*this);
    const uint8* const bytes = AsBytes(text.fBytes);
    const uint32 at = UTF8CharIndex(bytes, inCharIndex, text.fByteLength);
    return UTF8CharToUnicode(bytes + at, text.fByteLength - at);
}

char TNqString::GetSBCharAt(uint32 inByteIndex) const
{
    if (!NqCheckText(!IsNegative(inByteIndex), "Index Pb in GetChar"))
        inByteIndex = 0;
    return inByteIndex < fByteLength ? GetText(*this).fBytes[inByteIndex] : '\0';
}

// ---- Conversion in --------------------------------------------------------------------------------------------------

TNqString& TNqString::operator=(const TNqString& inString)
{
    if (this != &inString)
        FromText(inString.GetString(), inString.fByteLength);
    return *this;
}

void TNqString::FromText(const char* inData, uint32 inLength)
{
    const uint32 oldByteLength = fByteLength;
    // The string's own bytes grow only by their terminator, and are in place when they have moved.
    const bool isWholeBuffer = fMaxLength != 0 && inLength == fMaxLength + 1 && inData == GetString();
    int8 only = 0;
    if (inLength == 1 &&
        inData != nullptr) // perhaps the terminator of a string without capacity, which is about to move
    {
        only = *inData;
        inData = &only;
    }
    SetByteLength(inLength);
    int8* const buffer = GetString();
    if (buffer == nullptr)
    {
        fLength = 0;
        return;
    }
    if (isWholeBuffer)
        inData = buffer;
    if (inData != nullptr)
        std::memmove(buffer, inData, fByteLength);
    else if (fByteLength > oldByteLength)
        std::memset(buffer + oldByteLength, 0, fByteLength - oldByteLength);
    TerminateAndCount(buffer);
}

void TNqString::FromCAsciiPtr(const char* inData)
{
    if (inData == nullptr)
        return;
    const NqSize byteLength = std::strlen(inData);
    NqCheckText(byteLength <= static_cast<NqSize>(std::numeric_limits<uint32>::max()),
                "(strlen(data)) <= static_cast<NqSize>(std::numeric_limits<uint32>::max())");
    FromText(inData, ClampByteLength(byteLength));
}

void TNqString::FromPPtr(const uint8* inData)
{
    if (inData != nullptr)
        FromText(reinterpret_cast<const char*>(inData + 1), inData[0]);
}

void TNqString::FromUnicode(const uint16* inData)
{
    if (inData == nullptr)
        return;
    const uint16* end = NqFindEnd(inData);
    const uint64 total = NqCountUTF8(inData, end);
    SetByteLength(ClampByteLength(total));
    int8* const buffer = GetString();
    fLength = 0;
    if (buffer == nullptr)
        return;
    if (total > fByteLength) // a fixed string takes what fits
    {
        uint32 used = 0;
        for (end = inData; UnicodeNumBytes(*end) <= fByteLength - used; ++end)
            used += UnicodeNumBytes(*end);
    }
    const uint8* const written = NqEncodeUTF8(inData, end, reinterpret_cast<uint8*>(buffer));
    const uint32 used = static_cast<uint32>(written - AsBytes(buffer));
    fLength = static_cast<uint32>(end - inData);
    SetByteLength(used);
    buffer[used] = 0;
}

void TNqString::FromEncodedPtr(const uint8* inData, ITranscoder* transcoder)
{
    if (!NqCheck(transcoder) || inData == nullptr)
        return;
    const uint64 total = std::strlen(reinterpret_cast<const char*>(inData));
    if (NqHasAsciiAsItIs(*transcoder) && NqIsAscii(inData, total))
    {
        // Most texts: characters, and what FromUnicode makes of them, are these bytes.
        transcoder->Encode(0); // what it has of a sequence ends here
        SetByteLength(ClampByteLength(total));
        int8* const buffer = GetString();
        fLength = 0;
        if (buffer == nullptr)
            return;
        fLength = static_cast<uint32>(std::min<uint64>(total, fByteLength));
        std::memmove(buffer, inData, fLength);
        SetByteLength(fLength);
        buffer[fLength] = 0;
        return;
    }
    TNqArray<uint16> units;
    if (!units.SetElemSpace(ClampByteLength(total + 2)))
        return;
    uint16 unit;
    do
    {
        unit = transcoder->Encode(*inData);
        if (unit != kNqNoCharacter)
            units.AddElem(unit);
    } while (unit != 0 && *inData++ != 0);
    if (unit != 0)
        units.AddElem(0);
    FromUnicode(units.ArrayData());
}

void TNqString::FromFourCharT(uint32 inCode, uint8 inDontCheckValue)
{
    constexpr uint32 kFirstPrintable = 0x21212122; // below it a character would be a blank, a control or missing
    if (!inDontCheckValue && inCode < kFirstPrintable)
    {
        FromInt32(static_cast<int32>(inCode));
        return;
    }
    const char pstr[5] = {static_cast<char>(inCode >> 24), static_cast<char>(inCode >> 16),
                          static_cast<char>(inCode >> 8), static_cast<char>(inCode), 0};
    FromText(pstr, inDontCheckValue ? 4 : static_cast<uint32>(std::strlen(pstr)));
}

void TNqString::FromInt32(int32 inValue)
{
    char digits[12];
    char* const end = digits + sizeof digits;
    char* first = end;
    uint32 magnitude = inValue < 0 ? 0 - static_cast<uint32>(inValue) : static_cast<uint32>(inValue);
    do
    {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (inValue < 0)
        *--first = '-';
    FromText(first, static_cast<uint32>(end - first));
}

void TNqString::FromReal32(real32 inValue, uint8 inDecimals)
{
    SetFromNumber(*this, "%.*f", inDecimals, static_cast<real64>(inValue));
}

void TNqString::FromReal64(real64 inValue, uint8 inPrecision)
{
    SetFromNumber(*this, "%.*G", inPrecision, inValue);
}

void TNqString::FromReal64(real64 inValue)
{
    SetFromNumber(*this, "%.*f", 2, inValue);
}

// ---- Conversion out -------------------------------------------------------------------------------------------------

void TNqString::ToCPtr(char* outText) const
{
    ToUTF8Ptr(reinterpret_cast<uint8*>(outText));
}

uint8* TNqString::ToUTF8Ptr(uint8* outBytes) const
{
    std::memmove(outBytes, GetText(*this).fBytes, fByteLength);
    outBytes[fByteLength] = 0;
    return outBytes + fByteLength;
}

void TNqString::ToPPtr(uint8* outBytes) const
{
    std::memmove(outBytes + 1, GetText(*this).fBytes, fByteLength);
    outBytes[0] = static_cast<uint8>(fByteLength);
}

uint16* TNqString::ToUnicode(uint16* outData, int32 inDataSize) const
{
    const char* const badSize = "Bad size in TNqString::ToUnicode";
    if (!NqCheckText(inDataSize > 0, badSize))
        return outData;
    const TByteRun text = GetText(*this);
    const uint8* const bytes = AsBytes(text.fBytes);
    const TNqUTF8Decoding decoded = NqDecodeUTF8(bytes, bytes + text.fByteLength, outData, outData + inDataSize);
    int32 index = static_cast<int32>(decoded.fOut - outData);
    NqCheckText(decoded.IsAtEnd(), "index < dataSize");
    if (!NqCheckText(index < inDataSize, badSize))
        index = inDataSize - 1;
    outData[index] = 0;
    return outData + index;
}

uint32 TNqString::ToFourCharT() const
{
    const TByteRun text = GetText(*this);
    TNqCharWalk walk(text.fBytes, text.fByteLength);
    uint32 code = 0;
    uint16 ch = 0;
    for (uint32 i = 0; i < 4; ++i)
        code = (code << 8) | (i < fLength && walk.Next(ch) ? ch & 0xFFu : 0u);
    return code;
}

int32 TNqString::ToInt32() const
{
    return static_cast<int32>(std::strtol(GetText(*this).fBytes, nullptr, 10));
}

real32 TNqString::ToReal32() const
{
    const char decimalPoint = GetDecimalPoint();
    const char* p = GetText(*this).fBytes;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    if (*p == 0)
        return 0;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto addDigit = [](uint32 value, char c) { return value * 10 + static_cast<uint32>(c - '0'); };

    uint32 whole = 0;
    for (; isDigit(*p) || (*p == ',' && decimalPoint != ','); ++p)
    {
        if (*p != ',')
            whole = addDigit(whole, *p);
    }
    uint32 numerator = 0;
    uint32 denominator = 1;
    if (*p == decimalPoint)
    {
        for (int32 places = 0; places < 9 && isDigit(*++p); ++places)
        {
            numerator = addDigit(numerator, *p);
            denominator *= 10;
        }
    }
    const real32 value = static_cast<real32>(whole) + static_cast<real32>(numerator) / static_cast<real32>(denominator);
    return negative ? -value : value;
}

real64 TNqString::ToReal64() const
{
    char work[64];
    const uint32 count = NqCheck(ByteLength() < 64) ? fByteLength : static_cast<uint32>(sizeof work - 1);
    std::memcpy(work, GetText(*this).fBytes, count);
    work[count] = 0;
    std::replace(work, work + count, GetDecimalPoint(), '.');
    real64 value = 0;
    const CWhileInCLocale cLocale;
    return std::sscanf(work, "%lf", &value) == 1 ? value : 0;
}

boolean TNqString::IsNumericString() const
{
    const char decimalPoint = GetDecimalPoint();
    const TByteRun text = GetText(*this);
    return std::all_of(text.fBytes, text.fBytes + text.fByteLength,
                       [decimalPoint](char c)
                       { return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == decimalPoint; });
}

// ---- Editing --------------------------------------------------------------------------------------------------------

TNqString& TNqString::operator+=(const TNqString& inString)
{
    TByteRun text = GetText(inString);
    if (text.fByteLength == 0)
        return *this;
    const uint32 oldByteLength = fByteLength;
    SetByteLength(ClampByteLength(static_cast<uint64>(oldByteLength) + text.fByteLength));
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return *this;
    if (this == &inString)
        text.fBytes = buffer; // it may have moved
    const bool isAscii = IsShortAscii(buffer, oldByteLength) && IsShortAscii(text.fBytes, text.fByteLength);
    SpliceBytes(buffer, oldByteLength, text);
    Terminate(buffer, isAscii);
    return *this;
}

TNqString& TNqString::operator+=(uint16 inChar)
{
    const uint32 oldByteLength = fByteLength;
    SetByteLength(ClampByteLength(static_cast<uint64>(oldByteLength) + 1));
    if (!NqCheck(fByteLength > oldByteLength))
        return *this;
    int8* const buffer = GetString();
    buffer[oldByteLength] = static_cast<int8>(inChar);
    buffer[fByteLength] = 0;
    ++fLength;
    return *this;
}

TNqString1023 operator+(const TNqString& inLeft, const TNqString& inRight)
{
    TNqString1023 sum(inLeft);
    sum += inRight;
    return sum;
}

boolean TNqString::CanInsertAt(uint32 nIndex) const
{
    return !IsNegative(nIndex) && (nIndex == 0 || nIndex - 1 < fLength);
}

void TNqString::InsertStr(const TNqString& inString, uint32 nIndex)
{
    const TByteRun text = GetText(inString);
    if (text.fByteLength == 0 || !CanInsertAt(nIndex))
        return;
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return;
    const uint32 byteIndex = UTF8CharIndex(AsBytes(buffer), nIndex, fByteLength);
    const uint64 newByteLength = static_cast<uint64>(fByteLength) + text.fByteLength;
    if (NqCheck(newByteLength <= fMaxLength))
        fLength += inString.fLength;
    SetByteLength(static_cast<uint32>(std::min<uint64>(newByteLength, fMaxLength)));
    SpliceBytes(buffer, byteIndex, text);
    buffer[fByteLength] = 0;
}

void TNqString::RemoveBytes(uint32 inStart, uint32 inEnd)
{
    int8* const buffer = GetString();
    std::memmove(buffer + inStart, buffer + inEnd, fByteLength - inEnd);
    SetByteLength(fByteLength - (inEnd - inStart));
    buffer[fByteLength] = 0;
}

boolean TNqString::EraseStr(uint32 nIndex, uint32 nCount)
{
    if (IsNegative(nIndex) || IsNegative(nCount) || nCount == 0 || nIndex >= fLength)
        return false;
    const TByteRun text = GetText(*this);
    const uint8* const bytes = AsBytes(text.fBytes);
    const uint32 count = Nq_Min(nCount, fLength - nIndex);
    const uint32 start = UTF8CharIndex(bytes, nIndex, text.fByteLength);
    const uint32 textEnd = start + GetCharBytes(text.fBytes + start, text.fByteLength - start);
    uint32 end = start;
    uint32 width = 0; // of the last character; a stray byte is taken to be as wide
    for (uint32 left = count; left != 0 && end < textEnd; --left)
    {
        if (UTF8IsCharStart(bytes[end]))
            width = NqCharWidth(bytes, textEnd, end);
        end += Nq_Min(width, textEnd - end);
    }
    if (end == start)
        return false;
    RemoveBytes(start, end);
    fLength -= count;
    CorrectLength();
    return true;
}

boolean TNqString::EraseSBStr(uint32 nIndex, uint32 nCount)
{
    if (IsNegative(nIndex) || IsNegative(nCount) || nCount == 0 || nIndex >= fByteLength)
        return false;
    const uint32 count = Nq_Min(nCount, fByteLength - nIndex);
    RemoveBytes(nIndex, nIndex + count);
    SetLength(fLength > count ? fLength - count : 0);
    return true;
}

void TNqString::SubString(uint32 nIndex, uint32 nCount)
{
    if (!NqCheck(nIndex < Length()))
    {
        FromText("", 0);
        return;
    }
    EraseStr(0, nIndex);
    SetLength(Nq_Min(nCount, fLength));
}

void TNqString::SetCharAt(uint16 c, uint32 nIndex)
{
    const uint32 charIndex = IsNegative(nIndex) ? 0 : nIndex;
    if (charIndex >= fLength)
        return;
    const uint8* bytes = AsBytes(GetString());
    const uint32 at = UTF8CharIndex(bytes, charIndex, fByteLength);
    const uint32 oldWidth = at < fByteLength ? NqCharWidth(bytes, fByteLength, at) : 0;
    if (oldWidth == 0)
        return; // fewer characters than were counted
    uint8 encoded[3];
    const uint32 newWidth = UnicodeToUTF8Char(c, encoded);
    const uint32 oldByteLength = fByteLength;
    const uint32 tail = at + oldWidth;
    SetByteLength(ClampByteLength(static_cast<uint64>(at) + newWidth + (oldByteLength - tail)));

    int8* const buffer = GetString();
    if (buffer == nullptr)
        return;
    if (static_cast<uint64>(at) + newWidth > fByteLength)
    {
        fByteLength = oldByteLength;
        return;
    }
    bytes = AsBytes(buffer);
    uint32 tailLength = fByteLength - at - newWidth;
    if (tailLength < oldByteLength - tail) // a full fixed string: the tail is cut before a character
    {
        while (tailLength != 0 && !UTF8IsCharStart(bytes[tail + tailLength]))
            --tailLength;
        SetByteLength(at + newWidth + tailLength);
    }
    std::memmove(buffer + at + newWidth, buffer + tail, tailLength);
    std::memcpy(buffer + at, encoded, newWidth);
    TerminateAndCount(buffer);
}

void TNqString::SetSBCharAt(char c, int32 nIndex)
{
    if (!NqCheck(nIndex >= 0))
        nIndex = 0;
    if (!NqCheckText(static_cast<uint32>(nIndex) <= fByteLength, "nIndex <= int32(fByteLength)"))
        return;
    if (static_cast<uint32>(nIndex) == fByteLength && !NqCheckText(c == 0, "c==0"))
        return;
    int8* const buffer = GetString();
    if (buffer != nullptr)
        buffer[nIndex] = c;
}

// ---- Searching ------------------------------------------------------------------------------------------------------

uint32 TNqString::GetPatternLength(TByteRun inPattern, uint32 inLength)
{
    const bool canMatch = inPattern.fByteLength != 0 && UTF8IsCharStart(static_cast<uint8>(inPattern.fBytes[0]));
    return canMatch ? Nq_Min(inLength, inPattern.fByteLength) : 0;
}

uint32 TNqString::SearchStr(const TNqString& inString, uint32 nIndex) const
{
    if (IsNegative(nIndex) || nIndex > fLength)
        return kNqNotFound;
    if (inString.fLength == 0)
        return nIndex;
    const TByteRun pattern = GetText(inString);
    const uint32 patternLength = GetPatternLength(pattern, inString.fLength);
    const TByteRun text = GetText(*this);
    const uint32 end = GetCharBytes(text.fBytes, text.fByteLength);
    const uint32 start = UTF8CharIndex(AsBytes(text.fBytes), nIndex, end);
    const uint32 found =
        patternLength != 0 ? FindBytes(text.fBytes, end, start, pattern.fBytes, patternLength) : kNqNotFound;
    if (found == kNqNotFound)
        return kNqNotFound;
    const auto isContinuation = [](int8 byte) { return (byte & 0xC0) == 0x80; };
    const auto skipped = std::count_if(text.fBytes + start, text.fBytes + found, isContinuation);
    return nIndex + (found - start) - static_cast<uint32>(skipped);
}

uint32 TNqString::SearchSBStr(const TNqString& inString, uint32 nIndex) const
{
    if (nIndex > fByteLength)
        return kNqNotFound;
    const TByteRun text = GetText(*this);
    const TByteRun pattern = GetText(inString);
    const uint32 patternLength = GetCharBytes(pattern.fBytes, pattern.fByteLength);
    return FindBytes(text.fBytes, text.fByteLength, nIndex, pattern.fBytes, patternLength);
}

uint32 TNqString::FindCharPos(uint16 c, uint32 nIndex) const
{
    if (IsNegative(nIndex) || nIndex >= fLength)
        return kNqNotFound;
    const TByteRun text = GetText(*this);
    const uint8* const bytes = AsBytes(text.fBytes);
    uint32 charIndex = nIndex;
    for (uint32 at = UTF8CharIndex(bytes, nIndex, text.fByteLength); at < text.fByteLength && bytes[at] != 0;
         ++charIndex)
    {
        const uint32 width = NqCharWidth(bytes, text.fByteLength, at);
        if (!NqCheckText(width != 0, "Invalid UTF8 string"))
            return kNqNotFound;
        if (UTF8CharToUnicode(bytes + at, text.fByteLength - at) == c)
            return charIndex;
        at += width;
    }
    return kNqNotFound;
}

uint32 TNqString::FindSBCharPos(char c, uint32 nIndex) const
{
    return nIndex < fByteLength ? FindBytes(GetText(*this).fBytes, fByteLength, nIndex, &c, 1) : kNqNotFound;
}

uint32 TNqString::FindCharPosFromRight(uint16 c, uint32 nIndex) const
{
    const TByteRun text = GetText(*this);
    TNqCharWalk walk(text.fBytes, text.fByteLength);
    uint32 found = kNqNotFound;
    uint16 ch = 0;
    for (uint32 i = 0; i <= nIndex && i < fLength && walk.Next(ch); ++i)
    {
        if (ch == c)
            found = i; // the last one before nIndex is the first one from the right
    }
    return found;
}

uint32 TNqString::ReplaceStr(const TNqString& ss, const TNqString& inReplace, uint32 nIndex)
{
    const TByteRun pattern = GetText(ss);
    const uint32 patternLength = GetPatternLength(pattern, ss.fLength);
    if (patternLength == 0 || IsNegative(nIndex) || nIndex > fLength)
        return 0;
    const TByteRun text = GetText(*this);
    const TByteRun with = GetText(inReplace);
    const int8* const end = text.fBytes + GetCharBytes(text.fBytes, text.fByteLength);
    const int8* const textEnd = text.fBytes + text.fByteLength;
    const auto isAscii = [](int8 byte) { return byte >= 0; };
    const bool isAsciiPattern =
        patternLength == ss.fLength && std::all_of(pattern.fBytes, pattern.fBytes + patternLength, isAscii);
    const auto findNext = [&](const int8* from) { return NqFindPattern(from, end, pattern.fBytes, patternLength); };
    const auto skipMatch = [&](const int8* found)
    {
        const int8* const after = found + patternLength; // as many characters as bytes, when no stray byte follows
        if (isAsciiPattern && (after == end || UTF8IsCharStart(static_cast<uint8>(*after))))
            return after;
        return found + UTF8CharIndex(AsBytes(found), ss.fLength, static_cast<NqSize>(end - found));
    };

    const int8* at = text.fBytes + UTF8CharIndex(AsBytes(text.fBytes), nIndex, static_cast<NqSize>(end - text.fBytes));
    const int8* found = findNext(at);
    if (found == end)
        return 0;
    TNqDynamicString result;
    int8* out = nullptr;
    uint64 used = 0;
    const auto put = [&](const int8* bytes, uint64 byteLength)
    {
        const uint64 needed = used + byteLength;
        if (out == nullptr || needed > result.fByteLength)
        {
            // Room for the rest as it is, and some for what replacements add to it.
            const uint64 rest = static_cast<uint64>(textEnd - at);
            const uint64 wanted = needed + rest + (needed + rest) / 4;
            result.SetByteLength(ClampByteLength(std::max(needed, std::min<uint64>(wanted, kMaxByteLength))));
            out = result.GetString();
            if (out == nullptr)
                return false;
        }
        std::memcpy(out + used, bytes, byteLength);
        used = needed;
        return true;
    };
    uint32 count = 0;
    for (; found != end; found = findNext(at), ++count)
    {
        if (!put(at, static_cast<uint64>(found - at)) || !put(with.fBytes, with.fByteLength))
            return 0;
        at = skipMatch(found);
    }
    if (!put(at, static_cast<uint64>(textEnd - at)))
        return 0;
    FromText(out, static_cast<uint32>(used));
    return count;
}

// ---- Comparison and case --------------------------------------------------------------------------------------------

boolean TNqString::operator<(const TNqString& inString) const
{
    return NqCompareStrings(*this, inString) < 0;
}

boolean TNqString::operator>(const TNqString& inString) const
{
    return NqCompareStrings(*this, inString) > 0;
}

boolean TNqString::operator<=(const TNqString& inString) const
{
    return NqCompareStrings(*this, inString) <= 0;
}

boolean TNqString::operator>=(const TNqString& inString) const
{
    return NqCompareStrings(*this, inString) >= 0;
}

boolean TNqString::operator==(const TNqString& inString) const
{
    const TByteRun a = GetText(*this);
    const TByteRun b = GetText(inString);
    const uint32 byteLength = GetCharBytes(a.fBytes, a.fByteLength);
    return byteLength == GetCharBytes(b.fBytes, b.fByteLength) && std::memcmp(a.fBytes, b.fBytes, byteLength) == 0;
}

boolean TNqString::operator!=(const TNqString& inString) const
{
    return !(*this == inString);
}

int TNqString::CompareQuick(const TNqString& inString) const
{
    const TByteRun a = GetText(*this);
    const TByteRun b = GetText(inString);
    const auto byteAt = [](TByteRun text, uint32 i)
    { return i < text.fByteLength ? static_cast<int>(static_cast<uint8>(text.fBytes[i])) : 0; };
    uint32 i = 0;
    while (byteAt(a, i) != 0 && byteAt(a, i) == byteAt(b, i))
        ++i;
    return static_cast<int8_t>(byteAt(a, i) - byteAt(b, i));
}

boolean TNqString::IsEqualNotCaseSensitive(const TNqString& inString) const
{
    TNqString1023 a(*this);
    TNqString1023 b(inString);
    NqUpperString(a);
    NqUpperString(b);
    return a == b;
}

void TNqString::ToUpper()
{
    NqUpperString(*this);
}

void TNqString::ToLower()
{
    NqLowerString(*this);
}

void TNqString::Capitalize()
{
    NqLowerString(*this);
    const char first = GetSBCharAt(0);
    if (first >= 'a' && first <= 'z')
        SetSBCharAt(static_cast<char>(first - 32), 0);
}

// ---- Text translation -----------------------------------------------------------------------------------------------

void TNqString::TranslateAscii(uint8 inInverse)
{
    const TNqAsciiTranslationTable* const table = GetAsciiTranslationTable();
    int8* buffer = table != nullptr ? GetString() : nullptr;
    if (buffer == nullptr)
        return;
    // The unread rest follows a gap behind what is written. fByteLength counts the gap at the size that the
    // replacements so far asked for; the gap itself may be larger, since the rest moves to the end of the buffer when
    // it moves at all.
    uint32 written = 0;
    uint32 next = 0;
    for (uint32 rest = fByteLength; rest != 0;)
    {
        const uint8 byte = static_cast<uint8>(buffer[next++]);
        --rest;
        const uint8 entry = table->Translate(byte, inInverse);
        if (!NqCheckText(entry != kNqUntranslatable, "Untranslatable character"))
            continue;
        if (entry != kNqEscaped)
        {
            buffer[written++] = static_cast<int8>(entry);
            continue;
        }
        const uint8* const escape = table->FindEscapeChar(byte, inInverse);
        if (!NqCheckText(escape != nullptr, "Missing escape string"))
            continue;
        const uint32 escapeLength = static_cast<uint32>(std::strlen(reinterpret_cast<const char*>(escape)));
        const uint32 gap = fByteLength - rest - written;
        if (escapeLength > gap)
        {
            const boolean fits = MakeRoom(escapeLength - gap);
            buffer = GetString();
            if (buffer == nullptr)
                return;
            if (!NqCheckText(fits, "Skipping char in TranslateAscii"))
                continue;
        }
        if (escapeLength > next - written)
        {
            std::memmove(buffer + fMaxLength - rest, buffer + next, rest);
            next = fMaxLength - rest;
        }
        std::memcpy(buffer + written, escape, escapeLength);
        written += escapeLength;
    }
    buffer[written] = 0;
    SetByteLength(written);
}

boolean TNqString::MakeRoom(uint32 inExtra)
{
    const uint64 newByteLength = static_cast<uint64>(fByteLength) + inExtra;
    if (newByteLength > fMaxLength)
        SetMaxLength(ClampByteLength(newByteLength + static_cast<uint32>(0.01 * fMaxLength)));
    if (newByteLength > fMaxLength)
        return false;
    fByteLength = static_cast<uint32>(newByteLength);
    fLength += inExtra;
    return true;
}

void TNqString::TranslateBeforeWrite(TNqString& outText) const
{
    outText = *this;
}

void TNqString::TranslateAfterRead()
{
    if (GetCharAt(0) != kFormFeed)
        return;
    EraseStr(0, 1);
    if (GetCharAt(0) != '@')
        return;
    const uint32 tagEnd = SearchStr(TNqString15("@M"), 0);
    if (tagEnd == kNqNotFound)
        return;
    EraseStr(0, tagEnd + 2);
    const uint32 suffix = FindCharPos('@', 0);
    if (suffix != kNqNotFound)
        EraseStr(suffix, fLength - suffix);
}

void TNqString::TranslateSBAfterRead()
{
    if (GetSBCharAt(0) != '@')
        return;
    const uint32 tagEnd = SearchSBStr(TNqString15("@M"), 0);
    if (tagEnd == kNqNotFound)
        return;
    EraseSBStr(0, tagEnd + 2);
    const uint32 suffix = FindSBCharPos('@', 0);
    if (suffix != kNqNotFound)
        EraseSBStr(suffix, fByteLength - suffix);
}

void TNqString::ConvertLineFeed(ELineFeed inToType)
{
    if (inToType == kWinLineFeed)
        ChangeLineBreaksToWin();
    else
        ChangeLineBreaks(inToType == kMacLineFeed ? kCR : kLF);
}

// Every break shrinks or stays, so one pass in place does.
void TNqString::ChangeLineBreaks(char inLineBreak)
{
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return;
    uint32 written = 0;
    for (uint32 at = 0; at < fByteLength; ++at)
    {
        const int8 byte = buffer[at];
        if (byte == kCR && at + 1 < fByteLength && buffer[at + 1] == kLF)
            ++at;
        buffer[written++] = byte == kCR || byte == kLF ? inLineBreak : byte;
    }
    SetByteLength(written);
    TerminateAndCount(buffer);
}

void TNqString::ChangeLineBreaksToWin()
{
    const TByteRun text = GetText(*this);
    uint64 newLength = 0;
    uint16 ch = 0;
    for (TNqCharWalk walk(text.fBytes, text.fByteLength); walk.Next(ch);)
        newLength += ch == kCR || ch == kLF ? 2u : 1u;

    TNqDynamicString result;
    result.SetMaxLength(ClampByteLength(newLength));
    if (result.fMaxLength < newLength)
        return;
    uint16 previous = 0;
    for (TNqCharWalk walk(text.fBytes, text.fByteLength); walk.Next(ch); previous = ch)
    {
        if (ch == kLF && previous == kCR)
            continue; // the second half of a break
        if (ch == kCR || ch == kLF)
        {
            result += static_cast<uint16>(kCR);
            result += static_cast<uint16>(kLF);
        }
        else
        {
            result += ch;
        }
    }
    *this = result;
}

// ---- Fixed capacity -------------------------------------------------------------------------------------------------

template class TNqFixedString<15>;
template class TNqFixedString<31>;
template class TNqFixedString<63>;
template class TNqFixedString<255>;
template class TNqFixedString<1023>;

// ---- Dynamic strings ------------------------------------------------------------------------------------------------

TNqDynamicString::TNqDynamicString()
{
    InitializeDynamic(nullptr, 0);
}

TNqDynamicString::TNqDynamicString(const char* inString)
{
    const TByteRun text = GetText(inString);
    InitializeDynamic(text.fBytes, text.fByteLength);
}

TNqDynamicString::TNqDynamicString(const char* inString, uint32 inByteLength)
{
    InitializeDynamic(inString, inByteLength);
}

TNqDynamicString::TNqDynamicString(const TNqString& inString)
{
    const TByteRun text = GetText(inString);
    InitializeDynamic(text.fBytes, text.fByteLength);
}

TNqDynamicString::TNqDynamicString(const TNqDynamicString& inString)
    : TNqDynamicString(static_cast<const TNqString&>(inString))
{
}

TNqDynamicString::TNqDynamicString(const TNqString& inString, uint32 nIndex, uint32 nCount)
{
    const TByteRun text = GetText(inString, nIndex, nCount);
    InitializeDynamic(text.fBytes, text.fByteLength);
}

TNqDynamicString::~TNqDynamicString()
{
    if (fStringBuffer != nullptr)
        Nqfree(fStringBuffer);
}

void TNqDynamicString::InitializeDynamic(const char* inString, uint32 inLength)
{
    fStringBuffer =
        inLength <= kMaxByteLength ? static_cast<int8*>(Nqmalloc(static_cast<NqSize>(inLength) + 1)) : nullptr;
    if (fStringBuffer != nullptr)
        Initialize(fStringBuffer, inLength, inString, inLength);
}

void TNqDynamicString::AllocateDynamicString(uint32 inByteLength)
{
    int8* buffer = nullptr;
    if (inByteLength <= kMaxByteLength)
    {
        const uint32 size = inByteLength + 1;
        buffer = static_cast<int8*>(fStringBuffer != nullptr ? Nqrealloc(fStringBuffer, size) : Nqmalloc(size));
    }
    if (buffer == nullptr)
    {
        LoseBuffer();
        return;
    }
    if (fStringBuffer == nullptr)
        buffer[0] = 0;
    fStringBuffer = buffer;
    fMaxLength = inByteLength;
    if (fByteLength > inByteLength)
    {
        fByteLength = inByteLength;
        TerminateAndCount(buffer);
    }
}

void TNqDynamicString::LoseBuffer()
{
    if (fStringBuffer != nullptr)
        Nqfree(fStringBuffer);
    fStringBuffer = nullptr;
    fLength = 0;
    fByteLength = 0;
    fMaxLength = 0;
}

void TNqDynamicString::SetByteLength(uint32 inByteLength)
{
    if (inByteLength > fMaxLength)
        AllocateDynamicString(inByteLength);
    fByteLength = Nq_Min(inByteLength, fMaxLength);
}

void TNqDynamicString::SetMaxLength(uint32 inMaxLength)
{
    if (inMaxLength != fMaxLength)
        AllocateDynamicString(inMaxLength);
}

int8* TNqDynamicString::GetString() const
{
    NqCheckText(fStringBuffer != nullptr, "fStringBuffer != NULL");
    return fStringBuffer;
}

TNqDynamicString& TNqDynamicString::operator=(const TNqString& inString)
{
    TNqString::operator=(inString);
    return *this;
}

TNqDynamicString& TNqDynamicString::operator=(const TNqDynamicString& inString)
{
    if (this != &inString)
        FromText(inString.GetString(), inString.fByteLength);
    return *this;
}

void TNqDynamicString::Append(const char* ss, uint32 inByteCount)
{
    if (ss == nullptr || inByteCount == 0)
        return;
    const uintpointer offset = reinterpret_cast<uintpointer>(ss) - reinterpret_cast<uintpointer>(fStringBuffer);
    const bool ownBytes = fStringBuffer != nullptr && offset <= fMaxLength;
    const uint32 oldByteLength = fByteLength;
    SetByteLength(ClampByteLength(static_cast<uint64>(oldByteLength) + inByteCount));
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return;
    SpliceBytes(buffer, oldByteLength, {ownBytes ? buffer + offset : ss, inByteCount});
    TerminateAndCount(buffer);
}

TNqDynamicString& TNqDynamicString::operator+=(const TNqString& inString)
{
    const TByteRun text = GetText(inString);
    Append(text.fBytes, text.fByteLength);
    return *this;
}

TNqDynamicString& TNqDynamicString::operator+=(uint16 inChar)
{
    const char high = static_cast<char>(inChar >> 8);
    const char low = static_cast<char>(inChar);
    const uint32 byteCount = NqIsWesternLanguage() ? 1 : static_cast<uint32>(NqStrCharLen(high));
    uint32 at = fByteLength;
    SetByteLength(ClampByteLength(static_cast<uint64>(at) + byteCount));
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return *this;
    if (byteCount == 2)
        buffer[at++] = high;
    buffer[at] = low;
    buffer[fByteLength] = 0;
    ++fLength;
    return *this;
}

void TNqDynamicString::InsertStr(const TNqString& inString, uint32 nIndex)
{
    TByteRun text = GetText(inString);
    if (text.fByteLength == 0 || !CanInsertAt(nIndex))
        return;
    const uint32 byteIndex = fStringBuffer != nullptr ? UTF8CharIndex(AsBytes(fStringBuffer), nIndex, fByteLength) : 0;
    SetByteLength(ClampByteLength(static_cast<uint64>(fByteLength) + text.fByteLength));
    int8* const buffer = GetString();
    if (buffer == nullptr)
        return;
    if (this == &inString)
        text.fBytes = buffer; // it may have moved
    SpliceBytes(buffer, byteIndex, text);
    TerminateAndCount(buffer);
}

// ---- Wide strings ---------------------------------------------------------------------------------------------------

TNqWideString::TNqWideString(const char* inString)
{
    FromString(TNqDynamicString(inString));
}

TNqWideString& TNqWideString::operator=(const TNqString& inString)
{
    FromString(inString);
    return *this;
}

void TNqWideString::FromString(const TNqString& inString)
{
    const NqSize count = static_cast<NqSize>(inString.Length()) + 1;
    fStringBuffer.SetElemCount(0); // zeroes the units held before
    if (fStringBuffer.SetElemCount(count))
        inString.ToUnicode(fStringBuffer.ArrayData(), static_cast<int32>(count));
}

void TNqWideString::FromUnicode(const uint16* inText)
{
    if (inText == nullptr)
        return;
    NqSize count = 1;
    while (inText[count - 1] != 0)
        ++count;
    if (fStringBuffer.IsInArray(inText)) // its own units, of which it drops the first ones
    {
        std::memmove(fStringBuffer.ArrayData(), inText, count * sizeof(uint16));
        fStringBuffer.SetElemCount(count);
        return;
    }
    fStringBuffer.SetElemCount(0); // zeroes the units held before
    if (fStringBuffer.SetElemCount(count))
        std::memcpy(fStringBuffer.ArrayData(), inText, count * sizeof(uint16));
}

uint32 TNqWideString::Length() const
{
    const uint32 count = fStringBuffer.GetElemCount();
    return count != 0 ? count - 1 : 0;
}

uint16* TNqWideString::StrGet() const
{
    return const_cast<uint16*>(fStringBuffer.ArrayData());
}

// ---- Decimal texts --------------------------------------------------------------------------------------------------

namespace
{

bool IsSeparator(char c)
{
    return c == '.' || c == ',';
}

} // namespace

void StripTrailingZeros(TNqString& ioText)
{
    const char* const begin = ioText.GetString();
    const char* end = begin + ioText.ByteLength();
    if (std::none_of(begin, end, IsSeparator))
        return;
    while (end[-1] == '0')
        --end;
    if (IsSeparator(end[-1]))
        --end;
    ioText.FromText(begin, static_cast<uint32>(end - begin));
}

void RoundUp(TNqString& ioText)
{
    int8* const text = ioText.GetString();
    uint32 carryTo = ioText.ByteLength(); // before the last digit that was changed
    for (uint32 at = ioText.ByteLength(); at != 0;)
    {
        int8& c = text[--at];
        if (IsSeparator(c))
        {
            if (carryTo != ioText.ByteLength())
                carryTo = at; // a new digit comes before a separator: .9 becomes 1.0
            continue;
        }
        if (!NqCheckText(c >= '0' && c <= '9', "Unknown character!!"))
            break;
        carryTo = at;
        if (c != '9')
        {
            ++c;
            return;
        }
        c = '0';
    }
    if (carryTo < ioText.ByteLength())
        ioText.InsertStr(TNqString15("1"), UTF8StrLen(AsBytes(text), carryTo));
}
