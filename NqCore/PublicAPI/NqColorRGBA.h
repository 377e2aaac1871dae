// Colours with opacity: of reals, nominally 0 to 1 (TNqColorRGBA), of bytes as pixels have them (TNqColorRGBA8), and of
// integers to add up in (TNqColorRGBA32). Alpha is no more than a fourth component: nothing multiplies by it.
//
//     for (uint32 i = 0; i < count; ++i)
//     {
//         TNqColorRGBA colour;
//         pixels[i].ToRGBA(colour);
//         colour *= 0.5f;
//         colour.ToRGBA8(pixels[i]);
//     }
//
// Bytes to reals and back lose nothing. What NqColorRGB.h says of interpolation, of conversion and of what is not a
// number holds here too.

#pragma once

#include "NqCore/PublicAPI/NqColorRGB.h"

#include <cstring>

class TNqColorRGBA : public TNqColorRGB
{
public:
    // Transparent black.
    TNqColorRGBA() : alpha(0) {}
    TNqColorRGBA(real32 inRed, real32 inGreen, real32 inBlue, real32 inAlpha)
        : TNqColorRGB(inRed, inGreen, inBlue),
          alpha(inAlpha)
    {
    }

    void Set(real32 inRed, real32 inGreen, real32 inBlue, real32 inAlpha)
    {
        *this = TNqColorRGBA(inRed, inGreen, inBlue, inAlpha);
    }

    // Multiplies all four components.
    TNqColorRGBA& operator*=(real32 inFactor)
    {
        Set(red * inFactor, green * inFactor, blue * inFactor, alpha * inFactor);
        return *this;
    }

    void Clamp()
    {
        TNqColorRGB::Clamp();
        alpha = NqColorMath::Clamped(alpha);
    }
    boolean IsClamped() const { return TNqColorRGB::IsClamped() && NqColorMath::IsClamped(alpha); }

    inline void ToRGBA8(TNqColorRGBA8& outColor) const;
    inline void ToRGBA8Unclamped(TNqColorRGBA8& outColor) const;

    void Interpolate(const TNqColorRGBA& a, const TNqColorRGBA& b, real32 t)
    {
        NqColorMath::CheckInterpolant(t);
        Set(NqColorMath::Mix(a.red, b.red, t), NqColorMath::Mix(a.green, b.green, t),
            NqColorMath::Mix(a.blue, b.blue, t), NqColorMath::Mix(a.alpha, b.alpha, t));
    }
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBA& a, const TNqColorRGBA& b,
                     const TNqColorRGBA& c)
    {
        NqColorMath::CheckInterpolant(uv);
        Set(NqColorMath::Mix(a.red, b.red, c.red, uv), NqColorMath::Mix(a.green, b.green, c.green, uv),
            NqColorMath::Mix(a.blue, b.blue, c.blue, uv), NqColorMath::Mix(a.alpha, b.alpha, c.alpha, uv));
    }

    boolean IsEqual(const TNqColorRGBA& inOther, real32 inTolerance) const
    {
        return TNqColorRGB::IsEqual(inOther, inTolerance) && NqColorMath::AreEqual(alpha, inOther.alpha, inTolerance);
    }

    union
    {
        real32 alpha;
        real32 A;
    };
};

// A pixel of an image.
class TNqColorRGBA8 : public TNqObject
{
public:
    // Transparent black.
    TNqColorRGBA8() : blue(0), green(0), red(0), alpha(0) {}
    TNqColorRGBA8(uint8 inRed, uint8 inGreen, uint8 inBlue, uint8 inAlpha)
        : blue(inBlue),
          green(inGreen),
          red(inRed),
          alpha(inAlpha)
    {
    }

    boolean operator==(const TNqColorRGBA8& inOther) const
    {
        return blue == inOther.blue && green == inOther.green && red == inOther.red && alpha == inOther.alpha;
    }
    boolean operator!=(const TNqColorRGBA8& inOther) const { return !(*this == inOther); }

    void ToRGBA(TNqColorRGBA& outColor) const
    {
        constexpr real32 scale = 0.003921569F; // 1/255
        outColor.Set(static_cast<real32>(red) * scale, static_cast<real32>(green) * scale,
                     static_cast<real32>(blue) * scale, static_cast<real32>(alpha) * scale);
    }

    // As those of TNqColorRGB, rounded to the nearest byte. Between equal colours there is only that one, at any t.
    void Interpolate(TNqColorRGBA8 a, TNqColorRGBA8 b, real32 t)
    {
        if (NqColorMath::IsClamped(t))
            *this = TNqColorRGBA8(MixBytes(a.red, b.red, t), MixBytes(a.green, b.green, t), MixBytes(a.blue, b.blue, t),
                                  MixBytes(a.alpha, b.alpha, t));
        else
            Extrapolate(a, b, t);
    }
    void Interpolate(const TVector2Template<real32>& uv, TNqColorRGBA8 a, TNqColorRGBA8 b, TNqColorRGBA8 c);

    uint8 blue;
    uint8 green;
    uint8 red;
    uint8 alpha;

private:
    // For t in 0..1. Equal bytes then give that byte, since the error stays far below the half.
    static uint8 MixBytes(uint8 a, uint8 b, real32 t) { return static_cast<uint8>(static_cast<int32>(Blend(a, b, t))); }
    static real32 Blend(uint8 a, uint8 b, real32 t)
    {
        return 0.5F + static_cast<real32>(b) * t + static_cast<real32>(a) * (1 - t);
    }
    [[gnu::cold]] void Extrapolate(TNqColorRGBA8 a, TNqColorRGBA8 b, real32 t); // reports
};

// A colour of integers in any range.
class TNqColorRGBA32 : public TNqObject
{
public:
    // Transparent black.
    TNqColorRGBA32() : red(0), green(0), blue(0), alpha(0) {}
    TNqColorRGBA32(int32 inRed, int32 inGreen, int32 inBlue, int32 inAlpha)
        : red(inRed),
          green(inGreen),
          blue(inBlue),
          alpha(inAlpha)
    {
    }

    // As those of TNqColorRGB, in single precision: a half is added and the sum truncated, so that negative components
    // come out one too large.
    void Interpolate(const TNqColorRGBA32& a, const TNqColorRGBA32& b, real32 t);
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBA32& a, const TNqColorRGBA32& b,
                     const TNqColorRGBA32& c);

    int32 red;
    int32 green;
    int32 blue;
    int32 alpha;
};

// ---- Conversions ----------------------------------------------------------------------------------------------------

inline void TNqColorRGB::ToRGBA8(TNqColorRGBA8& outColor, uint8 inAlpha) const
{
    outColor = TNqColorRGBA8(NqColorMath::ClampedToByte(red), NqColorMath::ClampedToByte(green),
                             NqColorMath::ClampedToByte(blue), inAlpha);
}

inline void TNqColorRGB::ToRGBA8Unclamped(TNqColorRGBA8& outColor, uint8 inAlpha) const
{
    using NqColorMath::UnitToByte;
    if (IsClamped())
        outColor = TNqColorRGBA8(UnitToByte(red), UnitToByte(green), UnitToByte(blue), inAlpha);
    else
        NqColorMath::ConvertReporting(*this, inAlpha, outColor);
}

inline void TNqColorRGB::ToRGBA(TNqColorRGBA& outColor, real32 inAlpha) const
{
    outColor.Set(red, green, blue, inAlpha);
}

#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
// All components at a time, with the steps of ClampedToByte: a comparison with what is not a number gives 0.
inline void TNqColorRGBA::ToRGBA8(TNqColorRGBA8& outColor) const
{
    using TReals = real32 __attribute__((vector_size(16)));
    using TIntegers = int32 __attribute__((vector_size(16)));
    static_assert(offsetof(TNqColorRGB, red) == 0 && offsetof(TNqColorRGB, green) == 4 &&
                      offsetof(TNqColorRGB, blue) == 8,
                  "the components are read as they lie");
    constexpr TReals zero = {0, 0, 0, 0}, one = {1, 1, 1, 1};
    TReals colour;
    std::memcpy(&colour, static_cast<const void*>(this), sizeof colour);
    colour = colour > zero ? colour : zero;
    colour = colour < one ? colour : one;
    const TIntegers bytes = __builtin_convertvector(colour * 255.0F, TIntegers);
    uint64 halves[2]; // red and green, blue and alpha: 32 bits each
    std::memcpy(halves, &bytes, sizeof halves);
    const uint32 pixel = static_cast<uint32>(halves[0] << 16 | halves[0] >> 24 | halves[1] | halves[1] >> 8);
    std::memcpy(static_cast<void*>(&outColor), &pixel, sizeof outColor);
}
#else
inline void TNqColorRGBA::ToRGBA8(TNqColorRGBA8& outColor) const
{
    TNqColorRGB::ToRGBA8(outColor, NqColorMath::ClampedToByte(alpha));
}
#endif

inline void TNqColorRGBA::ToRGBA8Unclamped(TNqColorRGBA8& outColor) const
{
    if (IsClamped())
        TNqColorRGB::ToRGBA8Unclamped(outColor, NqColorMath::UnitToByte(alpha));
    else
        NqColorMath::ConvertReporting(*this, NqColorMath::ToByte(255.0F * alpha), outColor);
}

static_assert(sizeof(TNqColorRGBA) == 16, "colours are shared with modules built elsewhere");
static_assert(sizeof(TNqColorRGBA8) == 4 && offsetof(TNqColorRGBA8, green) == 1 && offsetof(TNqColorRGBA8, red) == 2 &&
                  offsetof(TNqColorRGBA8, alpha) == 3,
              "pixels are blue, green, red, alpha in memory");
static_assert(sizeof(TNqColorRGBA32) == 16 && offsetof(TNqColorRGBA32, green) == 4 &&
                  offsetof(TNqColorRGBA32, blue) == 8 && offsetof(TNqColorRGBA32, alpha) == 12,
              "colours are shared with modules built elsewhere");
