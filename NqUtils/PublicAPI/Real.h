// Conversions between 32-bit integers and reals.
//
//     const int32_t pixels = RealToInt32(2.9f); // 2
//
// Defined for every value: what is not a number becomes 0, what is out of range the nearest integer.

#pragma once

#include <cstdint>

inline float Int32ToReal(int32_t inValue)
{
    return static_cast<float>(inValue);
}

// Truncates toward zero.
inline int32_t Real64ToInt32(double inValue)
{
    if (inValue >= 2147483647.0)
        return INT32_MAX;
    if (inValue <= -2147483648.0)
        return INT32_MIN;
    return inValue == inValue ? static_cast<int32_t>(inValue) : 0;
}

inline int32_t RealToInt32(float inValue)
{
    return Real64ToInt32(static_cast<double>(inValue));
}
