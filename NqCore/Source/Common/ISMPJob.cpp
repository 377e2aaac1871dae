#include "NqCore/PublicAPI/ISMPJob.h"

#include "NqCore/Include/NqHostLocks.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr int32 kCancelYield = 15; // what a cancel check passes to the host's yield

int32 ClampToInt32(int64 inValue)
{
    constexpr int64 smallest = std::numeric_limits<int32>::min();
    constexpr int64 largest = std::numeric_limits<int32>::max();
    return static_cast<int32>(std::clamp(inValue, smallest, largest));
}

// Truncated, at least 1 and at most what an int32 holds; 1 for a NaN.
int32 ToChunkSize(real64 inValue)
{
    if (!(inValue >= 1))
        return 1;
    constexpr int32 largest = std::numeric_limits<int32>::max();
    return inValue < largest ? static_cast<int32>(inValue) : largest;
}

// How many pieces `inChunksPerWorker` for each worker make.
int32 CountChunks(int32 inChunksPerWorker)
{
    return ClampToInt32(std::max<int64>(0, static_cast<int64>(GetSMPWorkerCount()) * inChunksPerWorker));
}

// Times of long loops times their lengths leave 64 bits: they saturate.
int64 Multiply(int64 a, int64 b)
{
    int64 product;
    if (!__builtin_mul_overflow(a, b, &product))
        return product;
    return (a < 0) == (b < 0) ? std::numeric_limits<int64>::max() : std::numeric_limits<int64>::min();
}

int64 Add(int64 a, int64 b)
{
    int64 sum;
    if (!__builtin_add_overflow(a, b, &sum))
        return sum;
    return a > 0 ? std::numeric_limits<int64>::max() : std::numeric_limits<int64>::min();
}

// Whether `inTotal` time units, given in parts of 1/inDivisor, take longer on one worker than on all of them with the
// overhead of a task.
boolean PaysOff(int64 inTotal, int64 inDivisor)
{
    const int64 workerCount = GetSMPWorkerCount(); // 1 without a pool
    if (workerCount < 2 || inDivisor == 0)
        return false;
    const int64 parallel = inTotal / Multiply(inDivisor, workerCount);
    return inTotal / inDivisor > Add(parallel, GetSMPWorkers()->GetTaskOverhead().GetTime());
}

ISMPJobWorkerThread* GetCurrentWorkerThread()
{
    ISMPJobWorkers* const workers = GetSMPWorkers();
    return workers != nullptr ? workers->GetCurrentWorkerThread() : nullptr;
}

// The calling thread's identity among the threads outside the pool.
int32 GetOutsideThreadID()
{
    return IsInMainSMPProcess() && NqCheck(gShellThreadUtilities) ? gShellThreadUtilities->GetCurrentThreadID() : 0;
}

void YieldThread(int32 inArgument)
{
    if (gShellThreadUtilities != nullptr)
        gShellThreadUtilities->Yield(inArgument);
}

} // namespace

// ---- The pool -------------------------------------------------------------------------------------------------------

ISMPJobWorkers* GetSMPWorkers()
{
    return gShellSMPUtilities != nullptr ? gShellSMPUtilities->GetSMPWorkers() : nullptr;
}

int32 GetSMPWorkerCount()
{
    ISMPJobWorkers* const workers = GetSMPWorkers();
    return workers != nullptr ? Nq_Max(workers->GetWorkerCount(), 1) : 1;
}

int32 GetCurrentSMPWorkerID()
{
    ISMPJobWorkerThread* const thread = GetCurrentWorkerThread();
    return thread != nullptr ? thread->GetWorkerID() : 0;
}

void AddSMPJobTask(ISMPJobTask* inTask)
{
    ISMPJobWorkers* const workers = GetSMPWorkers();
    ISMPJob* const job = workers != nullptr ? workers->GetCurrentJob() : nullptr;
    if (NqCheck(job))
        job->AddTask(inTask);
}

void ThrowIfSMPJobCancelled()
{
    if (gShellUtilities != nullptr && gShellUtilities->IsAbortRequested())
        throw TNqException(kNqErrCancelled, nullptr, 0);
}

void CheckSMPJobCancel()
{
    ThrowIfSMPJobCancelled();
    if (IsInMainSMPProcess())
        YieldThread(kCancelYield);
}

NqErr TBasicSMPTask::QueryInterface(const NqIID& iid, void** outInterface)
{
    return TNqSMPCountedObject::QueryInterface(iid, outInterface);
}

uint32 TBasicSMPTask::AddRef()
{
    return TNqSMPCountedObject::AddRef();
}

uint32 TBasicSMPTask::Release()
{
    return TNqSMPCountedObject::Release();
}

void TBasicSMPTask::Execute(ISMPJobTask**) {}

boolean TBasicSMPTask::CanSpawnTasks()
{
    return false;
}

// ---- Partitioners ---------------------------------------------------------------------------------------------------

int32 TSimplePartitioner::GetMiddle() const
{
    return static_cast<int32>((static_cast<int64>(fStart) + fEnd) / 2);
}

void TSimplePartitioner::Split(TSimplePartitioner& outLeft, TSimplePartitioner& outRight) const
{
    const TSimplePartitioner whole(*this);
    outLeft = whole;
    outRight = whole;
    outLeft.fEnd = whole.GetMiddle();
    outRight.fStart = outLeft.fEnd;
}

boolean TSimplePartitioner::ShouldRunParallel() const
{
    return GetSMPWorkerCount() >= 2 && ShouldSplit();
}

TAutoPartitioner::TAutoPartitioner(int32 inStart, int32 inEnd, int32 inGrain, int32 inChunksPerWorker)
    : TSimplePartitioner(inStart, inEnd, inGrain),
      fChunkCount(CountChunks(inChunksPerWorker))
{
}

void TAutoPartitioner::Split(TAutoPartitioner& outLeft, TAutoPartitioner& outRight) const
{
    const int32 chunks = fChunkCount;
    TSimplePartitioner::Split(outLeft, outRight);
    outLeft.fChunkCount = chunks / 2;
    outRight.fChunkCount = chunks - chunks / 2;
}

boolean TAutoPartitioner::ShouldRunParallel() const
{
    return GetSMPWorkerCount() >= 2 && ShouldSplit();
}

// The first size is computed in single precision, the later ones in double precision: cuts are the same everywhere.
TGuidedPartitioner::TGuidedPartitioner(int32 inStart, int32 inEnd, int32 inGrain, real32 inRatio,
                                       int32 inChunksPerWorker)
    : TSimplePartitioner(inStart, inEnd, inGrain),
      fGuidedGrain(ToChunkSize(inRatio * static_cast<real32>(Size()) / static_cast<real32>(GetSMPWorkerCount()))),
      fChunkCount(CountChunks(inChunksPerWorker)),
      fFinishChunkCount(GetSMPWorkerCount()),
      fSectionNum(0),
      fRatio(inRatio)
{
}

int64 TGuidedPartitioner::GetNextSize() const
{
    const int32 sections = fSectionNum / GetSMPWorkerCount();
    return ToChunkSize(std::pow(1 - static_cast<real64>(fRatio), sections) * fGuidedGrain);
}

void TGuidedPartitioner::Split(TGuidedPartitioner& outLeft, TGuidedPartitioner& outRight) const
{
    const TGuidedPartitioner whole(*this);
    outLeft = whole;
    outRight = whole;
    outLeft.fSectionNum = -1;
    outRight.fSectionNum = whole.fSectionNum + 1;
    if (whole.fChunkCount != 0)
    {
        outLeft.fEnd = static_cast<int32>(std::min<int64>(whole.fStart + whole.GetNextSize(), whole.fEnd));
        outLeft.fChunkCount = 1;
        outLeft.fFinishChunkCount = 0;
        outRight.fChunkCount = whole.fChunkCount - 1;
    }
    else
    {
        outLeft.fEnd = whole.GetMiddle();
        outLeft.fFinishChunkCount = whole.fFinishChunkCount / 2;
        outRight.fFinishChunkCount = whole.fFinishChunkCount - outLeft.fFinishChunkCount;
    }
    outRight.fStart = outLeft.fEnd;
}

boolean TGuidedPartitioner::ShouldRunParallel() const
{
    return GetSMPWorkerCount() >= 2 && TSimplePartitioner::ShouldSplit();
}

// ---- Estimators -----------------------------------------------------------------------------------------------------

namespace
{

constexpr int64 kTimeParts = 256; // an iteration's time is kept in this fraction of a time unit

} // namespace

TFullEstimator::TFullEstimator(int32 inLoopWeight) : fLoopWeight(inLoopWeight), fIterationTime(nullptr) {}

TFullEstimator::TFullEstimator(int32 inLoopWeight, TNqTiming& ioIterationTime)
    : fLoopWeight(inLoopWeight),
      fIterationTime(&ioIterationTime)
{
}

TFullEstimator::~TFullEstimator()
{
    DeleteRun();
}

// A run that failed left its objects behind.
void TFullEstimator::BeginRun(const TRange&)
{
    DeleteRun();
    fTotalTiming = new TSMPJobReduce<SMPReduce::TAdd<TNqTiming>>;
    fTimingTLS = new TSMPJobTLS<TNqTiming>;
    if (fTotalTiming == nullptr || fTimingTLS == nullptr)
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
}

void TFullEstimator::BeginRunBody(const TRange&)
{
    fTimingTLS->Get() = TNqTiming::Now();
}

void TFullEstimator::EndRunBody(const TRange&)
{
    fTotalTiming->Update(TNqTiming::Now() - fTimingTLS->Get());
}

void TFullEstimator::EndRun(const TRange& inRange)
{
    TNqTiming total;
    fTotalTiming->Reduce(total);
    if (fIterationTime != nullptr)
    {
        const int64 iterations = inRange.Size() >= 1 ? Multiply(inRange.Size(), fLoopWeight) : 0;
        const int64 parts = Multiply(total.GetTime(), kTimeParts);
        *fIterationTime = TNqTiming(iterations != 0 ? parts / iterations : 0);
    }
    DeleteRun();
}

boolean TFullEstimator::ShouldRunParallel(const TRange& inRange) const
{
    if (GetSMPWorkerCount() < 2)
        return false;
    if (fIterationTime == nullptr || *fIterationTime == TNqTiming())
        return true;
    return PaysOff(Multiply(Multiply(fLoopWeight, inRange.Size()), fIterationTime->GetTime()), kTimeParts);
}

void TFullEstimator::DeleteRun()
{
    delete static_cast<TSMPJobReduce<SMPReduce::TAdd<TNqTiming>>*>(fTotalTiming);
    delete static_cast<TSMPJobTLS<TNqTiming>*>(fTimingTLS);
    fTotalTiming = nullptr;
    fTimingTLS = nullptr;
}

boolean TPreEstimator::ShouldRunParallel(const TRange& inRange) const
{
    return PaysOff(Multiply(inRange.Size(), fEstimated.GetTime()), fGrain);
}

// ---- The single section ---------------------------------------------------------------------------------------------

namespace
{

// A body that waits for its work runs other bodies meanwhile, which may wait in turn: nested deeper than this it only
// waits, so that the stack stays small.
constexpr int32 kMaxHelpDepth = 16;

thread_local int32 gHelpDepth = 0;

class CWhileHelping
{
public:
    CWhileHelping() { ++gHelpDepth; }
    ~CWhileHelping() { --gHelpDepth; }
    CWhileHelping(const CWhileHelping&) = delete;
    CWhileHelping& operator=(const CWhileHelping&) = delete;
};

class CWhileRunningWork;
thread_local const CWhileRunningWork* gInnermostWork = nullptr;

// The sections whose work the calling thread runs, innermost first.
class CWhileRunningWork
{
public:
    explicit CWhileRunningWork(const TSMPSingleSection& inSection) : fSection(inSection), fOuter(gInnermostWork)
    {
        gInnermostWork = this;
    }
    ~CWhileRunningWork() { gInnermostWork = fOuter; }
    CWhileRunningWork(const CWhileRunningWork&) = delete;
    CWhileRunningWork& operator=(const CWhileRunningWork&) = delete;

    static bool IsRunning(const TSMPSingleSection& inSection)
    {
        const CWhileRunningWork* work = gInnermostWork;
        while (work != nullptr && &work->fSection != &inSection)
            work = work->fOuter;
        return work != nullptr;
    }

private:
    const TSMPSingleSection& fSection;
    const CWhileRunningWork* const fOuter;
};

} // namespace

TSMPSingleSectionJob::TSMPSingleSectionJob(TSMPSingleSection::ISectionJob& inJob, ISMPJobWorkerThread* inWorkerThread,
                                           int32 inThreadID)
    : fJob(&inJob),
      fWorkerThread(inWorkerThread),
      fThreadId(inThreadID),
      fExecuted(false),
      fError(kNqNoErr),
      fCounter(1),
      fStarted(false)
{
}

void TSMPSingleSectionJob::Create(TSMPSingleSectionJob** outEntry, TSMPSingleSection::ISectionJob& inJob,
                                  ISMPJobWorkerThread* inWorkerThread, int32 inThreadID)
{
    TNqCountedCreateHelper<TSMPSingleSectionJob>{outEntry} =
        new TSMPSingleSectionJob(inJob, inWorkerThread, inThreadID);
}

// Null belongs to the pool's outside only.
bool TSMPSingleSectionJob::BelongsTo(ISMPJobWorkerThread* inWorkerThread) const
{
    ISMPJobWorkerThread* const own = fWorkerThread;
    return own != nullptr && inWorkerThread != nullptr && own->GetWorkerID() == inWorkerThread->GetWorkerID();
}

TSMPSingleSection::TSMPSingleSection()
    : fMainThreadInside(false),
      fWait(NewSemaphore(1, 1)),
      fRunCount(NqNewZeroCounter())
{
    if (fCS.GetCS() == nullptr || fWait == nullptr || fRunCount == nullptr)
    {
        FreeResources();
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    }
}

// Whoever ran the last entry may still be about to signal: its signal is taken first.
TSMPSingleSection::~TSMPSingleSection()
{
    NqCheck(!fFirstJob);
    WaitForSemaphore(fWait, -1);
    FreeResources();
}

void TSMPSingleSection::FreeResources()
{
    NqDeleteSemaphore(fWait);
    NqDeleteCounter(fRunCount);
}

TSMPSingleSectionJob* TSMPSingleSection::GetSectionJob(ISectionJob& inJob, ISMPJobWorkerThread* inWorkerThread,
                                                       int32 inThreadID)
{
    const CWhileInSafeCS lock(fCS);
    TSMPSingleSectionJob** link = &fFirstJob;
    for (; *link != nullptr; link = &(*link)->fNext)
    {
        TSMPSingleSectionJob& entry = **link;
        const bool isOwn = inWorkerThread != nullptr ? entry.BelongsTo(inWorkerThread)
                                                     : entry.fWorkerThread == nullptr && entry.fThreadId == inThreadID;
        if (isOwn && !entry.IsExecuted() && entry.fJob->IsEqual(inJob))
        {
            ++entry.fCounter;
            return &entry;
        }
    }
    TSMPSingleSectionJob::Create(link, inJob, inWorkerThread, inThreadID);
    return *link;
}

void TSMPSingleSection::ReleaseSectionJob(TSMPSingleSectionJob* inEntry)
{
    const CWhileInSafeCS lock(fCS);
    if (--inEntry->fCounter != 0)
        return;
    TSMPSingleSectionJob** link = &fFirstJob;
    while (*link != nullptr && *link != inEntry)
        link = &(*link)->fNext;
    if (*link != nullptr)
        TNqCountedPtr<TSMPSingleSectionJob>::Assign(link, inEntry->fNext);
}

void TSMPSingleSection::InternalExecute(ISectionJob& inJob)
{
    if (CWhileRunningWork::IsRunning(*this))
        throw TNqException(kNqErrSection, NqSourcePath(__FILE__), __LINE__);
    TSMPSingleSectionJob* const entry = GetSectionJob(inJob, GetCurrentWorkerThread(), GetOutsideThreadID());
    try
    {
        while (!entry->IsExecuted())
            TakeStep(*entry);
    }
    catch (...)
    {
        Abandon(*entry, inJob);
        ReleaseSectionJob(entry);
        throw;
    }
    const NqErr error = entry->GetError();
    ReleaseSectionJob(entry);
    if (error != kNqNoErr)
        throw TNqException(error, NqSourcePath(__FILE__), __LINE__);
}

void TSMPSingleSection::TakeStep(TSMPSingleSectionJob& inEntry)
{
    TNqCountedPtr<TSMPSingleSectionJob> running;
    switch (ChooseStep(inEntry, running))
    {
    case kRunHere:
        RunHere(inEntry);
        break;
    case kHelp:
        Help(inEntry, *running);
        break;
    case kWait:
        WaitForTurn();
        break;
    }
}

// The order of the list decides whose turn it is. A worker starts any entry of its own.
TSMPSingleSection::EStep TSMPSingleSection::ChooseStep(TSMPSingleSectionJob& inEntry,
                                                       TNqCountedPtr<TSMPSingleSectionJob>& outRunning)
{
    ISMPJobWorkerThread* const worker = GetCurrentWorkerThread();
    const CWhileInSafeCS lock(fCS);
    if (!fRunningJob && !fMainThreadInside)
    {
        TSMPSingleSectionJob* const first = FindFirstWaiting();
        if (first != nullptr && first->BelongsTo(worker))
        {
            StartOnPool(*first);
        }
        else if (first == &inEntry && worker == nullptr)
        {
            fMainThreadInside = true;
            inEntry.fStarted = true;
            return kRunHere;
        }
    }
    if (!fRunningJob || !fRunningJob->BelongsTo(worker))
        return kWait;
    outRunning = fRunningJob;
    return kHelp;
}

TSMPSingleSectionJob* TSMPSingleSection::FindFirstWaiting() const
{
    TSMPSingleSectionJob* entry = fFirstJob;
    while (entry != nullptr && entry->IsExecuted())
        entry = entry->fNext;
    return entry;
}

// Under the lock. A worker that runs no task of a job runs the entry itself, in Help.
void TSMPSingleSection::StartOnPool(TSMPSingleSectionJob& inEntry)
{
    ISMPJob* const job = GetSMPWorkers()->GetCurrentJob();
    if (NqCheck(job))
    {
        TNqCountedPtr<ISMPJobTask> task;
        TTaskWrapper::Create(&task, this, &inEntry);
        job->AddTask(task);
    }
    inEntry.fSMPJob = job;
    fRunningJob = &inEntry;
}

// The entry's task is in the queue of its pool job, unless another worker has taken it, or the job has failed and
// dropped it, or this thread may run no other task now: then the thread runs the entry without its task.
//
// Other bodies are run only by a request that has its turn. A body may wait for other workers, a loop's say, which may
// wait for this section: a request below it whose turn is yet to come, and which nobody else starts, would stop them.
void TSMPSingleSection::Help(const TSMPSingleSectionJob& inEntry, TSMPSingleSectionJob& inRunning)
{
    ISMPJob* const job = inRunning.fSMPJob;
    if (job != nullptr && &inRunning == &inEntry && gHelpDepth < kMaxHelpDepth)
    {
        const CWhileHelping helping;
        if (job->RunPendingWork())
            return;
    }
    if (inRunning.TryStart())
        RunStarted(inRunning);
    else if (!inRunning.IsExecuted())
        WaitForTurn();
}

void TSMPSingleSection::WaitForTurn()
{
    if (IsInMainSMPProcess())
    {
        YieldThread(0);
        return;
    }
    if (WaitForSemaphore(fWait, 0) == kNqNoErr)
    {
        // Nobody runs on the pool: between two runs, or an entry runs outside it.
        SignalSemaphore(fWait);
        YieldThread(0);
    }
    else if (WaitForSemaphore(fWait, -1) == kNqNoErr)
    {
        SignalSemaphore(fWait);
    }
}

void TSMPSingleSection::RunHere(TSMPSingleSectionJob& inEntry)
{
    NqCheck(IncrementAtomicCounter(fRunCount) == 1);
    const int32 code = RunWork(inEntry);
    DecrementAtomicCounter(fRunCount);

    const CWhileInSafeCS lock(fCS);
    inEntry.fError = code;
    inEntry.MarkExecuted();
    fMainThreadInside = false;
}

void TSMPSingleSection::RunStarted(TSMPSingleSectionJob& inEntry)
{
    NqCheckText(IncrementAtomicCounter(fRunCount) == 1, "IncrementAtomicCounter(fContext->fRunCount) == 1");
    WaitForSemaphore(fWait, -1);
    Finish(inEntry, RunWork(inEntry));
}

int32 TSMPSingleSection::RunWork(TSMPSingleSectionJob& inEntry) const
{
    const CWhileRunningWork running(*this);
    try
    {
        inEntry.fJob->Run();
        return kNqNoErr;
    }
    catch (const TNqException& error)
    {
        return error.GetError();
    }
    catch (...)
    {
        return kNqErrUnknown;
    }
}

// Once the entry is executed its requesters go on, and may delete the section: the destructor takes the signal, which
// therefore comes last.
void TSMPSingleSection::Finish(TSMPSingleSectionJob& inEntry, int32 inCode)
{
    DecrementAtomicCounter(fRunCount);
    {
        const CWhileInSafeCS lock(fCS);
        inEntry.fError = inCode;
        inEntry.MarkExecuted();
        fRunningJob = nullptr;
    }
    SignalSemaphore(fWait);
}

// The request ends early, for want of memory or because the pool threw. If the work is its own and not executed, nobody
// may run it from now on; who runs it already is waited for.
void TSMPSingleSection::Abandon(TSMPSingleSectionJob& inEntry, const ISectionJob& inJob)
{
    {
        const CWhileInSafeCS lock(fCS);
        const ISectionJob* const job = inEntry.fJob;
        if (job != &inJob)
            return;
        if (inEntry.TryStart())
        {
            inEntry.MarkExecuted();
            if (fRunningJob == &inEntry)
                fRunningJob = nullptr;
            return;
        }
    }
    while (!inEntry.IsExecuted())
        WaitForTurn();
}

void TTaskWrapper::Create(ISMPJobTask** outTask, TSMPSingleSection* inContext, TSMPSingleSectionJob* inJob)
{
    TNqCountedCreateHelper<ISMPJobTask>{outTask} = new TTaskWrapper(inContext, inJob);
}

void TTaskWrapper::Execute(ISMPJobTask**)
{
    if (fJob->TryStart())
        fContext->RunStarted(*fJob);
}

void TTaskWrapper::Finish(int32 inCode)
{
    fContext->Finish(*fJob, inCode);
}
