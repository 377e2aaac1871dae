// Partitioners and estimators, on a pool that only says how many workers it has.

#include "NqCore/PublicAPI/ISMPJob.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "Tests/TestHost.h"

#include <chrono>

struct TSMPJobLayout
{
    static_assert(sizeof(TRange) == 12 && sizeof(TSimplePartitioner) == 16 && sizeof(TAutoPartitioner) == 20);
    static_assert(sizeof(TGuidedPartitioner) == 36 && sizeof(TPreEstimator) == 16);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(sizeof(TFullEstimator) == 32 && offsetof(TFullEstimator, fTotalTiming) == 16);
    static_assert(sizeof(TSMPJobTLS<int64>) == 24 && sizeof(TSMPJobReduce<SMPReduce::TAdd<int64>>) == 24);
    static_assert(sizeof(TSMPSingleSection) == 56 && offsetof(TSMPSingleSection, fWait) == 24 &&
                  offsetof(TSMPSingleSection, fRunCount) == 48);
    using TEntry = TSMPSingleSectionJob;
    static_assert(offsetof(TEntry, fThreadId) == 32 && offsetof(TEntry, fExecuted) == 36 &&
                  offsetof(TEntry, fError) == 40 && offsetof(TEntry, fCounter) == 44 && offsetof(TEntry, fNext) == 56);
#pragma GCC diagnostic pop
};

namespace
{

class TFakePool final : public ISMPJobWorkers, public IShSMPUtilities
{
public:
    NqErr QueryInterface(const NqIID&, void**) override { return kNqNoInterface; }
    uint32 AddRef() override { return 1; }
    uint32 Release() override { return 1; }
    int32 GetWorkerCount() override { return fCount; }
    TNqTiming GetTaskOverhead() override { return TNqTiming(2000); }
    ISMPJobWorkerThread* GetCurrentWorkerThread() override { return nullptr; }
    ISMPJob* GetCurrentJob() override { return nullptr; }
    void CreateJob(ISMPJob** job) override { *job = fJob; }

    ISMPJobWorkers* GetSMPWorkers() override { return fCount != 0 ? this : nullptr; }
    TNqLocalStorage* NewTLS(void (*)(void**)) override { return nullptr; }
    void DeleteTLS(TNqLocalStorage*) override {}
    void SetupThreadLocalStorage() override {}

    int32 fCount = 4;
    ISMPJob* fJob = nullptr;
};

// Of a host that holds each task twice, and whose threads give the references back at the same time.
class TSharingJob final : public ISMPJob
{
public:
    NqErr QueryInterface(const NqIID&, void**) override { return kNqNoInterface; }
    uint32 AddRef() override { return 1; }
    uint32 Release() override { return 1; }
    void AddTask(ISMPJobTask* task) override
    {
        EXPECT_EQ(task->AddRef(), 2U);
        EXPECT_EQ(task->AddRef(), 3U);
        fTasks.push_back(task);
    }
    boolean RunPendingWork() override { return false; }
    void Wait() override
    {
        while (!fTasks.empty())
        {
            ISMPJobTask* const task = fTasks.back();
            fTasks.pop_back();
            ISMPJobTask* next = nullptr;
            task->Execute(&next);
            uint32 left[2];
            const auto release = [&](int thread)
            {
                for (int i = 0; i < 2000; ++i)
                    task->AddRef(), task->Release();
                left[thread] = task->Release();
            };
            OnThreads(2, release);
            EXPECT_EQ(std::min(left[0], left[1]), 1U); // the loop's
            EXPECT_GT(std::max(left[0], left[1]), 1U);
        }
    }

private:
    std::vector<ISMPJobTask*> fTasks;
};

// W = 4 to begin with; 0 stands for no pool.
class FakePool : public NqTest
{
protected:
    void SetUp() override
    {
        NqTest::SetUp();
        gShellSMPUtilities = &fPool;
    }
    void TearDown() override
    {
        gShellSMPUtilities = fRealSMP;
        NqTest::TearDown();
    }
    void SetWorkerCount(int32 count) { fPool.fCount = count; }
    void SetJob(ISMPJob* job) { fPool.fJob = job; }

private:
    IShSMPUtilities* const fRealSMP = gShellSMPUtilities;
    TFakePool fPool;
};

using Partitioner = FakePool;
using Estimator = FakePool;

// The pieces that a loop would run, from left to right; each has at least one index.
template <class P>
std::vector<P> CutAll(const P& whole)
{
    std::vector<P> pieces;
    std::vector<P> stack{whole};
    while (!stack.empty())
    {
        P piece = stack.back();
        stack.pop_back();
        while (piece.ShouldSplit())
        {
            P right(piece);
            piece.Split(piece, right);
            if (right.Size() > 0)
                stack.push_back(right);
        }
        pieces.push_back(piece);
        if (pieces.size() > 100000)
        {
            ADD_FAILURE() << "it never stops cutting";
            break;
        }
    }
    return pieces;
}

template <class P>
std::vector<int64> SizesOf(const P& whole)
{
    std::vector<int64> sizes;
    for (const P& piece : CutAll(whole))
        sizes.push_back(piece.Size());
    return sizes;
}

template <class P>
void ExpectTiles(const P& whole)
{
    int64 next = whole.fStart;
    for (const P& piece : CutAll(whole))
    {
        ASSERT_EQ(piece.fStart, next);
        ASSERT_GT(piece.Size(), 0);
        ASSERT_EQ(piece.fIsSerial, whole.fIsSerial);
        next = piece.fEnd;
    }
    ASSERT_EQ(next, whole.fEnd);
}

} // namespace

TEST_F(Partitioner, PiecesTileTheRangeWhateverTheSettings)
{
    TRandom random(7);
    const auto pick = [&random](std::initializer_list<int32> inSpecial, int32 inLow, int32 inHigh)
    {
        if (random.OneIn(4))
            return *(inSpecial.begin() + random() % inSpecial.size());
        return std::uniform_int_distribution<int32>(inLow, inHigh)(random);
    };
    constexpr int32 lowest = std::numeric_limits<int32>::min();
    constexpr int32 highest = std::numeric_limits<int32>::max();
    for (int step = 0; step < 4000; ++step)
    {
        SetWorkerCount(pick({0, 1, 256}, 1, 9));
        const auto [start, end] =
            std::minmax({pick({lowest, 0, highest}, -3000, 3000), pick({lowest, 0, highest}, -3000, 3000)});
        if (start == end)
            continue;
        const bool isHuge = static_cast<int64>(end) - start > 6000;
        const int32 grain = pick({isHuge ? 1 << 20 : 0, highest}, isHuge ? 1 << 20 : -2, isHuge ? 1 << 24 : 40);
        const int32 chunks = pick({0, -3, isHuge ? 20 : highest / 400}, 1, 20);
        const real32 ratio = std::uniform_real_distribution<real32>(-0.2f, 1.3f)(random);
        ASSERT_NO_FATAL_FAILURE(ExpectTiles(TSimplePartitioner(start, end, grain)));
        ASSERT_NO_FATAL_FAILURE(ExpectTiles(TAutoPartitioner(start, end, grain, chunks)));
        ASSERT_NO_FATAL_FAILURE(
            ExpectTiles(TGuidedPartitioner(start, end, grain, step % 50 == 0 ? std::nanf("") : ratio, chunks)))
            << start << " " << end << " " << grain << " " << ratio << " " << chunks;
    }
}

TEST_F(Partitioner, PiecesAreCountedHoweverManyHoldThem)
{
    TSharingJob job;
    SetJob(&job);
    std::vector<int> visits(60);
    TBasicEstimator always;
    SMPParallelFor(TSimplePartitioner(0, 60, 1), always,
                   [&](const TRange& range) { ++visits[static_cast<size_t>(range.fStart)]; });
    EXPECT_EQ(visits, std::vector<int>(60, 1));
}

TEST_F(Partitioner, SizesComputedByHand)
{
    using TSizes = std::vector<int64>;
    EXPECT_EQ(SizesOf(TSimplePartitioner(0, 10, 3)), TSizes({2, 3, 2, 3}));
    EXPECT_EQ(SizesOf(TSimplePartitioner(-3, 4, 3)), TSizes({3, 2, 2})); // the middle of -3 and 4 is 0
    EXPECT_EQ(SizesOf(TSimplePartitioner(0, 3, 0)), TSizes({1, 1, 1}));
    EXPECT_EQ(SizesOf(TAutoPartitioner(0, 1000, 1, 2)), TSizes(8, 125));
    EXPECT_EQ(SizesOf(TAutoPartitioner(0, 1000, 400, 2)), TSizes(4, 250));

    const TGuidedPartitioner guided(0, 1000, 1, 0.5f, 3);
    EXPECT_EQ(guided.fGuidedGrain, 125);
    EXPECT_EQ(guided.fChunkCount, 12);
    EXPECT_EQ(SizesOf(guided), TSizes({125, 125, 125, 125, 62, 62, 62, 62, 31, 31, 31, 31, 32, 32, 32, 32}));

    SetWorkerCount(3); // of an odd number of pieces the right half gets one more
    EXPECT_EQ(SizesOf(TAutoPartitioner(0, 12, 1, 1)), TSizes({6, 3, 3}));
    EXPECT_EQ(SizesOf(TGuidedPartitioner(0, 12, 1, 0.5f, 0)), TSizes({6, 3, 3}));

    TGuidedPartitioner right(guided);
    guided.Split(right, right); // the right half is stored last
    EXPECT_EQ(right.fStart, 125);
    EXPECT_EQ(right.fSectionNum, 1);
    EXPECT_EQ(TRange(5, 5).Size(), 0);
    EXPECT_TRUE(TRange().fIsSerial);
}

TEST_F(Partitioner, RunsInParallelOnlyWhereThereIsSomethingToShare)
{
    struct TCase
    {
        int32 fWorkers, fEnd, fGrain, fChunks;
        bool fSimple, fAuto, fGuided;
    };
    for (const TCase& c : {TCase{2, 10, 3, 4, true, true, true}, TCase{1, 10, 3, 4, false, false, false},
                           TCase{0, 10, 3, 4, false, false, false}, TCase{4, 10, 10, 4, false, false, false},
                           TCase{4, 1, 0, 4, false, false, false}, TCase{4, 10, 1, 0, true, false, true}})
    {
        SetWorkerCount(c.fWorkers);
        EXPECT_EQ(TSimplePartitioner(0, c.fEnd, c.fGrain).ShouldRunParallel(), c.fSimple);
        EXPECT_EQ(TAutoPartitioner(0, c.fEnd, c.fGrain, c.fChunks).ShouldRunParallel(), c.fAuto);
        EXPECT_EQ(TGuidedPartitioner(0, c.fEnd, c.fGrain, 0.5f, c.fChunks).ShouldRunParallel(), c.fGuided);
    }
}

// With W = 4 and an overhead of 2000, n units of work pay off when n > n / 4 + 2000, each division truncated.
TEST_F(Estimator, DecidesByNumbersComputedByHand)
{
    struct TCase
    {
        int32 fWeight;
        int64 fIterationTime; // in 1/256
        int32 fSize;
        bool fParallel;
    };
    constexpr int64 ages = std::numeric_limits<int64>::max() / 2;
    for (const TCase& c : {TCase{10, 256, 267, true},  // 2670 > 667 + 2000
                           TCase{10, 256, 266, false}, // 2660 < 665 + 2000
                           TCase{1, 64, 10668, true},  // 2667 > 666 + 2000
                           TCase{1, 64, 10667, false}, // 2666 = 666 + 2000
                           TCase{1, 0, 1, true},       // no estimate yet
                           TCase{0, 256, 1000, false}, // no work
                           TCase{1 << 30, ages, 1 << 30, true}, TCase{1, 256, 0, false}})
    {
        TNqTiming time(c.fIterationTime);
        EXPECT_EQ(TFullEstimator(c.fWeight, time).ShouldRunParallel(TRange(0, c.fSize)), c.fParallel) << c.fSize;
    }
    EXPECT_TRUE(TFullEstimator(1).ShouldRunParallel(TRange(0, 1)));

    // 5000 units for 100 iterations: n * 50 > n * 5000 / 400 + 2000.
    EXPECT_TRUE(TPreEstimator(100, TNqTiming(5000)).ShouldRunParallel(TRange(0, 54)));
    EXPECT_FALSE(TPreEstimator(100, TNqTiming(5000)).ShouldRunParallel(TRange(0, 53)));
    EXPECT_FALSE(TPreEstimator(0, TNqTiming(5000)).ShouldRunParallel(TRange(0, 1000)));
    EXPECT_TRUE(TPreEstimator(1, TNqTiming(ages)).ShouldRunParallel(TRange(0, 1 << 30)));

    TNqTiming none;
    for (int32 workers : {0, 1})
    {
        SetWorkerCount(workers);
        EXPECT_FALSE(TFullEstimator(1, none).ShouldRunParallel(TRange(0, 1 << 30)));
        EXPECT_FALSE(TPreEstimator(1, TNqTiming(5000)).ShouldRunParallel(TRange(0, 1 << 30)));
        EXPECT_FALSE(TBasicEstimator().ShouldRunParallel(TRange(0, 1 << 30)));
    }
}

TEST_F(Estimator, LearnsWhatAnIterationTakes)
{
    TNqTiming time(77);
    TFullEstimator estimator(5, time);
    const TRange range(0, 10);
    const TNqTiming start = TNqTiming::Now();
    estimator.BeginRun(range);
    estimator.BeginRunBody(range);
    estimator.BeginRun(range); // the run before failed
    for (int body = 0; body < 2; ++body)
    {
        estimator.BeginRunBody(range);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        estimator.EndRunBody(range);
    }
    estimator.EndRun(range);
    const TNqTiming spent = TNqTiming::Now() - start;
    EXPECT_GE(time.GetTime(), 4000000 * 256LL / 50);
    EXPECT_LE(time.GetTime(), spent.GetTime() * 256 / 50);

    const TRange empty(5, 5);
    estimator.BeginRun(empty);
    estimator.EndRun(empty);
    EXPECT_EQ(time.GetTime(), 0);
    TFullEstimator left(1, time);
    left.BeginRun(range); // its objects die with it
}

TEST_F(Estimator, WorkerArraysAreAsLargeAsThePoolAndKeepApart)
{
    SetWorkerCount(3);
    TSMPJobTLS<int16> values;
    ASSERT_EQ(values.GetCount(), 3);
    EXPECT_EQ(&values.Get(), &values.GetWorkerValue(0));
    const auto line = [](int16& v) { return reinterpret_cast<uintpointer>(&v) / 64; };
    EXPECT_NE(line(values.GetWorkerValue(0)), line(values.GetWorkerValue(1)));
    EXPECT_NE(line(values.GetWorkerValue(1)), line(values.GetWorkerValue(2)));

    TSMPJobReduce<SMPReduce::TAdd<int32>> sum;
    sum.Update(4);
    sum.Reset();
    int32 total = 100;
    sum.Reduce(total);
    EXPECT_EQ(total, 0);
}
