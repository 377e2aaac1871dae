// Parallel jobs: what the library adds to the host's worker pool, and how both talk to each other.
//
// For a loop over indices use NqSMPParallel.h, which is made of these pieces. Use them directly for tasks of another
// shape:
//
//     class TBakeTask : public TBasicSMPTask
//     {
//     public:
//         explicit TBakeTask(TTexture& inTexture) : fTexture(inTexture) {}
//         void Execute(ISMPJobTask**) override { Bake(fTexture); }
//
//     private:
//         TTexture& fTexture;
//     };
//
//     TNqCountedPtr<ISMPJob> job;
//     GetSMPWorkers()->CreateJob(&job);
//     for (TTexture& texture : textures)
//     {
//         TNqCountedPtr<ISMPJobTask> task;
//         TNqCountedCreateHelper<ISMPJobTask>{&task} = new TBakeTask(texture);
//         job->AddTask(task);
//     }
//     job->Wait();                         // runs tasks too; throws what the first failing task threw
//
// Workers: the pool has W of them, which stays so for the life of the host: its own threads have the ids 1 to W - 1,
// and every thread outside it counts as worker 0 of the jobs that it waits for. With W = 1 a job runs in Wait; without
// a pool GetSMPWorkers() is null and loops run serially. Threads: partitioners and estimators are values of one thread,
// except where an operation says otherwise; per-worker arrays are written by their worker and read by one thread after
// the job; the other classes may be used by any thread.

#pragma once

#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqPtr.h"
#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"
#include "NqCore/PublicAPI/NqTiming.h"

#include <atomic>

// ---- The worker pool, which the host implements. Slot orders are a contract. ----------------------------------------

class ISMPJobTask : public INqUnknown
{
public:
    // Does the work. May hand back one task, with its reference, to run next on this thread; outNext is never null and
    // points to null. What it throws fails the job.
    virtual void Execute(ISMPJobTask** outNext) = 0;

    // False: until this task returns, its thread runs no other task, except those of jobs that the task itself makes.
    virtual boolean CanSpawnTasks() = 0;

protected:
    ~ISMPJobTask() = default;
};

class ISMPJob : public INqUnknown
{
public:
    // Adds a task, with a reference of the job's own, which it releases before Wait returns. Throws kNqErrOutOfMemory
    // with nothing added. Any thread.
    virtual void AddTask(ISMPJobTask* inTask) = 0;

    // Runs at most one task of this job that has not started, the newest of the calling thread's own first. False:
    // there was none, or the thread runs a task that cannot spawn others.
    virtual boolean RunPendingWork() = 0;

    // Until no task is left; runs pending ones meanwhile. Once a task has thrown, those not started are released
    // unexecuted and the first exception is thrown from here. The job may be used again afterwards. Never from a task
    // of this job, which would wait for itself; from a task that cannot spawn others only if that task made the job.
    // Two threads outside the pool that wait for one job are both its worker 0.
    virtual void Wait() = 0;

protected:
    ~ISMPJob() = default;
};

class ISMPJobWorkerThread : public INqUnknown
{
public:
    virtual int32 GetWorkerID() = 0; // 1 .. W - 1

protected:
    ~ISMPJobWorkerThread() = default;
};

class ISMPJobWorkers : public INqUnknown
{
public:
    virtual int32 GetWorkerCount() = 0;                        // W, the caller included
    virtual TNqTiming GetTaskOverhead() = 0;                   // what one task costs beside its work; a constant
    virtual ISMPJobWorkerThread* GetCurrentWorkerThread() = 0; // null outside the pool; no reference for the caller
    virtual ISMPJob* GetCurrentJob() = 0;                      // the job whose task this thread runs, null for none
    virtual void CreateJob(ISMPJob** outJob) = 0;              // as a create helper; throws kNqErrOutOfMemory

protected:
    ~ISMPJobWorkers() = default;
};

// The host's pool, null when it has none.
ISMPJobWorkers* GetSMPWorkers();

// Its number of workers, 1 without a pool.
int32 GetSMPWorkerCount();

// The calling thread's worker id: its index into every per-worker array. 0 outside the pool.
int32 GetCurrentSMPWorkerID();

// Adds a task to the job whose task the calling thread runs; reported when there is none.
void AddSMPJobTask(ISMPJobTask* inTask);

// Throws kNqErrCancelled when the host was asked to abort; otherwise lets other threads run when called outside the
// pool. A long body calls it now and then.
void CheckSMPJobCancel();

// The same without giving up the time slice, for checks that come often: loops call it before each body.
void ThrowIfSMPJobCancelled();

// The base of tasks: counted, does nothing, cannot spawn others. Override Execute, and CanSpawnTasks for a task that
// waits for other tasks of its own job.
class TBasicSMPTask : public TNqSMPCountedObject, public ISMPJobTask
{
public:
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override;
    uint32 Release() override;
    void Execute(ISMPJobTask** outNext) override;
    boolean CanSpawnTasks() override;
};

// ---- Ranges and partitioners: how a loop is cut ---------------------------------------------------------------------

// The indices from fStart up to, not including, fEnd.
class TRange
{
public:
    TRange() : fStart(0), fEnd(0), fIsSerial(true) {}
    TRange(int32 inStart, int32 inEnd) : fStart(inStart), fEnd(inEnd), fIsSerial(true) {}

    int64 Size() const { return static_cast<int64>(fEnd) - fStart; } // not above 0 for an empty range

    int32 fStart;
    int32 fEnd;
    boolean fIsSerial; // the whole loop is one body call on the caller's thread
};

// Halves until a piece has at most `grain` indices. For bodies of equal cost when the right grain is known.
class TSimplePartitioner : public TRange
{
public:
    TSimplePartitioner(int32 inStart, int32 inEnd, int32 inGrain) : TRange(inStart, inEnd), fGrain(inGrain) {}

    // Both may be *this.
    void Split(TSimplePartitioner& outLeft, TSimplePartitioner& outRight) const;
    boolean ShouldSplit() const { return Size() > fGrain && Size() > 1; }
    boolean ShouldRunParallel() const;

    int32 fGrain; // the largest size that is not split

protected:
    int32 GetMiddle() const; // of the range, rounded towards 0
};

// Halves into about `chunksPerWorker` pieces for each worker. The usual choice.
class TAutoPartitioner : public TSimplePartitioner
{
public:
    TAutoPartitioner(int32 inStart, int32 inEnd, int32 inGrain, int32 inChunksPerWorker);

    void Split(TAutoPartitioner& outLeft, TAutoPartitioner& outRight) const;
    boolean ShouldSplit() const { return fChunkCount >= 2 && TSimplePartitioner::ShouldSplit(); }
    boolean ShouldRunParallel() const;

    int32 fChunkCount; // pieces still to make of this range
};

// Cuts off pieces from the left that shrink by the factor (1 - ratio) after every W of them, then halves what is left
// into W pieces. For bodies of unequal cost: large pieces first, small ones to fill the gaps at the end.
class TGuidedPartitioner : public TSimplePartitioner
{
public:
    TGuidedPartitioner(int32 inStart, int32 inEnd, int32 inGrain, real32 inRatio, int32 inChunksPerWorker);

    void Split(TGuidedPartitioner& outLeft, TGuidedPartitioner& outRight) const;
    boolean ShouldSplit() const
    {
        return (fChunkCount > 1 || fFinishChunkCount > 1) && TSimplePartitioner::ShouldSplit();
    }
    boolean ShouldRunParallel() const;

    int32 fGuidedGrain;      // size of the first W pieces
    int32 fChunkCount;       // pieces that the shrinking phase still makes
    int32 fFinishChunkCount; // pieces that the halving phase makes of what is left
    int32 fSectionNum;       // pieces cut off so far; -1 for a piece that was
    real32 fRatio;

private:
    int64 GetNextSize() const;
};

// ---- Per-worker storage ---------------------------------------------------------------------------------------------

// One T for each worker, none of which shares a cache line with another.
template <class T>
class TSMPWorkerArray
{
public:
    // Throws kNqErrOutOfMemory. T() is the first value of each.
    TSMPWorkerArray()
    {
        if (!fData.SetElemCount(static_cast<uint32>(GetSMPWorkerCount())))
            throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    }

    int32 GetCount() const { return static_cast<int32>(fData.GetElemCount()); }
    T& operator[](int32 i) { return fData.BaseAddress()[i].fValue; }

    // The calling worker's.
    T& GetCurrent()
    {
        const int32 id = GetCurrentSMPWorkerID();
        return (*this)[NqCheck(id < GetCount()) ? id : 0];
    }

private:
    struct TElem
    {
        T fValue;
        int8 fGap[64]; // keeps the neighbours off this value's last cache line, wherever the block starts
    };

    TNqClassArray<TElem> fData;
};

// A value of its own for each worker, such as scratch memory or a random generator.
//
//     TSMPJobTLS<TScratch> scratch;
//     SMPParallelFor(0, count, [&](const TRange& range) { Process(range, scratch.Get()); });
template <class T>
class TSMPJobTLS : public TNqObject0
{
public:
    T& Get() { return fData.GetCurrent(); }

    // Every worker's value, for the thread that looks at them after the job.
    int32 GetCount() const { return fData.GetCount(); }
    T& GetWorkerValue(int32 inWorkerID) { return fData[inWorkerID]; }

private:
    TSMPWorkerArray<T> fData;
};

// What a reduction is made of: the type, its neutral value, and how a value is added.
namespace SMPReduce
{

template <class T>
struct TAdd
{
    using Type = T;
    static void Init(T& outValue) { outValue = T(); }
    static void Update(T& ioSum, const T& inValue) { ioSum += inValue; }
};

} // namespace SMPReduce

// A result of which every worker gathers a share. Shares are combined by worker id: exact for integers, not the same
// from run to run for reals.
//
//     TSMPJobReduce<SMPReduce::TAdd<int64>> sum;
//     SMPParallelFor(0, count, [&](const TRange& range) { sum.Update(SumOf(range)); });
//     int64 total;
//     sum.Reduce(total);
template <class R>
class TSMPJobReduce : public TNqObject0
{
public:
    using Type = typename R::Type;

    TSMPJobReduce() { Reset(); }

    // Adds a value to the calling worker's share.
    void Update(const Type& inValue) { R::Update(fData.GetCurrent(), inValue); }

    // All shares together. After the job, on one thread; they stay as they are.
    void Reduce(Type& outResult)
    {
        R::Init(outResult);
        for (int32 i = 0; i < fData.GetCount(); ++i)
            R::Update(outResult, fData[i]);
    }

    // Every share neutral again, as after construction.
    void Reset()
    {
        for (int32 i = 0; i < fData.GetCount(); ++i)
            R::Init(fData[i]);
    }

private:
    TSMPWorkerArray<Type> fData;
};

// ---- Estimators: whether running in parallel pays off ---------------------------------------------------------------

// Runs every loop in parallel that can be. Loops call the four notices around the whole loop and around each body;
// estimators that measure hide them with their own.
class TBasicEstimator
{
public:
    void BeginRun(const TRange&) {}
    void BeginRunBody(const TRange&) {}
    void EndRunBody(const TRange&) {}
    void EndRun(const TRange&) {}
    boolean ShouldRunParallel(const TRange&) const { return GetSMPWorkerCount() > 1; }
};

// Measures each run and learns what an iteration costs. The estimate belongs to the caller and outlives the estimator:
//
//     static TNqTiming gCostOfAFace;                       // in 1/256 time units, 0 until the first run
//     TFullEstimator estimator(facesPerMesh, gCostOfAFace);
//     SMPParallelFor(TAutoPartitioner(0, meshCount, 1, 4), estimator, body);
class TFullEstimator : public TBasicEstimator
{
public:
    // Without an estimate it measures nothing and always prefers to run in parallel.
    explicit TFullEstimator(int32 inLoopWeight);
    TFullEstimator(int32 inLoopWeight, TNqTiming& ioIterationTime);
    TFullEstimator(const TFullEstimator&) = delete;
    TFullEstimator& operator=(const TFullEstimator&) = delete;
    ~TFullEstimator();

    // Around a run; EndRun only when it succeeded: it stores the new estimate, 0 for an empty range. BeginRun throws
    // kNqErrOutOfMemory.
    void BeginRun(const TRange& inRange);
    void EndRun(const TRange& inRange);

    // Around each body, by any worker.
    void BeginRunBody(const TRange& inRange);
    void EndRunBody(const TRange& inRange);

    boolean ShouldRunParallel(const TRange& inRange) const;

private:
    friend struct TSMPJobLayout;

    void DeleteRun();

    int32 fLoopWeight;         // inner iterations in one of the loop
    TNqTiming* fIterationTime; // the caller's; in 1/256 time units for each inner iteration
    TNqPtr<TSMPJobReduce<SMPReduce::TAdd<TNqTiming>>> fTotalTiming;
    TNqPtr<TSMPJobTLS<TNqTiming>> fTimingTLS; // when the worker's current body began
};

// Decides by a time that the caller knows, or has measured on `grain` iterations beforehand.
class TPreEstimator : public TBasicEstimator
{
public:
    explicit TPreEstimator(int32 inGrain, const TNqTiming& inEstimated = TNqTiming())
        : fGrain(inGrain),
          fEstimated(inEstimated)
    {
    }

    boolean ShouldRunParallel(const TRange& inRange) const;

    int32 fGrain;
    TNqTiming fEstimated; // what fGrain iterations take
};

// ---- The single section ---------------------------------------------------------------------------------------------

class TSMPSingleSectionJob;

// A piece of work that a loop's body needs done once before it goes on, while other workers may need it as well, or
// need other work of the same kind: building an acceleration structure on first use, say. Work goes one at a time; a
// body that finds the same work asked for already by its worker shares that run.
//
//     class TBuildTree : public TSMPSingleSection::ISectionJob
//     {
//     public:
//         explicit TBuildTree(TMesh& inMesh) : fMesh(inMesh) {}
//         void Run() override { if (!fMesh.HasTree()) fMesh.BuildTree(); }
//         boolean IsEqual(const ISectionJob& inOther) const override
//         {
//             return &static_cast<const TBuildTree&>(inOther).fMesh == &fMesh;
//         }
//
//     private:
//         TMesh& fMesh;
//     };
//
//     TBuildTree build(mesh);
//     section.InternalExecute(build);      // returns, or throws, when the work has been done
//
// Requests are kept per worker: each worker's request runs its own work, which must itself see that there is nothing
// left to do; only nested requests of one worker share a run. The work may run loops. It must not ask the same section
// again, nor wait for a thread that does: on its own thread that throws kNqErrSection. Threads: any; the section must
// outlive its requests.
class TSMPSingleSection
{
public:
    class ISectionJob
    {
    public:
        virtual ~ISectionJob() = default;
        virtual void Run() = 0;
        // Whether the two do the same. Called under the section's lock: only compare.
        virtual boolean IsEqual(const ISectionJob& inOther) const = 0;
    };

    // Throws kNqErrOutOfMemory when the host cannot make what it needs.
    TSMPSingleSection();
    TSMPSingleSection(const TSMPSingleSection&) = delete;
    TSMPSingleSection& operator=(const TSMPSingleSection&) = delete;
    ~TSMPSingleSection();

    // Has the work run once, here or on another worker, and returns when it has. What the work throws is thrown to
    // everyone who shares the run: the code of a TNqException, kNqErrUnknown for anything else.
    void InternalExecute(ISectionJob& inJob);

    // The entry of this request: one that waits or runs already for the same work of the same worker (outside the pool:
    // of the same thread), otherwise a new one at the end of the list. Each must be released once.
    TSMPSingleSectionJob* GetSectionJob(ISectionJob& inJob, ISMPJobWorkerThread* inWorkerThread, int32 inThreadID);
    void ReleaseSectionJob(TSMPSingleSectionJob* inEntry);

private:
    friend class TTaskWrapper;
    friend struct TSMPJobLayout;

    enum EStep
    {
        kWait,   // somebody else's turn
        kHelp,   // our worker's entry is queued or running
        kRunHere // our turn, outside the pool
    };

    EStep ChooseStep(TSMPSingleSectionJob& inEntry, TNqCountedPtr<TSMPSingleSectionJob>& outRunning);
    void TakeStep(TSMPSingleSectionJob& inEntry);
    void StartOnPool(TSMPSingleSectionJob& inEntry);
    void Help(const TSMPSingleSectionJob& inEntry, TSMPSingleSectionJob& inRunning);
    void WaitForTurn();
    void RunHere(TSMPSingleSectionJob& inEntry);
    void RunStarted(TSMPSingleSectionJob& inEntry);
    void Finish(TSMPSingleSectionJob& inEntry, int32 inCode);
    void Abandon(TSMPSingleSectionJob& inEntry, const ISectionJob& inJob);
    TSMPSingleSectionJob* FindFirstWaiting() const;
    int32 RunWork(TSMPSingleSectionJob& inEntry) const;
    void FreeResources();

    TNqSafeSection fCS;        // guards the list, what runs, and the entries
    boolean fMainThreadInside; // an entry runs directly, on a thread outside the pool
    TNqSemaphore* fWait;       // held by a run on the pool; those who wait for it pass it on
    TNqCountedPtr<TSMPSingleSectionJob> fFirstJob;
    TNqCountedPtr<TSMPSingleSectionJob> fRunningJob; // queued or running on the pool
    TNqAtomicCounterHolder fRunCount;                // runs at this moment, at most 1
};

// One request, or several nested ones, for the same work by the same worker.
class TSMPSingleSectionJob : public TNqSMPCountedObject
{
public:
    // The entry is in *outEntry with its first reference and one user.
    static void Create(TSMPSingleSectionJob** outEntry, TSMPSingleSection::ISectionJob& inJob,
                       ISMPJobWorkerThread* inWorkerThread, int32 inThreadID);

    boolean IsExecuted() const { return fExecuted.load(); }
    NqErr GetError() const { return fError; } // once it is executed
    int32 GetUserCount() const { return fCounter; }

private:
    friend class TSMPSingleSection;
    friend class TTaskWrapper;
    friend struct TSMPJobLayout;

    TSMPSingleSectionJob(TSMPSingleSection::ISectionJob& inJob, ISMPJobWorkerThread* inWorkerThread, int32 inThreadID);

    bool BelongsTo(ISMPJobWorkerThread* inWorkerThread) const;
    bool TryStart() { return fStarted.exchange(true) == 0; }

    // Under the section's lock, with the error in place: requesters go on at once.
    void MarkExecuted()
    {
        fJob = nullptr;
        fExecuted = true;
    }

    TNqPtr<TSMPSingleSection::ISectionJob> fJob; // the first requester's; null once executed
    TNqCountedPtr<ISMPJobWorkerThread> fWorkerThread;
    int32 fThreadId; // 0 in the pool
    std::atomic<boolean> fExecuted;
    NqErr fError;
    int32 fCounter;                 // users of this entry
    TNqCountedPtr<ISMPJob> fSMPJob; // the pool job that its task was added to
    TNqCountedPtr<TSMPSingleSectionJob> fNext;
    std::atomic<boolean> fStarted; // somebody has taken it upon himself to run it
};

static_assert(sizeof(std::atomic<boolean>) == sizeof(boolean), "the flags are one byte in every module");

// The task by which an entry runs on the pool.
class TTaskWrapper : public TBasicSMPTask
{
public:
    static void Create(ISMPJobTask** outTask, TSMPSingleSection* inContext, TSMPSingleSectionJob* inJob);

    // Runs the entry, unless somebody has done so already.
    void Execute(ISMPJobTask** outNext) override;

    // Makes the entry executed with this code and lets the next one run.
    void Finish(int32 inCode);

private:
    friend struct TSMPJobLayout;

    TTaskWrapper(TSMPSingleSection* inContext, TSMPSingleSectionJob* inJob) : fContext(inContext), fJob(inJob) {}

    TSMPSingleSection* fContext; // outlives the run of the entry, not this task
    TNqCountedPtr<TSMPSingleSectionJob> fJob;
};
