// A point of the screen, in pixels; y grows downwards. Also the size of a rectangle.
//
//     TNqPoint position(10, 20);
//     position += TNqPoint(1, 0);
//
// Integer geometry wraps on overflow, as the Nq_Wrap functions do.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

// Integer arithmetic modulo 2^32.
constexpr int32 Nq_WrapAdd(int32 a, int32 b)
{
    return static_cast<int32>(static_cast<uint32>(a) + static_cast<uint32>(b));
}
constexpr int32 Nq_WrapSubtract(int32 a, int32 b)
{
    return static_cast<int32>(static_cast<uint32>(a) - static_cast<uint32>(b));
}
constexpr int32 Nq_WrapMultiply(int32 a, int32 b)
{
    return static_cast<int32>(static_cast<uint32>(a) * static_cast<uint32>(b));
}

class TNqPoint : public TNqObject0
{
public:
    TNqPoint() {} // leaves both fields unset
    TNqPoint(int32 inX, int32 inY) : x(inX), y(inY) {}

    TNqPoint& operator+=(const TNqPoint& inDelta)
    {
        x = Nq_WrapAdd(x, inDelta.x);
        y = Nq_WrapAdd(y, inDelta.y);
        return *this;
    }

    int32 x;
    int32 y;
};

static_assert(sizeof(TNqPoint) == 8 && offsetof(TNqPoint, y) == 4, "points are shared with modules built elsewhere");
