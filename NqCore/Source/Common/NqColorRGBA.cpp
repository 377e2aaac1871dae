#include "NqCore/PublicAPI/NqColorRGBA.h"

using NqColorMath::CheckInterpolant;
using NqColorMath::Mix;
using NqColorMath::ToByte;

void NqColorMath::ConvertReporting(const TNqColorRGB& inColor, uint8 inAlpha, TNqColorRGBA8& outColor)
{
    NqNotify("IsClamped()");
    outColor = TNqColorRGBA8(ToByte(255.0F * inColor.red), ToByte(255.0F * inColor.green),
                             ToByte(255.0F * inColor.blue), inAlpha);
}

// ---- Bytes ----------------------------------------------------------------------------------------------------------

void TNqColorRGBA8::Extrapolate(TNqColorRGBA8 a, TNqColorRGBA8 b, real32 t)
{
    CheckInterpolant(t);
    const auto blend = [t](uint8 x, uint8 y) { return ToByte(Blend(x, y, t)); };
    *this = a == b ? a
                   : TNqColorRGBA8(blend(a.red, b.red), blend(a.green, b.green), blend(a.blue, b.blue),
                                   blend(a.alpha, b.alpha));
}

void TNqColorRGBA8::Interpolate(const TVector2Template<real32>& uv, TNqColorRGBA8 a, TNqColorRGBA8 b, TNqColorRGBA8 c)
{
    CheckInterpolant(uv);
    const auto mix = [&uv](uint8 x, uint8 y, uint8 z) { return ToByte(0.5F + Mix(x, y, z, uv)); };
    *this = TNqColorRGBA8(mix(a.red, b.red, c.red), mix(a.green, b.green, c.green), mix(a.blue, b.blue, c.blue),
                          mix(a.alpha, b.alpha, c.alpha));
}

// ---- Integers -------------------------------------------------------------------------------------------------------

void TNqColorRGBA32::Interpolate(const TNqColorRGBA32& a, const TNqColorRGBA32& b, real32 t)
{
    CheckInterpolant(t);
    const auto blend = [t](int32 x, int32 y)
    { return RealToInt32(0.5F + Int32ToReal(x) * (1 - t) + Int32ToReal(y) * t); };
    *this =
        TNqColorRGBA32(blend(a.red, b.red), blend(a.green, b.green), blend(a.blue, b.blue), blend(a.alpha, b.alpha));
}

void TNqColorRGBA32::Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBA32& a, const TNqColorRGBA32& b,
                                 const TNqColorRGBA32& c)
{
    CheckInterpolant(uv);
    const auto mix = [&uv](int32 x, int32 y, int32 z)
    { return RealToInt32(0.5F + Mix(Int32ToReal(x), Int32ToReal(y), Int32ToReal(z), uv)); };
    *this = TNqColorRGBA32(mix(a.red, b.red, c.red), mix(a.green, b.green, c.green), mix(a.blue, b.blue, c.blue),
                           mix(a.alpha, b.alpha, c.alpha));
}
