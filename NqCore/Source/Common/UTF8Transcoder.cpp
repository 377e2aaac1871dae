#include "NqCore/Include/UTF8Transcoder.h"

#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/NqTranscoderHelpers.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr uint64 kEveryByte = 0x0101010101010101;
constexpr uint64 kHighBits = 0x80 * kEveryByte;

uint64 LoadWord(const uint8* inBytes)
{
    uint64 word;
    std::memcpy(&word, inBytes, sizeof word);
    return word;
}

// 1 in each byte of the word at which a character starts: without the high bit, or with low bits from 0x42 to 0x74.
uint64 MarkCharStarts(uint64 inWord)
{
    const uint64 low = inWord & ~kHighBits;
    const uint64 atLeastC2 = low + (0x80 - 0x42) * kEveryByte;
    const uint64 atLeastF5 = low + (0x80 - 0x75) * kEveryByte;
    return ((~inWord | (atLeastC2 & ~atLeastF5)) & kHighBits) >> 7;
}

// Adds up the eight bytes of a word; the sum must be below 2^16.
uint64 SumBytes(uint64 inWord)
{
    constexpr uint64 evenBytes = 0x00FF00FF00FF00FF;
    const uint64 pairs = (inWord & evenBytes) + ((inWord >> 8) & evenBytes);
    return (pairs * 0x0001000100010001) >> 48;
}

// A run that fits the first cache level, with at most 255 words: a byte counts the characters in its column.
constexpr NqSize kRunBytes = NqSize{255} * 8;

uint32 CountRun(const uint8* inBytes, NqSize inByteLength)
{
    uint64 columns = 0;
    NqSize i = 0;
#if NQ_CHARACTER_VECTORS
    // The same sixteen bytes a step: a comparison gives -1 in each byte where it holds.
    using TVector = signed char __attribute__((vector_size(16)));
    TVector starts = {};
    for (; i + sizeof(TVector) <= inByteLength; i += sizeof(TVector))
    {
        TVector vector;
        std::memcpy(&vector, inBytes + i, sizeof vector);
        starts -= TVector(vector >= 0) | (TVector(vector > -0x3F) & TVector(vector < -0x0B)); // from 0xC2 to 0xF4
    }
    uint64 halves[2];
    std::memcpy(halves, &starts, sizeof halves);
    columns = halves[0] + halves[1]; // both are at most 127
#endif
    for (; i + 8 <= inByteLength; i += 8)
        columns += MarkCharStarts(LoadWord(inBytes + i));
    uint32 count = static_cast<uint32>(SumBytes(columns));
    for (; i < inByteLength; ++i)
        count += UTF8IsCharStart(inBytes[i]);
    return count;
}

} // namespace

uint32 UTF8StrLen(const uint8* inText)
{
    return UTF8StrLen(inText, std::strlen(reinterpret_cast<const char*>(inText)));
}

uint32 UTF8StrLen(const uint8* inText, NqSize inByteLength)
{
    uint32 count = 0;
    for (NqSize done = 0; done < inByteLength;)
    {
        const NqSize runBytes = std::min(inByteLength - done, kRunBytes);
        const void* const nul = std::memchr(inText + done, 0, runBytes);
        if (nul != nullptr)
            return count +
                   CountRun(inText + done, static_cast<NqSize>(static_cast<const uint8*>(nul) - (inText + done)));
        count += CountRun(inText + done, runBytes);
        done += runBytes;
    }
    return count;
}

uint32 UTF8CharIndex(const uint8* inText, uint32 inCharIndex)
{
    if (static_cast<int32>(inCharIndex) < 0)
        return 0;
    uint32 i = 0;
    for (uint32 left = inCharIndex; inText[i] != 0; ++i)
    {
        if (UTF8IsCharStart(inText[i]) && left-- == 0)
            break;
    }
    return i;
}

uint32 UTF8CharIndex(const uint8* inText, uint32 inCharIndex, NqSize inByteLength)
{
    NqSize i = 0;
    uint32 left = inCharIndex;
    for (; i + 8 <= inByteLength; i += 8)
    {
        const uint64 word = LoadWord(inText + i);
        const uint32 starts = static_cast<uint32>(SumBytes(MarkCharStarts(word)));
        const bool hasNul = ((word - kEveryByte) & ~word & kHighBits) != 0;
        if (hasNul || starts > left)
            break;
        left -= starts;
    }
    for (; i < inByteLength && inText[i] != 0; ++i)
    {
        if (UTF8IsCharStart(inText[i]) && left-- == 0)
            break;
    }
    return static_cast<uint32>(i);
}

uint16 UTF8TakeByte(uint8 inByte, uint8& ioIndex, uint8& ioTotal, uint8 (&ioBytes)[4])
{
    if (UTF8IsCharStart(inByte))
    {
        ioIndex = 0;
        ioBytes[0] = inByte;
        ioTotal = UTF8NumBytes(inByte);
        return ioTotal == 1 ? inByte : kNqNoCharacter;
    }
    const bool isContinuation = inByte <= 0xBF;
    if (!isContinuation || ioIndex + 1 >= ioTotal)
        return kNqNoCharacter;
    ioBytes[++ioIndex] = inByte;
    return ioIndex + 1 == ioTotal ? UTF8CharToUnicode(ioBytes) : kNqNoCharacter;
}

const uint8 TUTF8Transcoder::fBOM[4] = {0xEF, 0xBB, 0xBF, 0};

TUTF8Transcoder::TUTF8Transcoder() : fCharIndex(0), fCharTotal(0), fCharBuffer(), fDecodedChar(0, 4, 1, true) {}

void TUTF8Transcoder::Create(ITranscoder** outTranscoder)
{
    NqCreateTranscoderObject<TUTF8Transcoder>(outTranscoder);
}

NqErr TUTF8Transcoder::QueryInterface(const NqIID& iid, void** outInterface)
{
    return NqQueryTranscoder(*this, iid, outInterface);
}

uint16 TUTF8Transcoder::Encode(uint8 inByte)
{
    return UTF8TakeByte(inByte, fCharIndex, fCharTotal, fCharBuffer);
}

const TNqArray<uint8>& TUTF8Transcoder::Decode(uint16 ch)
{
    NqSetToUTF8(fDecodedChar, ch);
    return fDecodedChar;
}
