// A rectangle of the screen, in pixels. It is half-open: it covers left <= x < right and top <= y < bottom; y grows
// downwards.
//
//     TNqRect frame(0, 0, 640, 480);
//     TNqRect picture;
//     picture.MaximizeInside(frame, TNqPoint(16, 9)); // as large as fits, centred
//     if (frame.PtInside(mouse))
//         ...
//
// Empty means without area; valid means not turned inside out, so a rectangle of size zero is both. SetInvalid writes a
// marker, empty and turned inside out, to which Union adds as if nothing were there.
// Coordinates wrap on overflow. Reals become integers by truncation unless stated, out of range the nearest one.

#pragma once

#include "NqCore/PublicAPI/NqPoint.h"

// Names for callers that speak of a side or an axis.
enum ERectangleSide
{
    kLeftSide = 0,
    kTopSide = 1,
    kRightSide = 2,
    kBottomSide = 3
};
enum XYSelect
{
    kXSel = 0,
    kYSel = 1,
    kDoneSel = 2
};

class TNqRect : public TNqObject0
{
public:
    TNqRect() {} // leaves the four fields unset
    TNqRect(int32 inLeft, int32 inTop, int32 inRight, int32 inBottom)
        : left(inLeft),
          top(inTop),
          right(inRight),
          bottom(inBottom)
    {
    }
    TNqRect(const TNqPoint& inTopLeft, const TNqPoint& inBottomRight)
        : left(inTopLeft.x),
          top(inTopLeft.y),
          right(inBottomRight.x),
          bottom(inBottomRight.y)
    {
    }

    // ---- What it is

    int32 GetWidth() const { return Nq_WrapSubtract(right, left); }
    int32 GetHeight() const { return Nq_WrapSubtract(bottom, top); }
    TNqPoint GetSize() const { return TNqPoint(GetWidth(), GetHeight()); }
    int32 GetArea() const { return Nq_WrapMultiply(GetWidth(), GetHeight()); }
    TNqPoint TopLeft() const { return TNqPoint(left, top); }

    // The middle rounds down. The middles of the sides round toward zero and so may lie one pixel beside it.
    TNqPoint GetCenter() const { return TNqPoint(Nq_WrapAdd(left, right) >> 1, Nq_WrapAdd(top, bottom) >> 1); }
    TNqPoint TopCenter() const { return TNqPoint(Nq_WrapAdd(left, right) / 2, top); }
    TNqPoint BottomCenter() const { return TNqPoint(Nq_WrapAdd(left, right) / 2, bottom); }
    TNqPoint LeftCenter() const { return TNqPoint(left, Nq_WrapAdd(top, bottom) / 2); }
    TNqPoint RightCenter() const { return TNqPoint(right, Nq_WrapAdd(top, bottom) / 2); }

    boolean Equal(const TNqRect& inRect) const
    {
        return left == inRect.left && top == inRect.top && right == inRect.right && bottom == inRect.bottom;
    }
    boolean EqualDimensions(const TNqRect& inRect) const
    {
        return GetWidth() == inRect.GetWidth() && GetHeight() == inRect.GetHeight();
    }

    boolean Empty() const { return top >= bottom || left >= right; }
    boolean Valid() const { return left <= right && top <= bottom; }
    boolean Invalid() const { return !Valid(); }

    // ---- Moving and sizing

    void SetEmpty() { *this = TNqRect(0, 0, 0, 0); }
    void SetInvalid() { *this = TNqRect(0x7FFFFFFF, 0x7FFFFFFF, -0x7FFFFFFF, -0x7FFFFFFF); }

    void Offset(int32 inDeltaX, int32 inDeltaY);
    TNqRect& operator+=(const TNqPoint& inDelta);
    TNqRect& operator-=(const TNqPoint& inDelta);

    // Moves each side inwards; negative values grow the rectangle.
    void Inset(int32 inDeltaX, int32 inDeltaY);

    // Multiplies each coordinate and rounds it, halves upwards.
    void Scale(real32 inScale);

    // Moves the rectangle so that its centre is inCenter, or that of inRect. The size stays; left and bottom are
    // truncated.
    void CenterTo(const TNqPoint& inCenter);
    void CenterInside(const TNqRect& inRect);

    // Becomes the largest rectangle of the proportion inRatio.x : inRatio.y that fits in inBounds, centred there. A
    // part of the ratio that is not positive is reported and taken as 1.
    void MaximizeInside(const TNqRect& inBounds, const TNqPoint& inRatio);

    // Takes the proportions of inRect, scaled so that the longer side of inRect becomes as long as the longer side of
    // this rectangle. The result is centred on (0, 0, width, height), wherever this rectangle was.
    void Proportion(const TNqRect& inRect);

    // ---- As sets of pixels

    // Cuts the rectangle down to what both cover; true when something is left. Else it becomes the invalid marker, or
    // all zeros when inSetEmpty is set.
    boolean Intersect(const TNqRect& inRect, uint8 inSetEmpty);

    // Grows the rectangle to hold inRect: as it is, or with an empty one counting for nothing.
    void Union(const TNqRect& inRect);
    void SafeUnion(const TNqRect& inRect);

    // Grows each side just to the point, which may so end on the right or bottom edge: outside the half-open area.
    void UnionPt(const TNqPoint& inPoint);

    // Becomes the rectangle with these two corners.
    void PtToRect(const TNqPoint& inPoint1, const TNqPoint& inPoint2);

    boolean PtInside(const TNqPoint& inPoint) const
    {
        return inPoint.y >= top && inPoint.y < bottom && inPoint.x >= left && inPoint.x < right;
    }

    // The pixel of this rectangle that is nearest to inPoint.
    void PinPoint(const TNqPoint& inPoint, TNqPoint& outPoint) const;

    // Whether inRect, which may be without area but not inside out, lies in this rectangle and starts before its end.
    boolean RectInside(const TNqRect& inRect) const;

    // Whether the two overlap; the two operations give the same answer.
    boolean RectInRect(const TNqRect& inRect) const
    {
        return inRect.left < right && inRect.right > left && inRect.top < bottom && inRect.bottom > top;
    }
    boolean RectOverRect(const TNqRect& inRect) const
    {
        return inRect.top < bottom && inRect.bottom > top && inRect.left < right && inRect.right > left;
    }

    int32 left;
    int32 top;
    int32 right;
    int32 bottom;
};

static_assert(sizeof(TNqRect) == 16 && offsetof(TNqRect, top) == 4 && offsetof(TNqRect, right) == 8 &&
                  offsetof(TNqRect, bottom) == 12,
              "rectangles are shared with modules built elsewhere");
