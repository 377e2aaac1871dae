#include "Tests/PoolTest.h"
#include "Tests/YieldingHost.h"

#include <atomic>
#include <chrono>

namespace
{

// Work with a number: equal when the numbers are.
class TWork final : public TSMPSingleSection::ISectionJob
{
public:
    explicit TWork(
        int number, std::function<void()> run = [] {})
        : fNumber(number),
          fRun(std::move(run))
    {
    }

    void Run() override { fRun(); }
    boolean IsEqual(const ISectionJob& other) const override
    {
        return static_cast<const TWork&>(other).fNumber == fNumber;
    }

private:
    const int fNumber;
    const std::function<void()> fRun;
};

std::string Code(NqErr error)
{
    return std::to_string(static_cast<uint32>(error));
}

void WaitUntil(const std::atomic<bool>& flag, std::chrono::milliseconds atMost = std::chrono::minutes(1))
{
    const auto end = std::chrono::steady_clock::now() + atMost;
    while (!flag && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
}

class TFakeThread final : public ISMPJobWorkerThread
{
public:
    explicit TFakeThread(int32 iD) : fID(iD) {}

    NqErr QueryInterface(const NqIID&, void**) override { return kNqNoInterface; }
    uint32 AddRef() override { return ++fReferences; }
    uint32 Release() override { return --fReferences; }
    int32 GetWorkerID() override { return fID; }

    uint32 fReferences = 1;

private:
    const int32 fID;
};

class SingleSection : public PoolTest
{
protected:
    // Runs body(i) for 0 to count - 1, one task each.
    template <class B>
    static void ForEach(int32 count, B&& body)
    {
        TBasicEstimator always;
        SMPParallelFor(TSimplePartitioner(0, count, 1), always,
                       [&](const TRange& range)
                       {
                           for (int32 i = range.fStart; i < range.fEnd; ++i)
                               body(i);
                       });
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Workers, SingleSection, ::testing::Values(1, 2, 5), ::testing::PrintToStringParamName());

using SingleSectionOfThree = SingleSection; // with one worker of each kind that a test needs
INSTANTIATE_TEST_SUITE_P(Workers, SingleSectionOfThree, ::testing::Values(3));

TEST_P(SingleSection, WorkRunsOneAtATimeAndIsDoneWhenTheRequestReturns)
{
    for (int round = 0; round < 30; ++round)
    {
        TSMPSingleSection section;
        std::atomic<int> inside{0};
        int done[4] = {}; // written by the work, one at a time
        std::atomic<int> deepest{0};
        static thread_local int tDepth;
        const auto ask = [&](int32 i)
        {
            YieldAroundHostCalls(10, static_cast<unsigned>(i + round));
            deepest = std::max(deepest.load(), ++tDepth);
            TWork work(i % 4,
                       [&, i]
                       {
                           EXPECT_EQ(++inside, 1);
                           if (done[i % 4]++ == 0)
                           {
                               std::this_thread::sleep_for(std::chrono::microseconds(200));
                               ForEach(20, [](int32) { std::this_thread::yield(); });
                           }
                           --inside;
                       });
            section.InternalExecute(work);
            --tDepth;
        };
        std::thread other(
            [&]
            {
                for (int32 i = 0; i < 8; ++i)
                    ask(i);
            });
        ForEach(60, [&](int32 i) { ask(i); });
        other.join();
        for (int count : done)
            EXPECT_TRUE(count >= 1 && count <= 17) << count;
        EXPECT_LT(deepest, 40) << "bodies that wait nest without end";
        YieldAroundHostCalls(0, 0);
    }
}

// Outside the pool each thread is a worker of its own.
TEST_P(SingleSection, OutsideThreadsShareNoRun)
{
    TSMPSingleSection section;
    std::atomic<bool> started{false};
    bool otherRan = false;
    TWork work(1,
               [&]
               {
                   started = true;
                   std::this_thread::sleep_for(std::chrono::milliseconds(20));
               });
    std::thread other(
        [&]
        {
            WaitUntil(started);
            TWork same(1, [&otherRan] { otherRan = true; });
            section.InternalExecute(same);
        });
    section.InternalExecute(work);
    other.join();
    EXPECT_TRUE(otherRan);
}

TEST_P(SingleSection, WhatTheWorkThrowsReachesWhoAsked)
{
    TSMPSingleSection section;
    TWork ours(1, [] { throw TNqException(kNqErrFormat, nullptr, 0); });
    TWork another(2, [] { throw 5; });
    TWork again(3, [&] { section.InternalExecute(again); });
    TSMPSingleSection between;
    TWork back(4, [&] { section.InternalExecute(again); });
    TWork around(5, [&] { between.InternalExecute(back); }); // it would wait for itself as well
    const std::function<void()> loops[] = {
        [&] { section.InternalExecute(ours); }, [&] { section.InternalExecute(another); },
        [&] { section.InternalExecute(again); }, [&] { section.InternalExecute(around); }};
    const std::string codes[] = {Code(kNqErrFormat), Code(kNqErrUnknown), Code(kNqErrSection), Code(kNqErrSection)};
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(WhatIsThrown(loops[i]), codes[i]);
        EXPECT_EQ(WhatIsThrown([&] { ForEach(20, [&](int32) { loops[i](); }); }), codes[i]);
        int runs = 0;
        TWork fine(1, [&runs] { ++runs; });
        section.InternalExecute(fine);
        EXPECT_EQ(runs, 1);
    }
    ExpectReports();
}

// The job drops what has not started, the tasks of the section among it.
TEST_P(SingleSection, SurvivesAJobThatFails)
{
    TSMPSingleSection section;
    for (int round = 0; round < 60; ++round)
    {
        const auto loop = [&]
        {
            ForEach(40,
                    [&](int32 i)
                    {
                        TWork work(i % 3, [] { std::this_thread::yield(); });
                        section.InternalExecute(work);
                        if (i == round % 40)
                            throw TNqException(kNqErrInvalidData, nullptr, 0);
                    });
        };
        EXPECT_EQ(WhatIsThrown(loop), Code(kNqErrInvalidData));
    }
    ExpectReports();
}

// A plain task cannot spawn others: its thread must not run tasks of the job while it waits, nor wait for ever.
TEST_P(SingleSection, ServesTasksThatCannotSpawn)
{
    TSMPSingleSection section;
    static thread_local int tRunning;
    std::atomic<int> runs{0};
    const TNqCountedPtr<ISMPJob> job = NewJob();
    for (int i = 0; i < 200; ++i)
    {
        job->AddTask(TCallTask::Make(
            [&, i](ISMPJobTask**)
            {
                EXPECT_EQ(++tRunning, 1);
                TWork work(i % 5, [&] { ++runs; });
                section.InternalExecute(work);
                --tRunning;
            }));
    }
    job->Wait();
    EXPECT_EQ(runs, 200);
}

// While another worker runs the first work, the one that asked for it runs a body that asks for a second, and adds a
// third body with a loop: run before the second work has its turn, the loop would wait for it for ever.
TEST_P(SingleSectionOfThree, ALoopNeverWaitsForARequestBelowIt)
{
    for (unsigned round = 0; round < 20; ++round)
    {
        TSMPSingleSection section;
        const TNqCountedPtr<ISMPJob> job = NewJob();
        std::atomic<int> askers{0};
        std::atomic<bool> asked{false}, ended{false}, loopRuns{false}, otherCame{false};
        const auto loop = [&](ISMPJobTask**)
        {
            loopRuns = true;
            const int32 here = GetCurrentSMPWorkerID();
            ForEach(2,
                    [&](int32)
                    {
                        if (GetCurrentSMPWorkerID() == here)
                            return WaitUntil(otherCame, std::chrono::milliseconds(20));
                        otherCame = true;
                        TWork work(3);
                        section.InternalExecute(work);
                    });
        };
        const auto second = [&](ISMPJobTask**)
        {
            AddSMPJobTask(TCallTask::Make(loop, true));
            TWork work(2);
            section.InternalExecute(work);
        };
        const auto first = [&](ISMPJobTask**)
        {
            const int32 asker = GetCurrentSMPWorkerID();
            if (asker == 0)
                return WaitUntil(ended);
            if (++askers != 1)
                return WaitUntil(asked);
            TWork work(1,
                       [&]
                       {
                           if (GetCurrentSMPWorkerID() != asker)
                               AddSMPJobTask(TCallTask::Make(second, true));
                           WaitUntil(loopRuns, std::chrono::milliseconds(10));
                       });
            YieldAroundHostCalls(1, round); // leaves others the time to take the work
            asked = true;
            section.InternalExecute(work);
            YieldAroundHostCalls(0, 0);
            ended = true;
        };
        for (int i = 0; i < 3; ++i)
            job->AddTask(TCallTask::Make(first, true));
        job->Wait();
    }
}

TEST_P(SingleSection, WithoutMemoryItThrowsAndStaysUsable)
{
    ForEachFailingAllocation(
        [](int64)
        {
            int runs = 0;
            const std::string outOfMemory = Code(kNqErrOutOfMemory);
            const auto use = [&]
            {
                TSMPSingleSection section;
                const auto ask = [&](int32 i)
                {
                    TWork work(i);
                    section.InternalExecute(work);
                };
                const std::string inner = WhatIsThrown([&] { ForEach(6, ask); });
                EXPECT_TRUE(inner == "" || inner == outOfMemory) << inner;
                TestHost().FailAllocations(0);
                TWork work(1, [&runs] { ++runs; });
                section.InternalExecute(work);
            };
            const std::string thrown = WhatIsThrown(use);
            EXPECT_TRUE(thrown == "" || thrown == outOfMemory) << thrown;
            EXPECT_EQ(runs, thrown == "" ? 1 : 0);
        });
}

TEST_P(SingleSection, RequestsAreKeptPerWorkerInOrder)
{
    TSMPSingleSection section;
    TFakeThread first(1), second(2), firstAgain(1);
    TWork a(1), sameAsA(1), b(2);
    TSMPSingleSectionJob* const entry = section.GetSectionJob(a, &first, 0);
    EXPECT_EQ(section.GetSectionJob(sameAsA, &firstAgain, 7), entry);
    EXPECT_EQ(entry->GetUserCount(), 2);
    TSMPSingleSectionJob* const others[] = {section.GetSectionJob(b, &first, 0), section.GetSectionJob(a, &second, 0),
                                            section.GetSectionJob(a, nullptr, 7), section.GetSectionJob(a, nullptr, 8)};
    for (TSMPSingleSectionJob* other : others)
        EXPECT_NE(other, entry);
    EXPECT_EQ(section.GetSectionJob(sameAsA, nullptr, 8), others[3]);
    section.ReleaseSectionJob(others[3]);
    section.ReleaseSectionJob(entry);
    EXPECT_EQ(section.GetSectionJob(a, &first, 0), entry) << "one user was left";
    for (TSMPSingleSectionJob* released : {others[1], entry, entry, others[0], others[3], others[2]})
        section.ReleaseSectionJob(released);
    EXPECT_EQ(first.fReferences + second.fReferences, 2U);

    auto* const doomed = new TSMPSingleSection;
    doomed->GetSectionJob(a, nullptr, 1);
    delete doomed;
    EXPECT_EQ(TakeReports(), TTexts({"!fFirstJob"}));
}
