#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"
#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"
#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"
#include "NqHost/Source/NqHostInternal.h" // to play a thread of the pool
#include "Tests/TestHost.h"

#include <sched.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <random>
#include <set>

namespace
{

using TRandom = std::minstd_rand;

constexpr int kThreads = 6; // more than this machine has processors, so that holders lose theirs

void YieldSometimes(TRandom& ioRandom)
{
    if (ioRandom() % 4 == 0)
        sched_yield();
}

// Threads that run a body each. One that is not back in time sleeps for ever: nothing can go on then.
class TThreads
{
public:
    ~TThreads() { Join(); }

    template <class Body>
    void Start(Body inBody)
    {
        fResults.push_back(std::async(std::launch::async, inBody));
    }

    void Join()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        for (std::future<void>& result : fResults)
        {
            if (result.wait_until(deadline) != std::future_status::ready)
            {
                std::fprintf(stderr, "a thread was never woken\n");
                std::abort();
            }
            result.get();
        }
        fResults.clear();
    }

private:
    std::vector<std::future<void>> fResults;
};

// What a lock protects: written in two steps, and by plain accesses, which the thread sanitizer watches.
class TProtected
{
public:
    void Write(TRandom& ioRandom)
    {
        ++fFirst;
        YieldSometimes(ioRandom);
        EXPECT_EQ(fFirst, ++fSecond);
    }
    void Read(TRandom& ioRandom) const
    {
        const int first = fFirst;
        YieldSometimes(ioRandom);
        EXPECT_EQ(first, fSecond);
    }
    int Writes() const { return fSecond; }

private:
    int fFirst = 0;
    int fSecond = 0;
};

// The kinds of lock behind one face, as arrays: a single lock is an array of one.
struct TSections : TNqCriticalSectionArray
{
    void EnterShared(int32 slot) { Enter(slot); }
    void LeaveShared(int32 slot) { Leave(slot); }
    void EnterExclusive(int32 slot) { Enter(slot); }
    void LeaveExclusive(int32 slot) { Leave(slot); }
};

struct TSingle : TNqSharedCriticalSection
{
    boolean Initialize(int32) { return IsValid(); }
    void EnterShared(int32) { TNqSharedCriticalSection::EnterShared(); }
    void LeaveShared(int32) { TNqSharedCriticalSection::LeaveShared(); }
    void EnterExclusive(int32) { TNqSharedCriticalSection::EnterExclusive(); }
    void LeaveExclusive(int32) { TNqSharedCriticalSection::LeaveExclusive(); }
};

using TShared = TNqSharedCriticalSectionArray;

// `rounds` reads and writes of random slots, one in `writeEvery` a write. Returns the writes.
template <class TLock>
int GoRound(TLock& ioLock, std::vector<TProtected>& ioData, int32 slots, int rounds, unsigned writeEvery, unsigned seed)
{
    TRandom random(seed);
    int writes = 0;
    for (int i = 0; i < rounds; ++i)
    {
        const int32 slot = static_cast<int32>(random() % static_cast<unsigned>(slots));
        TProtected& data = ioData[static_cast<size_t>(slot)];
        if (random() % writeEvery == 0)
        {
            ioLock.EnterExclusive(slot);
            data.Write(random);
            ++writes;
            ioLock.LeaveExclusive(slot);
        }
        else
        {
            ioLock.EnterShared(slot);
            data.Read(random);
            ioLock.LeaveShared(slot);
        }
        YieldSometimes(random);
    }
    return writes;
}

int CountWrites(const std::vector<TProtected>& inData)
{
    int writes = 0;
    for (const TProtected& data : inData)
        writes += data.Writes();
    return writes;
}

template <class TLock>
void Stress(TLock& ioLock, int32 slots, int threads, int rounds, unsigned writeEvery)
{
    std::vector<TProtected> data(static_cast<size_t>(slots));
    std::atomic<int> writes{0};
    TThreads running;
    for (int i = 0; i < threads; ++i)
        running.Start([&, i] { writes += GoRound(ioLock, data, slots, rounds, writeEvery, static_cast<unsigned>(i)); });
    running.Join();
    EXPECT_EQ(CountWrites(data), writes);
}

// Threads sleep for the last slot, which stays taken: what wakes them was meant for the others, who must not miss it.
template <class TLock>
void StressBesideSleepers(TLock& ioLock, int32 slots, int sleepers, int rounds, unsigned writeEvery)
{
    const int32 last = slots - 1;
    std::vector<TProtected> data(static_cast<size_t>(slots));
    TThreads asleep;
    ioLock.EnterShared(last);
    for (int i = 0; i < sleepers; ++i)
    {
        asleep.Start(
            [&, i]
            {
                TRandom random(static_cast<unsigned>(i));
                ioLock.EnterExclusive(last);
                data[static_cast<size_t>(last)].Write(random);
                ioLock.LeaveExclusive(last);
            });
    }
    Stress(ioLock, last, kThreads - 2, rounds, writeEvery);
    ioLock.LeaveShared(last);
    asleep.Join();
    EXPECT_EQ(CountWrites(data), sleepers);
}

template <class TLock>
class Locks : public NqTest
{
};

template <class TLock>
class LockArrays : public NqTest
{
};

using TLocks = ::testing::Types<TSections, TSingle, TShared>;
using TArrays = ::testing::Types<TSections, TShared>;
TYPED_TEST_SUITE(Locks, TLocks);
TYPED_TEST_SUITE(LockArrays, TArrays);

template <class TLock>
constexpr bool kIsArray = !std::is_same_v<TLock, TSingle>;

} // namespace

TYPED_TEST(Locks, ExcludeAndForgetNobody)
{
    for (int32 slots = 1; slots <= (kIsArray<TypeParam> ? 3 : 1); ++slots)
    {
        for (unsigned writeEvery : {1u, 2u, 8u})
        {
            TypeParam lock;
            ASSERT_TRUE(lock.Initialize(slots));
            Stress(lock, slots, kThreads, 500, writeEvery);
        }
    }
}

TYPED_TEST(LockArrays, ForgetNobodyWhileOthersSleepOnAnotherSlot)
{
    for (int32 slots : {2, 3})
    {
        for (unsigned writeEvery : {1u, 2u})
        {
            TypeParam lock;
            ASSERT_TRUE(lock.Initialize(slots));
            StressBesideSleepers(lock, slots, 2, 500, writeEvery);
        }
    }
}

// A thread that holds one slot and wants another is a sleeper that others wait for in turn.
TYPED_TEST(LockArrays, ForgetNobodyWhoHoldsAnotherSlot)
{
    TypeParam lock;
    ASSERT_TRUE(lock.Initialize(3));
    std::vector<TProtected> data(3);
    TThreads running;
    for (unsigned i = 0; i < kThreads; ++i)
    {
        running.Start(
            [&, i]
            {
                TRandom random(i);
                for (int round = 0; round < 300; ++round)
                {
                    const int32 first = static_cast<int32>(random() % 3);
                    for (int32 slot = first; slot < 3; ++slot)
                        lock.EnterExclusive(slot);
                    for (int32 slot = first; slot < 3; ++slot)
                        data[static_cast<size_t>(slot)].Write(random);
                    for (int32 slot = first; slot < 3; ++slot)
                        lock.LeaveExclusive(slot);
                }
            });
    }
    running.Join();
    EXPECT_EQ(data[2].Writes(), kThreads * 300);
}

// Whatever the host cannot make: it is reported, and the lock either refuses to be set up and then touches nothing, or
// excludes as ever.
TYPED_TEST(Locks, StandWhateverTheHostCannotMake)
{
    ForEachFailingAllocation(
        [](int64 n)
        {
            TypeParam lock;
            const bool works = lock.Initialize(2) != 0;
            const bool failed = TestHost().CountAllocations() >= n;
            const bool reported = !TakeReports().empty();
            EXPECT_TRUE(failed || (works && !reported));
            EXPECT_TRUE(works || reported);
            if (works)
            {
                Stress(lock, kIsArray<TypeParam> ? 2 : 1, 3, 50, 2);
                return;
            }
            lock.EnterExclusive(0);
            lock.EnterShared(0);
            lock.LeaveShared(0);
            lock.LeaveExclusive(0);
            EXPECT_EQ(TakeReports(), TTexts(4, kIsArray<TypeParam> ? "index < fInternal->fCount" : "IsValid()"));
            const bool worksLater = lock.Initialize(2) != 0;
            EXPECT_EQ(worksLater, TakeReports().empty() && kIsArray<TypeParam>);
        });
}

TYPED_TEST(LockArrays, ReportASlotThatIsNotThereAndTouchNothing)
{
    TypeParam lock;
    const auto useAll = [&lock](int32 slot)
    {
        lock.LeaveShared(slot);
        lock.LeaveExclusive(slot);
        lock.EnterShared(slot);
        lock.EnterExclusive(slot);
    };
    const TTexts reports(4, "index < fInternal->fCount");
    useAll(0);
    EXPECT_EQ(TakeReports(), reports) << "before there are any";
    ASSERT_TRUE(lock.Initialize(2));
    for (int32 slot : {2, 3, 0x7FFFFFFF, -1, -2147483647 - 1})
    {
        useAll(slot);
        EXPECT_EQ(TakeReports(), reports) << slot;
    }
    EXPECT_FALSE(lock.Initialize(-1));
    EXPECT_EQ(TakeReports(), TTexts{"count >= 0"});
    useAll(0);
    EXPECT_EQ(TakeReports(), reports) << "after a count that cannot be";
    for (int32 slots : {3, 0, 1})
    {
        ASSERT_TRUE(lock.Initialize(slots));
        useAll(slots);
        EXPECT_EQ(TakeReports(), reports);
    }
    Stress(lock, 1, 3, 100, 2);
}

TYPED_TEST(LockArrays, KeepTheSlotsApart)
{
    TypeParam lock;
    ASSERT_TRUE(lock.Initialize(3));
    for (int32 slot = 0; slot < 3; ++slot)
        lock.EnterExclusive(slot); // one thread: a slot that shares anything with another never opens
    for (int32 slot = 0; slot < 3; ++slot)
        lock.LeaveExclusive(slot);
}

using SafeSections = NqTest;

TEST_F(SafeSections, GuardsEnterOnceAndLeaveOnce)
{
    const CWhileInCS none(nullptr);
    const CWhileInCSArray noArray(nullptr, 0);
    TNqCriticalSection* section = NewCS();
    TNqCriticalSectionArray array;
    ASSERT_TRUE(array.Initialize(1));
    TProtected data;
    TThreads running;
    for (unsigned i = 0; i < kThreads; ++i)
    {
        running.Start(
            [&, i]
            {
                TRandom random(i);
                for (int round = 0; round < 200; ++round)
                {
                    try
                    {
                        CWhileInCS host(section);
                        CWhileInCSArray slot(array, 0);
                        data.Write(random);
                        if (round % 3 == 0)
                            throw round;
                        if (round % 3 == 1)
                        {
                            slot.Clean();
                            host.Clean();
                        }
                    }
                    catch (int)
                    {
                    }
                }
            });
    }
    running.Join();
    EXPECT_EQ(data.Writes(), kThreads * 200);
    DeleteCS(section);
}

TEST_F(SafeSections, ThreadsOutsideThePoolAreKnownToBeInside)
{
    TNqSafeSection section;
    TProtected data;
    TThreads running;
    for (unsigned i = 0; i < kThreads; ++i)
    {
        running.Start(
            [&, i]
            {
                NqHostMarkPoolThread(i % 3 == 0);
                TRandom random(i);
                for (int round = 0; round < 500; ++round)
                {
                    const CWhileInSafeCS inside(section);
                    EXPECT_TRUE(i % 3 == 0 || section.IsMainThreadInside());
                    data.Write(random);
                    EXPECT_TRUE(i % 3 == 0 || section.IsMainThreadInside());
                }
                NqHostMarkPoolThread(false);
            });
    }
    running.Join();
    EXPECT_EQ(data.Writes(), kThreads * 500);
    EXPECT_FALSE(section.IsMainThreadInside());
}

TEST_F(SafeSections, TheOwnerComesAgainAndAnotherWaits)
{
    TNqSafeCriticalSection section;
    TProtected data;
    TThreads running;
    for (unsigned i = 0; i < kThreads; ++i)
    {
        running.Start(
            [&, i]
            {
                NqHostMarkPoolThread(i % 3 == 0);
                const int32 self = i % 3 == 0 ? 0 : gShellThreadUtilities->GetCurrentThreadID();
                TRandom random(i);
                for (int round = 0; round < 300; ++round)
                {
                    const int depth = 1 + static_cast<int>(random() % 3);
                    for (int level = 0; level < depth; ++level)
                    {
                        EXPECT_EQ(section.Enter(level > 0), level > 0 ? self : 0);
                        data.Write(random);
                    }
                    for (int level = depth; level-- > 0;)
                        section.Leave(level > 0 ? self : 0);
                }
                NqHostMarkPoolThread(false);
            });
    }
    running.Join();
}

TEST_F(SafeSections, RefuseASecondEntryAndStayEntered)
{
    TNqSafeCriticalSection section;
    EXPECT_EQ(section.Enter(false), 0);
    try
    {
        section.Enter(false);
        FAIL() << "entered twice";
    }
    catch (const TNqException& error)
    {
        EXPECT_EQ(error.GetError(), kNqErrSection);
    }
    EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
    const int32 previous = section.Enter(true);
    EXPECT_EQ(previous, gShellThreadUtilities->GetCurrentThreadID());
    section.Leave(previous);
    EXPECT_EQ(section.Enter(true), previous) << "left once too often";
    section.Leave(previous);
    section.Leave(0);

    TThreads other;
    other.Start([&section] { section.Leave(section.Enter(false)); });
    other.Join();
}

TEST_F(SafeSections, ReportAMissingHostSection)
{
    TestHost().FailAllocations(1, 2);
    TNqSafeSection section;
    TNqSafeCriticalSection recursive;
    TestHost().FailAllocations(0);
    {
        const CWhileInSafeCS inside(section);
        EXPECT_EQ(TakeReports(), TTexts{"&fCS && fCS.GetCS()"});
        EXPECT_FALSE(section.IsMainThreadInside());
    }
    EXPECT_EQ(TakeReports(), TTexts{"fCS.GetCS()"});
    recursive.Leave(recursive.Enter(false));
    EXPECT_EQ(TakeReports(), (TTexts{"fCS", "fCS"}));
    {
        TNqSafeSection left;
        left.SetMainThreadInside(true);
    }
    EXPECT_EQ(TakeReports(), TTexts{"!fMainThreadInside"});
}

TEST_F(SafeSections, EveryThreadHasAnIdOfItsOwn)
{
    EXPECT_TRUE(IsInMainSMPProcess());
    std::mutex mutex;
    std::set<int32> ids;
    TThreads running;
    for (int i = 0; i < 20; ++i)
    {
        running.Start(
            [&]
            {
                const int32 id = gShellThreadUtilities->GetCurrentThreadID();
                gShellThreadUtilities->Yield(15);
                EXPECT_EQ(gShellThreadUtilities->GetCurrentThreadID(), id);
                EXPECT_TRUE(IsInMainSMPProcess());
                const std::lock_guard<std::mutex> lock(mutex);
                EXPECT_NE(id, 0);
                EXPECT_TRUE(ids.insert(id).second);
            });
    }
    running.Join();
}
