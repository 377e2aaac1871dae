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

inline NqByteVector NqLoadVector(const int8* inBytes)
{
    NqByteVector vector;
    std::memcpy(&vector, inBytes, sizeof(vector));
    return vector;
}
#endif

template <int8... kBytes>
struct NqByteSet
{
    static constexpr bool Has(int8 c) { return ((c == kBytes) || ...); }
#if NQ_BYTE_VECTORS
    static NqByteVector Matches(NqByteVector inBytes)
    {
        return ((inBytes == kBytes) | ...);
    }
#endif
};

template <class Set>
const int8* NqFindBytePlain(const int8* inFirst, const int8* inLast)
{
    while (inFirst != inLast && !Set::Has(*inFirst))
        ++inFirst;
    return inFirst;
}

// The first byte that belongs to the set, or `inLast`.
template <class Set>
const int8* NqFindByte(const int8* inFirst, const int8* inLast)
{
#if NQ_BYTE_VECTORS
    for (; inLast - inFirst >= static_cast<int64>(sizeof(NqByteVector)); inFirst += sizeof(NqByteVector))
    {
        const NqByteVector matches = Set::Matches(NqLoadVector(inFirst));
        uint64 halves[2];
        std::memcpy(halves, &matches, sizeof(halves));
        if (halves[0] != 0)
            return inFirst + (__builtin_ctzll(halves[0]) >> 3);
        if (halves[1] != 0)
            return inFirst + 8 + (__builtin_ctzll(halves[1]) >> 3);
    }
#endif
    return NqFindBytePlain<Set>(inFirst, inLast);
}

// How many of the bytes are `c`.
inline int64 NqCountByte(const int8* inFirst, const int8* inLast, int8 c)
{
    int64 count = 0;
#if NQ_BYTE_VECTORS
    constexpr int64 kStep = sizeof(NqByteVector);
    while (inLast - inFirst >= kStep)
    {
        NqByteVector sums = {};
        const int8* const stop = inFirst + (inLast - inFirst < 127 * kStep ? (inLast - inFirst) / kStep : 127) * kStep;
        for (; inFirst != stop; inFirst += kStep)
            sums -= NqLoadVector(inFirst) == c;
        for (int32 i = 0; i < kStep; ++i)
            count += sums[i];
    }
#endif
    for (; inFirst != inLast; ++inFirst)
        count += *inFirst == c;
    return count;
}
