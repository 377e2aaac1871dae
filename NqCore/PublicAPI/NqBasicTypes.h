// The scalar type names that every declaration of the library uses.
//
// They fix the width where a file, a host or a plug-in built elsewhere depends on it. `boolean` is a byte that holds 0
// or 1: unlike `bool` it has one size in every compiler that a plug-in may come from.

#pragma once

#include <cstddef>
#include <cstdint>

using int8 = char; // a text byte: plain `char`, signed on this platform
using uint8 = unsigned char;
using int16 = short;
using uint16 = unsigned short;
using int32 = int;
using uint32 = unsigned int;
using int64 = long long;
using uint64 = unsigned long long;

using boolean = uint8; // 1 or 0; the result of every predicate

using uintpointer = uintptr_t;

using real32 = float;
using real64 = double;
using real = real32;

using uchar = unsigned char;
using ushort = unsigned short;
using uint = unsigned int;
using ulong = unsigned long;

using FourCharT = uint32; // four characters, the first in the most significant byte
using IDType = FourCharT;

// The code of four characters: NqFourChar("NAME").
constexpr int32 NqFourChar(const char (&inText)[5])
{
    return static_cast<int32>((static_cast<FourCharT>(static_cast<uint8>(inText[0])) << 24) |
                              (static_cast<FourCharT>(static_cast<uint8>(inText[1])) << 16) |
                              (static_cast<FourCharT>(static_cast<uint8>(inText[2])) << 8) |
                              static_cast<FourCharT>(static_cast<uint8>(inText[3])));
}

using NqErr = int32; // 0 is success; failures are negative, 0x8001xxxx

static_assert(sizeof(int16) == 2 && sizeof(int32) == 4 && sizeof(int64) == 8,
              "the widths are part of the file formats");
static_assert(sizeof(real32) == 4 && sizeof(real64) == 8, "reals are IEEE single and double precision");
