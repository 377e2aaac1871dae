// Loops and jobs on real pools: with one worker, two, more than the machine has, and without a pool.

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqSMP.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqHost/Source/NqHostInternal.h" // to play a thread of the pool
#include "Tests/PoolTest.h"

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <stdexcept>

namespace
{

class ParallelLoop : public PoolTest
{
};
class SMPJob : public PoolTest
{
};

constexpr char kCancelText[] = "A cancel exception is being thrown";

// Counts how often each index of a range is in a body call.
class TVisits
{
public:
    explicit TVisits(const TRange& range)
        : fStart(range.fStart),
          fCounts(static_cast<size_t>(std::max<int64>(range.Size(), 0)))
    {
    }

    // Without atomics: two calls with the same index are a race that a sanitizer sees.
    void Visit(const TRange& piece)
    {
        for (int32 i = piece.fStart; i < piece.fEnd; ++i)
            ++fCounts[static_cast<size_t>(i - fStart)];
    }
    bool AreAll(uint8 count) const
    {
        return std::all_of(fCounts.begin(), fCounts.end(), [count](uint8 c) { return c == count; });
    }
    size_t Count() const { return static_cast<size_t>(std::count(fCounts.begin(), fCounts.end(), 1)); }

private:
    const int32 fStart;
    std::vector<uint8> fCounts;
};

void SometimesYield(uint32 seed)
{
    if (seed * 2654435761U >> 30 == 0)
        std::this_thread::yield();
}

template <class P>
void ExpectEachIndexOnce(const P& whole)
{
    TVisits visits(whole);
    TBasicEstimator always;
    std::atomic<int> calls{0};
    SMPParallelFor(whole, always,
                   [&](const TRange& range)
                   {
                       ++calls;
                       EXPECT_EQ(range.fIsSerial != 0, !whole.ShouldRunParallel());
                       visits.Visit(range);
                       SometimesYield(static_cast<uint32>(range.fStart));
                   });
    EXPECT_TRUE(visits.AreAll(1));
    EXPECT_EQ(calls == 0, whole.Size() <= 0);
}

// The loop works as ever.
void ExpectUsable()
{
    ExpectEachIndexOnce(TAutoPartitioner(0, 500, 1, 4));
}

using TSum = TSMPJobReduce<SMPReduce::TAdd<int64>>;

void AddUp(const TRange& range, TSum& total)
{
    int64 sum = 0;
    for (int32 i = range.fStart; i < range.fEnd; ++i)
        sum += i;
    total.Update(sum);
}

int64 SumTo(int32 end, int32 grain)
{
    TBasicEstimator always;
    int64 sum = -1;
    SMPParallelReduce<SMPReduce::TAdd<int64>>(TSimplePartitioner(0, end, grain), always, AddUp, sum);
    return sum;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Workers, ParallelLoop, ::testing::Values(kNoPool, 1, 2, 5),
                         ::testing::PrintToStringParamName());

TEST_P(ParallelLoop, EachIndexIsInExactlyOneBodyCall)
{
    std::mt19937 random(9);
    for (int step = 0; step < 60; ++step)
    {
        const int32 start = static_cast<int32>(random() % 2000) - 1000;
        const int32 end = start + static_cast<int32>(random() % (step % 2 == 0 ? 4 : 3000)) - 1;
        const int32 grain = static_cast<int32>(random() % 50);
        const real32 ratio = static_cast<real32>(random() % 12) * 0.1f;
        ExpectEachIndexOnce(TSimplePartitioner(start, end, grain));
        ExpectEachIndexOnce(TAutoPartitioner(start, end, grain, 1 + static_cast<int32>(random() % 9)));
        ExpectEachIndexOnce(TGuidedPartitioner(start, end, grain, ratio, 1 + static_cast<int32>(random() % 9)));
        TVisits visits(TRange(start, end));
        SMPParallelFor(start, end, [&visits](const TRange& range) { visits.Visit(range); });
        EXPECT_TRUE(visits.AreAll(1));
    }
}

TEST_P(ParallelLoop, ReducesAndNestsWithoutLosingAnything)
{
    EXPECT_EQ(SumTo(0, 1), 0);
    EXPECT_EQ(SumTo(1, 1), 0);
    EXPECT_EQ(SumTo(10000, 7), 49995000);

    static thread_local int tOuterBodies;
    std::atomic<int64> total{0};
    TBasicEstimator always;
    SMPParallelFor(TSimplePartitioner(0, 40, 1), always,
                   [&](const TRange& outer)
                   {
                       EXPECT_EQ(tOuterBodies, 0) << "the inner wait ran an outer body";
                       ++tOuterBodies;
                       SMPParallelFor(TSimplePartitioner(0, 20, 1), always,
                                      [&](const TRange& inner)
                                      {
                                          SometimesYield(static_cast<uint32>(inner.fStart));
                                          total += (outer.fEnd - outer.fStart) * SumTo(30, 5);
                                      });
                       --tOuterBodies;
                   });
    EXPECT_EQ(total, 40 * (GetParam() < 2 ? 1 : 20) * 435);
}

TEST_P(ParallelLoop, OutsideThreadsRunLoopsSideBySide)
{
    const auto run = [](int thread)
    {
        if (thread != 0) // one of them has no storage
            SetupSmpThreadLocalStorage();
        for (int32 i = 0; i < 50; ++i)
            EXPECT_EQ(SumTo(1000 + i, 3 + thread), static_cast<int64>(1000 + i) * (999 + i) / 2);
    };
    OnThreads(3, run);
}

TEST_P(ParallelLoop, ACancelStopsTheLoopAndOnlyThat)
{
    TestHost().RequestAbort(true);
    TVisits none(TRange(0, 1000));
    const auto visitNone = [&] { SMPParallelFor(0, 1000, [&](const TRange& range) { none.Visit(range); }); };
    EXPECT_EQ(WhatIsThrown(visitNone), std::to_string(0x80010080U));
    EXPECT_TRUE(none.AreAll(0));
    TestHost().RequestAbort(false);

    // The leftmost body runs first on its thread; others that have begun wait for it, so at most W begin.
    TVisits some(TRange(0, 1000));
    std::atomic<bool> requested{false};
    TBasicEstimator always;
    const auto cancelAtFirst = [&](const TRange& range)
    {
        some.Visit(range);
        if (range.fStart == 0)
        {
            TestHost().RequestAbort(true);
            requested = true;
        }
        while (!requested)
            std::this_thread::yield();
        CheckSMPJobCancel();
    };
    const auto loop = [&] { SMPParallelFor(TSimplePartitioner(0, 1000, 1), always, cancelAtFirst); };
    EXPECT_EQ(WhatIsThrown(loop), std::to_string(0x80010080U));
    EXPECT_LE(some.Count(), GetParam() < 2 ? 1000U : static_cast<size_t>(GetParam()));
    TestHost().RequestAbort(false);
    ExpectUsable();
    ExpectReports(kCancelText);
}

TEST_P(ParallelLoop, AThreadsOwnFlagCancelsItsLoopsOnly)
{
    TNqAbortFlag flag{false};
    std::atomic<bool> cancelled{false};
    std::thread other(
        [&]
        {
            SetupSmpThreadLocalStorage();
            TNqHost::SetThreadAbortFlag(&flag);
            const auto loop = [&]
            {
                for (;;)
                    SMPParallelFor(0, 100,
                                   [](const TRange& range) { SometimesYield(static_cast<uint32>(range.fStart)); });
            };
            EXPECT_EQ(WhatIsThrown(loop), std::to_string(0x80010080U));
            cancelled = true;
        });
    for (int i = 0; i < 20; ++i)
        ExpectUsable();
    flag = true;
    while (!cancelled)
        ExpectUsable();
    other.join();
    ExpectReports(kCancelText);
}

TEST_P(ParallelLoop, WhatABodyThrowsReachesTheCaller)
{
    const std::pair<std::string, std::function<void()>> cases[] = {
        {std::to_string(0x80010005U), [] { throw TNqException(kNqErrInvalidData, nullptr, 0); }},
        {"message", [] { throw TNqException(kNqErrUnknown, new TNqDynamicString("why"), nullptr, 0); }},
        {"not ours", [] { throw std::runtime_error("not ours"); }},
        {"int 7", [] { throw 7; }},
        {"int 8", [] { SMPParallelFor(0, 100, [](const TRange&) { throw 8; }); }}};
    for (const auto& [thrown, throwIt] : cases)
    {
        for (int32 at : {0, 300, 999})
        {
            TNqTiming estimate(11);
            TFullEstimator estimator(1, estimate);
            const auto body = [&, &doThrow = throwIt](const TRange& range)
            {
                if (range.fStart <= at && at < range.fEnd)
                    doThrow();
                SometimesYield(static_cast<uint32>(range.fStart));
            };
            const auto loop = [&] { SMPParallelFor(TSimplePartitioner(0, 1000, 3), estimator, body); };
            EXPECT_EQ(WhatIsThrown(loop), thrown);
            EXPECT_EQ(estimate.GetTime(), 11);
            ExpectUsable();
        }
    }
    ExpectReports();
}

// Cuts off the last index: a thread has far more pieces in its queue than with halves.
class TEndPartitioner : public TSimplePartitioner
{
public:
    using TSimplePartitioner::TSimplePartitioner;
    void Split(TEndPartitioner& whole, TEndPartitioner& end) const
    {
        end = *this;
        end.fStart = --whole.fEnd;
    }
};

TEST_P(ParallelLoop, WithoutMemoryItThrowsOrSucceeds)
{
    ForEachFailingAllocation(
        [](int64)
        {
            int64 sum = -1;
            const auto loop = [&sum]
            {
                EXPECT_EQ(SumTo(300, 4), 44850);
                TBasicEstimator always;
                SMPParallelReduce<SMPReduce::TAdd<int64>>(TEndPartitioner(0, 300, 1), always, AddUp, sum);
            };
            const std::string thrown = WhatIsThrown(loop);
            EXPECT_TRUE(thrown == "" || thrown == std::to_string(0x80010002U)) << thrown;
            EXPECT_EQ(sum, thrown == "" ? 44850 : -1);
            TestHost().FailAllocations(0);
            EXPECT_EQ(SumTo(300, 4), 44850);
        });
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// In a process of its own, without the address space for the stack of another thread.
TEST(ParallelLoopDeathTest, ASystemWithoutThreadsRunsLoopsOnTheCaller)
{
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto runWithoutThreads = []
    {
        StartTestHost(5);
        std::ifstream sizes("/proc/self/statm");
        rlim_t pages = 0;
        sizes >> pages;
        const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (3 << 20);
        const rlimit limit = {bytes, bytes};
        setrlimit(RLIMIT_AS, &limit);
        bool hasThread = true;
        try
        {
            std::thread([] {}).join();
        }
        catch (const std::system_error&)
        {
            hasThread = false;
        }
        for (int i = 0; i < 100; ++i)
        {
            if (SumTo(1000, 3) != 499500)
                exit(1);
        }
        exit(hasThread ? 2 : 0);
    };
    EXPECT_EXIT(runWithoutThreads(), ::testing::ExitedWithCode(0), "");
}

TEST(ParallelLoopDeathTest, AForkedProcessRunsLoopsAndEnds)
{
    EXPECT_EQ(SumTo(1000, 3), 499500);
    ::testing::FLAGS_gtest_death_test_style = "fast";
    const auto runInChild = []
    {
        const bool isRight = SumTo(1000, 3) == 499500;
        StartTestHost(2);
        exit(isRight && SumTo(1000, 3) == 499500 ? 0 : 1);
    };
    EXPECT_EXIT(runInChild(), ::testing::ExitedWithCode(0), "");
}

#endif

// Records what is yielded with.
class TYieldRecorder final : public IShThreadUtilities
{
public:
    int32 GetCurrentThreadID() override { return 1; }
    void Yield(int32 argument) override { fArguments.push_back(argument); }

    std::vector<int32> fArguments;
};

TEST(ParallelLoopSettings, ACancelCheckGivesUpTheTimeSliceOutsideThePoolAlone)
{
    IShThreadUtilities* const usual = gShellThreadUtilities;
    TYieldRecorder recorder;
    gShellThreadUtilities = &recorder;
    for (const bool inPool : {false, true})
    {
        NqHostMarkPoolThread(inPool);
        CheckSMPJobCancel();
        ThrowIfSMPJobCancelled();
    }
    NqHostMarkPoolThread(false);
    gShellThreadUtilities = usual;
    EXPECT_EQ(recorder.fArguments, std::vector<int32>{15});
}

TEST(ParallelLoopSettings, WorkersAreAsManyAsAskedForOrAsProcessors)
{
    const int32 processors = GetNumberOfProcessors();
    const std::pair<int, int32> cases[] = {{1, 1}, {3, 3}, {256, 256}, {257, 256}, {-2, processors}, {0, processors}};
    for (const auto& [asked, workers] : cases)
    {
        StartTestHost(asked);
        EXPECT_EQ(GetSMPWorkerCount(), workers) << asked;
    }
    int32* const usual = std::exchange(gNumberOfProcessors, nullptr);
    EXPECT_EQ(GetNumberOfProcessors(), 1);
    int32 none = 0;
    gNumberOfProcessors = &none;
    EXPECT_EQ(GetNumberOfProcessors(), 1);
    gNumberOfProcessors = usual;
}

// ---- Jobs -----------------------------------------------------------------------------------------------------------

INSTANTIATE_TEST_SUITE_P(Workers, SMPJob, ::testing::Values(1, 2, 5), ::testing::PrintToStringParamName());

TEST_P(SMPJob, TasksAddTasksAndHandOverTheNextOne)
{
    EXPECT_EQ(GetSMPWorkerCount(), GetParam());
    EXPECT_EQ(GetSMPWorkers()->GetTaskOverhead().GetTime(), 2000);
    const TNqCountedPtr<ISMPJob> job = NewJob();
    std::atomic<int> runs{0};
    std::function<void(int)> add = [&](int inDepth)
    {
        AddSMPJobTask(TCallTask::Make(
            [&, inDepth](ISMPJobTask** outNext)
            {
                ++runs;
                EXPECT_EQ(GetSMPWorkers()->GetCurrentJob(), job);
                const std::thread::id here = std::this_thread::get_id();
                const int32 worker = GetCurrentSMPWorkerID();
                EXPECT_TRUE(worker >= 0 && worker < GetParam());
                EXPECT_EQ(worker == 0, IsInMainSMPProcess() != 0);
                EXPECT_TRUE(worker == 0 || IsTLSValid());
                TNqCountedPtr<ISMPJobTask> next = TCallTask::Make(
                    [&, here](ISMPJobTask**)
                    {
                        ++runs;
                        EXPECT_EQ(std::this_thread::get_id(), here);
                    });
                next->AddRef();
                *outNext = next;
                if (inDepth > 0)
                {
                    add(inDepth - 1);
                    add(inDepth - 1);
                }
            }));
    };
    for (int round = 0; round < 2; ++round)
    {
        runs = 0;
        job->AddTask(TCallTask::Make([&](ISMPJobTask**) { add(8); }));
        job->Wait();
        EXPECT_EQ(runs, 2 * 511);
    }
    EXPECT_EQ(GetSMPWorkers()->GetCurrentJob(), nullptr);
    for (INqUnknown* queried : {static_cast<INqUnknown*>(job), static_cast<INqUnknown*>(GetSMPWorkers())})
    {
        TNqCountedObject* held = nullptr;
        TNqCountedObject::Create(&held);
        void* out = static_cast<INqUnknown*>(held);
        EXPECT_EQ(queried->QueryInterface(IID_INqFile, &out), kNqNoInterface); // and what `out` held is released
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(queried->QueryInterface(IID_INqUnknown, &out), kNqNoErr);
        EXPECT_EQ(out, queried);
        queried->Release();
    }
    TNqCountedPtr<TBasicSMPTask> plain;
    TNqCountedCreateHelper<TBasicSMPTask>{& plain} = new TBasicSMPTask;
    EXPECT_FALSE(plain->CanSpawnTasks());
    AddSMPJobTask(TCallTask::Make([](ISMPJobTask**) {}));
    EXPECT_EQ(TakeReports(), TTexts({"job"}));
    job->AddTask(nullptr);
    EXPECT_EQ(TakeReports(), TTexts({"inTask"}));
}

TEST_P(SMPJob, ATaskThatCannotSpawnRunsNothingElseButItsOwnJobs)
{
    const TNqCountedPtr<ISMPJob> job = NewJob();
    static thread_local int tRunning;
    const auto leaf = [](ISMPJobTask**) { EXPECT_EQ(tRunning, 0); };
    for (int i = 0; i < 50; ++i)
    {
        for (bool spawns : {false, true})
        {
            const auto body = [&, spawns](ISMPJobTask**)
            {
                EXPECT_EQ(tRunning, 0);
                tRunning += spawns ? 0 : 1;
                const boolean ran = job->RunPendingWork();
                EXPECT_TRUE(spawns || !ran);
                EXPECT_EQ(SumTo(50, 3), 1225);
                tRunning -= spawns ? 0 : 1;
            };
            job->AddTask(TCallTask::Make(body, spawns));
            job->AddTask(TCallTask::Make(leaf));
        }
    }
    job->Wait();
    EXPECT_FALSE(job->RunPendingWork());
}

TEST_P(SMPJob, TheFirstExceptionIsThrownAndTheRestIsDropped)
{
    const TNqCountedPtr<ISMPJob> job = NewJob();
    std::atomic<int> runs{0};
    job->AddTask(TCallTask::Make(
        [&](ISMPJobTask**)
        {
            for (int i = 0; i < 1000; ++i)
            {
                AddSMPJobTask(TCallTask::Make(
                    [&](ISMPJobTask**)
                    {
                        const int number = ++runs;
                        if (number == 20)
                            throw 20;
                        if (number > 20) // others run on until it is noticed
                            std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    }));
            }
        }));
    EXPECT_EQ(WhatIsThrown([&] { job->Wait(); }), "int 20");
    EXPECT_TRUE(GetParam() == 1 ? runs == 20 : runs < 1000);
    job->AddTask(TCallTask::Make([&](ISMPJobTask**) { runs = -1; }));
    job->Wait();
    EXPECT_EQ(runs, -1);
}

TEST_P(SMPJob, IsHelpedEachTimeAlsoBesideAnother)
{
    const auto run = [](int)
    {
        const TNqCountedPtr<ISMPJob> reused = NewJob();
        for (int round = 0; round < 60; ++round)
        {
            const TNqCountedPtr<ISMPJob> job = round % 2 == 0 ? reused : NewJob();
            job->AddTask(TCallTask::Make([](ISMPJobTask**) {}));
            job->Wait();          // mostly before anybody could come
            if (round % 20 == 19) // those who were at hand have gone
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            std::atomic<int> begun{0};
            const auto meet = [&](ISMPJobTask**)
            {
                for (++begun; begun < 2 && std::chrono::steady_clock::now() < latest;)
                    std::this_thread::yield();
            };
            job->AddTask(TCallTask::Make(meet));
            job->AddTask(TCallTask::Make(meet));
            job->Wait();
            ASSERT_LT(std::chrono::steady_clock::now(), latest) << "nobody came in round " << round;
        }
    };
    OnThreads(GetParam() / 2, run); // with as many helpers at least
}

// Nor does one whose queue finds no memory for a task.
TEST_P(SMPJob, AJobThatNobodyWaitsForLeavesNothingBehind)
{
    const auto leave = [](int64)
    {
        const TNqCountedPtr<ISMPJob> job = NewJob();
        for (int task = 0; task < 100; ++task)
            job->AddTask(TCallTask::Make([](ISMPJobTask**) { std::this_thread::yield(); }));
    };
    const std::string outOfMemory = std::to_string(static_cast<uint32>(kNqErrOutOfMemory));
    ForEachFailingAllocation(
        [&](int64 n)
        {
            const std::string thrown = WhatIsThrown([&] { leave(n); });
            EXPECT_TRUE(thrown.empty() || thrown == outOfMemory) << thrown;
        });
}

// While all others are busy with the oldest tasks, which they took before the queue had to grow.
TEST_P(SMPJob, AWorkerRunsItsNewestTaskFirst)
{
    const TNqCountedPtr<ISMPJob> job = NewJob();
    std::atomic<int> busy{0};
    std::atomic<bool> done{false};
    const auto await = [](auto&& isReached)
    {
        for (int i = 0; i < 10000 && !isReached(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return isReached();
    };
    const auto keepBusy = [&](ISMPJobTask**) { ++busy, await([&] { return done.load(); }); };
    for (int i = 1; i < GetParam(); ++i)
        job->AddTask(TCallTask::Make(keepBusy));
    ASSERT_TRUE(await([&] { return busy == GetParam() - 1; }));
    std::vector<int> order;
    for (int task = 0; task < 100; ++task)
        job->AddTask(TCallTask::Make(
            [&, task](ISMPJobTask**)
            {
                order.push_back(task);
                done = done || task == 0;
            }));
    job->Wait();
    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::is_sorted(order.rbegin(), order.rend()));
}
