// Parallel loops over a range of indices: a for and a reduce.
//
//     std::vector<float> lengths(count);
//     SMPParallelFor(0, count, [&](const TRange& range) {
//         for (int32 i = range.fStart; i < range.fEnd; ++i)
//             lengths[i] = Length(edges[i]);
//     });
//
//     int64 area;
//     TBasicEstimator always;
//     SMPParallelReduce<SMPReduce::TAdd<int64>>(
//         TAutoPartitioner(0, count, 1, 4), always,
//         [&](const TRange& range, TSMPJobReduce<SMPReduce::TAdd<int64>>& sum) { sum.Update(AreaOf(range)); }, area);
//
// The body is called for pieces of the range, several at a time; each index is in exactly one call. It runs on the
// calling thread and on the threads of the pool, is shared by reference and never copied. The call returns when all
// calls have. The partitioner (ISMPJob.h) decides how the range is cut, the estimator whether it is worth it; when it
// is not, or without a pool, the body is called once for the whole range, with fIsSerial true. An empty range calls
// nothing and does not touch the estimator.
//
// Failure: before each body the loop checks for a cancel, which throws kNqErrCancelled. The first exception of a body
// or a cancel is thrown to the caller as it was thrown, after the running bodies have returned; bodies not started are
// dropped. What the bodies did stays done; the estimator learns nothing from such a run.
// Threads: loops may run side by side on several threads, and a body may run a loop: while it waits for the inner one,
// its thread runs nothing but bodies of the inner one. Cost: a few microseconds a loop, some tenths of one a piece.

#pragma once

#include "NqCore/PublicAPI/ISMPJob.h"

#include <atomic>
#include <type_traits>

template <class P, class E, class B>
class TSMPLoop;

// One call of the body.
template <class P, class E, class B>
void NqRunLoopBody(const P& inRange, E& ioEstimator, B& inBody)
{
    ThrowIfSMPJobCancelled();
    ioEstimator.BeginRunBody(inRange);
    inBody(inRange);
    ioEstimator.EndRunBody(inRange);
}

// A piece of a loop, to be cut further. A piece that has run goes back to its loop and serves as the next one.
template <class P, class E, class B>
class TSMPLoopTask final : public TBasicSMPTask
{
public:
    TSMPLoopTask(TSMPLoop<P, E, B>& inLoop, const P& inRange)
        : fLoop(inLoop),
          fRange(inRange),
          fNextFree(nullptr),
          fOtherReferences(0)
    {
    }

    void Execute(ISMPJobTask**) override { fLoop.RunPiece(fRange); }

    // A body may wait for a loop, or for work of a single section.
    boolean CanSpawnTasks() override { return true; }

    // The loop holds the first reference for as long as it lives and leaves the task alone while there are others. So
    // who takes the first of these, or gives back the last, is the only one who counts: a read and a write do then.
    uint32 AddRef() override
    {
        if (fOtherReferences.load(std::memory_order_relaxed) != 0)
            return fOtherReferences.fetch_add(1) + 2;
        fOtherReferences.store(1, std::memory_order_relaxed);
        return 2;
    }
    uint32 Release() override
    {
        // What others did before they gave theirs back has happened when this one is the last.
        if (fOtherReferences.load(std::memory_order_acquire) == 1)
            fOtherReferences.store(0, std::memory_order_relaxed);
        else if (const uint32 others = fOtherReferences.fetch_sub(1) - 1)
            return others + 1;
        fLoop.Recycle(*this);
        return 1;
    }

private:
    friend class TSMPLoop<P, E, B>;

    TSMPLoop<P, E, B>& fLoop;
    P fRange;
    TSMPLoopTask* fNextFree;
    std::atomic<uint32> fOtherReferences; // than the loop's
    int8 fGap[64];                        // keeps the tasks that other workers use off its last cache line
};

// One run of a loop on the pool, on the stack of its caller.
template <class P, class E, class B>
class TSMPLoop
{
public:
    TSMPLoop(ISMPJob& inJob, E& ioEstimator, B& inBody) : fJob(inJob), fEstimator(ioEstimator), fBody(inBody) {}
    TSMPLoop(const TSMPLoop&) = delete;
    TSMPLoop& operator=(const TSMPLoop&) = delete;

    // The job has released every task by now.
    ~TSMPLoop()
    {
        for (int32 i = 0; i < fFree.GetCount(); ++i)
        {
            while (TTask* task = TakeFree(fFree[i]))
                task->TBasicSMPTask::Release();
        }
    }

    void Run(const P& inRange)
    {
        P root(inRange);
        root.fIsSerial = false;
        AddPiece(root, fFree.GetCurrent());
        fJob.Wait();
    }

    // Leaves the right parts to whoever is free and keeps the left one, down to a piece for one body. A cut may leave
    // nothing on its right.
    void RunPiece(P ioRange)
    {
        if (ioRange.ShouldSplit())
        {
            TTask*& firstFree = fFree.GetCurrent();
            do
            {
                P right(ioRange);
                ioRange.Split(ioRange, right);
                if (right.Size() > 0)
                    AddPiece(right, firstFree);
            } while (ioRange.ShouldSplit());
        }
        NqRunLoopBody(ioRange, fEstimator, fBody);
    }

    void Recycle(TSMPLoopTask<P, E, B>& inTask)
    {
        TTask*& firstFree = fFree.GetCurrent();
        inTask.fNextFree = firstFree;
        firstFree = &inTask;
    }

private:
    using TTask = TSMPLoopTask<P, E, B>;

    static TTask* TakeFree(TTask*& ioFirstFree)
    {
        TTask* const task = ioFirstFree;
        if (task != nullptr)
            ioFirstFree = task->fNextFree;
        return task;
    }

    // ioFirstFree is the calling worker's.
    void AddPiece(const P& inRange, TTask*& ioFirstFree)
    {
        TTask* task = TakeFree(ioFirstFree);
        if (task != nullptr)
            task->fRange = inRange;
        else
            TNqCountedCreateHelper<TTask>{& task} = new TTask(*this, inRange);
        try
        {
            fJob.AddTask(task);
        }
        catch (...)
        {
            // The job may have taken its reference, and given it back.
            if (ioFirstFree != task)
                Recycle(*task);
            throw;
        }
    }

    ISMPJob& fJob;
    E& fEstimator;
    B& fBody;
    TSMPWorkerArray<TTask*> fFree; // tasks that wait to be used again, for each worker the ones that it released
};

// Runs inBody(const TRange&) over the range. P is a partitioner, E an estimator; both may be the caller's own classes
// with the same operations.
template <class P, class E, class B>
std::enable_if_t<std::is_base_of<TRange, P>::value> SMPParallelFor(const P& inRange, E& ioEstimator, B&& inBody)
{
    if (inRange.Size() <= 0)
        return;
    ISMPJobWorkers* const workers = GetSMPWorkers();
    const bool isParallel = workers != nullptr && inRange.ShouldRunParallel() && ioEstimator.ShouldRunParallel(inRange);
    ioEstimator.BeginRun(inRange);
    if (isParallel)
    {
        TNqCountedPtr<ISMPJob> job;
        workers->CreateJob(&job);
        TSMPLoop<P, E, B>(*job, ioEstimator, inBody).Run(inRange);
    }
    else
    {
        P whole(inRange);
        whole.fIsSerial = true;
        NqRunLoopBody(whole, ioEstimator, inBody);
    }
    ioEstimator.EndRun(inRange);
}

// The usual loop: four pieces for each worker, always in parallel.
template <class B>
void SMPParallelFor(int32 inStart, int32 inEnd, B&& inBody)
{
    TBasicEstimator estimator;
    SMPParallelFor(TAutoPartitioner(inStart, inEnd, 1, 4), estimator, inBody);
}

// Runs inBody(const TRange&, TSMPJobReduce<R>&), which updates its worker's share of the result, and stores all shares
// together in outResult, which stays as it was when the loop throws. An empty range gives the neutral value.
template <class R, class P, class E, class B>
void SMPParallelReduce(const P& inRange, E& ioEstimator, B&& inBody, typename R::Type& outResult)
{
    TSMPJobReduce<R> reduce;
    SMPParallelFor(inRange, ioEstimator, [&](const TRange& inPiece) { inBody(inPiece, reduce); });
    reduce.Reduce(outResult);
}
