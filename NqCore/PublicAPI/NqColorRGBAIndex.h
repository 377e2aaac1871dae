// A key of a gradient: a colour and where it stands.
//
//     TNqColorRGBAIndex middle;
//     middle.Interpolate(dark, bright, 0.5f);   // halfway in colour and in place
//
// What NqColorRGB.h says of interpolation and of what is not a number holds here too.

#pragma once

#include "NqCore/PublicAPI/NqColorRGBA.h"

class TNqColorRGBAIndex : public TNqObject0
{
public:
    // Transparent black at 0.
    TNqColorRGBAIndex() : fIndex(0) {}

    // Whether colours and indices differ by no more than the tolerance; 0 takes them as they are.
    boolean IsEqual(const TNqColorRGBAIndex& inOther, real32 inTolerance) const
    {
        return fColor.IsEqual(inOther.fColor, inTolerance) &&
               NqColorMath::AreEqual(fIndex, inOther.fIndex, inTolerance);
    }

    // The colour as TNqColorRGBA interpolates it, the index likewise and then clamped to 0..1.
    void Interpolate(const TNqColorRGBAIndex& a, const TNqColorRGBAIndex& b, real32 t)
    {
        const real32 index = NqColorMath::Mix(a.fIndex, b.fIndex, t);
        fColor.Interpolate(a.fColor, b.fColor, t);
        fIndex = NqColorMath::Clamped(index);
    }
    void Interpolate(const TVector2Template<real32>& uv, const TNqColorRGBAIndex& a, const TNqColorRGBAIndex& b,
                     const TNqColorRGBAIndex& c)
    {
        const real32 index = NqColorMath::Mix(a.fIndex, b.fIndex, c.fIndex, uv);
        fColor.Interpolate(uv, a.fColor, b.fColor, c.fColor);
        fIndex = NqColorMath::Clamped(index);
    }

    TNqColorRGBA fColor;
    real32 fIndex; // 0..1 along the gradient
};

static_assert(sizeof(TNqColorRGBAIndex) == 20, "colours are shared with modules built elsewhere");
