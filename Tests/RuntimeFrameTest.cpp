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

// The pattern fills, told once more byte by byte from their described order of stores.
struct TFillModel
{
    static void Fill16(int16 value, std::vector<uint8>& block, size_t start, unsigned long count)
    {
        const uint8 low = static_cast<uint8>(value);
        const uint8 high = static_cast<uint8>(static_cast<uint16>(value) >> 8);
        uint32 word = static_cast<uint32>(static_cast<uint16>(value)) |
                      (value < 0 ? 0xFFFF0000U : static_cast<uint32>(value) << 16);
        size_t at = start;
        size_t k = start & 3;
        const bool odd = (k & 1) != 0;
        long left = static_cast<long>(count);
        if (odd)
        {
            block[at++] = low;
            word = (word << 24) | (word >> 8) | (word >> 31 != 0 ? 0xFF000000U : 0U);
            --left;
        }
        if ((k & 2) != 0 && left > 0)
        {
            block[at++] = low;
            block[at++] = high;
            --left;
        }
        for (long i = 0; i < left / 2 * 4; ++i)
            block[at + static_cast<size_t>(i)] = static_cast<uint8>(word >> (i % 4 * 8));
        at += static_cast<size_t>(left / 2 * 2);
        if (left % 2 != 0)
        {
            block[at++] = low;
            block[at++] = high;
        }
        if (odd)
            block[at] = high;
    }
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
    TNqObject::operator delete(nullptr);
    TNqObject1::operator delete[](nullptr);
    EXPECT_EQ(TNqSMPCountedObject::operator new((NqSize(1) << 32) + 5), nullptr);
    gMemoryUtilities = service;
    EXPECT_EQ(memory.fCalls, (TTexts{"block 24", "array 25", "block 26", "array 27", "block 4", "free block",
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

TEST_F(RuntimeFrame, ReportsNameFilesFromTheTopOfTheTree)
{
    EXPECT_STREQ(NqSourcePath("/a/NqCore/b/NqCore/PublicAPI/NqArray.h"), "NqCore/PublicAPI/NqArray.h");
    EXPECT_STREQ(NqSourcePath("NqCore/PublicAPI/NqArray.h"), "NqCore/PublicAPI/NqArray.h");
    EXPECT_STREQ(NqSourcePath("/usr/include/NqUtils/PublicAPI/Real.h"), "NqUtils/PublicAPI/Real.h");
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
    alignas(8) uint8 block[64];
    for (const int16 value : {int16(0x1234), int16(-2), int16(5), int16(-0x1235)})
        for (size_t start = 16; start < 20; ++start)
            for (unsigned long count = 0; count < 9; ++count)
            {
                std::memset(block, 0xEE, sizeof block);
                std::vector<uint8> wanted(block, block + sizeof block);
                if (count > 0)
                    TFillModel::Fill16(value, wanted, start, count);
                Nqmemfill16(value, block + start, count);
                EXPECT_EQ(std::vector<uint8>(block, block + sizeof block), wanted)
                    << value << " at " << start << " x " << count;
            }
    TakeReports(); // misaligned runs are reported

    // By hand: 0x04030201 one byte past a boundary, twice: three head bytes, then the word rotated to 2 3 4 1 with the
    // 4 over its first byte.
    std::memset(block, 0xEE, sizeof block);
    Nqmemfill32(0x04030201, block + 17, 2);
    const uint8 wanted32[] = {0xEE, 1, 2, 3, 4, 3, 4, 1, 0xEE};
    EXPECT_EQ(std::memcmp(block + 16, wanted32, sizeof wanted32), 0);
    for (size_t k = 1; k < 4; ++k)
    {
        std::memset(block, 0xEE, sizeof block);
        Nqmemfill32(0x04030201, block + 16 + k, 1);
        const uint8 word[] = {1, 2, 3, 4, 0xEE};
        EXPECT_EQ(std::memcmp(block + 16 + k, word, sizeof word), 0) << k;
    }
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
    for (unsigned long count = 0; count < 10; ++count)
    {
        std::vector<uint32> from{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
        std::vector<uint32> to(10, 0);
        memcpyl(from.data(), to.data(), count);
        from.resize(count);
        from.resize(10, 0);
        EXPECT_EQ(to, from);
    }
    uint32 word = 3;
    const uint32 source = 4;
    Nqmemcpy_uint32(&word, &source, -1);
    EXPECT_EQ(word, 3U);
    Nqmemcpy_uint32(&word, &source, 1);
    EXPECT_EQ(word, 4U);
}
