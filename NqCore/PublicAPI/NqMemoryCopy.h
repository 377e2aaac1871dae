// Copies and fills of raw memory.
//
// The pattern fills accept any alignment. Their results at a misaligned start, for odd counts and for negative 16-bit
// values differ from a plain loop; images and documents made with them depend on those exact bytes.
// Threads: none involved. Failure: none reported unless stated.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

// Copies byte by byte, ascending: with overlapping ranges a source below the destination smears.
void Nqmemcpy(void* dst, const void* src, unsigned long byteCount);

// Copies between ranges that may overlap.
void Nqmemmove(void* dst, const void* src, unsigned long byteCount);

void Nqmemfill8(char value, void* dst, unsigned long byteCount);

// Stores `count` 16-bit copies of `value`. At a 4-byte aligned start a negative value gives 0xFFFF in every second
// element, and an odd count stores its last element half way into the run instead of at its end.
void Nqmemfill16(short value, void* dst, unsigned long count);

// Stores `count` 32-bit copies of `value`. At a start k bytes past a 4-byte boundary the last k bytes of the range stay
// as they were.
void Nqmemfill32(int value, void* dst, unsigned long count);

// The same at a 4-byte aligned start; another start is reported and filled all the same.
void Nqmemfill32align(int value, void* dst, unsigned long count);

// Copies `count` words; nothing for 0 or less.
void Nqmemcpy_uint32(uint32* dst, const uint32* src, int count);

// Copies `count` words, the source first in the argument list.
void memcpyl(uint32* src, uint32* dst, unsigned long count);
