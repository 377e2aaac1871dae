#include "NqCore/PublicAPI/NqHash.h"
#include "Tests/TestHost.h"

#include <map>

static_assert(sizeof(TNqHashMap<uint16, uint8>) == 88, "a map is shared with modules built elsewhere");

namespace
{

using TMap = TNqHashMap<uint16, uint8>;

// Keys that differ only in their lowest bit are one, as soon as fPairs is set.
class TPairMap : public TMap
{
public:
    explicit TPairMap(bool pairs) : TMap(4), fPairs(pairs) {}
    boolean AreKeysEqual(const uint16& a, const uint16& b) const override
    {
        return fPairs ? (a | 1) == (b | 1) : a == b;
    }
    bool fPairs;
    uint32 HashFunction(const uint16&) const override { return 2; }
};

} // namespace

using HashTest = NqTest;

TEST_F(HashTest, RandomEntriesKeepTheirIndexAndFirstValue)
{
    std::mt19937 random(31);
    for (const uint32 size : {1U, 2U, 16U, 80U})
    {
        TMap map(size);
        std::map<uint16, std::pair<uint32, uint8>> model;
        for (int step = 0; step < 4000; ++step)
        {
            const uint16 key = static_cast<uint16>(random() % 600 * 77);
            const uint8 value = static_cast<uint8>(random());
            if (random() % 800 == 0)
                map.ResetDatas(), model.clear();
            // Room for fewer entries than there are must never cut.
            ASSERT_TRUE(random() % 100 != 0 || map.SetElemSpace(static_cast<uint32>(random() % 500)));
            const uint8* const found = map.FindElem(key, random() % 2 == 0);
            const auto known = model.find(key);
            ASSERT_EQ(found != nullptr, known != model.end());
            ASSERT_TRUE(found == nullptr || *found == known->second.second);
            if (random() % 2 == 0)
                continue;
            const auto [entry, added] = model.insert({key, {static_cast<uint32>(model.size()), value}});
            boolean alreadyThere = 7;
            ASSERT_EQ(map.AddElem(key, value, alreadyThere, true), entry->second.first);
            ASSERT_EQ(alreadyThere != 0, !added);
        }
    }
}

TEST_F(HashTest, AFailedEntryLeavesNoTraceAtEveryAllocation)
{
    ForEachFailingAllocation(
        [](int64)
        {
            TMap map(3);
            std::vector<uint16> added;
            try
            {
                for (uint16 key = 0; key < 12; ++key)
                {
                    boolean alreadyThere = true;
                    const uint32 index = map.AddElem(key, static_cast<uint8>(key), alreadyThere, true);
                    EXPECT_FALSE(alreadyThere);
                    EXPECT_TRUE(index == added.size() || index == kNqHashNotFound);
                    const uint8* const found = map.FindElem(key, false);
                    EXPECT_EQ(found == nullptr, index == kNqHashNotFound);
                    if (found != nullptr)
                        added.push_back(key);
                }
                for (const uint16 key : added)
                    EXPECT_EQ(*map.FindElem(key, false), key);
            }
            catch (const TNqException& error) // a bucket that found no memory
            {
                EXPECT_EQ(error.GetError(), kNqErrInvalidData);
                EXPECT_FALSE(map.SetElemSpace(1));
            }
        });
}

TEST_F(HashTest, OneBucketIsScannedFromTheEndThatTheCallerNames)
{
    TMap map(16);
    EXPECT_EQ(map.HashFunction(0x0102), 3U);
    EXPECT_EQ(TMap(7).HashFunction(0xFF80), 383U % 7) << "bytes have no sign";
    EXPECT_EQ(map.GetElemArray(0x0102), map.GetElemArray(0x0201));
    // Keys made equal afterwards tell the ends of a bucket apart.
    TPairMap pairs(false);
    boolean alreadyThere;
    for (const uint16 key : std::vector<uint16>{10, 20, 11, 21})
        pairs.AddElem(key, static_cast<uint8>(key), alreadyThere, true);
    pairs.fPairs = true;
    EXPECT_EQ(*pairs.FindElem(11, true), 10);
    EXPECT_EQ(*pairs.FindElem(10, false), 11);
    EXPECT_EQ(pairs.FindElem(12, false), nullptr);
    EXPECT_EQ(pairs.AddElem(20, 9, alreadyThere, true), 1U);
    EXPECT_EQ(pairs.AddElem(20, 9, alreadyThere, false), 3U);
    EXPECT_TRUE(alreadyThere);
}

TEST_F(HashTest, ReservedEntriesNeedNoMemoryAndTooManyAreRefused)
{
    TMap map(16);
    ASSERT_TRUE(map.SetElemSpace(100));
    TestHost().FailAllocations(0); // counts anew
    boolean alreadyThere;
    for (uint16 key = 0; key < 100; ++key)
        map.AddElem(key, 1, alreadyThere, true);
    EXPECT_EQ(TestHost().CountAllocations(), 0);
    TMap single(1);
    ASSERT_TRUE(single.SetElemSpace(10));
    EXPECT_FALSE(single.SetElemSpace(0xFFFFFFFF));
    EXPECT_EQ(single.GetElemArray(1)->GetElemSpace(), 11U) << "one entry too many, not none";
    EXPECT_EQ(TakeReports(), TTexts{"Array allocation failed!"});
}

TEST_F(HashTest, WithoutBucketsEveryLookUpThrows)
{
    TMap map(0);
    EXPECT_EQ(TakeReports(), TTexts{"size > 0"});
    EXPECT_EQ(map.GetElemArray(1), nullptr);
    EXPECT_THROW(map.FindElem(1, true), TNqException);
    EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
    EXPECT_TRUE(map.SetElemSpace(4));
    map.ResetDatas();
    TestHost().FailAllocations(1, 2);
    TMap unlucky(4);
    TestHost().FailAllocations(0);
    EXPECT_THROW(unlucky.FindElem(1, true), TNqException);
    EXPECT_FALSE(unlucky.SetElemSpace(4));
    TakeReports();
}

TEST_F(HashTest, DerivedMapsAreCalledThroughTheSlots)
{
    TPairMap pairs(true);
    boolean alreadyThere;
    pairs.AddElem(10, 1, alreadyThere, true);
    TNqHashCommon<uint16, uint8>* const map = &pairs;
    const uint16 a = 4;
    const uint16 b = 5;
    EXPECT_TRUE(Slot<boolean (*)(void*, unsigned)>(map, 0)(map, 9));
    EXPECT_TRUE(Slot<boolean (*)(void*, const uint16*, const uint16*)>(map, 2)(map, &a, &b));
    EXPECT_EQ(Slot<uint32 (*)(void*, const uint16*)>(map, 3)(map, &a), 2U);
    Slot<void (*)(void*)>(map, 1)(map);
    EXPECT_EQ(pairs.FindElem(10, true), nullptr);
    EXPECT_EQ(pairs.AddElem(30, 3, alreadyThere, true), 0U);
}
