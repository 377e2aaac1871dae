// Loops, locks, thread storage and counted objects beside oneTBB and the standard library.
//
// A loop's body computes for about the time that the task's name says, on one thread of this machine; all contenders
// run the same bodies. Pieces have one iteration unless the partitioner makes them larger.

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqSMP.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"
#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"

#include <benchmark/benchmark.h>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_reduce.h>
#include <oneapi/tbb/spin_rw_mutex.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace
{

// ---- Bodies ---------------------------------------------------------------------------------------------------------

// A chain of dependent multiplications: nothing to vectorise, nothing in memory.
uint32 Compute(int64 inSteps)
{
    uint32 value = 12345;
    for (int64 i = 0; i < inSteps; ++i)
        benchmark::DoNotOptimize(value = value * 1664525U + 1013904223U);
    return value;
}

double MeasureStepsPerNanosecond()
{
    constexpr int64 steps = 5000000;
    double best = 0;
    for (int i = 0; i < 10; ++i)
    {
        const TNqTiming start = TNqTiming::Now();
        Compute(steps);
        best = std::max(best, static_cast<double>(steps) / static_cast<double>((TNqTiming::Now() - start).GetTime()));
    }
    return best;
}

struct TLoop
{
    int32 fIterations;
    int64 fNanoseconds;

    int64 CountSteps() const
    {
        static const double sStepsPerNanosecond = MeasureStepsPerNanosecond();
        return static_cast<int64>(static_cast<double>(fNanoseconds) * sStepsPerNanosecond);
    }
    std::string Name() const
    {
        const std::string time =
            fNanoseconds >= 1000 ? std::to_string(fNanoseconds / 1000) + " us" : std::to_string(fNanoseconds) + " ns";
        return std::to_string(fIterations) + " x " + time;
    }
};

constexpr int64 kCountOnly = -1; // instead of steps
std::atomic<int64> gCounted{0};  // iterations run so

int64 RunBody(int64 inSteps, int32 inStart, int32 inEnd)
{
    if (inSteps == kCountOnly)
    {
        gCounted += inEnd - inStart;
        return 0;
    }
    int64 sum = 0;
    for (int32 i = inStart; i < inEnd; ++i)
        sum += Compute(inSteps) + static_cast<uint32>(i);
    benchmark::DoNotOptimize(sum);
    return sum;
}

// ---- Contenders of the loops ----------------------------------------------------------------------------------------

TSimplePartitioner MakeSimple(int32 inEnd)
{
    return TSimplePartitioner(0, inEnd, 1);
}

TAutoPartitioner MakeAuto(int32 inEnd)
{
    return TAutoPartitioner(0, inEnd, 1, 4);
}

TGuidedPartitioner MakeGuided(int32 inEnd)
{
    return TGuidedPartitioner(0, inEnd, 1, 0.5f, 4);
}

using TRun = int64 (*)(int64 inSteps, int32 inEnd);
using TBlocks = tbb::blocked_range<int32>;

int64 ForSerial(int64 inSteps, int32 inEnd)
{
    return RunBody(inSteps, 0, inEnd);
}

template <class P, P (*Make)(int32)>
int64 ForOurs(int64 inSteps, int32 inEnd)
{
    TBasicEstimator always;
    SMPParallelFor(Make(inEnd), always, [inSteps](const TRange& range) { RunBody(inSteps, range.fStart, range.fEnd); });
    return 0;
}

template <class P>
int64 ForTbb(int64 inSteps, int32 inEnd)
{
    tbb::parallel_for(
        TBlocks(0, inEnd, 1), [inSteps](const TBlocks& range) { RunBody(inSteps, range.begin(), range.end()); }, P());
    return 0;
}

template <class P, P (*Make)(int32)>
int64 ReduceOurs(int64 inSteps, int32 inEnd)
{
    using TSum = SMPReduce::TAdd<int64>;
    TBasicEstimator always;
    int64 sum;
    SMPParallelReduce<TSum>(
        Make(inEnd), always,
        [inSteps](const TRange& range, TSMPJobReduce<TSum>& reduce)
        { reduce.Update(RunBody(inSteps, range.fStart, range.fEnd)); },
        sum);
    return sum;
}

template <class P>
int64 ReduceTbb(int64 inSteps, int32 inEnd)
{
    return tbb::parallel_reduce(
        TBlocks(0, inEnd, 1), int64(0),
        [inSteps](const TBlocks& range, int64 start) { return start + RunBody(inSteps, range.begin(), range.end()); },
        [](int64 a, int64 b) { return a + b; }, P());
}

void Register(const std::string& inTask, const std::string& inContender, const TLoop& inLoop, TRun inRun)
{
    benchmark::RegisterBenchmark((inTask + " " + inLoop.Name() + "/" + inContender).c_str(),
                                 [inLoop, inRun](benchmark::State& ioState)
                                 {
                                     const int64 steps = inLoop.CountSteps();
                                     gCounted = 0;
                                     inRun(kCountOnly, inLoop.fIterations);
                                     if (gCounted != inLoop.fIterations)
                                         ioState.SkipWithError("other iterations were run");
                                     for (auto _ : ioState)
                                         benchmark::DoNotOptimize(inRun(steps, inLoop.fIterations));
                                     ioState.SetItemsProcessed(ioState.iterations() * inLoop.fIterations);
                                 })
        ->UseRealTime();
}

// From 100 to 10 million iterations, as far as a serial run ends within a tenth of a second.
bool RegisterLoops()
{
    constexpr int64 longest = 100000000;
    for (int64 nanoseconds : {0, 20, 1000, 10000, 100000})
    {
        for (int32 iterations : {100, 1000, 10000, 100000, 1000000, 10000000})
        {
            if (iterations * std::max<int64>(nanoseconds, 10) > longest)
                continue;
            const TLoop loop{iterations, nanoseconds};
            Register("for", "tbb auto", loop, ForTbb<tbb::auto_partitioner>);
            Register("for", "auto", loop, ForOurs<TAutoPartitioner, MakeAuto>);
            Register("for", "guided", loop, ForOurs<TGuidedPartitioner, MakeGuided>);
            Register("for", "tbb static", loop, ForTbb<tbb::static_partitioner>);
            Register("for", "serial", loop, ForSerial);
            Register("for each", "tbb simple", loop, ForTbb<tbb::simple_partitioner>);
            Register("for each", "simple", loop, ForOurs<TSimplePartitioner, MakeSimple>);
            Register("reduce", "tbb auto", loop, ReduceTbb<tbb::auto_partitioner>);
            Register("reduce", "auto", loop, ReduceOurs<TAutoPartitioner, MakeAuto>);
            Register("reduce", "guided", loop, ReduceOurs<TGuidedPartitioner, MakeGuided>);
            Register("reduce each", "tbb simple", loop, ReduceTbb<tbb::simple_partitioner>);
            Register("reduce each", "simple", loop, ReduceOurs<TSimplePartitioner, MakeSimple>);
        }
    }
    return true;
}

const bool gLoopsRegistered = RegisterLoops();

// ---- Small operations: each round is a thousand of them -------------------------------------------------------------

constexpr int32 kRound = 1000;

template <class F>
void RunRounds(benchmark::State& ioState, F&& inOperation)
{
    for (auto _ : ioState)
    {
        for (int32 i = 0; i < kRound; ++i)
            inOperation();
    }
    ioState.SetItemsProcessed(ioState.iterations() * kRound);
}

// The section that the threads of a benchmark share.
template <class T>
T& Shared()
{
    static T sShared;
    return sShared;
}

struct TSection
{
    TNqCriticalSection* fCS = NewCS();
};
struct TSlots
{
    TSlots() { fSlots.Initialize(8); }
    TNqCriticalSectionArray fSlots;
};
struct TSharedSlots
{
    TSharedSlots() { fSlots.Initialize(8); }
    TNqSharedCriticalSectionArray fSlots;
};

#define NQ_LOCK(name, type, enter, leave)          \
    void name(benchmark::State& ioState)           \
    {                                              \
        RunRounds(ioState,                         \
                  []                               \
                  {                                \
                      type& lock = Shared<type>(); \
                      enter;                       \
                      benchmark::ClobberMemory();  \
                      leave;                       \
                  });                              \
    }

NQ_LOCK(LockStdMutex, std::mutex, lock.lock(), lock.unlock())
NQ_LOCK(LockSection, TSection, EnterCS(lock.fCS), LeaveCS(lock.fCS))
NQ_LOCK(LockSlot, TSlots, lock.fSlots.Enter(3), lock.fSlots.Leave(3))
NQ_LOCK(LockSafe, TNqSafeSection, CWhileInSafeCS inside(lock), )
NQ_LOCK(LockOwned, TNqSafeCriticalSection, const int32 previous = lock.Enter(true), lock.Leave(previous))
NQ_LOCK(LockStdExclusive, std::shared_mutex, lock.lock(), lock.unlock())
NQ_LOCK(LockTbbExclusive, tbb::spin_rw_mutex, lock.lock(), lock.unlock())
NQ_LOCK(LockExclusive, TNqSharedCriticalSection, lock.EnterExclusive(), lock.LeaveExclusive())
NQ_LOCK(LockExclusiveSlot, TSharedSlots, lock.fSlots.EnterExclusive(3), lock.fSlots.LeaveExclusive(3))
NQ_LOCK(LockStdShared, std::shared_mutex, lock.lock_shared(), lock.unlock_shared())
NQ_LOCK(LockTbbShared, tbb::spin_rw_mutex, lock.lock_shared(), lock.unlock_shared())
NQ_LOCK(LockShared, TNqSharedCriticalSection, lock.EnterShared(), lock.LeaveShared())
NQ_LOCK(LockSharedSlot, TSharedSlots, lock.fSlots.EnterShared(3), lock.fSlots.LeaveShared(3))

thread_local void* tPlain = nullptr;

void GetPlain(benchmark::State& ioState)
{
    RunRounds(ioState,
              []
              {
                  benchmark::DoNotOptimize(tPlain);
                  benchmark::ClobberMemory();
              });
}

void GetStorage(benchmark::State& ioState)
{
    SetupSmpThreadLocalStorage();
    static TNqLocalStorage* const sStorage = NewTLS();
    RunRounds(ioState, [] { benchmark::DoNotOptimize(GetTLS(sStorage)); });
}

struct TPlainObject
{
    virtual ~TPlainObject() = default;
};

void MakeSharedPtr(benchmark::State& ioState)
{
    RunRounds(ioState, [] { benchmark::DoNotOptimize(std::make_shared<TPlainObject>()); });
}

template <class T>
void MakeCounted(benchmark::State& ioState)
{
    RunRounds(ioState,
              []
              {
                  T* object = nullptr;
                  T::Create(&object);
                  benchmark::DoNotOptimize(object);
                  object->Release();
              });
}

void CopySharedPtr(benchmark::State& ioState)
{
    static const std::shared_ptr<TPlainObject> sObject = std::make_shared<TPlainObject>();
    RunRounds(ioState,
              []
              {
                  const std::shared_ptr<TPlainObject> copy(sObject);
                  benchmark::DoNotOptimize(copy.get());
              });
}

template <class T>
T* MakeOne()
{
    T* object = nullptr;
    T::Create(&object);
    return object;
}

template <class T>
void CopyCounted(benchmark::State& ioState)
{
    static T* const sObject = MakeOne<T>(); // for the rest of the run
    RunRounds(ioState,
              []
              {
                  const TNqCountedPtr<T> copy(sObject);
                  benchmark::DoNotOptimize(static_cast<T*>(copy));
              });
}

void Register(const std::string& inName, void (*inRun)(benchmark::State&), int inThreads = 1)
{
    benchmark::RegisterBenchmark(inName.c_str(), inRun)->UseRealTime()->Threads(inThreads);
}

bool RegisterOperations()
{
    for (int threads : {1, 2})
    {
        const std::string who = threads == 1 ? ", alone/" : ", 2 threads/";
        Register("1000 x lock" + who + "std::mutex", LockStdMutex, threads);
        Register("1000 x lock" + who + "host section", LockSection, threads);
        Register("1000 x lock" + who + "section array", LockSlot, threads);
        Register("1000 x safe section" + who + "std::mutex", LockStdMutex, threads);
        Register("1000 x safe section" + who + "safe section", LockSafe, threads);
        Register("1000 x lock" + who + "safe critical section", LockOwned, threads);
        Register("1000 x write lock" + who + "std::shared_mutex", LockStdExclusive, threads);
        Register("1000 x write lock" + who + "tbb::spin_rw_mutex", LockTbbExclusive, threads);
        Register("1000 x write lock" + who + "shared section", LockExclusive, threads);
        Register("1000 x write lock" + who + "shared section array", LockExclusiveSlot, threads);
        Register("1000 x read lock" + who + "std::shared_mutex", LockStdShared, threads);
        Register("1000 x read lock" + who + "tbb::spin_rw_mutex", LockTbbShared, threads);
        Register("1000 x read lock" + who + "shared section", LockShared, threads);
        Register("1000 x read lock" + who + "shared section array", LockSharedSlot, threads);
        Register("1000 x make an object" + who + "std::make_shared", MakeSharedPtr, threads);
        Register("1000 x make an object" + who + "SMP counted object", MakeCounted<TNqSMPCountedObject>, threads);
        Register("1000 x copy a pointer" + who + "std::shared_ptr", CopySharedPtr, threads);
        Register("1000 x copy a pointer" + who + "SMP counted object", CopyCounted<TNqSMPCountedObject>, threads);
    }
    Register("1000 x make an object, alone/plain counted object", MakeCounted<TNqCountedObject>);
    Register("1000 x copy a pointer, alone/plain counted object", CopyCounted<TNqCountedObject>);
    Register("1000 x thread storage/thread_local", GetPlain);
    Register("1000 x thread storage/GetTLS", GetStorage);
    return true;
}

const bool gOperationsRegistered = RegisterOperations();

} // namespace
