// Copies and fills of raw memory.
//
// The pattern fills accept any alignment. What they write at a misaligned start, for odd counts of 16 bits and for
// negative values of 16 bits is not what a plain loop writes; images and documents made with them depend on those exact
// bytes. Threads: any. Failure: none; only runs of words that are not aligned are reported.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

// Copies byte by byte, ascending: with overlapping ranges a source below the destination smears.
void Nqmemcpy(void* outDst, const void* inSrc, unsigned long inByteCount);

// Copies between ranges that may overlap.
void Nqmemmove(void* outDst, const void* inSrc, unsigned long inByteCount);

// Fills bytes.
void Nqmemfill8(char inValue, void* outDst, unsigned long inByteCount);

// Stores `inCount` 16-bit copies of `inValue`: the first as far as they lead to a 4-byte boundary, then a run of words,
// then what is left over. That, an element or its second byte, is stored half way into the run instead of behind it. In
// the run a negative value gives 0xFFFF in every second element. At an odd start the run misses the boundary: it is
// reported and written all the same.
void Nqmemfill16(short inValue, void* outDst, unsigned long inCount);

// Stores `inCount` 32-bit copies of `inValue`. At a start k bytes past a 4-byte boundary one copy is written as it is;
// of more, the run behind the first has the bytes of `inValue` turned, and the last k bytes of the range stay as they
// were.
void Nqmemfill32(int inValue, void* outDst, unsigned long inCount);

// The same at a 4-byte aligned start; another start is reported and filled all the same.
void Nqmemfill32align(int inValue, void* outDst, unsigned long inCount);

// Copies `inCount` words; nothing for 0 or less.
void Nqmemcpy_uint32(uint32* outDst, const uint32* inSrc, int inCount);

// Copies `inCount` words, the source first in the argument list.
void memcpyl(uint32* inSrc, uint32* outDst, unsigned long inCount);
