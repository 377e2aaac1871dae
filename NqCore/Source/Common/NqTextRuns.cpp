#include "NqCore/Include/NqTextRuns.h"

#include <algorithm>
#include <cstring>

namespace
{

#if NQ_CHARACTER_VECTORS

constexpr int64 kStep = 8; // characters in a vector
using TNarrowVector = uint8 __attribute__((vector_size(kStep)));
using TWideVector = uint16 __attribute__((vector_size(2 * kStep)));
using TByteVector = uint8 __attribute__((vector_size(2 * kStep)));

constexpr uint64 kHighBits = 0x8080808080808080;

template <class T>
T Load(const void* inFrom)
{
    T value;
    std::memcpy(&value, inFrom, sizeof(T));
    return value;
}

// Takes eight bytes over, each as a character; reads sixteen.
void Widen(const uint8* inBytes, uint16* outText)
{
    const TByteVector wide = __builtin_shufflevector(Load<TByteVector>(inBytes), TByteVector{}, 0, 16, 1, 17, 2, 18, 3,
                                                     19, 4, 20, 5, 21, 6, 22, 7, 23);
    std::memcpy(outText, &wide, sizeof wide);
}

// Takes the low bytes of eight characters over.
void Narrow(const uint16* inCharacters, uint8* outBytes)
{
    const TNarrowVector narrow = __builtin_convertvector(Load<TWideVector>(inCharacters), TNarrowVector);
    std::memcpy(outBytes, &narrow, sizeof narrow);
}

// A bit in the byte of each of eight characters for which a comparison holds.
template <class TComparison>
uint64 Mark(TComparison inHolds)
{
    const TNarrowVector marks = __builtin_convertvector(inHolds, TNarrowVector);
    return Load<uint64>(&marks) & kHighBits;
}

// The index of the first byte that has a mark.
int64 FirstMark(uint64 inMarks)
{
    return __builtin_ctzll(inMarks) / 8;
}

// The character of a whole sequence of two to four bytes, and their number.
uint16 DecodeSequence(const uint8* inBytes, int64& outWidth)
{
    const auto payload = [inBytes](int64 index) { return inBytes[index] & 0x3Fu; };
    if (inBytes[0] < 0xE0)
    {
        outWidth = 2;
        return static_cast<uint16>((inBytes[0] & 0x1Fu) << 6 | payload(1));
    }
    if (inBytes[0] < 0xF0)
    {
        outWidth = 3;
        return static_cast<uint16>(inBytes[0] << 12 | payload(1) << 6 | payload(2));
    }
    outWidth = 4;
    return static_cast<uint16>(payload(1) << 12 | payload(2) << 6 | payload(3));
}

// Decodes as long as eight more characters are sure to follow, which overwrite what Widen takes over too much: a
// character has at most four bytes, and no NUL comes before the end. Stops at a byte that starts no character.
void DecodeRuns(TNqUTF8Decoding& ioIo)
{
    constexpr int64 kSureBytes = kStep + 4 * kStep;
    const uint8* next = ioIo.fNext;
    uint16* out = ioIo.fOut;
    while (ioIo.fEnd - next >= kSureBytes && ioIo.fOutEnd - out >= kStep)
    {
        if (*next < 0x80)
        {
            Widen(next, out);
            const uint64 others = Load<uint64>(next) & kHighBits;
            if (others == 0)
            {
                next += kStep;
                out += kStep;
                continue;
            }
            const int64 count = FirstMark(others);
            next += count;
            out += count;
        }
        if (!UTF8IsCharStart(*next))
            break;
        int64 width;
        *out++ = DecodeSequence(next, width);
        next += width;
    }
    ioIo.fNext = next;
    ioIo.fOut = out;
}

// Encodes eight characters a step, as long as eight more follow. Where each of them stands is known beforehand, so only
// the place of the bytes waits for the step before.
uint8* EncodeRuns(const uint16*& ioFirst, const uint16* inLast, uint8* outBytes)
{
    const uint16* first = ioFirst;
    for (; inLast - first >= 2 * kStep; first += kStep)
    {
        Narrow(first, outBytes);
        int64 done = 0;
        for (uint64 others = Mark(Load<TWideVector>(first) >= 0x80); others != 0; others &= others - 1)
        {
            const int64 at = FirstMark(others);
            outBytes += at - done;
            outBytes += UnicodeToUTF8Char(first[at], outBytes);
            done = at + 1;
            Narrow(first + done, outBytes);
        }
        outBytes += kStep - done;
    }
    ioFirst = first;
    return outBytes;
}

// The low bytes of sixteen characters.
TByteVector Pack(TWideVector inFirst, TWideVector inSecond)
{
    return __builtin_shufflevector(TByteVector(inFirst), TByteVector(inSecond), 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20,
                                   22, 24, 26, 28, 30);
}

// The same with a table, sixteen characters a step, which are taken for their own bytes. Then the bytes of the table
// take the place of those that are not. Where one has none, the step is done again, character by character.
uint8* EncodeRunsWithTable(const TNqByteTable& inTable, const uint16*& ioFirst, const uint16* inLast, uint8* outBytes)
{
    constexpr int64 kTableStep = 2 * kStep;
    // The bits in which all characters from 0x80 to there agree, and no other has.
    const uint16 tableBits = static_cast<uint16>(0x80 - inTable.GetSameFrom());
    const auto areSame = [tableBits](TWideVector characters)
    { return ~TWideVector((characters & tableBits) == 0x80) & TWideVector((characters & 0xFF00) == 0); };
    const uint16* first = ioFirst;
    for (; inLast - first >= kTableStep; first += kTableStep)
    {
        const TWideVector low = Load<TWideVector>(first);
        const TWideVector high = Load<TWideVector>(first + kStep);
        const TByteVector bytes = Pack(low, high);
        const TByteVector same = Pack(areSame(low), areSame(high));
        std::memcpy(outBytes, &bytes, sizeof bytes);
        uint32 common = 0x80; // a byte of the table is at least that
        const auto replace = [&](uint64 sameBytes, int64 from)
        {
            for (uint64 others = ~sameBytes & kHighBits; others != 0; others &= others - 1)
            {
                const int64 at = from + FirstMark(others);
                const uint8 byte = inTable[first[at]];
                outBytes[at] = byte;
                common &= byte;
            }
        };
        replace(Load<uint64>(&same), 0);
        replace(Load<uint64>(reinterpret_cast<const uint8*>(&same) + kStep), kStep);
        outBytes =
            common != 0 ? outBytes + kTableStep : NqEncodeWithTablePlain(inTable, first, first + kTableStep, outBytes);
    }
    ioFirst = first;
    return outBytes;
}

// Each comparison gives 0xFFFF where it holds: a lane of the sums counts down by the two of a step, up to
// 65,535 in all.
uint64 CountRuns(const uint16*& ioFirst, const uint16* inLast)
{
    constexpr int64 kMostSteps = 0x7FFF;
    uint64 count = 0;
    while (inLast - ioFirst >= kStep)
    {
        const uint16* const start = ioFirst;
        TWideVector further = {};
        for (int64 steps = std::min((inLast - ioFirst) / kStep, kMostSteps); steps != 0; --steps, ioFirst += kStep)
        {
            const TWideVector characters = Load<TWideVector>(ioFirst);
            further -= TWideVector(characters >= 0x80) + TWideVector(characters >= 0x800);
        }
        count += static_cast<uint64>(ioFirst - start);
        for (int lane = 0; lane < kStep; ++lane)
            count += further[lane];
    }
    return count;
}

// Sixteen places a step, at which the first and the last byte of the pattern are looked for. Moves ioFirst to where it
// is found; otherwise close to the end.
bool FindShortPattern(const int8*& ioFirst, const int8* inLast, const int8* inPattern, size_t inLength)
{
    using TPlaces = int8 __attribute__((vector_size(2 * kStep)));
    const int8 start = inPattern[0];
    const int8 end = inPattern[inLength - 1];
    const int64 reach = static_cast<int64>(inLength - 1 + sizeof(TPlaces));
    for (; inLast - ioFirst >= reach; ioFirst += sizeof(TPlaces))
    {
        const TPlaces matches = (Load<TPlaces>(ioFirst) == start) & (Load<TPlaces>(ioFirst + inLength - 1) == end);
        const auto find = [&](uint64 marks, int64 from)
        {
            for (marks &= kHighBits; marks != 0; marks &= marks - 1)
            {
                const int8* const at = ioFirst + from + FirstMark(marks);
                if (std::equal(inPattern + 1, inPattern + inLength - 1, at + 1))
                {
                    ioFirst = at;
                    return true;
                }
            }
            return false;
        };
        if (find(Load<uint64>(&matches), 0) ||
            find(Load<uint64>(reinterpret_cast<const uint8*>(&matches) + kStep), kStep))
            return true;
    }
    return false;
}

#endif

} // namespace

bool NqIsAscii(const uint8* inBytes, uint64 inCount)
{
    uint64 all = 0;
    for (; inCount >= sizeof(all); inBytes += sizeof(all), inCount -= sizeof(all))
    {
        uint64 eight;
        std::memcpy(&eight, inBytes, sizeof(eight));
        all |= eight;
    }
    for (; inCount > 0; --inCount)
        all |= *inBytes++;
    return (all & 0x8080808080808080u) == 0;
}

void NqDecodeUTF8Plain(TNqUTF8Decoding& ioIo)
{
    while (!ioIo.IsAtEnd() && ioIo.fOut != ioIo.fOutEnd)
    {
        const uint32 left = static_cast<uint32>(ioIo.fEnd - ioIo.fNext);
        *ioIo.fOut++ = UTF8CharToUnicode(ioIo.fNext, left);
        ioIo.fNext += NqCharWidth(ioIo.fNext, left, 0);
    }
}

TNqUTF8Decoding NqDecodeUTF8(const uint8* inFirst, const uint8* inLast, uint16* outText, uint16* outEnd)
{
    const size_t byteLength = strnlen(reinterpret_cast<const char*>(inFirst), static_cast<size_t>(inLast - inFirst));
    TNqUTF8Decoding decoding = {inFirst, inFirst + byteLength, outText, outEnd};
#if NQ_CHARACTER_VECTORS
    DecodeRuns(decoding);
#endif
    NqDecodeUTF8Plain(decoding);
    return decoding;
}

uint64 NqCountUTF8Plain(const uint16* inFirst, const uint16* inLast)
{
    uint64 count = 0;
    for (; inFirst != inLast; ++inFirst)
        count += UnicodeNumBytes(*inFirst);
    return count;
}

uint64 NqCountUTF8(const uint16* inFirst, const uint16* inLast)
{
    uint64 count = 0;
#if NQ_CHARACTER_VECTORS
    count = CountRuns(inFirst, inLast);
#endif
    return count + NqCountUTF8Plain(inFirst, inLast);
}

uint8* NqEncodeUTF8Plain(const uint16* inFirst, const uint16* inLast, uint8* outBytes)
{
    for (; inFirst != inLast; ++inFirst)
        outBytes += UnicodeToUTF8Char(*inFirst, outBytes);
    return outBytes;
}

uint8* NqEncodeUTF8(const uint16* inFirst, const uint16* inLast, uint8* outBytes)
{
#if NQ_CHARACTER_VECTORS
    outBytes = EncodeRuns(inFirst, inLast, outBytes);
#endif
    return NqEncodeUTF8Plain(inFirst, inLast, outBytes);
}

uint8* NqEncodeWithTablePlain(const TNqByteTable& inTable, const uint16* inFirst, const uint16* inLast, uint8* outBytes)
{
    for (; inFirst != inLast; ++inFirst)
    {
        const uint8 byte = inTable.IsSame(*inFirst) ? static_cast<uint8>(*inFirst) : inTable[*inFirst];
        if (byte != 0 || *inFirst == 0)
            *outBytes++ = byte;
        else
            outBytes += UnicodeToUTF8Char(*inFirst, outBytes);
    }
    return outBytes;
}

uint8* NqEncodeWithTable(const TNqByteTable& inTable, const uint16* inFirst, const uint16* inLast, uint8* outBytes)
{
#if NQ_CHARACTER_VECTORS
    outBytes = EncodeRunsWithTable(inTable, inFirst, inLast, outBytes);
#endif
    return NqEncodeWithTablePlain(inTable, inFirst, inLast, outBytes);
}

const uint16* NqFindEnd(const uint16* inCharacters)
{
    const auto are = [&inCharacters](auto... index) { return ((inCharacters[index] != 0) && ...); };
    while (are(0, 1, 2, 3, 4, 5, 6, 7)) // two a cycle, where one by one is one
        inCharacters += 8;
    while (*inCharacters != 0)
        ++inCharacters;
    return inCharacters;
}

const int8* NqFindPattern(const int8* inFirst, const int8* inLast, const int8* inPattern, size_t inLength)
{
#if NQ_CHARACTER_VECTORS
    constexpr size_t kMostCompared = 16; // at each place, so that the cost stays linear
    if (inLength > 1 && inLength <= kMostCompared && FindShortPattern(inFirst, inLast, inPattern, inLength))
        return inFirst;
#endif
    const void* const found = memmem(inFirst, static_cast<size_t>(inLast - inFirst), inPattern, inLength);
    return found != nullptr ? static_cast<const int8*>(found) : inLast;
}
