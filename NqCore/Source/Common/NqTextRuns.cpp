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
T Load(const void* from)
{
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
}

// Takes eight bytes over, each as a character; reads sixteen.
void Widen(const uint8* bytes, uint16* out)
{
    const TByteVector wide = __builtin_shufflevector(Load<TByteVector>(bytes), TByteVector{}, 0, 16, 1, 17, 2, 18, 3,
                                                     19, 4, 20, 5, 21, 6, 22, 7, 23);
    std::memcpy(out, &wide, sizeof wide);
}

// Takes the low bytes of eight characters over.
void Narrow(const uint16* characters, uint8* out)
{
    const TNarrowVector narrow = __builtin_convertvector(Load<TWideVector>(characters), TNarrowVector);
    std::memcpy(out, &narrow, sizeof narrow);
}

// A bit in the byte of each of eight characters for which a comparison holds.
template <class TComparison>
uint64 Mark(TComparison holds)
{
    const TNarrowVector marks = __builtin_convertvector(holds, TNarrowVector);
    return Load<uint64>(&marks) & kHighBits;
}

// The index of the first byte that has a mark.
int64 FirstMark(uint64 marks)
{
    return __builtin_ctzll(marks) / 8;
}

// The character of a whole sequence of two to four bytes, and their number.
uint16 DecodeSequence(const uint8* bytes, int64& outWidth)
{
    const auto payload = [bytes](int64 index) { return bytes[index] & 0x3Fu; };
    if (bytes[0] < 0xE0)
    {
        outWidth = 2;
        return static_cast<uint16>((bytes[0] & 0x1Fu) << 6 | payload(1));
    }
    if (bytes[0] < 0xF0)
    {
        outWidth = 3;
        return static_cast<uint16>(bytes[0] << 12 | payload(1) << 6 | payload(2));
    }
    outWidth = 4;
    return static_cast<uint16>(payload(1) << 12 | payload(2) << 6 | payload(3));
}

// Decodes as long as eight more characters are sure to follow, which overwrite what Widen takes over too much: a
// character has at most four bytes, and no NUL comes before the end. Stops at a byte that starts no character.
void DecodeRuns(TNqUTF8Decoding& io)
{
    constexpr int64 kSureBytes = kStep + 4 * kStep;
    const uint8* next = io.fNext;
    uint16* out = io.fOut;
    while (io.fEnd - next >= kSureBytes && io.fOutEnd - out >= kStep)
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
    io.fNext = next;
    io.fOut = out;
}

// Encodes eight characters a step, as long as eight more follow. Where each of them stands is known beforehand, so only
// the place of the bytes waits for the step before.
uint8* EncodeRuns(const uint16*& ioFirst, const uint16* last, uint8* out)
{
    const uint16* first = ioFirst;
    for (; last - first >= 2 * kStep; first += kStep)
    {
        Narrow(first, out);
        int64 done = 0;
        for (uint64 others = Mark(Load<TWideVector>(first) >= 0x80); others != 0; others &= others - 1)
        {
            const int64 at = FirstMark(others);
            out += at - done;
            out += UnicodeToUTF8Char(first[at], out);
            done = at + 1;
            Narrow(first + done, out);
        }
        out += kStep - done;
    }
    ioFirst = first;
    return out;
}

// The low bytes of sixteen characters.
TByteVector Pack(TWideVector first, TWideVector second)
{
    return __builtin_shufflevector(TByteVector(first), TByteVector(second), 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22,
                                   24, 26, 28, 30);
}

// The same with a table, sixteen characters a step, which are taken for their own bytes. Then the bytes of the table
// take the place of those that are not. Where one has none, the step is done again, character by character.
uint8* EncodeRunsWithTable(const TNqByteTable& table, const uint16*& ioFirst, const uint16* last, uint8* out)
{
    constexpr int64 kTableStep = 2 * kStep;
    // The bits in which all characters from 0x80 to there agree, and no other has.
    const uint16 tableBits = static_cast<uint16>(0x80 - table.GetSameFrom());
    const auto areSame = [tableBits](TWideVector characters)
    { return ~TWideVector((characters & tableBits) == 0x80) & TWideVector((characters & 0xFF00) == 0); };
    const uint16* first = ioFirst;
    for (; last - first >= kTableStep; first += kTableStep)
    {
        const TWideVector low = Load<TWideVector>(first);
        const TWideVector high = Load<TWideVector>(first + kStep);
        const TByteVector bytes = Pack(low, high);
        const TByteVector same = Pack(areSame(low), areSame(high));
        std::memcpy(out, &bytes, sizeof bytes);
        uint32 common = 0x80; // a byte of the table is at least that
        const auto replace = [&](uint64 sameBytes, int64 from)
        {
            for (uint64 others = ~sameBytes & kHighBits; others != 0; others &= others - 1)
            {
                const int64 at = from + FirstMark(others);
                const uint8 byte = table[first[at]];
                out[at] = byte;
                common &= byte;
            }
        };
        replace(Load<uint64>(&same), 0);
        replace(Load<uint64>(reinterpret_cast<const uint8*>(&same) + kStep), kStep);
        out = common != 0 ? out + kTableStep : NqEncodeWithTablePlain(table, first, first + kTableStep, out);
    }
    ioFirst = first;
    return out;
}

// Each comparison gives 0xFFFF where it holds: a lane of the sums counts down by the two of a step, up to
// 65,535 in all.
uint64 CountRuns(const uint16*& ioFirst, const uint16* last)
{
    constexpr int64 kMostSteps = 0x7FFF;
    uint64 count = 0;
    while (last - ioFirst >= kStep)
    {
        const uint16* const start = ioFirst;
        TWideVector further = {};
        for (int64 steps = std::min((last - ioFirst) / kStep, kMostSteps); steps != 0; --steps, ioFirst += kStep)
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
bool FindShortPattern(const int8*& ioFirst, const int8* last, const int8* pattern, size_t length)
{
    using TPlaces = int8 __attribute__((vector_size(2 * kStep)));
    const int8 start = pattern[0];
    const int8 end = pattern[length - 1];
    const int64 reach = static_cast<int64>(length - 1 + sizeof(TPlaces));
    for (; last - ioFirst >= reach; ioFirst += sizeof(TPlaces))
    {
        const TPlaces matches = (Load<TPlaces>(ioFirst) == start) & (Load<TPlaces>(ioFirst + length - 1) == end);
        const auto find = [&](uint64 marks, int64 from)
        {
            for (marks &= kHighBits; marks != 0; marks &= marks - 1)
            {
                const int8* const at = ioFirst + from + FirstMark(marks);
                if (std::equal(pattern + 1, pattern + length - 1, at + 1))
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

bool NqIsAscii(const uint8* bytes, uint64 count)
{
    uint64 all = 0;
    for (; count >= sizeof(all); bytes += sizeof(all), count -= sizeof(all))
    {
        uint64 eight;
        std::memcpy(&eight, bytes, sizeof(eight));
        all |= eight;
    }
    for (; count > 0; --count)
        all |= *bytes++;
    return (all & 0x8080808080808080u) == 0;
}

void NqDecodeUTF8Plain(TNqUTF8Decoding& io)
{
    while (!io.IsAtEnd() && io.fOut != io.fOutEnd)
    {
        const uint32 left = static_cast<uint32>(io.fEnd - io.fNext);
        *io.fOut++ = UTF8CharToUnicode(io.fNext, left);
        io.fNext += NqCharWidth(io.fNext, left, 0);
    }
}

TNqUTF8Decoding NqDecodeUTF8(const uint8* first, const uint8* last, uint16* out, uint16* outEnd)
{
    const size_t byteLength = strnlen(reinterpret_cast<const char*>(first), static_cast<size_t>(last - first));
    TNqUTF8Decoding decoding = {first, first + byteLength, out, outEnd};
#if NQ_CHARACTER_VECTORS
    DecodeRuns(decoding);
#endif
    NqDecodeUTF8Plain(decoding);
    return decoding;
}

uint64 NqCountUTF8Plain(const uint16* first, const uint16* last)
{
    uint64 count = 0;
    for (; first != last; ++first)
        count += UnicodeNumBytes(*first);
    return count;
}

uint64 NqCountUTF8(const uint16* first, const uint16* last)
{
    uint64 count = 0;
#if NQ_CHARACTER_VECTORS
    count = CountRuns(first, last);
#endif
    return count + NqCountUTF8Plain(first, last);
}

uint8* NqEncodeUTF8Plain(const uint16* first, const uint16* last, uint8* out)
{
    for (; first != last; ++first)
        out += UnicodeToUTF8Char(*first, out);
    return out;
}

uint8* NqEncodeUTF8(const uint16* first, const uint16* last, uint8* out)
{
#if NQ_CHARACTER_VECTORS
    out = EncodeRuns(first, last, out);
#endif
    return NqEncodeUTF8Plain(first, last, out);
}

uint8* NqEncodeWithTablePlain(const TNqByteTable& table, const uint16* first, const uint16* last, uint8* out)
{
    for (; first != last; ++first)
    {
        const uint8 byte = table.IsSame(*first) ? static_cast<uint8>(*first) : table[*first];
        if (byte != 0 || *first == 0)
            *out++ = byte;
        else
            out += UnicodeToUTF8Char(*first, out);
    }
    return out;
}

uint8* NqEncodeWithTable(const TNqByteTable& table, const uint16* first, const uint16* last, uint8* out)
{
#if NQ_CHARACTER_VECTORS
    out = EncodeRunsWithTable(table, first, last, out);
#endif
    return NqEncodeWithTablePlain(table, first, last, out);
}

const uint16* NqFindEnd(const uint16* characters)
{
    const auto are = [&characters](auto... index) { return ((characters[index] != 0) && ...); };
    while (are(0, 1, 2, 3, 4, 5, 6, 7)) // two a cycle, where one by one is one
        characters += 8;
    while (*characters != 0)
        ++characters;
    return characters;
}

const int8* NqFindPattern(const int8* first, const int8* last, const int8* pattern, size_t length)
{
#if NQ_CHARACTER_VECTORS
    constexpr size_t kMostCompared = 16; // at each place, so that the cost stays linear
    if (length > 1 && length <= kMostCompared && FindShortPattern(first, last, pattern, length))
        return first;
#endif
    const void* const found = memmem(first, static_cast<size_t>(last - first), pattern, length);
    return found != nullptr ? static_cast<const int8*>(found) : last;
}
