#include "NqCore/PublicAPI/BitArray.h"
#include "Tests/TestHost.h"

namespace
{

using BitArrayTest = NqTest;

// Bits one by one, those that the last word has beyond the size with them.
struct TModel
{
    void SetSize(uint32 size)
    {
        fSize = size;
        fStored.resize((size + 31) / 32 * 32);
    }
    void SetSize(uint32 size, bool fill)
    {
        const uint32 oldSize = fSize;
        SetSize(size);
        if (size > oldSize)
            std::fill(fStored.begin() + oldSize, fStored.end(), fill);
    }
    bool Bit(size_t i) const { return i < fStored.size() && fStored[i]; }
    void Combine(const TModel& other, bool isOr)
    {
        SetSize(std::max(fSize, other.fSize), false);
        for (size_t i = 0; i < fStored.size(); ++i)
        {
            const bool there = other.Bit(i) && (i < other.fSize || fSize == other.fSize);
            fStored[i] = isOr ? fStored[i] || there : fStored[i] && there;
        }
    }

    uint32 fSize = 0;
    std::vector<bool> fStored;
};

TEST_F(BitArrayTest, RandomOperationsGiveTheBitsOfAModel)
{
    const std::string outOfRange = "elemNum < fSize";
    TRandom random(51);
    TBitArray arrays[3];
    TModel models[3];
    for (int round = 0; round < 4000; ++round)
    {
        const int32 one = random.Below(3), two = random.Below(3);
        TBitArray &a = arrays[one], &b = arrays[two];
        TModel &m = models[one], &n = models[two];
        const int32 bits = random.OneIn(4) ? random.Below(40) * 32 : random.Below(random.OneIn(8) ? 1300 : 100);
        const uint32 size = static_cast<uint32>(bits);
        TNqArray<int32> indices;
        switch (random.Below(6))
        {
        case 0:
            ASSERT_TRUE(a.SetSize(size) && a.SetSize(size + 40, round % 2 == 0));
            m.SetSize(size);
            m.SetSize(size + 40, round % 2 == 0);
            break;
        case 1:
            if (round % 8 == 0)
                a.ArrayFree(), m.SetSize(0);
            ASSERT_TRUE(a.SetSize(size));
            m.SetSize(size);
            break;
        case 2:
            for (int32 count = random.Below(40); count > 0; --count)
            {
                const size_t index = static_cast<size_t>(random.Below(static_cast<int32>(m.fStored.size()) + 1)) - 1;
                indices.AddElem(static_cast<int32>(index));
                if (index < m.fStored.size())
                    m.fStored[index] = true;
            }
            a.SetFromArrayNoResize(indices);
            TakeReports();
            break;
        case 3:
            a |= b;
            m.Combine(n, true);
            break;
        case 4:
            a &= b;
            m.Combine(n, false);
            break;
        default:
            b = a;
            n = m;
        }
        ASSERT_EQ(a.GetSize(), m.fSize);
        ASSERT_EQ(a.CalcWordsFromSize() * 32, m.fStored.size());
        std::vector<int32> set;
        for (uint32 i = 0; i <= m.fStored.size(); ++i)
        {
            ASSERT_EQ(a.TestBit(i), m.Bit(i)) << i << " of " << m.fSize << " in round " << round;
            if (i < m.fSize && m.Bit(i))
                set.push_back(static_cast<int32>(i));
        }
        ASSERT_EQ(TakeReports(), TTexts(m.fStored.size() + 1 - m.fSize, outOfRange));
        ASSERT_TRUE(a.GetIndicesSet(indices));
        ASSERT_EQ(std::vector<int32>(indices.BaseAddress(), indices.BaseAddress() + indices.GetElemCount()), set);
        ASSERT_EQ(a == b, m.fSize == n.fSize && m.fStored == n.fStored);
        uint32 same = 0;
        while (same < n.fSize && m.Bit(same) == n.Bit(same))
            ++same;
        ASSERT_EQ(a.bitTest(b), same == n.fSize);
        ASSERT_EQ(TakeReports(), TTexts(n.fSize % 32 != 0 && same / 32 >= n.fSize / 32, "need to test this"));
    }
}

TEST_F(BitArrayTest, WithoutMemoryAnArrayStaysAsItIs)
{
    TBitArray longer;
    ASSERT_TRUE(longer.SetSize(500, true));
    ForEachFailingAllocation(
        [&longer](int64)
        {
            TBitArray array;
            const uint32 made = array.SetSize(40, true) ? 40 : 0;
            EXPECT_EQ(array.GetSize(), made);
            const TBitArray before(array);
            array |= longer;
            EXPECT_TRUE(array == longer || array == before || before.GetSize() == 0);
            TBitArray assigned;
            assigned = longer;
            EXPECT_EQ(assigned.GetSize(), assigned.TestBit(499) ? 500U : 0U);
            TNqArray<int32> indices;
            const uint32 listed = array.GetIndicesSet(indices) ? array.GetSize() : 0;
            EXPECT_EQ(indices.GetElemCount(), listed);
        });
    TestHost().FailAllocations(1);
    EXPECT_FALSE(longer.SetSize(0xFFFFFFFF, true));
    EXPECT_EQ(longer.GetSize(), 500U);
    TakeReports();
}

} // namespace
