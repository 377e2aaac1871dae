#include "NqCore/PublicAPI/NqRect.h"

#include "NqCore/PublicAPI/NqMath.h"
#include "NqUtils/PublicAPI/Real.h"

#include <algorithm>
#include <cmath>

namespace
{

int32 ScaleCoordinate(int32 inCoordinate, real32 inScale)
{
    const real32 product = Int32ToReal(inCoordinate) * inScale;
    return Real64ToInt32(std::floor(0.5 + static_cast<real64>(product)));
}

// The rectangle of this size around a centre: left from the left half, bottom from the lower one, so that the size
// never changes.
TNqRect RectAround(real64 inCenterX, real64 inCenterY, const TNqPoint& inSize)
{
    const int32 left = Real64ToInt32(inCenterX - inSize.x / 2.0);
    const int32 bottom = Real64ToInt32(inCenterY + inSize.y / 2.0);
    return TNqRect(left, Nq_WrapSubtract(bottom, inSize.y), Nq_WrapAdd(left, inSize.x), bottom);
}

// Where a fitted length starts in the middle of a frame that starts at `inStart`.
int32 CenteredStart(int32 inStart, int32 inFrame, int32 inFitted)
{
    return inFitted < inFrame ? Nq_WrapAdd(inStart, Nq_WrapSubtract(inFrame, inFitted) / 2) : inStart;
}

int32 PinCoordinate(int32 inValue, int32 inLow, int32 inHigh)
{
    const int32 raised = std::max(inValue, inLow);
    return raised >= inHigh ? Nq_WrapSubtract(inHigh, 1) : raised;
}

} // namespace

void TNqRect::Offset(int32 inDeltaX, int32 inDeltaY)
{
    left = Nq_WrapAdd(left, inDeltaX);
    right = Nq_WrapAdd(right, inDeltaX);
    top = Nq_WrapAdd(top, inDeltaY);
    bottom = Nq_WrapAdd(bottom, inDeltaY);
}

TNqRect& TNqRect::operator+=(const TNqPoint& inDelta)
{
    Offset(inDelta.x, inDelta.y);
    return *this;
}

TNqRect& TNqRect::operator-=(const TNqPoint& inDelta)
{
    Offset(Nq_WrapSubtract(0, inDelta.x), Nq_WrapSubtract(0, inDelta.y));
    return *this;
}

void TNqRect::Inset(int32 inDeltaX, int32 inDeltaY)
{
    left = Nq_WrapAdd(left, inDeltaX);
    top = Nq_WrapAdd(top, inDeltaY);
    right = Nq_WrapSubtract(right, inDeltaX);
    bottom = Nq_WrapSubtract(bottom, inDeltaY);
}

void TNqRect::Scale(real32 inScale)
{
    left = ScaleCoordinate(left, inScale);
    top = ScaleCoordinate(top, inScale);
    right = ScaleCoordinate(right, inScale);
    bottom = ScaleCoordinate(bottom, inScale);
}

void TNqRect::CenterTo(const TNqPoint& inCenter)
{
    *this = RectAround(inCenter.x, inCenter.y, GetSize());
}

void TNqRect::CenterInside(const TNqRect& inRect)
{
    const real64 centerX = Nq_WrapAdd(inRect.left, inRect.right) / 2.0;
    const real64 centerY = Nq_WrapAdd(inRect.top, inRect.bottom) / 2.0;
    *this = RectAround(centerX, centerY, GetSize());
}

void TNqRect::MaximizeInside(const TNqRect& inBounds, const TNqPoint& inRatio)
{
    TNqPoint ratio = inRatio;
    if (!NqCheck(ratio.x > 0))
        ratio.x = 1;
    if (!NqCheck(ratio.y > 0))
        ratio.y = 1;
    const TNqPoint size = inBounds.GetSize();
    const real32 ratioX = Int32ToReal(ratio.x);
    const real32 ratioY = Int32ToReal(ratio.y);
    const real32 scale = Nq_Min(Int32ToReal(size.x) / ratioX, Int32ToReal(size.y) / ratioY);
    const TNqPoint fitted(RealToInt32(ratioX * scale), RealToInt32(ratioY * scale));
    const TNqPoint start(CenteredStart(inBounds.left, size.x, fitted.x), CenteredStart(inBounds.top, size.y, fitted.y));
    *this = TNqRect(start.x, start.y, Nq_WrapAdd(start.x, fitted.x), Nq_WrapAdd(start.y, fitted.y));
}

void TNqRect::Proportion(const TNqRect& inRect)
{
    const real64 width = GetWidth();
    const real64 height = GetHeight();
    const real64 shapeWidth = inRect.GetWidth();
    const real64 shapeHeight = inRect.GetHeight();
    const real64 longer = std::max(width, height);
    const real64 scale = shapeWidth > shapeHeight ? longer / shapeWidth : longer / shapeHeight;
    const int32 newTop = Real64ToInt32(0.5 * (height - shapeHeight * scale));
    const int32 newLeft = Real64ToInt32(0.5 * (width - shapeWidth * scale));
    *this = TNqRect(newLeft, newTop, Real64ToInt32(newLeft + shapeWidth * scale),
                    Real64ToInt32(newTop + shapeHeight * scale));
}

boolean TNqRect::Intersect(const TNqRect& inRect, uint8 inSetEmpty)
{
    if (!Empty())
    {
        *this = TNqRect(std::max(left, inRect.left), std::max(top, inRect.top), std::min(right, inRect.right),
                        std::min(bottom, inRect.bottom));
        if (!Empty())
            return true;
    }
    if (inSetEmpty != 0)
        SetEmpty();
    else
        SetInvalid();
    return false;
}

void TNqRect::Union(const TNqRect& inRect)
{
    *this = TNqRect(std::min(left, inRect.left), std::min(top, inRect.top), std::max(right, inRect.right),
                    std::max(bottom, inRect.bottom));
}

void TNqRect::SafeUnion(const TNqRect& inRect)
{
    if (Empty())
        *this = inRect;
    else if (!inRect.Empty())
        Union(inRect);
}

void TNqRect::UnionPt(const TNqPoint& inPoint)
{
    Union(TNqRect(inPoint, inPoint));
}

void TNqRect::PtToRect(const TNqPoint& inPoint1, const TNqPoint& inPoint2)
{
    *this = TNqRect(inPoint1, inPoint1);
    UnionPt(inPoint2);
}

void TNqRect::PinPoint(const TNqPoint& inPoint, TNqPoint& outPoint) const
{
    outPoint = TNqPoint(PinCoordinate(inPoint.x, left, right), PinCoordinate(inPoint.y, top, bottom));
}

boolean TNqRect::RectInside(const TNqRect& inRect) const
{
    if (Empty() || inRect.Invalid())
        return false;
    return inRect.top >= top && inRect.left >= left && inRect.bottom <= bottom && inRect.right <= right &&
           inRect.top < bottom && inRect.left < right;
}
