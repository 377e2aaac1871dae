// A colour of three reals, nominally 0 to 1, and two encodings of it in four bytes: TNqColorSignedRGB8 for differences
// of colours, TNqColorRGBE8 for light beyond white. With opacity: NqColorRGBA.h.
//
//     TNqColorRGB warm;
//     warm.SetHLS(0.08f, 0.6f, 1.0f);
//     TNqColorRGB colour;
//     colour.Interpolate(TNqColorRGB(1, 1, 1), warm, 0.25f);
//     TNqColorRGBA8 pixel;
//     colour.ToRGBA8(pixel, 255);
//
// Interpolating beyond 0..1 is reported, "interpolant >= 0.0 && interpolant <= 1.0", and extrapolates. The result may
// be one of the arguments. A component that is not a number is never clamped and never equal; as an integer it is 0.
// Reals are truncated to integers; those out of the range of an int32 become its nearest, and bytes keep the low 8
// bits.
//
// Cost: conversion and interpolation are inline and have no branch but that of the check.
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"
#include "NqUtils/PublicAPI/Real.h"
#include "NqUtils/PublicAPI/Vector2.h"

class TNqColorRGB;
class TNqColorRGBA;
class TNqColorRGBA8;

// What all the colours compute with.
namespace NqColorMath
{

inline bool CheckInterpolant(real32 interpolant)
{
    return NqCheck(interpolant >= 0.0 && interpolant <= 1.0);
}

// The weights of the second and the third of three colours, each and together.
inline bool CheckInterpolant(const TVector2Template<real32>& uv)
{
    return NqCheckText(uv.x >= 0 && uv.y >= 0 && uv.x + uv.y <= 1, "interpolant >= 0.0 && interpolant <= 1.0");
}

inline real32 Mix(real32 a, real32 b, real32 t)
{
    return a + (b - a) * t;
}

inline real32 Mix(real32 a, real32 b, real32 c, const TVector2Template<real32>& uv)
{
    return a + (b - a) * uv.x + (c - a) * uv.y;
}

inline real32 Clamped(real32 c)
{
    return c < 0 ? 0 : c > 1 ? 1 : c;
}

inline bool IsClamped(real32 c)
{
    return c >= 0 && c <= 1;
}

// 0..255 of 0..1.
inline uint8 UnitToByte(real32 c)
{
    return static_cast<uint8>(static_cast<int32>(255.0F * c));
}

// The same of the clamped component; 0 of what is not a number.
inline uint8 ClampedToByte(real32 c)
{
    const real32 positive = c > 0 ? c : 0;
    return UnitToByte(positive < 1 ? positive : 1);
}

inline uint8 ToByte(real32 inValue)
{
    return static_cast<uint8>(RealToInt32(inValue));
}

inline bool AreEqual(real32 a, real32 b, real32 inTolerance)
{
    return inTolerance == 0 ? a == b : (a > b ? a - b : b - a) <= inTolerance;
}

// Reports that the colour is not clamped, and converts it as it is.
[[gnu::cold]] void ConvertReporting(const TNqColorRGB& inColor, uint8 inAlpha, TNqColorRGBA8& outColor);

} // namespace NqColorMath

class TNqColorRGB : public TNqObject
{
public:
    // Black.
    TNqColorRGB() : red(0), green(0), blue(0) {}
    TNqColorRGB(real32 inRed, real32 inGreen, real32 inBlue) : red(inRed), green(inGreen), blue(inBlue) {}

    // Components below 0 become 0, those above 1 become 1.
    void Clamp()
    {
        red = NqColorMath::Clamped(red);
        green = NqColorMath::Clamped(green);
        blue = NqColorMath::Clamped(blue);
    }

    // Whether all components are in 0..1.
    boolean IsClamped() const
    {
        return NqColorMath::IsClamped(red) && NqColorMath::IsClamped(green) && NqColorMath::IsClamped(blue);
    }

    // The clamped colour as bytes: 255 times the component, not rounded. The callers include NqColorRGBA.h.
    inline void ToRGBA8(TNqColorRGBA8& outColor, uint8 inAlpha) const;

    // The same for a colour that is clamped already. One that is not is reported, "IsClamped()", and converted as it
    // is.
    inline void ToRGBA8Unclamped(TNqColorRGBA8& outColor, uint8 inAlpha) const;

    inline void ToRGBA(TNqColorRGBA& outColor, real32 inAlpha) const;

    // From a, at 0, to b, at 1.
    void Interpolate(const TNqColorRGB& a, const TNqColorRGB& b, real32 t)
    {
        NqColorMath::CheckInterpolant(t);
        *this = TNqColorRGB(NqColorMath::Mix(a.red, b.red, t), NqColorMath::Mix(a.green, b.green, t),
                            NqColorMath::Mix(a.blue, b.blue, t));
    }

    // A point in the triangle of three colours: b has the weight uv.x, c has uv.y, a the rest.
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorRGB& a, const TNqColorRGB& b,
                     const TNqColorRGB& c)
    {
        NqColorMath::CheckInterpolant(uv);
        *this = TNqColorRGB(NqColorMath::Mix(a.red, b.red, c.red, uv), NqColorMath::Mix(a.green, b.green, c.green, uv),
                            NqColorMath::Mix(a.blue, b.blue, c.blue, uv));
    }

    // Whether no component differs by more than the tolerance; a tolerance of 0 takes the components as they are.
    boolean IsEqual(const TNqColorRGB& inOther, real32 inTolerance) const
    {
        return NqColorMath::AreEqual(red, inOther.red, inTolerance) &&
               NqColorMath::AreEqual(green, inOther.green, inTolerance) &&
               NqColorMath::AreEqual(blue, inOther.blue, inTolerance);
    }

    // Hue, lightness and saturation of a clamped colour, 0..1 each; red has the hue 0, green 1/3, blue 2/3. Greys have
    // a saturation of 0 and a hue that is not a number: test for them before using it.
    void GetHLS(real32& outHue, real32& outLightness, real32& outSaturation) const;

    // The colour of these. Hues up to one turn outside 0..1 are taken as well.
    void SetHLS(real32 inHue, real32 inLightness, real32 inSaturation);

    union // both names are in use
    {
        real32 red;
        real32 R;
    };
    union
    {
        real32 green;
        real32 G;
    };
    union
    {
        real32 blue;
        real32 B;
    };
};

// A difference of two colours of bytes: -255..255 for each component.
class TNqColorSignedRGB8 : public TNqObject
{
public:
    // The low 8 bits of each magnitude are kept.
    void Set(int32 inRed, int32 inGreen, int32 inBlue);

    int32 Red() const { return sign & kRedNegative ? -int32{red} : red; }
    int32 Green() const { return sign & kGreenNegative ? -int32{green} : green; }
    int32 Blue() const { return sign & kBlueNegative ? -int32{blue} : blue; }

    // The same bytes: a negative 0 is another one than 0.
    boolean operator==(const TNqColorSignedRGB8& inOther) const
    {
        return red == inOther.red && green == inOther.green && blue == inOther.blue && sign == inOther.sign;
    }
    boolean operator!=(const TNqColorSignedRGB8& inOther) const { return !(*this == inOther); }

    // As those of TNqColorRGB, rounded to the nearest difference.
    void Interpolate(const TNqColorSignedRGB8& a, const TNqColorSignedRGB8& b, real32 t);
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorSignedRGB8& a, const TNqColorSignedRGB8& b,
                     const TNqColorSignedRGB8& c);

    uint8 blue = 0; // magnitudes
    uint8 green = 0;
    uint8 red = 0;
    uint8 sign = 0; // the bits below

    static constexpr uint8 kRedNegative = 1;
    static constexpr uint8 kGreenNegative = 2;
    static constexpr uint8 kBlueNegative = 4;
};

// A colour that may be brighter than white: three bytes and what all of them are multiplied by. 0..65025 for each
// component, in steps of the multiplier.
class TNqColorRGBE8 : public TNqObject
{
public:
    // With the smallest multiplier that brings the largest component down to a byte. Components are truncated; of those
    // that are negative or too large the low 8 bits of the quotient are kept.
    void Set(int32 inRed, int32 inGreen, int32 inBlue);

    int32 Red() const { return exponent * red; }
    int32 Green() const { return exponent * green; }
    int32 Blue() const { return exponent * blue; }

    // The same bytes: one colour may have several encodings.
    boolean operator==(const TNqColorRGBE8& inOther) const
    {
        return red == inOther.red && green == inOther.green && blue == inOther.blue && exponent == inOther.exponent;
    }
    boolean operator!=(const TNqColorRGBE8& inOther) const { return !(*this == inOther); }

    // As those of TNqColorRGB, rounded to the nearest integers before they are encoded.
    void Interpolate(const TNqColorRGBE8& a, const TNqColorRGBE8& b, real32 t);
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBE8& a, const TNqColorRGBE8& b,
                     const TNqColorRGBE8& c);

    uint8 blue = 0;
    uint8 green = 0;
    uint8 red = 0;
    uint8 exponent = 1; // the multiplier itself
};

static_assert(sizeof(TNqColorRGB) == 12 && offsetof(TNqColorRGB, red) == 0 && offsetof(TNqColorRGB, green) == 4 &&
                  offsetof(TNqColorRGB, blue) == 8,
              "colours are shared with modules built elsewhere");
static_assert(sizeof(TNqColorSignedRGB8) == 4 && offsetof(TNqColorSignedRGB8, green) == 1 &&
                  offsetof(TNqColorSignedRGB8, red) == 2 && offsetof(TNqColorSignedRGB8, sign) == 3,
              "blue comes first in memory");
static_assert(sizeof(TNqColorRGBE8) == 4 && offsetof(TNqColorRGBE8, green) == 1 && offsetof(TNqColorRGBE8, red) == 2 &&
                  offsetof(TNqColorRGBE8, exponent) == 3,
              "blue comes first in memory");
