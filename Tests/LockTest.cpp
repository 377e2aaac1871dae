#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"
#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"
#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"
#include "NqHost/Source/NqHostInternal.h" // to play a thread of the pool
#include "Tests/TestHost.h"
#include "Tests/YieldingHost.h"

#include <sched.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <set>
#include <thread>

namespace
{

constexpr int kThreads = 6; // more than processors
constexpr int kSlots = 3;

// Runs body(0, random) and so on, each on a thread that loses the processor now and then on its way through a lock.
// When one is not back in time it sleeps for ever, and nothing can go on.
template <class Body>
void OnYieldingThreads(int count, const Body& body)
{
    std::promise<void> done;
    std::thread watch(
        [back = done.get_future()]
        {
            if (back.wait_for(std::chrono::minutes(2)) == std::future_status::ready)
                return;
            std::fprintf(stderr, "a thread was never woken\n");
            std::abort();
        });
    OnThreads(count,
              [&body](int index)
              {
                  TRandom random(index);
                  YieldAroundHostCalls(4, static_cast<unsigned>(index));
                  body(index, random);
              });
    done.set_value();
    watch.join();
}

// What a lock protects: written in two steps, and by plain accesses, which the thread sanitizer watches.
struct TProtected
{
    void Write(TRandom& random)
    {
        ++fFirst;
        if (random.OneIn(4))
            sched_yield();
        EXPECT_EQ(fFirst, ++fSecond);
    }
    void Read() const { EXPECT_EQ(fFirst, fSecond); }

    int fFirst = 0;
    int fSecond = 0;
};

// The kinds of lock behind one face: a section has no readers, a single lock one slot.
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

template <class TLock>
constexpr int kMostSlots = std::is_same_v<TLock, TSingle> ? 1 : kSlots;

// Reads and writes any slot; a writer of a slot may take those behind it too.
template <class TLock>
void Stress(TLock& lock, int32 slots, int rounds, int writeEvery)
{
    std::array<TProtected, kSlots> data;
    std::atomic<int> writes{0};
    OnYieldingThreads(kThreads,
                      [&](int, TRandom& ioRandom)
                      {
                          for (int i = 0; i < rounds; ++i)
                          {
                              const int32 first = ioRandom.Below(slots);
                              const int32 end = ioRandom.OneIn(4) ? slots : first + 1;
                              if (!ioRandom.OneIn(writeEvery))
                              {
                                  lock.EnterShared(first);
                                  data[static_cast<size_t>(first)].Read();
                                  lock.LeaveShared(first);
                                  continue;
                              }
                              for (int32 slot = first; slot < end; ++slot)
                                  lock.EnterExclusive(slot);
                              for (int32 slot = first; slot < end; ++slot)
                              {
                                  data[static_cast<size_t>(slot)].Write(ioRandom);
                                  ++writes;
                                  lock.LeaveExclusive(slot);
                              }
                          }
                      });
    EXPECT_EQ(data[0].fSecond + data[1].fSecond + data[2].fSecond, writes);
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
TYPED_TEST_SUITE(Locks, TLocks, );
TYPED_TEST_SUITE(LockArrays, TArrays, );

using SafeSections = NqTest;

} // namespace

TYPED_TEST(Locks, ExcludeAndForgetNobody)
{
    for (int32 slots = 1; slots <= kMostSlots<TypeParam>; ++slots)
    {
        for (int writeEvery : {1, 2, 8})
        {
            TypeParam lock;
            ASSERT_TRUE(lock.Initialize(slots));
            Stress(lock, slots, 400, writeEvery);
        }
    }
}

// Two threads meet in slot 0 and wait for each other; those in slot 1 stay until the two have met again. So a release
// in slot 1 comes too late for one of the two that was forgotten.
TYPED_TEST(LockArrays, ForgetNobodyWhileAnotherSlotStaysTaken)
{
    constexpr int kArrivals = 16000;
    TypeParam lock;
    ASSERT_TRUE(lock.Initialize(2));
    TProtected data;
    std::atomic<int> arrived{0};
    const auto awaitArrived = [&](int count)
    {
        while (arrived < std::min(count, kArrivals))
            sched_yield();
    };
    OnYieldingThreads(4,
                      [&](int index, TRandom& ioRandom)
                      {
                          const int32 slot = index % 2;
                          for (int meeting = 1; slot == 0 ? meeting <= kArrivals / 2 : arrived < kArrivals; ++meeting)
                          {
                              if (slot == 0)
                              {
                                  ++arrived;
                                  awaitArrived(2 * meeting);
                              }
                              lock.EnterExclusive(slot);
                              if (slot == 0)
                                  data.Write(ioRandom);
                              else
                                  awaitArrived(arrived + 1);
                              lock.LeaveExclusive(slot);
                          }
                      });
}

// Each slot is taken, and somebody waits for it. The one whose slot is left gets in while the other waits on, whom the
// signal may have woken; and when both are left at once, both get in before either leaves.
TYPED_TEST(LockArrays, WakeTheOneWhoseSlotIsLeft)
{
    constexpr int kRounds = 200;
    TypeParam lock;
    ASSERT_TRUE(lock.Initialize(2));
    std::atomic<int> round{0};
    std::atomic<int> inside[2] = {{0}, {0}}; // the last round in which the writer got in
    const auto await = [](const std::atomic<int>& number, int wanted)
    {
        while (number < wanted)
            sched_yield();
    };
    OnYieldingThreads(3,
                      [&](int index, TRandom& ioRandom)
                      {
                          for (int mine = 1; mine <= kRounds; ++mine)
                          {
                              if (index > 0)
                              {
                                  await(round, mine);
                                  lock.EnterExclusive(index - 1);
                                  inside[index - 1] = mine;
                                  await(inside[2 - index], mine % 2 == 0 ? mine : 0);
                                  lock.LeaveExclusive(index - 1);
                                  continue;
                              }
                              lock.EnterShared(0);
                              lock.EnterShared(1);
                              round = mine;
                              std::this_thread::sleep_for(std::chrono::microseconds(200)); // until both sleep
                              const int32 first = ioRandom.Below(2);
                              lock.LeaveShared(first);
                              await(inside[first], mine % 2 == 0 ? 0 : mine);
                              lock.LeaveShared(1 - first);
                              await(inside[0], mine);
                              await(inside[1], mine);
                          }
                      });
}

// Whatever the host cannot make: it is reported, and the lock either refuses to be set up and then touches nothing, or
// excludes as ever.
TYPED_TEST(Locks, StandWhateverTheHostCannotMake)
{
    static constexpr int32 kCount = kMostSlots<TypeParam>;
    ForEachFailingAllocation(
        [](int64 n)
        {
            TypeParam lock;
            const bool works = lock.Initialize(kCount) != 0;
            const bool failed = TestHost().CountAllocations() >= n;
            const bool reported = !TakeReports().empty();
            EXPECT_TRUE(failed ? works || reported : works && !reported);
            if (works)
            {
                Stress(lock, kCount, 20, 2);
                return;
            }
            lock.EnterExclusive(0);
            lock.EnterShared(0);
            lock.LeaveShared(0);
            lock.LeaveExclusive(0);
            EXPECT_EQ(TakeReports(), TTexts(4, kCount > 1 ? "index < fInternal->fCount" : "IsValid()"));
        });
}

TYPED_TEST(LockArrays, ReportASlotThatIsNotThereAndTouchNothing)
{
    TypeParam lock;
    const auto expectNone = [&lock](int32 slot)
    {
        lock.LeaveShared(slot);
        lock.LeaveExclusive(slot);
        lock.EnterShared(slot);
        lock.EnterExclusive(slot);
        EXPECT_EQ(TakeReports(), TTexts(4, "index < fInternal->fCount")) << slot;
    };
    expectNone(0);
    EXPECT_FALSE(lock.Initialize(-1));
    EXPECT_EQ(TakeReports(), TTexts{"count >= 0"});
    for (int32 slots : {3, 0, 2})
    {
        ASSERT_TRUE(lock.Initialize(slots));
        for (int32 slot : {slots, slots + 1, 0x7FFFFFFF, -1, -2147483647 - 1})
            expectNone(slot);
    }
    Stress(lock, 2, 100, 2);
}

TEST_F(SafeSections, GuardsEnterOnceAndLeaveOnce)
{
    const CWhileInCS none(nullptr);
    const CWhileInCSArray noArray(nullptr, 0);
    TNqCriticalSection* section = NewCS();
    TNqCriticalSectionArray array;
    ASSERT_TRUE(array.Initialize(1));
    TProtected inSection;
    TProtected inSlot;
    const auto round = [&](int number, TRandom& ioRandom)
    {
        CWhileInCS host(section);
        inSection.Write(ioRandom);
        if (number % 2 == 0)
        {
            host.Clean();
            host.Clean();
        }
        CWhileInCSArray slot(array, 0);
        inSlot.Write(ioRandom);
        if (number % 3 == 0)
        {
            slot.Clean();
            slot.Clean();
        }
        throw number;
    };
    OnYieldingThreads(kThreads,
                      [&](int, TRandom& ioRandom)
                      {
                          for (int i = 0; i < 200; ++i)
                              EXPECT_THROW(round(i, ioRandom), int);
                      });
    DeleteCS(section);
}

// A third of the threads belong to the pool, for all of these.
TEST_F(SafeSections, KnowWhoIsInside)
{
    TNqSafeSection section;
    TNqSafeCriticalSection again;
    TProtected data;
    TProtected dataAgain;
    OnYieldingThreads(kThreads,
                      [&](int index, TRandom& ioRandom)
                      {
                          const bool outside = index % 3 != 0;
                          NqHostMarkPoolThread(!outside);
                          const int32 self = outside ? gShellThreadUtilities->GetCurrentThreadID() : 0;
                          for (int round = 0; round < 1000; ++round)
                          {
                              {
                                  const CWhileInSafeCS inside(section);
                                  EXPECT_TRUE(!outside || section.IsMainThreadInside());
                                  data.Write(ioRandom);
                                  EXPECT_TRUE(!outside || section.IsMainThreadInside());
                              }
                              for (int level = 0; level < 3; ++level)
                              {
                                  EXPECT_EQ(again.Enter(level > 0), level > 0 ? self : 0);
                                  dataAgain.Write(ioRandom);
                              }
                              for (int level = 3; level-- > 0;)
                                  again.Leave(level > 0 ? self : 0);
                          }
                      });
    EXPECT_FALSE(section.IsMainThreadInside());
}

TEST_F(SafeSections, RefuseASecondEntryAndStayEntered)
{
    TNqSafeCriticalSection section;
    EXPECT_EQ(section.Enter(false), 0);
    NqErr refused = 0;
    try
    {
        section.Enter(false);
    }
    catch (const TNqException& error)
    {
        refused = error.GetError();
    }
    EXPECT_EQ(refused, kNqErrSection);
    EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
    const int32 self = section.Enter(true);
    EXPECT_EQ(self, gShellThreadUtilities->GetCurrentThreadID());
    section.Leave(self);
    EXPECT_EQ(section.Enter(true), self) << "left once too often";
    section.Leave(self);
    section.Leave(0);
    OnYieldingThreads(1, [&section](int, TRandom&) { section.Leave(section.Enter(false)); });
}

TEST_F(SafeSections, ReportAMissingHostSection)
{
    TestHost().FailAllocations(1, 2);
    TNqSafeSection section;
    TNqSafeCriticalSection again;
    TestHost().FailAllocations(0);
    {
        const CWhileInSafeCS inside(section);
        EXPECT_FALSE(section.IsMainThreadInside());
    }
    again.Leave(again.Enter(false));
    {
        TNqSafeSection left;
        left.SetMainThreadInside(true);
    }
    EXPECT_EQ(TakeReports(), (TTexts{"&fCS && fCS.GetCS()", "fCS.GetCS()", "fCS", "fCS", "!fMainThreadInside"}));
}

TEST_F(SafeSections, EveryThreadHasAnIdOfItsOwn)
{
    std::mutex mutex;
    std::set<int32> ids;
    OnYieldingThreads(20,
                      [&](int, TRandom&)
                      {
                          const int32 id = gShellThreadUtilities->GetCurrentThreadID();
                          gShellThreadUtilities->Yield(15);
                          EXPECT_EQ(gShellThreadUtilities->GetCurrentThreadID(), id);
                          EXPECT_TRUE(IsInMainSMPProcess());
                          const std::lock_guard<std::mutex> lock(mutex);
                          EXPECT_TRUE(id != 0 && ids.insert(id).second) << id;
                      });
}
