#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqMath.h"
#include "NqCore/PublicAPI/NqMemoryCopy.h"
#include "NqCore/PublicAPI/NqTiming.h"
#include "Tests/TestHost.h"

#include <cmath>
#include <limits>

namespace
{

class TProbe : public TNqObject
{
public:
    int32 fValue = 7;
};

class TBoth : public TProbe, public TNqObject0, public TNqObject1
{
public:
    using TProbe::operator new;
    using TProbe::operator delete;
};
static_assert(sizeof(TBoth) == sizeof(TProbe), "each base is empty, also beside the others");

// A memory service that records what was asked of it, through the slots at which plug-ins expect it.
struct TRecordingMemory : IShMemoryUtilities
{
    void* HostOperation1() override { return Unused(); }
    void* HostOperation2() override { return Unused(); }
    void* HostOperation3() override { return Unused(); }
    void* HostOperation4() override { return Unused(); }
    void* HostOperation5() override { return Unused(); }
    void* HostOperation6() override { return Unused(); }
    void* HostOperation7() override { return Unused(); }
    void* AllocateBlock(uint32 byteCount) override { return Note("block", byteCount); }
    void FreeBlock(void*) override { fCalls.push_back("free block"); }
    void* AllocateArrayBlock(uint32 byteCount) override { return Note("array", byteCount); }
    void FreeArrayBlock(void*) override { fCalls.push_back("free array"); }

    void* Unused() { return Note("a slot of the host", 0); }
    void* Note(const char* kind, uint32 byteCount)
    {
        return fCalls.push_back(std::string(kind) + " " + std::to_string(byteCount)), nullptr;
    }

    TTexts fCalls;
};

} // namespace

using RuntimeFrame = NqTest;

TEST_F(RuntimeFrame, ObjectsComeFromTheSlotsOfTheMemoryService)
{
    TRecordingMemory memory;
    IShMemoryUtilities* const service = gMemoryUtilities;
    gMemoryUtilities = &memory;
    EXPECT_EQ(TNqObject::operator new(24), nullptr);
    EXPECT_EQ(TNqObject0::operator new[](25), nullptr);
    EXPECT_EQ(TNqObject1::operator new(26), nullptr);
    EXPECT_EQ(TNqCountedObject::operator new[](27), nullptr);
    EXPECT_EQ(new TProbe, nullptr); // no memory: no constructor either
    EXPECT_EQ(new TBoth, nullptr);
    TNqObject::operator delete(nullptr);
    TNqObject1::operator delete[](nullptr);
    EXPECT_EQ(TNqSMPCountedObject::operator new((NqSize(1) << 32) + 5), nullptr);
    gMemoryUtilities = service;
    EXPECT_EQ(memory.fCalls, (TTexts{"block 24", "array 25", "block 26", "array 27", "block 4", "block 4", "free block",
                                     "free array", "block 5"}));
    EXPECT_EQ(TakeReports(), TTexts{"(byteCount) <= static_cast<NqSize>(std::numeric_limits<uint32>::max())"});
}

TEST_F(RuntimeFrame, WithoutAMemoryServiceNewReportsAndDeleteIsSilent)
{
    IShMemoryUtilities* const service = gMemoryUtilities;
    TProbe* kept = new TProbe;
    gMemoryUtilities = nullptr;
    EXPECT_EQ(new TProbe, nullptr);
    delete kept;
    gMemoryUtilities = service;
    delete kept;
    const std::vector<TTestReport> reports = TakeFullReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].fText, "gMemoryUtilities");
    EXPECT_EQ(reports[0].fFile, "NqCore/Source/Common/NqObject.cpp");
}

TEST_F(RuntimeFrame, OnlyTheWholeSentinelIsDead)
{
    const uint8 bytes[] = {0xED, 0xA5, 0xCE, 0xDE, 0xED, 0xA5, 0xCE, 0xDE};
    EXPECT_EQ(std::memcmp(&kDeceasedPointerValue, bytes, 8), 0);
    for (int bit = -1; bit < 64; ++bit)
        EXPECT_EQ(NqCheckDeceased(uintpointer(kDeceasedPointerValue ^ (bit < 0 ? 0 : uint64{1} << bit))), bit < 0);
    EXPECT_FALSE(NqCheckDeceased(nullptr));
}

TEST_F(RuntimeFrame, ReportsNameFilesFromTheTopOfTheTree)
{
    EXPECT_STREQ(NqSourcePath("/a/NqCore/b/NqCore/PublicAPI/NqArray.h"), "NqCore/PublicAPI/NqArray.h");
    EXPECT_STREQ(NqSourcePath("NqCore/PublicAPI/NqArray.h"), "NqCore/PublicAPI/NqArray.h");
    EXPECT_STREQ(NqSourcePath("/usr/include/NqUtils/PublicAPI/Real.h"), "NqUtils/PublicAPI/Real.h");
    EXPECT_STREQ(NqSourcePath("/src/NqCore/NqHost/Source/NqHost.cpp"), "NqHost/Source/NqHost.cpp");
    EXPECT_STREQ(NqSourcePath("/NqHost"), "/NqHost");
    EXPECT_STREQ(NqSourcePath("/src/MyNqCore/x.cpp"), "/src/MyNqCore/x.cpp");
    EXPECT_STREQ(NqSourcePath("x.cpp"), "x.cpp");
}

TEST_F(RuntimeFrame, LargerAndSmallerOfRealsPreferTheSecond)
{
    const real32 nan = std::nanf("");
    EXPECT_TRUE(std::isnan(Nq_Max(1.0F, nan)));
    EXPECT_TRUE(std::isnan(Nq_Min(1.0F, nan)));
    EXPECT_EQ(Nq_Max(nan, 1.0F), 1.0F);
    EXPECT_TRUE(std::signbit(Nq_Max(0.0F, -0.0F)));
    EXPECT_TRUE(std::signbit(Nq_Min(0.0F, -0.0F)));
    EXPECT_EQ(Nq_Max(3, -7, 5), 5);
    EXPECT_EQ(Nq_Min(uint32(0xFFFFFFFF), uint32(1)), 1U);
}

TEST_F(RuntimeFrame, TimesWrapInsteadOfBeingUndefined)
{
    const int64 largest = std::numeric_limits<int64>::max();
    TNqTiming sum(largest);
    sum += TNqTiming(1);
    EXPECT_EQ(sum.GetTime(), -largest - 1);
    EXPECT_EQ((sum - TNqTiming(1)).GetTime(), largest);
    EXPECT_EQ((2 * TNqTiming(largest)).GetTime(), -2);
    EXPECT_EQ((TNqTiming(-7) * -3 / 2).GetTime(), 10);
}

TEST_F(RuntimeFrame, FillsAtEveryAlignmentWriteTheirExactBytes)
{
    struct TCase
    {
        bool fIsWide; // 32 bits
        int32 fValue;
        size_t fStart; // behind a boundary of four bytes
        unsigned long fCount;
        std::vector<uint8> fWanted; // to the first byte that stays
    };
    // Misaligned runs cut the pattern, an odd count stores its last element in the middle, a negative value of 16 bits
    // fills the upper half of each word with ones.
    const TCase cases[] = {
        {false, 0x1234, 0, 0, {}},
        {false, 0x1234, 0, 1, {0x34, 0x12}},
        {false, 0x1234, 0, 5, {0x34, 0x12, 0x34, 0x12, 0x34, 0x12, 0x34, 0x12}},
        {false, -2, 0, 3, {0xFE, 0xFF, 0xFE, 0xFF}},
        {false, -0x1235, 0, 4, {0xCB, 0xED, 0xFF, 0xFF, 0xCB, 0xED, 0xFF, 0xFF}},
        {false, 0x1234, 1, 1, {0x34, 0x12}},
        {false, 0x1234, 1, 3, {0x34, 0x12, 0x34, 0x12, 0x34}},
        {false, -0x1235, 1, 3, {0xCB, 0xED, 0xFF, 0xED, 0xFF}},
        {false, -2, 2, 1, {0xFE, 0xFF}},
        {false, 0x1234, 2, 4, {0x34, 0x12, 0x34, 0x12, 0x34, 0x12}},
        {false, 0x1234, 3, 1, {0x34, 0x12}},
        {false, 0x1234, 3, 2, {0x34, 0x34, 0x12, 0x12}},
        {false, 0x1234, 3, 5, {0x34, 0x34, 0x12, 0x12, 0x34, 0x34, 0x12, 0x12}},
        {true, 0x04030201, 1, 1, {1, 2, 3, 4}},
        {true, 0x04030201, 1, 2, {1, 2, 3, 4, 3, 4, 1}},
        {true, 0x04030201, 2, 1, {1, 2, 3, 4}},
        {true, 0x04030201, 3, 1, {1, 2, 3, 4}},
    };
    alignas(8) uint8 block[64];
    for (const TCase& c : cases)
    {
        std::memset(block, 0xEE, sizeof block);
        std::vector<uint8> wanted(block, block + sizeof block);
        std::copy(c.fWanted.begin(), c.fWanted.end(), wanted.begin() + 16 + static_cast<long>(c.fStart));
        c.fIsWide ? Nqmemfill32(c.fValue, block + 16 + c.fStart, c.fCount)
                  : Nqmemfill16(static_cast<int16>(c.fValue), block + 16 + c.fStart, c.fCount);
        EXPECT_EQ(std::vector<uint8>(block, block + sizeof block), wanted)
            << c.fValue << " at " << c.fStart << " x " << c.fCount;
    }
    TakeReports(); // misaligned runs are reported
    Nqmemfill8('a', block, 9);
    EXPECT_EQ(std::string(block, block + 9), "aaaaaaaaa");
    EXPECT_EQ(block[9], 0xEE);
    Nqmemfill32(-1, block, 0);
    Nqmemfill32align(-1, block + 2, 1);
    EXPECT_EQ(TakeReports(), TTexts{"(uintpointer(dst) & 3) == 0"});
}

TEST_F(RuntimeFrame, CopiesBehaveAtOverlaps)
{
    char text[] = "abcdefgh", moved[] = "abcdefgh";
    Nqmemcpy(text + 1, text, 5);
    EXPECT_STREQ(text, "aaaaaagh"); // ascending, byte by byte
    Nqmemmove(moved + 1, moved, 5);
    EXPECT_STREQ(moved, "aabcdegh");
    for (int count = -1; count < 10; ++count)
    {
        std::vector<uint32> from{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, to(10, 0);
        Nqmemcpy_uint32(to.data(), from.data(), count);
        std::fill(from.begin() + std::max(count, 0), from.end(), 0);
        EXPECT_EQ(to, from);
    }
}
