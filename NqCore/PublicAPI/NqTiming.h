// A span or a point of time in the host's units (nanoseconds in the reference host).
//
//     const TNqTiming start = TNqTiming::Now();
//     Work();
//     const TNqTiming spent = TNqTiming::Now() - start;
//
// Threads: a value like any other. Arithmetic is 64-bit integer arithmetic, which wraps on overflow.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

class TNqTiming
{
public:
    constexpr TNqTiming() : fTime(0) {}
    constexpr explicit TNqTiming(int64 inTime) : fTime(inTime) {}

    // The current time of a steady clock; supplied by the host.
    static TNqTiming Now();

    constexpr int64 GetTime() const { return fTime; }

    TNqTiming& operator+=(const TNqTiming& inOther) { return *this = *this + inOther; }

    friend constexpr TNqTiming operator+(const TNqTiming& a, const TNqTiming& b)
    {
        return Wrapped(Bits(a.fTime) + Bits(b.fTime));
    }
    friend constexpr TNqTiming operator-(const TNqTiming& a, const TNqTiming& b)
    {
        return Wrapped(Bits(a.fTime) - Bits(b.fTime));
    }
    friend constexpr TNqTiming operator*(int32 n, const TNqTiming& t) { return Wrapped(Bits(n) * Bits(t.fTime)); }
    friend constexpr TNqTiming operator*(const TNqTiming& t, int32 n) { return n * t; }
    friend constexpr TNqTiming operator/(const TNqTiming& t, int32 n) { return TNqTiming(t.fTime / n); }
    friend constexpr bool operator>(const TNqTiming& a, const TNqTiming& b) { return a.fTime > b.fTime; }
    friend constexpr bool operator==(const TNqTiming& a, const TNqTiming& b) { return a.fTime == b.fTime; }

private:
    static constexpr uint64 Bits(int64 inValue) { return static_cast<uint64>(inValue); }
    static constexpr TNqTiming Wrapped(uint64 inBits) { return TNqTiming(static_cast<int64>(inBits)); }

    int64 fTime;
};

static_assert(sizeof(TNqTiming) == 8, "a timing is one 64-bit integer");
