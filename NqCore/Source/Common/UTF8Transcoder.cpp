#include "NqCore/Include/UTF8Transcoder.h"

#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/NqTranscoderHelpers.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr uint64 kEveryByte = 0x0101010101010101;
constexpr uint64 kHighBits = 0x80 * kEveryByte;

uint64 LoadWord(const uint8* bytes)
{
    uint64 word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// 1 in each byte of the word at which a character starts: without the high bit, or with low bits from 0x42 to 0x74.
uint64 MarkCharStarts(uint64 word)
{
    const uint64 low = word & ~kHighBits;
    const uint64 atLeastC2 = low + (0x80 - 0x42) * kEveryByte;
    const uint64 atLeastF5 = low + (0x80 - 0x75) * kEveryByte;
    return ((~word | (atLeastC2 & ~atLeastF5)) & kHighBits) >> 7;
}

// Adds up the eight bytes of a word; the sum must be below 2^16.
uint64 SumBytes(uint64 word)
{
    constexpr uint64 evenBytes = 0x00FF00FF00FF00FF;
    const uint64 pairs = (word & evenBytes) + ((word >> 8) & evenBytes);
    return (pairs * 0x0001000100010001) >> 48;
}

// A run that fits the first cache level, with at most 255 words: a byte counts the characters in its column.
constexpr NqSize kRunBytes = NqSize{255} * 8;

uint32 CountRun(const uint8* bytes, NqSize byteLength)
{
    uint64 columns = 0;
    NqSize i = 0;
#if NQ_CHARACTER_VECTORS
    // The same sixteen bytes a step: a comparison gives -1 in each byte where it holds.
    using TVector = signed char __attribute__((vector_size(16)));
    TVector starts = {};
    for (; i + sizeof(TVector) <= byteLength; i += sizeof(TVector))
    {
        TVector vector;
        std::memcpy(&vector, bytes + i, sizeof vector);
        starts -= TVector(vector >= 0) | (TVector(vector > -0x3F) & TVector(vector < -0x0B)); // from 0xC2 to 0xF4
    }
    uint64 halves[2];
    std::memcpy(halves, &starts, sizeof halves);
    columns = halves[0] + halves[1]; // both are at most 127
#endif
    for (; i + 8 <= byteLength; i += 8)
        columns += MarkCharStarts(LoadWord(bytes + i));
    uint32 count = static_cast<uint32>(SumBytes(columns));
    for (; i < byteLength; ++i)
        count += UTF8IsCharStart(bytes[i]);
    return count;
}

} // namespace

uint32 UTF8StrLen(const uint8* text)
{
    return UTF8StrLen(text, std::strlen(reinterpret_cast<const char*>(text)));
}

uint32 UTF8StrLen(const uint8* text, NqSize byteLength)
{
    uint32 count = 0;
    for (NqSize done = 0; done < byteLength;)
    {
        const NqSize runBytes = std::min(byteLength - done, kRunBytes);
        const void* const nul = std::memchr(text + done, 0, runBytes);
        if (nul != nullptr)
            return count + CountRun(text + done, static_cast<NqSize>(static_cast<const uint8*>(nul) - (text + done)));
        count += CountRun(text + done, runBytes);
        done += runBytes;
    }
    return count;
}

uint32 UTF8CharIndex(const uint8* text, uint32 charIndex)
{
    if (static_cast<int32>(charIndex) < 0)
        return 0;
    uint32 i = 0;
    for (uint32 left = charIndex; text[i] != 0; ++i)
    {
        if (UTF8IsCharStart(text[i]) && left-- == 0)
            break;
    }
    return i;
}

uint32 UTF8CharIndex(const uint8* text, uint32 charIndex, NqSize byteLength)
{
    NqSize i = 0;
    uint32 left = charIndex;
    for (; i + 8 <= byteLength; i += 8)
    {
        const uint64 word = LoadWord(text + i);
        const uint32 starts = static_cast<uint32>(SumBytes(MarkCharStarts(word)));
        const bool hasNul = ((word - kEveryByte) & ~word & kHighBits) != 0;
        if (hasNul || starts > left)
            break;
        left -= starts;
    }
    for (; i < byteLength && text[i] != 0; ++i)
    {
        if (UTF8IsCharStart(text[i]) && left-- == 0)
            break;
    }
    return static_cast<uint32>(i);
}

uint16 UTF8TakeByte(uint8 byte, uint8& ioIndex, uint8& ioTotal, uint8 (&ioBytes)[4])
{
    if (UTF8IsCharStart(byte))
    {
        ioIndex = 0;
        ioBytes[0] = byte;
        ioTotal = UTF8NumBytes(byte);
        return ioTotal == 1 ? byte : kNqNoCharacter;
    }
    const bool isContinuation = byte <= 0xBF;
    if (!isContinuation || ioIndex + 1 >= ioTotal)
        return kNqNoCharacter;
    ioBytes[++ioIndex] = byte;
    return ioIndex + 1 == ioTotal ? UTF8CharToUnicode(ioBytes) : kNqNoCharacter;
}

const uint8 TUTF8Transcoder::fBOM[4] = {0xEF, 0xBB, 0xBF, 0};

TUTF8Transcoder::TUTF8Transcoder() : fCharIndex(0), fCharTotal(0), fCharBuffer(), fDecodedChar(0, 4, 1, true) {}

void TUTF8Transcoder::Create(ITranscoder** out)
{
    NqCreateTranscoderObject<TUTF8Transcoder>(out);
}

NqErr TUTF8Transcoder::QueryInterface(const NqIID& iid, void** outInterface)
{
    return NqQueryTranscoder(*this, iid, outInterface);
}

uint16 TUTF8Transcoder::Encode(uint8 byte)
{
    return UTF8TakeByte(byte, fCharIndex, fCharTotal, fCharBuffer);
}

const TNqArray<uint8>& TUTF8Transcoder::Decode(uint16 ch)
{
    NqSetToUTF8(fDecodedChar, ch);
    return fDecodedChar;
}
