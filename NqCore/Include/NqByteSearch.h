// Looking for a few bytes in many: where a word ends in a document that is mostly numbers, where a string ends.
//
//     using TQuoteOrEscape = NqByteSet<'"', '\\', 1>;
//     const int8* at = NqFindByte<TQuoteOrEscape>(first, last); // last when there is none
//
// Cost: sixteen bytes a step where the compiler knows vectors and the lowest byte of a word comes first, otherwise one
// byte after the other. NqFindBytePlain always goes byte by byte, with the same results.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <cstring>

#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define NQ_BYTE_VECTORS 1
#else
#define NQ_BYTE_VECTORS 0
#endif

#if NQ_BYTE_VECTORS
// Sixteen bytes; a comparison gives 0xFF in each byte where it holds.
using NqByteVector = signed char __attribute__((vector_size(16)));

inline NqByteVector NqLoadVector(const int8* bytes)
{
    NqByteVector vector;
    std::memcpy(&vector, bytes, sizeof(vector));
    return vector;
}
#endif

template <int8... kBytes>
struct NqByteSet
{
    static constexpr bool Has(int8 c) { return ((c == kBytes) || ...); }
#if NQ_BYTE_VECTORS
    static NqByteVector Matches(NqByteVector bytes)
    {
        return ((bytes == kBytes) | ...);
    }
#endif
};

template <class Set>
const int8* NqFindBytePlain(const int8* first, const int8* last)
{
    while (first != last && !Set::Has(*first))
        ++first;
    return first;
}

// The first byte that belongs to the set, or `last`.
template <class Set>
const int8* NqFindByte(const int8* first, const int8* last)
{
#if NQ_BYTE_VECTORS
    for (; last - first >= static_cast<int64>(sizeof(NqByteVector)); first += sizeof(NqByteVector))
    {
        const NqByteVector matches = Set::Matches(NqLoadVector(first));
        uint64 halves[2];
        std::memcpy(halves, &matches, sizeof(halves));
        if (halves[0] != 0)
            return first + (__builtin_ctzll(halves[0]) >> 3);
        if (halves[1] != 0)
            return first + 8 + (__builtin_ctzll(halves[1]) >> 3);
    }
#endif
    return NqFindBytePlain<Set>(first, last);
}

// How many of the bytes are `c`.
inline int64 NqCountByte(const int8* first, const int8* last, int8 c)
{
    int64 count = 0;
#if NQ_BYTE_VECTORS
    constexpr int64 kStep = sizeof(NqByteVector);
    while (last - first >= kStep)
    {
        NqByteVector sums = {};
        const int8* const stop = first + (last - first < 127 * kStep ? (last - first) / kStep : 127) * kStep;
        for (; first != stop; first += kStep)
            sums -= NqLoadVector(first) == c;
        for (int32 i = 0; i < kStep; ++i)
            count += sums[i];
    }
#endif
    for (; first != last; ++first)
        count += *first == c;
    return count;
}
