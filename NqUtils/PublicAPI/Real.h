// Conversions between 32-bit integers and reals.
//
//     const int32_t pixels = RealToInt32(2.9f); // 2
//
// Defined for every value: what is not a number becomes 0, what is out of range the nearest integer.

#pragma once

#include <cstdint>

inline float Int32ToReal(int32_t value)
{
    return static_cast<float>(value);
}

// Truncates toward zero.
inline int32_t Real64ToInt32(double value)
{
    if (value >= 2147483647.0)
        return INT32_MAX;
    if (value <= -2147483648.0)
        return INT32_MIN;
    return value == value ? static_cast<int32_t>(value) : 0;
}

inline int32_t RealToInt32(float value)
{
    return Real64ToInt32(static_cast<double>(value));
}
