#include "NqCore/PublicAPI/NqRect.h"
#include "NqUtils/PublicAPI/Real.h"
#include "NqUtils/PublicAPI/Vector2.h"
#include "Tests/TestHost.h"

#include <cmath>
#include <limits>

namespace
{

using TSides = std::vector<int32>;

TSides Sides(const TNqRect& r)
{
    return {r.left, r.top, r.right, r.bottom};
}
TSides Sides(const TNqPoint& p)
{
    return {p.x, p.y};
}

constexpr int32 kMax = std::numeric_limits<int32>::max();
constexpr int32 kMin = std::numeric_limits<int32>::min();
// Other modules number the sides and axes.
static_assert(kLeftSide == 0 && kTopSide == 1 && kRightSide == 2 && kBottomSide == 3);
static_assert(kXSel == 0 && kYSel == 1 && kDoneSel == 2);

const TSides kInvalid = {kMax, kMax, -kMax, -kMax};

// A sum or product that wraps, taken from 64 bits.
int32 Low(int64 value)
{
    return static_cast<int32>(static_cast<uint32>(static_cast<uint64>(value)));
}

} // namespace

using RectTest = NqTest;

TEST_F(RectTest, SetOperationsAgreeWithPixelsCountedOneByOne)
{
    std::mt19937 random(41);
    const auto coordinate = [&random] { return static_cast<int32>(random() % 7) - 3; };
    for (int round = 0; round < 20000; ++round)
    {
        const TNqRect a(coordinate(), coordinate(), coordinate(), coordinate());
        const TNqRect b(coordinate(), coordinate(), coordinate(), coordinate());
        const auto holds = [](const TNqRect& r, int32 x, int32 y)
        { return r.left <= x && x < r.right && r.top <= y && y < r.bottom; };
        int32 pixelsOfA = 0, pixelsOfB = 0, common = 0;
        TNqRect box;
        box.SetInvalid();
        for (int32 y = -4; y <= 4; ++y)
        {
            for (int32 x = -4; x <= 4; ++x)
            {
                ASSERT_EQ(a.PtInside(TNqPoint(x, y)) != 0, holds(a, x, y));
                pixelsOfA += holds(a, x, y);
                pixelsOfB += holds(b, x, y);
                common += holds(a, x, y) && holds(b, x, y);
                if (holds(a, x, y) || holds(b, x, y))
                    box.Union(TNqRect(x, y, x + 1, y + 1));
                TNqPoint pin(x, y);
                a.PinPoint(pin, pin);
                if (!a.Empty())
                {
                    ASSERT_TRUE(holds(a, pin.x, pin.y));
                    ASSERT_TRUE(!holds(a, x, y) || (pin.x == x && pin.y == y)) << "a pixel inside stays";
                }
            }
        }
        ASSERT_EQ(a.Empty() != 0, pixelsOfA == 0);
        ASSERT_TRUE(a.Empty() || a.GetArea() == pixelsOfA);
        for (const uint8 setEmpty : std::vector<uint8>{0, 1})
        {
            TNqRect cut = a;
            ASSERT_EQ(cut.Intersect(b, setEmpty) != 0, common != 0);
            ASSERT_TRUE(common != 0 ? cut.GetArea() == common : Sides(cut) == (setEmpty ? TSides(4, 0) : kInvalid));
        }
        if (pixelsOfA != 0 && pixelsOfB != 0)
        {
            ASSERT_EQ(a.RectInRect(b) != 0, common != 0);
            ASSERT_EQ(a.RectInside(b) != 0, common == pixelsOfB);
        }
        ASSERT_EQ(a.RectInRect(b), a.RectOverRect(b));
        ASSERT_EQ(a.Invalid() != 0, a.left > a.right || a.top > a.bottom);
        if (a.Empty() || b.Empty())
        {
            const bool starts = holds(a, b.left, b.top) && b.right <= a.right && b.bottom <= a.bottom;
            ASSERT_EQ(a.RectInside(b) != 0, starts && b.Valid());
        }
        TNqRect joined = a;
        joined.SafeUnion(b);
        ASSERT_EQ(Sides(joined), Sides(a.Empty() ? b : b.Empty() ? a : box));
        TNqRect corners;
        corners.PtToRect(a.TopLeft(), TNqPoint(a.right, a.bottom));
        ASSERT_TRUE(corners.Valid());
        ASSERT_TRUE(!a.Valid() || corners.Equal(a));
        TNqRect reached = a;
        reached.UnionPt(TNqPoint(b.left, b.top));
        ASSERT_EQ(Sides(reached), (TSides{std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.left),
                                          std::max(a.bottom, b.top)}));
    }
}

TEST_F(RectTest, IntegerOperationsWrapAtTheExtremes)
{
    std::mt19937 random(42);
    const auto coordinate = [&random]
    {
        const int32 extremes[] = {kMin, kMin + 1, -1, 0, 1, kMax - 1, kMax, static_cast<int32>(random())};
        return extremes[random() % 8];
    };
    for (int round = 0; round < 20000; ++round)
    {
        const TNqRect r(coordinate(), coordinate(), coordinate(), coordinate());
        const int64 left = r.left, top = r.top, right = r.right, bottom = r.bottom;
        const TNqPoint d(coordinate(), coordinate());
        const int32 width = Low(right - left), height = Low(bottom - top);
        const int32 sumX = Low(left + right), sumY = Low(top + bottom);
        ASSERT_EQ(Sides(r.GetSize()), (TSides{width, height}));
        ASSERT_EQ(r.GetArea(), Low(int64(width) * height));
        ASSERT_EQ(Sides(r.GetCenter()),
                  (TSides{Low(int64(std::floor(sumX / 2.0))), Low(int64(std::floor(sumY / 2.0)))}));
        ASSERT_EQ(Sides(TNqRect(r.LeftCenter(), r.RightCenter())), (TSides{r.left, sumY / 2, r.right, sumY / 2}));
        ASSERT_EQ(Sides(TNqRect(r.TopCenter(), r.BottomCenter())), (TSides{sumX / 2, r.top, sumX / 2, r.bottom}));
        const TSides moved = {Low(left + d.x), Low(top + d.y), Low(right + d.x), Low(bottom + d.y)};
        TNqRect changed = r;
        changed += d;
        ASSERT_EQ(Sides(changed), moved);
        changed -= d;
        ASSERT_TRUE(changed.Equal(r));
        changed.Offset(d.x, d.y);
        ASSERT_EQ(Sides(changed), moved);
        changed = r;
        changed.Inset(d.x, d.y);
        ASSERT_EQ(Sides(changed), (TSides{Low(left + d.x), Low(top + d.y), Low(right - d.x), Low(bottom - d.y)}));
        TNqPoint sum = d;
        sum += TNqPoint(r.left, r.top);
        ASSERT_EQ(Sides(sum), (TSides{Low(left + d.x), Low(top + d.y)}));
        // Fitting may meet any value, and keeps the size where it says so.
        changed = r;
        changed.CenterTo(d);
        ASSERT_TRUE(changed.EqualDimensions(r));
        changed.CenterInside(TNqRect(d, TNqPoint(r.right, r.bottom)));
        ASSERT_TRUE(changed.EqualDimensions(r));
        changed.Proportion(TNqRect(d, TNqPoint(r.left, r.top)));
        changed.MaximizeInside(r, d);
        changed.Scale(static_cast<real32>(d.x));
        TakeReports();
    }
}

TEST_F(RectTest, FittingGivesTheResultsWorkedOutByHand)
{
    static const TNqRect kFrame(10, 10, 110, 60), kSquare(0, 0, 100, 100), kEmpty(5, 5, 5, 5), kWide(0, 0, 40, 10),
        kTall(0, 0, 5, 10), kOdd(0, 0, 9, 4);
    struct TCase
    {
        const char* fWhat;
        TNqRect fStart;
        void (*fChange)(TNqRect&);
        TSides fWanted;
    };
    const TCase cases[] = {
        {"scale", {1, 1, 3, 3}, [](TNqRect& r) { r.Scale(0.5f); }, {1, 1, 2, 2}},
        {"scale below 0", {-1, -3, -5, 7}, [](TNqRect& r) { r.Scale(0.5f); }, {0, -1, -2, 4}},
        {"scale in single precision", {16777217, 0, 1, 1}, [](TNqRect& r) { r.Scale(1.0f); }, {16777216, 0, 1, 1}},
        {"scale too far", {-2, 2, 0, 1}, [](TNqRect& r) { r.Scale(3e9f); }, {kMin, kMax, 0, kMax}},
        {"scale by nothing", {1, 2, 3, 4}, [](TNqRect& r) { r.Scale(std::nanf("")); }, {0, 0, 0, 0}},
        {"centre inside", {0, 0, 3, 3}, [](TNqRect& r) { r.CenterInside(TNqRect(0, 0, 10, 10)); }, {3, 3, 6, 6}},
        {"centre inside, both odd", {0, 0, 3, 3}, [](TNqRect& r) { r.CenterInside(kOdd); }, {3, 0, 6, 3}},
        {"centre on a point", {9, 9, 14, 12}, [](TNqRect& r) { r.CenterTo(TNqPoint(0, 0)); }, {-2, -2, 3, 1}},
        {"square in a frame", {}, [](TNqRect& r) { r.MaximizeInside(kFrame, TNqPoint(1, 1)); }, {35, 10, 85, 60}},
        {"wide in a frame", {}, [](TNqRect& r) { r.MaximizeInside(kSquare, TNqPoint(16, 9)); }, {0, 22, 100, 78}},
        {"in an empty frame", {}, [](TNqRect& r) { r.MaximizeInside(kEmpty, TNqPoint(3, 4)); }, {5, 5, 5, 5}},
        {"in single precision",
         {},
         [](TNqRect& r) { r.MaximizeInside(TNqRect(0, 0, 121, 1557), TNqPoint(45, 21)); },
         {0, 750, 120, 806}},
        {"as a wide one", {7, 7, 107, 57}, [](TNqRect& r) { r.Proportion(kWide); }, {0, 12, 100, 37}},
        {"as a tall one", {7, 7, 107, 57}, [](TNqRect& r) { r.Proportion(kTall); }, {25, -25, 75, 75}},
        {"as nothing", {0, 0, 10, 10}, [](TNqRect& r) { r.Proportion(kEmpty); }, {0, 0, 0, 0}},
        {"union with no regard", {0, 0, 0, 0}, [](TNqRect& r) { r.Union(TNqRect(1, 2, 3, 4)); }, {0, 0, 3, 4}},
    };
    for (const TCase& c : cases)
    {
        TNqRect r = c.fStart;
        c.fChange(r);
        EXPECT_EQ(Sides(r), c.fWanted) << c.fWhat;
    }
    TNqRect r;
    r.MaximizeInside(kFrame, TNqPoint(0, -3));
    EXPECT_EQ(Sides(r), (TSides{35, 10, 85, 60}));
    EXPECT_EQ(TakeReports(), (TTexts{"ratio.x > 0", "ratio.y > 0"}));
}

TEST_F(RectTest, RealsBecomeIntegersForEveryValue)
{
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(RealToInt32(-2.9f), -2);
    EXPECT_EQ(RealToInt32(2147483520.0f), 2147483520);
    EXPECT_EQ(RealToInt32(2147483648.0f), kMax);
    EXPECT_EQ(RealToInt32(-infinity), kMin);
    EXPECT_EQ(RealToInt32(std::nanf("")), 0);
    EXPECT_EQ(Int32ToReal(16777217), 16777216.0f);
    EXPECT_EQ(TVector2Template<float>(1.5f, 2).x, 1.5f);
}
