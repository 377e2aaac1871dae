#include "NqCore/PublicAPI/NqColorRGB.h"

#include "NqCore/PublicAPI/NqMath.h"

#include <algorithm>
#include <cmath>

namespace
{

using NqColorMath::CheckInterpolant;
using NqColorMath::Mix;

// Into 0..1, from one turn outside.
real32 WrappedHue(real32 inHue)
{
    return inHue < 0 ? inHue + 1 : inHue > 1 ? inHue - 1 : inHue;
}

// The component that has its peak at the hue 0: between m1 and m2, up and down with the hue.
real32 ComponentOfHue(real32 inHue, real32 m1, real32 m2)
{
    const real32 x = WrappedHue(inHue);
    if (6 * x < 1)
        return m1 + (m2 - m1) * (6 * x);
    if (2 * x < 1)
        return m2;
    if (3 * x < 2)
        return m1 + 6 * (m2 - m1) * (2.0F / 3.0F - x);
    return m1;
}

// Differences may be negative, so that truncating would not round them.
int32 Rounded(real32 inValue)
{
    return RealToInt32(std::floor(inValue + 0.5F));
}

// Decodes, interpolates and encodes: the three components of either encoding.
template <class Color>
void SetMixed(Color& outColor, const Color& a, const Color& b, real32 t)
{
    const auto mix = [t](int32 x, int32 y) { return Rounded(Mix(Int32ToReal(x), Int32ToReal(y), t)); };
    outColor.Set(mix(a.Red(), b.Red()), mix(a.Green(), b.Green()), mix(a.Blue(), b.Blue()));
}

template <class Color>
void SetMixed(Color& outColor, const Color& a, const Color& b, const Color& c, const TVector2Template<real32>& uv)
{
    const auto mix = [&uv](int32 x, int32 y, int32 z)
    { return Rounded(Mix(Int32ToReal(x), Int32ToReal(y), Int32ToReal(z), uv)); };
    outColor.Set(mix(a.Red(), b.Red(), c.Red()), mix(a.Green(), b.Green(), c.Green()),
                 mix(a.Blue(), b.Blue(), c.Blue()));
}

} // namespace

// ---- Hue, lightness, saturation -------------------------------------------------------------------------------------

void TNqColorRGB::GetHLS(real32& outHue, real32& outLightness, real32& outSaturation) const
{
    const real32 max = Nq_Max(Nq_Max(red, green), blue);
    const real32 min = Nq_Min(Nq_Min(red, green), blue);
    const real32 difference = max - min;
    const real32 lightness = (max + min) / 2;
    real32 saturation = 0;
    if (max != min)
        saturation = lightness < 0.5F
                         ? difference / (max + min)
                         : static_cast<real32>(static_cast<real64>(difference) /
                                               (2.0 - static_cast<real64>(max) - static_cast<real64>(min)));
    // Of a grey the difference is 0 and the hue not a number. It stays so: callers rely on seeing it.
    real32 hue = 0;
    if (red == max)
        hue = (green - blue) / difference;
    if (green == max)
        hue = 2 + (blue - red) / difference;
    if (blue == max)
        hue = 4 + (red - green) / difference;
    if (hue < 0)
        hue += 6;
    outHue = hue / 6;
    outLightness = lightness;
    outSaturation = saturation;
}

void TNqColorRGB::SetHLS(real32 inHue, real32 inLightness, real32 inSaturation)
{
    if (inSaturation == 0)
    {
        *this = TNqColorRGB(inLightness, inLightness, inLightness);
        return;
    }
    const real32 m2 =
        inLightness < 0.5F
            ? static_cast<real32>(static_cast<real64>(inLightness) * (1.0 + static_cast<real64>(inSaturation)))
            : inLightness + inSaturation - inLightness * inSaturation;
    const real32 m1 = 2 * inLightness - m2;
    constexpr real32 third = 1.0F / 3.0F;
    *this = TNqColorRGB(ComponentOfHue(inHue + third, m1, m2), ComponentOfHue(inHue, m1, m2),
                        ComponentOfHue(inHue - third, m1, m2));
}

// ---- Colours with signs ---------------------------------------------------------------------------------------------

void TNqColorSignedRGB8::Set(int32 inRed, int32 inGreen, int32 inBlue)
{
    sign = 0;
    const auto encode = [this](int32 value, uint8 negative)
    {
        if (value >= 0)
            return static_cast<uint8>(value);
        sign |= negative;
        return static_cast<uint8>(0U - static_cast<uint32>(value));
    };
    red = encode(inRed, kRedNegative);
    green = encode(inGreen, kGreenNegative);
    blue = encode(inBlue, kBlueNegative);
}

void TNqColorSignedRGB8::Interpolate(const TNqColorSignedRGB8& a, const TNqColorSignedRGB8& b, real32 t)
{
    CheckInterpolant(t);
    SetMixed(*this, a, b, t);
}

void TNqColorSignedRGB8::Interpolate(const TVector2Template<real32>& uv, const TNqColorSignedRGB8& a,
                                     const TNqColorSignedRGB8& b, const TNqColorSignedRGB8& c)
{
    CheckInterpolant(uv);
    SetMixed(*this, a, b, c, uv);
}

// ---- Colours with a multiplier --------------------------------------------------------------------------------------

void TNqColorRGBE8::Set(int32 inRed, int32 inGreen, int32 inBlue)
{
    const int64 needed = (int64{Nq_Max(inRed, inGreen, inBlue)} + 254) / 255;
    const int32 multiplier = static_cast<int32>(std::clamp<int64>(needed, 1, 255));
    exponent = static_cast<uint8>(multiplier);
    red = static_cast<uint8>(inRed / multiplier);
    green = static_cast<uint8>(inGreen / multiplier);
    blue = static_cast<uint8>(inBlue / multiplier);
}

void TNqColorRGBE8::Interpolate(const TNqColorRGBE8& a, const TNqColorRGBE8& b, real32 t)
{
    CheckInterpolant(t);
    SetMixed(*this, a, b, t);
}

void TNqColorRGBE8::Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBE8& a, const TNqColorRGBE8& b,
                                const TNqColorRGBE8& c)
{
    CheckInterpolant(uv);
    SetMixed(*this, a, b, c, uv);
}
