#include "NqCore/PublicAPI/NqColorRGBAIndex.h"
#include "NqCore/PublicAPI/NqRGBColor.h"
#include "Tests/TestHost.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

using ColorTest = NqTest;

constexpr real32 kNaN = std::numeric_limits<real32>::quiet_NaN();
constexpr real32 kInfinity = std::numeric_limits<real32>::infinity();

// The fields as they lie in memory.
template <class Part, class Color>
std::vector<Part> Parts(const Color& color)
{
    std::vector<Part> parts(sizeof color / sizeof(Part));
    std::memcpy(parts.data(), static_cast<const void*>(&color), sizeof color);
    return parts;
}

template <class Color, class Part>
Color FromParts(const std::vector<Part>& parts)
{
    Color color;
    std::memcpy(static_cast<void*>(&color), parts.data(), sizeof color);
    return color;
}

// Of three colours a, b and c: these, what lies between a and b at a quarter, and where b weighs a quarter and c a
// half.
template <class Color, class Part>
void ExpectMixes(const std::vector<std::vector<Part>>& all)
{
    const Color a = FromParts<Color>(all[0]), b = FromParts<Color>(all[1]), c = FromParts<Color>(all[2]);
    const TVector2Template<real32> weights[] = {{0, 0}, {1, 0}, {0, 1}, {0.25F, 0}, {0.25F, 0.5F}};
    Color color;
    for (size_t i = 0; i < 5; ++i)
    {
        color = c; // the result may be one of the arguments
        color.Interpolate(weights[i], a, b, color);
        EXPECT_EQ(Parts<Part>(color), all[i]) << i;
        color = b;
        color.Interpolate(a, color, weights[i].x);
        EXPECT_TRUE(weights[i].y != 0 || Parts<Part>(color) == all[i]) << i;
    }
    EXPECT_EQ(TakeReports(), TTexts());
    for (const real32 t : {-0.125F, 1.5F, kNaN, kInfinity})
    {
        color.Interpolate(a, b, t);
        color.Interpolate(a, a, t);
        color.Interpolate(TVector2Template<real32>(t, 0), a, b, c);
        color.Interpolate(TVector2Template<real32>(t / 2, 0.75F), a, b, c);
        EXPECT_EQ(TakeReports(), TTexts(4, "interpolant >= 0.0 && interpolant <= 1.0"));
    }
}

TEST_F(ColorTest, EveryColourMixesAndReportsFactorsOutOfRange)
{
    ExpectMixes<TNqColorRGB, real32>({{0, 4, 2}, {4, 0, 2}, {0, 0, 4}, {1, 3, 2}, {1, 1, 3}});
    ExpectMixes<TNqColorRGBA, real32>({{0, 4, 2, 4}, {4, 0, 2, 0}, {0, 0, 4, 0}, {1, 3, 2, 3}, {1, 1, 3, 1}});
    ExpectMixes<TNqColorRGBAIndex, real32>(
        {{0, 4, 2, 4, 0}, {4, 0, 2, 0, 1}, {0, 0, 4, 0, 0.5F}, {1, 3, 2, 3, 0.25F}, {1, 1, 3, 1, 0.5F}});
    ExpectMixes<TNqColorRGBA32, int>({{0, 1000, 0, 3}, {4, 0, 2, 3}, {0, 0, 6, 0}, {1, 750, 1, 3}, {1, 250, 4, 2}});
    // Blue, green, red, alpha; then magnitudes and signs, and quotients and divisors.
    ExpectMixes<TNqColorRGBA8, uint8>(
        {{0, 255, 7, 100}, {10, 0, 7, 101}, {0, 0, 255, 90}, {3, 191, 7, 100}, {3, 64, 131, 95}});
    ExpectMixes<TNqColorSignedRGB8, uint8>(
        {{5, 0, 255, 5}, {5, 6, 255, 6}, {0, 6, 1, 0}, {5, 1, 127, 7}, {2, 2, 1, 4}});
    ExpectMixes<TNqColorRGBE8, uint8>(
        {{200, 255, 2, 2}, {255, 0, 6, 1}, {250, 1, 0, 1}, {182, 191, 2, 2}, {144, 64, 1, 2}});
    TNqColorRGBAIndex key; // beyond the ends
    key.Interpolate(TNqColorRGBAIndex(), FromParts<TNqColorRGBAIndex>(std::vector<real32>{1, 1, 1, 1, 1}), 1.5F);
    EXPECT_EQ(Parts<real32>(key), (std::vector<real32>{1.5F, 1.5F, 1.5F, 1.5F, 1}));
    TNqColorRGBA8 pixel;
    pixel.Interpolate(TNqColorRGBA8(0, 10, 200, 1), TNqColorRGBA8(4, 10, 100, 255), 1.5F);
    EXPECT_EQ(pixel, TNqColorRGBA8(6, 10, 50, 382 & 255));
    pixel.Interpolate(pixel, pixel, kNaN);
    EXPECT_EQ(pixel, TNqColorRGBA8(6, 10, 50, 126));
    TNqColorRGBA32 sum;
    sum.Interpolate(TNqColorRGBA32(0, 0, -3, 7), TNqColorRGBA32(2000000000, -2000000000, -3, 7), 2);
    EXPECT_EQ(Parts<int>(sum), (std::vector<int>{2147483647, -2147483647 - 1, -2, 7}));
    TakeReports();
}

TEST_F(ColorTest, BytesComeOutAsTheNearest)
{
    TRandom random(72);
    for (int round = 0; round < 200000; ++round)
    {
        const real32 t = static_cast<real32>(random()) * 0x1p-32F;
        const uint8 a = static_cast<uint8>(random()), b = static_cast<uint8>(random());
        TNqColorRGBA8 color, back;
        color.Interpolate(TNqColorRGBA8(a, b, a, 0), TNqColorRGBA8(b, a, a, 255), t);
        ASSERT_LE(std::abs(color.red - (a + (real64(b) - a) * t)), 0.50002);
        ASSERT_LE(std::abs(color.alpha - 255 * real64(t)), 0.50002);
        ASSERT_EQ(color.blue, a);
        TNqColorRGBA reals;
        color.ToRGBA(reals);
        ASSERT_NEAR(reals.blue, a / 255.0, 1e-7);
        reals.ToRGBA8(back);
        ASSERT_EQ(back, color);

        // All four together as each by itself, whatever the bits are.
        uint32 bits[4];
        for (uint32& part : bits)
            part = static_cast<uint32>(random()) & (random() % 2 == 0 ? 0xFFFFFFFF : 0x3FFFFFFF);
        std::memcpy(static_cast<void*>(&reals), bits, sizeof reals);
        reals.ToRGBA8(back);
        reals.TNqColorRGB::ToRGBA8(color, NqColorMath::ClampedToByte(reals.alpha));
        ASSERT_EQ(back, color) << std::hex << bits[0] << ' ' << bits[1] << ' ' << bits[2] << ' ' << bits[3];
    }
}

TEST_F(ColorTest, RealsBecomeBytesClampedOrAsTheyAreAndAreComparedWithTolerance)
{
    const std::tuple<real32, uint8, uint8> cases[] = {
        {0.0F, 0, 0},    {1.0F, 255, 255},  {0.999F, 254, 254},     {0.5F, 127, 127},      {-0.0F, 0, 0},
        {1.2F, 255, 50}, {-0.1F, 0, 231},   {1.0000001F, 255, 255}, {0.25F, 63, 63},       {2.0F, 255, 254},
        {kNaN, 0, 0},    {1e30F, 255, 255}, {-1e30F, 0, 0},         {kInfinity, 255, 255}, {-kInfinity, 0, 0},
    };
    for (const auto& [value, clamped, kept] : cases)
    {
        for (size_t part = 0; part < 5; ++part) // red, green, blue, alpha, index
        {
            std::vector<real32> parts(5, 0.25F);
            const TNqColorRGBAIndex plain = FromParts<TNqColorRGBAIndex>(parts);
            parts[part] = value;
            TNqColorRGBAIndex key = FromParts<TNqColorRGBAIndex>(parts);
            for (const real32 tolerance : {0.0F, 0.25F, 2.0F, kNaN})
                EXPECT_EQ(key.IsEqual(plain, tolerance), std::abs(value - 0.25F) <= tolerance) << value;
            TNqColorRGBA& color = key.fColor;
            TNqColorRGBA8 bytes(63, 63, 63, 63), pixel;
            uint8& byte = part == 0 ? bytes.red : part == 1 ? bytes.green : part == 2 ? bytes.blue : bytes.alpha;
            byte = part < 4 ? clamped : byte;
            color.ToRGBA8(pixel);
            EXPECT_EQ(pixel, bytes) << value;
            const bool inRange = (value >= 0 && value <= 1) || part == 4;
            EXPECT_EQ(color.IsClamped(), inRange);
            byte = part < 4 ? kept : byte;
            color.ToRGBA8Unclamped(pixel);
            EXPECT_EQ(pixel, bytes) << value;
            EXPECT_EQ(TakeReports(), TTexts(!inRange, "IsClamped()"));
            color.Clamp();
            EXPECT_EQ(color.IsClamped() != 0, value == value || part == 4);
        }
    }
}

template <class Color>
void ExpectEqualAsBytes(TRandom& random)
{
    std::vector<uint8> parts(4);
    for (uint8& part : parts)
        part = static_cast<uint8>(random());
    const Color a = FromParts<Color>(parts);
    EXPECT_TRUE(a == FromParts<Color>(parts));
    ++parts[random() % 4];
    EXPECT_TRUE(a != FromParts<Color>(parts));
}

TEST_F(ColorTest, AlphaIsAComponentLikeTheOthers)
{
    TRandom random(71);
    for (int round = 0; round < 100; ++round)
    {
        ExpectEqualAsBytes<TNqColorRGBA8>(random);
        ExpectEqualAsBytes<TNqColorSignedRGB8>(random);
        ExpectEqualAsBytes<TNqColorRGBE8>(random);
    }
    TNqColorRGBA color;
    const TNqColorRGB opaque(0.25F, 0.5F, 1);
    opaque.ToRGBA(color, 0.75F);
    color *= 0.5F;
    EXPECT_EQ(Parts<real32>(color), (std::vector<real32>{0.125F, 0.25F, 0.5F, 0.375F}));
    TNqColorRGBA8 pixel;
    opaque.ToRGBA8(pixel, 7);
    EXPECT_EQ(pixel, TNqColorRGBA8(63, 127, 255, 7));
    opaque.ToRGBA8Unclamped(pixel, 8);
    EXPECT_EQ(pixel, TNqColorRGBA8(63, 127, 255, 8));
}

TEST_F(ColorTest, HuesTurnIntoColoursAndBack)
{
    TNqColorRGB hls, color;
    // In single precision the last bit of both would be another one.
    TNqColorRGB(0x1.ee536ap-1F, 0x1.af365p-2F, 0x1.af365p-2F).GetHLS(hls.R, hls.G, hls.B);
    EXPECT_EQ(hls.B, 0x1.c65fdcp-1F);
    color.SetHLS(1.0F / 3, 0x1.57b12ap-2F, 0x1.4e072cp-3F);
    EXPECT_EQ(color.green, 0x1.8fbf82p-2F);
    TNqColorRGB(1, 0, 0.5F).GetHLS(hls.R, hls.G, hls.B);
    EXPECT_EQ(Parts<real32>(hls), (std::vector<real32>{5.5F / 6, 0.5F, 1}));
    TNqColorRGB(0.5F, 0.75F, 0.5F).GetHLS(hls.R, hls.G, hls.B);
    EXPECT_EQ(Parts<real32>(hls), (std::vector<real32>{2.0F / 6, 0.625F, 0.25F / 0.75F}));
    TRandom random(73);
    const auto part = [&random] { return static_cast<real32>(random.Below(17)) / 16; };
    for (int round = 0; round < 20000; ++round)
    {
        const TNqColorRGB before(part(), part(), part());
        before.GetHLS(hls.R, hls.G, hls.B);
        const bool isGrey = before.red == before.green && before.green == before.blue;
        ASSERT_TRUE(isGrey ? hls.R != hls.R && hls.B == 0 : hls.R >= 0 && hls.R < 1 && hls.B > 0 && hls.B < 1.00001F);
        color.SetHLS(hls.R, hls.G, hls.B);
        ASSERT_TRUE(color.IsEqual(before, 1e-5F)) << before.red << ", " << before.green << ", " << before.blue;
    }
}

TEST_F(ColorTest, EncodedColoursComeBackAsNearAsTheyCan)
{
    TRandom random(74);
    TNqColorRGBE8 light;
    TNqColorSignedRGB8 difference;
    for (int round = 0; round < 20000; ++round)
    {
        const int32 limit = 1 + random.Below(65025);
        const int32 r = random.Below(limit + 1), g = random.Below(limit + 1), b = random.Below(limit + 1);
        light.Set(r, g, b);
        const int32 most = std::max({r, g, b}), step = light.exponent;
        ASSERT_TRUE(step * 255 >= most && (step == 1 || (step - 1) * 255 < most)) << most << " by " << step;
        for (const auto& [value, decoded] : {std::pair{r, light.Red()}, {g, light.Green()}, {b, light.Blue()}})
            ASSERT_TRUE(decoded <= value && value - decoded < step);
        const int32 x = random.Below(511) - 255, y = random.Below(511) - 255, z = random.Below(511) - 255;
        difference.Set(x, y, z);
        ASSERT_TRUE(difference.Red() == x && difference.Green() == y && difference.Blue() == z);
        ASSERT_EQ(difference.sign, (x < 0) + 2 * (y < 0) + 4 * (z < 0));
    }
    constexpr int32 largest = std::numeric_limits<int32>::max(), least = std::numeric_limits<int32>::min();
    difference.Set(least, largest, -257);
    EXPECT_EQ(Parts<uint8>(difference), (std::vector<uint8>{1, 255, 0, 5}));
    light.Set(largest, 65025, least); // largest / 255 is 0x808080
    EXPECT_EQ(Parts<uint8>(light), (std::vector<uint8>{0x80, 255, 0x80, 255}));
    light.Set(-1, 0, -2);
    EXPECT_EQ(Parts<uint8>(light), (std::vector<uint8>{254, 0, 255, 1}));
}

} // namespace
