// The worker pool: jobs, their queues, and who runs what.
//
// A job has one queue for each worker. A thread puts the tasks that it adds into its own queue and takes the newest of
// them first; a thread that finds its own queue empty takes the oldest task of another, which tends to be the largest
// piece of work. The thread that waits for a job runs its tasks, as worker 0 or, when it belongs to the pool itself, as
// the worker that it is. Threads of the pool come to help when a job asks for them and leave when they find no task,
// after a moment in which the next job may ask: a job that nobody helps is run by the one who waits, so that no job
// ever needs a second thread.

#include "NqCore/PublicAPI/ISMPJob.h"
#include "NqCore/PublicAPI/NqSMP.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqHost/Source/NqHostInternal.h"
#include "NqHost/Source/PoolThreads.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

namespace
{

constexpr size_t kCacheLine = 64;
constexpr int64 kTaskOverhead = 2000; // ns
constexpr int32 kMaxWorkerCount = 256;

class TJob;
class TPool;

// What an object answers that has no face but the root's.
NqErr AnswerQuery(INqUnknown& inObject, const NqIID& iid, void** outInterface)
{
    const bool isRoot = NqInlineIsEqualGUID(iid, IID_INqUnknown);
    TNqCountedGetHelper<INqUnknown>{reinterpret_cast<INqUnknown**>(outInterface)} = isRoot ? &inObject : nullptr;
    return isRoot ? kNqNoErr : kNqNoInterface;
}

// What the calling thread does for the pool.
struct TThreadState
{
    ISMPJobWorkerThread* fWorker = nullptr; // null outside the pool
    int32 fWorkerID = 0;
    TJob* fJob = nullptr;          // whose task it runs
    uint64 fExclusiveTask = 0;     // the innermost task it runs that cannot spawn others; 0 for none
    uint64 fLastExclusiveTask = 0; // unique among all threads
};

thread_local TThreadState tThread;

uint64 NewExclusiveTaskID()
{
    static std::atomic<uint64> sThreadCount{0};
    if (tThread.fLastExclusiveTask == 0)
        tThread.fLastExclusiveTask = (sThreadCount.fetch_add(1) + 1) << 40;
    return ++tThread.fLastExclusiveTask;
}

// Marks the calling thread as running a task.
class CWhileRunningTask
{
public:
    CWhileRunningTask(TJob& inJob, bool inIsExclusive) : fOuterJob(tThread.fJob), fOuterTask(tThread.fExclusiveTask)
    {
        tThread.fJob = &inJob;
        if (inIsExclusive)
            tThread.fExclusiveTask = NewExclusiveTaskID();
    }
    ~CWhileRunningTask()
    {
        tThread.fJob = fOuterJob;
        tThread.fExclusiveTask = fOuterTask;
    }
    CWhileRunningTask(const CWhileRunningTask&) = delete;
    CWhileRunningTask& operator=(const CWhileRunningTask&) = delete;

private:
    TJob* const fOuterJob;
    const uint64 fOuterTask;
};

// Gives the calling thread the abort flag of the job that it works for.
class CWhileCarryingAbortFlag
{
public:
    explicit CWhileCarryingAbortFlag(const TNqAbortFlag* inFlag) : fOuterFlag(NqHostGetAbortFlag())
    {
        NqHostSetAbortFlag(inFlag);
    }
    ~CWhileCarryingAbortFlag() { NqHostSetAbortFlag(fOuterFlag); }
    CWhileCarryingAbortFlag(const CWhileCarryingAbortFlag&) = delete;
    CWhileCarryingAbortFlag& operator=(const CWhileCarryingAbortFlag&) = delete;

private:
    const TNqAbortFlag* const fOuterFlag;
};

// Waits a little longer each time, without leaving the processor at first.
class TBackoff
{
public:
    explicit TBackoff(int32 inYields) : fYields(inYields) {}

    // False when it has been long enough.
    bool Pause()
    {
        if (fSpins > 0)
        {
            --fSpins;
            PauseProcessor();
        }
        else if (fYields > 0)
        {
            --fYields;
            std::this_thread::yield();
        }
        else
        {
            return false;
        }
        return true;
    }

private:
    static void PauseProcessor()
    {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }

    int32 fSpins = 64;
    int32 fYields;
};

// Held for a few instructions only: a std::mutex would cost more than what it guards.
class TSpinLock
{
public:
    void lock()
    {
        while (fTaken.exchange(true, std::memory_order_acquire))
        {
            TBackoff backoff(std::numeric_limits<int32>::max());
            while (fTaken.load(std::memory_order_relaxed))
                backoff.Pause();
        }
    }
    void unlock() { fTaken.store(false, std::memory_order_release); }

private:
    std::atomic<bool> fTaken{false};
};

// One worker's tasks of one job. A ring that grows; the first entries are in place.
class alignas(kCacheLine) TTaskQueue
{
public:
    TTaskQueue() = default;
    TTaskQueue(const TTaskQueue&) = delete;
    TTaskQueue& operator=(const TTaskQueue&) = delete;
    ~TTaskQueue()
    {
        if (fTasks != fFirstTasks)
            NqHostFree(fTasks);
    }

    // False without memory.
    bool Push(ISMPJobTask* inTask)
    {
        const std::lock_guard<TSpinLock> locked(fLock);
        if (fCount == fCapacity && !Grow())
            return false;
        At(fCount) = inTask;
        SetCount(fCount + 1);
        return true;
    }

    // Null when there is none.
    ISMPJobTask* PopNewest()
    {
        if (LooksEmpty())
            return nullptr;
        const std::lock_guard<TSpinLock> locked(fLock);
        if (fCount == 0)
            return nullptr;
        SetCount(fCount - 1);
        return At(fCount);
    }

    ISMPJobTask* PopOldest()
    {
        if (LooksEmpty())
            return nullptr;
        const std::lock_guard<TSpinLock> locked(fLock);
        if (fCount == 0)
            return nullptr;
        ISMPJobTask* const task = At(0);
        fFirst = (fFirst + 1) & (fCapacity - 1);
        SetCount(fCount - 1);
        return task;
    }

    // A hint, without the lock. A thread sees at least its own pushes.
    bool LooksEmpty() const { return fVisibleCount.load(std::memory_order_relaxed) == 0; }

    bool IsEmpty()
    {
        const std::lock_guard<TSpinLock> locked(fLock);
        return fCount == 0;
    }

private:
    static constexpr uint32 kFirstCapacity = 32; // a power of two, as every capacity

    ISMPJobTask*& At(uint32 inPosition) { return fTasks[(fFirst + inPosition) & (fCapacity - 1)]; }

    void SetCount(uint32 inCount)
    {
        fCount = inCount;
        fVisibleCount.store(inCount, std::memory_order_relaxed);
    }

    bool Grow()
    {
        const uint32 capacity = fCapacity * 2;
        ISMPJobTask** const tasks =
            static_cast<ISMPJobTask**>(NqHostAllocate(static_cast<unsigned long>(capacity) * sizeof(void*)));
        if (tasks == nullptr)
            return false;
        for (uint32 i = 0; i < fCount; ++i)
            tasks[i] = At(i);
        if (fTasks != fFirstTasks)
            NqHostFree(fTasks);
        fTasks = tasks;
        fFirst = 0;
        fCapacity = capacity;
        return true;
    }

    TSpinLock fLock;
    uint32 fFirst = 0; // position of the oldest task
    uint32 fCount = 0;
    uint32 fCapacity = kFirstCapacity;
    std::atomic<uint32> fVisibleCount{0}; // fCount, for those who look without the lock
    ISMPJobTask** fTasks = fFirstTasks;
    ISMPJobTask* fFirstTasks[kFirstCapacity];
};

class TJob final : public ISMPJob
{
public:
    static TJob* Make(TPool& inPool);
    ~TJob();

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return fRefCount.fetch_add(1) + 1; }
    bool AddRefUnlessDying();
    uint32 Release() override;
    void AddTask(ISMPJobTask* inTask) override;
    boolean RunPendingWork() override;
    void Wait() override;

    // The whole visit of a thread of the pool that comes to help. Gives up the helper's reference.
    void Serve(ISMPJobWorkerThread& inWorker);

private:
    friend class TPool;

    // Threads that run tasks of this job in the low half, how often one began to in the high half.
    static constexpr uint64 kOneRunning = 1;
    static constexpr uint64 kOneBeginning = (uint64(1) << 32) | kOneRunning;
    static uint32 CountRunning(uint64 inActivity) { return static_cast<uint32>(inActivity); }

    // A thread counts as running before it takes a task and until it has released the last one.
    class CWhileRunning
    {
    public:
        explicit CWhileRunning(TJob& inJob) : fJob(inJob), fFlag(inJob.fAbortFlag)
        {
            fJob.fActivity.fetch_add(kOneBeginning);
        }
        ~CWhileRunning() { fJob.EndRunning(); }
        CWhileRunning(const CWhileRunning&) = delete;
        CWhileRunning& operator=(const CWhileRunning&) = delete;

    private:
        TJob& fJob;
        const CWhileCarryingAbortFlag fFlag;
    };

    TJob(TPool& inPool, TTaskQueue* inQueues, int32 inQueueCount)
        : fPool(inPool),
          fQueues(inQueues),
          fQueueCount(inQueueCount),
          fMaker(tThread.fExclusiveTask),
          fAbortFlag(NqHostGetAbortFlag())
    {
    }

    bool MayRunHere() const { return tThread.fExclusiveTask == 0 || tThread.fExclusiveTask == fMaker; }
    ISMPJobTask* Take();
    void Run(ISMPJobTask* inTask);
    ISMPJobTask* RunOne(ISMPJobTask* inTask);
    void RunAll();
    void EndRunning();
    void Fail(const std::exception_ptr& inError);
    bool LooksEmpty() const;
    bool IsEmpty() const;
    bool IsDone() const;
    bool SpinForTasks(int32 inYields) const;
    void Sleep(bool inMayRun);
    void WakeSleepers();
    void CallHelp();
    void WithdrawCalls();
    bool BecomeHelper();
    void Help();

    TPool& fPool;
    TTaskQueue* const fQueues; // behind this object, one for each worker
    const int32 fQueueCount;
    const uint64 fMaker;                  // the task that cannot spawn others in which the job was made
    const TNqAbortFlag* const fAbortFlag; // of the thread that made the job
    std::atomic<uint32> fRefCount{1};
    std::atomic<int32> fHelpers{0};  // threads of the pool that help, each with a reference, or were asked to
    std::atomic<int32> fSleepers{0}; // waiting threads that sleep or are about to
    std::atomic<bool> fFailed{false};
    std::mutex fMutex; // guards fError, and the step into sleep
    std::condition_variable fWake;
    std::exception_ptr fError; // the first
    // Of the pool's list, and changed by the pool alone.
    std::atomic<int32> fAskedFor{0}; // helpers; in the list while there are any
    TJob* fPreviousAsking = nullptr;
    TJob* fNextAsking = nullptr;
    alignas(kCacheLine) std::atomic<uint64> fActivity{0};
};

// An object that lives as long as the pool, whoever holds it.
template <class I>
class THostOwned : public I
{
public:
    NqErr QueryInterface(const NqIID& iid, void** outInterface) override
    {
        return AnswerQuery(*this, iid, outInterface);
    }
    uint32 AddRef() override { return 1; }
    uint32 Release() override { return 1; }
};

class TWorkerThread final : public THostOwned<ISMPJobWorkerThread>
{
public:
    int32 GetWorkerID() override { return fWorkerID; }

    int32 fWorkerID = 0;
};

class TPool final : public THostOwned<ISMPJobWorkers>
{
public:
    explicit TPool(int32 inWorkerCount);
    ~TPool();

    int32 GetWorkerCount() override { return fWorkerCount; }
    TNqTiming GetTaskOverhead() override { return TNqTiming(kTaskOverhead); }
    ISMPJobWorkerThread* GetCurrentWorkerThread() override { return tThread.fWorker; }
    ISMPJob* GetCurrentJob() override { return tThread.fJob; }
    void CreateJob(ISMPJob** outJob) override;

    // Threads that may help: W - 1, or as many as the system gave once they were started.
    int32 GetThreadCount() const { return fThreadCount.load(std::memory_order_relaxed); }

    // Has one more thread of the pool help the job, unless the job withdraws first. False: none will come.
    bool AskFor(TJob& inJob);

    // Nobody comes any more who has not yet. Returns how many threads that were.
    int32 Withdraw(TJob& inJob);

    // In a child process, which has none of its parent's threads.
    void ForgetThreads();

private:
    static void RunThread(void* inPool, int32 inWorkerID);
    void StartThreads();
    bool NoteAsking(TJob& inJob);
    void ChangeAsks(TJob& inJob, int32 inChange);
    TJob* TakeAskingJob();
    TJob* AwaitAskingJob();
    bool IsDeserted();

    const int32 fWorkerCount;
    std::atomic<int32> fThreadCount;
    TWorkerThread fWorkers[kMaxWorkerCount];

    TSpinLock fLock; // guards what follows
    TJob* fFirstAsking = nullptr;
    TJob* fLastAsking = nullptr;
    std::atomic<int32> fAsks{0}; // of all jobs, for helpers
    int32 fExpected = 0;         // threads called that have not come yet
    int32 fPresent = 0;          // those that have, and have not left
    int32 fIdle = 0;             // those of them that look out for a job

    std::atomic<bool> fIsStopping{false};
    std::once_flag fStartOnce;
    std::unique_ptr<TPoolThreads> fThreads; // started by the first call
};

TPool* gPool = nullptr;
bool gThreadsAreLost = false; // this is the child of a process that had some

// ---- Jobs -----------------------------------------------------------------------------------------------------------

TJob* TJob::Make(TPool& inPool)
{
    const int32 count = inPool.GetWorkerCount();
    static_assert(sizeof(TJob) % alignof(TTaskQueue) == 0, "the queues stand behind the job");
    void* const block =
        NqHostAllocateAligned(sizeof(TJob) + static_cast<size_t>(count) * sizeof(TTaskQueue), kCacheLine);
    if (block == nullptr)
        return nullptr;
    TTaskQueue* const queues = reinterpret_cast<TTaskQueue*>(static_cast<char*>(block) + sizeof(TJob));
    for (int32 i = 0; i < count; ++i)
        new (queues + i) TTaskQueue;
    return new (block) TJob(inPool, queues, count);
}

// Nobody waited: what is left is dropped.
TJob::~TJob()
{
    WithdrawCalls();
    while (ISMPJobTask* task = Take())
        task->Release();
    std::destroy_n(fQueues, fQueueCount);
}

NqErr TJob::QueryInterface(const NqIID& iid, void** outInterface)
{
    return AnswerQuery(*this, iid, outInterface);
}

bool TJob::AddRefUnlessDying()
{
    uint32 count = fRefCount.load();
    while (count != 0)
    {
        if (fRefCount.compare_exchange_weak(count, count + 1))
            return true;
    }
    return false;
}

uint32 TJob::Release()
{
    const uint32 count = fRefCount.fetch_sub(1) - 1;
    if (count == 0)
        NqHostDelete(this);
    return count;
}

void TJob::AddTask(ISMPJobTask* inTask)
{
    if (!NqCheck(inTask))
        return;
    inTask->AddRef();
    if (!fQueues[tThread.fWorkerID].Push(inTask))
    {
        inTask->Release();
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    }
    // Whoever looked into the queue before the push has told us of it: its lock orders the two.
    if (fSleepers.load(std::memory_order_relaxed) != 0)
        WakeSleepers();
    if (fHelpers.load(std::memory_order_relaxed) < fPool.GetThreadCount())
        CallHelp();
}

boolean TJob::RunPendingWork()
{
    if (!MayRunHere())
        return false;
    const CWhileRunning running(*this);
    ISMPJobTask* const task = Take();
    if (task == nullptr)
        return false;
    Run(task);
    return true;
}

void TJob::Wait()
{
    constexpr int32 yields = 100;
    const bool mayRun = MayRunHere();
    for (;;)
    {
        if (mayRun)
            RunAll();
        if (IsDone())
            break;
        if (!mayRun || !SpinForTasks(yields))
            Sleep(mayRun);
    }
    WithdrawCalls();
    std::exception_ptr error;
    {
        const std::lock_guard<std::mutex> lock(fMutex);
        std::swap(error, fError);
        fFailed = false;
    }
    if (error != nullptr)
        std::rethrow_exception(error);
}

void TJob::Serve(ISMPJobWorkerThread& inWorker)
{
    tThread.fWorker = &inWorker;
    tThread.fWorkerID = inWorker.GetWorkerID();
    NqHostMarkPoolThread(true);
    SetupSmpThreadLocalStorage();
    Help();
    NqHostMarkPoolThread(false);
    tThread.fWorker = nullptr;
    tThread.fWorkerID = 0;
    Release();
}

// A helper that leaves looks once more: a task that was added while it still counted has called nobody else.
void TJob::Help()
{
    constexpr int32 yields = 16;
    do
    {
        do
        {
            RunAll();
        } while (SpinForTasks(yields));
        fHelpers.fetch_sub(1);
    } while (!IsEmpty() && BecomeHelper());
}

ISMPJobTask* TJob::Take()
{
    const int32 own = tThread.fWorkerID;
    ISMPJobTask* task = fQueues[own].PopNewest();
    for (int32 i = own + 1; task == nullptr && i < fQueueCount; ++i)
        task = fQueues[i].PopOldest();
    for (int32 i = 0; task == nullptr && i < own; ++i)
        task = fQueues[i].PopOldest();
    return task;
}

// Runs a task and those that it hands back, each in turn.
void TJob::Run(ISMPJobTask* inTask)
{
    for (ISMPJobTask* task = inTask; task != nullptr;)
        task = RunOne(task);
}

ISMPJobTask* TJob::RunOne(ISMPJobTask* inTask)
{
    ISMPJobTask* next = nullptr;
    if (!fFailed.load(std::memory_order_relaxed))
    {
        try
        {
            const CWhileRunningTask running(*this, !inTask->CanSpawnTasks());
            inTask->Execute(&next);
        }
        catch (...)
        {
            Fail(std::current_exception());
        }
    }
    inTask->Release();
    return next;
}

void TJob::RunAll()
{
    const CWhileRunning running(*this);
    while (ISMPJobTask* task = Take())
        Run(task);
}

void TJob::EndRunning()
{
    const uint64 activity = fActivity.fetch_sub(kOneRunning);
    if (CountRunning(activity) == 1 && fSleepers.load() != 0)
        WakeSleepers();
}

void TJob::Fail(const std::exception_ptr& inError)
{
    const std::lock_guard<std::mutex> lock(fMutex);
    if (fError == nullptr)
        fError = inError;
    fFailed = true;
}

bool TJob::LooksEmpty() const
{
    return std::all_of(fQueues, fQueues + fQueueCount, [](const TTaskQueue& queue) { return queue.LooksEmpty(); });
}

bool TJob::IsEmpty() const
{
    return std::all_of(fQueues, fQueues + fQueueCount, [](TTaskQueue& queue) { return queue.IsEmpty(); });
}

// Nobody ran when we looked into the queues, and nobody has begun meanwhile: what they held, they still hold.
bool TJob::IsDone() const
{
    const uint64 activity = fActivity.load();
    return CountRunning(activity) == 0 && IsEmpty() && fActivity.load() == activity;
}

// Waits shortly for a task as long as others may add one. False: none in sight.
bool TJob::SpinForTasks(int32 inYields) const
{
    TBackoff backoff(inYields);
    do
    {
        if (!LooksEmpty())
            return true;
        if (CountRunning(fActivity.load(std::memory_order_relaxed)) == 0)
            return false;
    } while (backoff.Pause());
    return false;
}

void TJob::Sleep(bool inMayRun)
{
    std::unique_lock<std::mutex> lock(fMutex);
    ++fSleepers;
    fWake.wait(lock, [this, inMayRun] { return IsDone() || (inMayRun && !IsEmpty()); });
    --fSleepers;
}

void TJob::WakeSleepers()
{
    const std::lock_guard<std::mutex> lock(fMutex);
    fWake.notify_all();
}

void TJob::CallHelp()
{
    if (BecomeHelper() && !fPool.AskFor(*this))
        fHelpers.fetch_sub(1);
}

void TJob::WithdrawCalls()
{
    if (fAskedFor.load(std::memory_order_relaxed) != 0)
        fHelpers.fetch_sub(fPool.Withdraw(*this));
}

bool TJob::BecomeHelper()
{
    int32 helpers = fHelpers.load();
    while (helpers < fPool.GetThreadCount())
    {
        if (fHelpers.compare_exchange_weak(helpers, helpers + 1))
            return true;
    }
    return false;
}

// ---- The pool -------------------------------------------------------------------------------------------------------

TPool::TPool(int32 inWorkerCount) : fWorkerCount(inWorkerCount), fThreadCount(inWorkerCount - 1)
{
    for (int32 i = 0; i < kMaxWorkerCount; ++i)
        fWorkers[i].fWorkerID = i;
}

TPool::~TPool()
{
    fIsStopping = true;
    while (!IsDeserted())
        std::this_thread::yield();
}

bool TPool::IsDeserted()
{
    const std::lock_guard<TSpinLock> locked(fLock);
    return fExpected == 0 && fPresent == 0;
}

void TPool::CreateJob(ISMPJob** outJob)
{
    TNqCountedCreateHelper<ISMPJob>{outJob} = TJob::Make(*this);
}

// The arena is left as it is: it would wait for threads that do not exist, and so would a new one.
void TPool::ForgetThreads()
{
    if (fThreads == nullptr)
        return;
    gThreadsAreLost = true;
    (void)fThreads.release();
    fThreadCount = 0;
    fLock.unlock(); // a thread that is lost may have held it, and been about to change the list
    fFirstAsking = nullptr;
    fLastAsking = nullptr;
    fAsks = 0;
    fExpected = 0;
    fPresent = 0;
    fIdle = 0;
}

// Programs that never run a loop have no threads.
void TPool::StartThreads()
{
    if (!gThreadsAreLost)
        fThreads = TPoolThreads::Make(fWorkerCount);
    fThreadCount = fThreads != nullptr ? fThreads->GetCount() : 0;
}

// Calling a thread through oneTBB takes longer than a small loop. So threads stay for a moment, and one is called only
// when those that are idle or on their way do not suffice.
bool TPool::AskFor(TJob& inJob)
{
    std::call_once(fStartOnce, [this] { StartThreads(); });
    if (fThreads == nullptr)
        return false;
    if (!NoteAsking(inJob) || fThreads->Call(RunThread, this))
        return true;
    const std::lock_guard<TSpinLock> locked(fLock);
    --fExpected;
    if (inJob.fAskedFor == 0)
        return true; // a thread that was here has come
    ChangeAsks(inJob, -1);
    return false;
}

// Whether a thread is to be called.
bool TPool::NoteAsking(TJob& inJob)
{
    const std::lock_guard<TSpinLock> locked(fLock);
    ChangeAsks(inJob, 1);
    if (fAsks <= fExpected + fIdle || fExpected + fPresent >= GetThreadCount())
        return false;
    ++fExpected;
    return true;
}

// Under the lock. Jobs stand in the list in the order in which they came to ask.
void TPool::ChangeAsks(TJob& inJob, int32 inChange)
{
    const int32 before = inJob.fAskedFor;
    fAsks = fAsks + inChange;
    if (before == 0)
    {
        inJob.fPreviousAsking = fLastAsking;
        inJob.fNextAsking = nullptr;
        (fLastAsking != nullptr ? fLastAsking->fNextAsking : fFirstAsking) = &inJob;
        fLastAsking = &inJob;
    }
    else if (before + inChange == 0)
    {
        TJob* const previous = inJob.fPreviousAsking;
        TJob* const next = inJob.fNextAsking;
        (previous != nullptr ? previous->fNextAsking : fFirstAsking) = next;
        (next != nullptr ? next->fPreviousAsking : fLastAsking) = previous;
    }
    inJob.fAskedFor = before + inChange;
}

int32 TPool::Withdraw(TJob& inJob)
{
    if (fThreads == nullptr)
        return 0; // forgotten, and the list with them
    const std::lock_guard<TSpinLock> locked(fLock);
    const int32 asks = inJob.fAskedFor;
    if (asks != 0)
        ChangeAsks(inJob, -asks);
    return asks;
}

// Under the lock. A job that dies waits for the lock to leave the list; its last reference is gone.
TJob* TPool::TakeAskingJob()
{
    TJob* job = fFirstAsking;
    while (job != nullptr && !job->AddRefUnlessDying())
        job = job->fNextAsking;
    if (job != nullptr)
        ChangeAsks(*job, -1);
    return job;
}

// Null: no job has asked for a moment, and the thread counts as gone.
TJob* TPool::AwaitAskingJob()
{
    constexpr int32 yields = 100;
    std::unique_lock<TSpinLock> locked(fLock);
    TJob* job = TakeAskingJob();
    if (job == nullptr)
    {
        ++fIdle;
        locked.unlock();
        TBackoff backoff(yields);
        while (fAsks.load(std::memory_order_relaxed) == 0 && !fIsStopping.load() && backoff.Pause())
        {
        }
        locked.lock();
        --fIdle;
        job = TakeAskingJob();
    }
    if (job == nullptr)
        --fPresent;
    return job;
}

// A thread that is in a task of the pool already, and got here through a wait of oneTBB in that task, goes back to it:
// the job is finished by whoever waits for it. oneTBB has handed the pool to this thread in the right order, but
// sanitizers do not see inside it: they see the counter.
void TPool::RunThread(void* inPool, int32 inWorkerID)
{
    TPool& pool = *static_cast<TPool*>(inPool);
    pool.fAsks.load();
    const bool isFree = tThread.fWorker == nullptr;
    {
        const std::lock_guard<TSpinLock> locked(pool.fLock);
        --pool.fExpected;
        pool.fPresent += isFree ? 1 : 0;
    }
    if (!isFree)
        return;
    while (TJob* job = pool.AwaitAskingJob())
        job->Serve(pool.fWorkers[inWorkerID]);
}

} // namespace

ISMPJobWorkers* NqHostGetPool()
{
    return gPool;
}

void NqHostStartPool(int32 inWorkerCount)
{
    static const int sRegistered = pthread_atfork(nullptr, nullptr,
                                                  []
                                                  {
                                                      if (gPool != nullptr)
                                                          gPool->ForgetThreads();
                                                  });
    (void)sRegistered;
    gPool = NqHostNew<TPool>(std::clamp(inWorkerCount, 1, kMaxWorkerCount));
}

void NqHostStopPool()
{
    NqHostDelete(gPool);
    gPool = nullptr;
}
