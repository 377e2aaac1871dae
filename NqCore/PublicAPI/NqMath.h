// The larger and the smaller of two or three values.
//
// For reals the second argument wins on equality and whenever either is not a number; callers that clamp rely on it.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

constexpr int32 Nq_Max(int32 a, int32 b)
{
    return a > b ? a : b;
}
constexpr real32 Nq_Max(real32 a, real32 b)
{
    return a > b ? a : b;
}
constexpr int32 Nq_Max(int32 a, int32 b, int32 c)
{
    return Nq_Max(Nq_Max(a, b), c);
}

constexpr int32 Nq_Min(int32 a, int32 b)
{
    return b > a ? a : b;
}
constexpr uint32 Nq_Min(uint32 a, uint32 b)
{
    return b > a ? a : b;
}
constexpr real32 Nq_Min(real32 a, real32 b)
{
    return b > a ? a : b;
}
