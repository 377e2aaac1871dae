// Numbers in bytes that are all at hand: eight digits at a time, without a step for each.
//
// These are the short way of the scanners in NqStreamText.h, for the numbers that files are full of: an optional minus,
// up to seven digits, up to eight decimals. Anything else they leave alone, and the scanner takes it byte by byte.
// Their values are the scanner's to the last bit: the same sums and roundings in the same order.
//
//     const int8* at = text;
//     real64 value;
//     if (end - at >= kNqNumberWindow && NqTakeReal(at, value))
//         return value; // and `at` is behind the number

#pragma once

#include "NqCore/Include/NqDecimalWeights.h"
#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <cstring>

// How many bytes must be there where a number begins: the longest one, the byte behind it, and what is loaded with it.
constexpr int32 kNqNumberWindow = 24;

// ---- Decimals --------------------------------------------------------------------------------------------------------

constexpr uint64 kNqEightZeros = 0x3030303030303030u; // '0' eight times

// Eight bytes as one word, the first one lowest. Written so that compilers make a single load of it.
inline uint64 NqLoadEight(const int8* inText)
{
    const uint8* const b = reinterpret_cast<const uint8*>(inText);
    return uint64{b[0]} | uint64{b[1]} << 8 | uint64{b[2]} << 16 | uint64{b[3]} << 24 | uint64{b[4]} << 32 |
           uint64{b[5]} << 40 | uint64{b[6]} << 48 | uint64{b[7]} << 56;
}

// The sums of the first three decimals, and each digit at the places behind them. The scanner adds one place after the
// other and rounds at each. So do these: a 0 that is added changes nothing.
class NqDecimalSums
{
public:
    constexpr NqDecimalSums() : fFirstThree(), fPlaces()
    {
        for (int32 i = 0; i < 1000; ++i)
        {
            real64 sum = 0;
            sum += i / 100 * kNqDecimalWeights[0];
            sum += i / 10 % 10 * kNqDecimalWeights[1];
            sum += i % 10 * kNqDecimalWeights[2];
            fFirstThree[i] = sum;
        }
        for (int32 place = 3; place < 8; ++place)
            for (int32 digit = 0; digit < 10; ++digit)
                fPlaces[place - 3][digit] = digit * kNqDecimalWeights[place];
    }

    // Of up to six decimals: the values of the digits from the lowest byte on, zeros behind them.
    real64 SumOfSix(uint64 inDigits) const
    {
        const uint64 firstTwo = inDigits * 10 + (inDigits >> 8);
        real64 sum = fFirstThree[(firstTwo & 0xFF) * 10 + (inDigits >> 16 & 0xFF)];
        sum += fPlaces[0][inDigits >> 24 & 0xFF];
        sum += fPlaces[1][inDigits >> 32 & 0xFF];
        return sum + fPlaces[2][inDigits >> 40 & 0xFF];
    }

    // Of up to eight.
    real64 SumOfEight(uint64 inDigits) const
    {
        const real64 sum = SumOfSix(inDigits & 0xFFFFFFFFFFFFu) + fPlaces[3][inDigits >> 48 & 0xFF];
        return sum + fPlaces[4][inDigits >> 56];
    }

private:
    real64 fFirstThree[1000];
    real64 fPlaces[5][10];
};
inline constexpr NqDecimalSums kNqDecimalSums;

// The decimals at `ioAt`, which is then behind them; of more than eight some are left there.
inline real64 NqTakeDecimals(const int8*& ioAt)
{
    constexpr uint64 kTopBits = 0x8080808080808080u;
    const uint64 digits = NqLoadEight(ioAt) ^ kNqEightZeros; // 0 to 9 where there are digits
    const uint64 others = (((digits & ~kTopBits) + 0x7676767676767676u) | digits) & kTopBits; // no byte carries
    // Six are what the writer makes of most numbers. A branch that knows the length lets the next number begin before
    // this one is done.
    if (others << 8 == uint64{0x80} << 56)
    {
        ioAt += 6;
        return kNqDecimalSums.SumOfSix(digits & 0xFFFFFFFFFFFFu);
    }
    const int32 bits = others == 0 ? 64 : __builtin_ctzll(others) & ~7;
    ioAt += bits >> 3;
    return kNqDecimalSums.SumOfEight(bits == 64 ? digits : digits & ((uint64{1} << bits) - 1));
}

// ---- Numbers ---------------------------------------------------------------------------------------------------------

// One to seven digits. False when there are none, or more.
inline bool NqTakeDigits(const int8*& ioAt, uint32& outValue)
{
    uint32 value = static_cast<uint32>(*ioAt - '0');
    if (value > 9)
        return false;
    for (int32 count = 1; count <= 7; ++count)
    {
        const uint32 digit = static_cast<uint32>(*++ioAt - '0');
        if (digit > 9)
        {
            outValue = value;
            return true;
        }
        value = value * 10 + digit;
    }
    return false;
}

// An integer modulo 2^32. False for what is not plain; `ioAt` is then anywhere in it.
inline bool NqTakeInteger(const int8*& ioAt, uint32& outValue)
{
    if (*ioAt != '-')
        return NqTakeDigits(ioAt, outValue);
    if (!NqTakeDigits(++ioAt, outValue))
        return false;
    outValue = 0 - outValue;
    return true;
}

// A real number, likewise. Nothing may stand behind it that belongs to it.
inline bool NqTakeReal(const int8*& ioAt, real64& outValue)
{
    const int32 negative = *ioAt == '-';
    ioAt += negative;
    uint32 whole;
    if (!NqTakeDigits(ioAt, whole))
        return false;
    real64 fraction = 0;
    if (*ioAt == '.')
        fraction = NqTakeDecimals(++ioAt);
    if ((*ioAt >= '/' && *ioAt <= ':') || *ioAt == 'e' || *ioAt == 'E') // '/', a ninth decimal, ':'
        return false;
    constexpr real64 kSigns[] = {1, -1};
    outValue = (whole + fraction) * kSigns[negative]; // no branch: signs cannot be foreseen
    return true;
}

// ---- Texts -----------------------------------------------------------------------------------------------------------
//
// These write at `outText`, where there is room for kNqNumberRoom bytes, and return what is behind the last of them.

constexpr int32 kNqNumberRoom = 24;

inline constexpr char kNqDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

inline int8* NqStorePair(int8* outText, uint32 inBelowHundred)
{
    std::memcpy(outText, &kNqDigitPairs[inBelowHundred * 2], 2);
    return outText + 2;
}

inline int8* NqStoreBelowTenThousand(int8* outText, uint32 inValue)
{
    if (inValue >= 1000)
        return NqStorePair(NqStorePair(outText, inValue / 100), inValue % 100);
    if (inValue >= 100)
    {
        *outText = static_cast<int8>('0' + inValue / 100);
        return NqStorePair(outText + 1, inValue % 100);
    }
    if (inValue >= 10)
        return NqStorePair(outText, inValue);
    *outText = static_cast<int8>('0' + inValue);
    return outText + 1;
}

inline int8* NqStoreUnsigned(int8* outText, uint32 inValue)
{
    if (inValue < 10000)
        return NqStoreBelowTenThousand(outText, inValue);
    uint32 high = inValue / 10000;
    if (high < 10000)
        outText = NqStoreBelowTenThousand(outText, high);
    else
    {
        outText = NqStoreBelowTenThousand(outText, high / 10000);
        high %= 10000;
        outText = NqStorePair(NqStorePair(outText, high / 100), high % 100);
    }
    const uint32 low = inValue % 10000;
    return NqStorePair(NqStorePair(outText, low / 100), low % 100);
}

inline int8* NqStoreInteger(int8* outText, int32 inValue)
{
    if (inValue >= 0)
        return NqStoreUnsigned(outText, static_cast<uint32>(inValue));
    *outText = '-';
    return NqStoreUnsigned(outText + 1, 0 - static_cast<uint32>(inValue));
}

// The digits of a number below a hundred million in bytes, the first one lowest: halves, quarters and at last single
// digits, all at once.
inline uint64 NqEightDigits(uint32 inBelowHundredMillion)
{
    const uint64 halves = inBelowHundredMillion / 10000 | uint64{inBelowHundredMillion % 10000} << 32;
    const uint64 hundreds = (halves * 10486 >> 20) & 0x0000007F0000007Fu;
    const uint64 pairs = hundreds | (halves - hundreds * 100) << 16;
    const uint64 tens = (pairs * 103 >> 10) & 0x000F000F000F000Fu;
    return tens | (pairs - tens * 10) << 8;
}

// As NqLoadEight, the other way.
inline void NqStoreEight(int8* outText, uint64 inWord)
{
    outText[0] = static_cast<int8>(inWord);
    outText[1] = static_cast<int8>(inWord >> 8);
    outText[2] = static_cast<int8>(inWord >> 16);
    outText[3] = static_cast<int8>(inWord >> 24);
    outText[4] = static_cast<int8>(inWord >> 32);
    outText[5] = static_cast<int8>(inWord >> 40);
    outText[6] = static_cast<int8>(inWord >> 48);
    outText[7] = static_cast<int8>(inWord >> 56);
}

// Eight decimals, trailing zeros left out. No branch on how many: that cannot be foreseen.
inline int8* NqStoreDecimals(int8* outText, uint32 inBelowHundredMillion)
{
    const uint64 digits = NqEightDigits(inBelowHundredMillion);
    NqStoreEight(outText, digits | kNqEightZeros);
    return outText + (digits == 0 ? 0 : 8 - (__builtin_clzll(digits) >> 3));
}

// A real number as six decimals, with those that the writer would make of six to eight. Null, and nothing written that
// counts, for what is too large for that, or no number.
//
// The writer rounds to millionths in double precision, splits that number and rounds its fraction again, to up to eight
// decimals. Below 2^22 the second rounding gives back the millionths, since the sum of the errors before it stays below
// half a unit of the eighth decimal. So they are counted once, as an integer.
inline int8* NqStoreReal(int8* outText, real32 inValue)
{
    constexpr real64 kLimit = 4194304e6;
    const real64 scaled = static_cast<real64>(inValue) * 1e6 + 0.5;
    if (!(scaled > -kLimit && scaled < kLimit))
        return nullptr;
    int64 millionths = static_cast<int64>(scaled);
    millionths -= static_cast<real64>(millionths) > scaled; // towards minus infinity
    *outText = '-';
    outText += millionths < 0;
    const uint64 magnitude = static_cast<uint64>(millionths < 0 ? -millionths : millionths);
    const uint32 whole = static_cast<uint32>(magnitude / 1000000);
    const uint32 fraction = static_cast<uint32>(magnitude % 1000000);
    if (whole < 100)
    {
        const int32 digits = whole < 10 ? 1 : 2;
        outText[0] = kNqDigitPairs[whole * 2 + 2 - digits];
        outText[1] = kNqDigitPairs[whole * 2 + 1];
        outText += digits;
    }
    else
        outText = NqStoreUnsigned(outText, whole);
    *outText = '.';
    return fraction == 0 ? outText : NqStoreDecimals(outText + 1, fraction * 100);
}
