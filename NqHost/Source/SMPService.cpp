// The multiprocessing layer: start and stop, thread storage, the abort request, the number of processors.

#include "NqCore/PublicAPI/NqSMP.h"
#include "NqHost/Source/NqHostInternal.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

IShSMPUtilities* gShellSMPUtilities = nullptr;
IShUtilities* gShellUtilities = nullptr;

namespace
{

using TValueDestructor = void (*)(void**);

// ---- Thread storage -------------------------------------------------------------------------------------------------

constexpr int32 kIndexCount = 1 << TNqLocalStorageDataPtrArray::kLogMaxElemCount;
constexpr int kEndRounds = 4; // a value's destructor may set other values, which are then ended as well

struct TIndex
{
    bool fInUse;
    TValueDestructor fDestructor;
};

// One thread's table, in the list of all.
struct TThreadTable
{
    TNqLocalStorageDataPtrArray fValues;
    bool fIsEnding = false; // somebody ends it already
    TThreadTable* fPrevious = nullptr;
    TThreadTable* fNext = nullptr;
};

std::mutex gStorageMutex; // guards the indices, the list, and taking values out of tables
TIndex gIndices[kIndexCount];
TThreadTable* gFirstTable = nullptr;
std::atomic<uint64> gGeneration{0}; // of the layer: tables of an earlier one are gone

// Side by side, so that one look finds both.
struct TOwnTable
{
    TThreadTable* fTable;
    uint64 fGeneration;
};

thread_local TOwnTable tOwn = {nullptr, 0};

void Link(TThreadTable& inTable)
{
    inTable.fNext = gFirstTable;
    if (gFirstTable != nullptr)
        gFirstTable->fPrevious = &inTable;
    gFirstTable = &inTable;
}

void Unlink(TThreadTable& inTable)
{
    (inTable.fPrevious != nullptr ? inTable.fPrevious->fNext : gFirstTable) = inTable.fNext;
    if (inTable.fNext != nullptr)
        inTable.fNext->fPrevious = inTable.fPrevious;
}

// Takes the value out of the table. Null when there is none.
void* TakeValue(TThreadTable& inTable, int32 inIndex)
{
    EnterCS(inTable.fValues.GetCS());
    TNqLocalStorageData* const data = inTable.fValues.FindElem(inIndex);
    void* const value = data != nullptr ? data->fDataPtr : nullptr;
    if (value != nullptr)
        data->fDataPtr = nullptr;
    LeaveCS(inTable.fValues.GetCS());
    return value;
}

// Takes one value that has a destructor out of the table; ioIndex is where to go on. False when there is none left.
bool TakeNextValue(TThreadTable& inTable, int32& ioIndex, void*& outValue, TValueDestructor& outDestructor)
{
    const std::lock_guard<std::mutex> lock(gStorageMutex);
    for (; ioIndex < inTable.fValues.GetElemCount(); ++ioIndex)
    {
        outDestructor = gIndices[ioIndex].fDestructor;
        outValue = outDestructor != nullptr ? TakeValue(inTable, ioIndex) : nullptr;
        if (outValue != nullptr)
        {
            ++ioIndex;
            return true;
        }
    }
    return false;
}

// False when there was nothing to end.
bool EndValuesOnce(TThreadTable& inTable)
{
    int32 index = 0;
    void* value;
    TValueDestructor destructor;
    bool ended = false;
    for (; TakeNextValue(inTable, index, value, destructor); ended = true)
        destructor(&value);
    return ended;
}

void EndTable(TThreadTable& inTable)
{
    for (int round = 0; round < kEndRounds && EndValuesOnce(inTable); ++round)
    {
    }
    const std::lock_guard<std::mutex> lock(gStorageMutex);
    Unlink(inTable);
    NqHostDelete(&inTable);
}

// The calling thread's table, when nobody ends it yet; the caller does now.
TThreadTable* ClaimOwnTable()
{
    const std::lock_guard<std::mutex> lock(gStorageMutex);
    if (GetLocalStorage() == nullptr || tOwn.fTable->fIsEnding)
        return nullptr;
    tOwn.fTable->fIsEnding = true;
    return tOwn.fTable;
}

// Any table that nobody ends yet; null when there is none. outIsLast tells whether others are being ended.
TThreadTable* ClaimAnyTable(bool& outIsLast)
{
    const std::lock_guard<std::mutex> lock(gStorageMutex);
    TThreadTable* table = gFirstTable;
    while (table != nullptr && table->fIsEnding)
        table = table->fNext;
    if (table != nullptr)
        table->fIsEnding = true;
    outIsLast = gFirstTable == nullptr;
    return table;
}

// Ends the calling thread's table with the thread, once the thread has armed it: a thread makes it, and so ends it,
// only when it uses it.
struct TThreadEnd
{
    ~TThreadEnd()
    {
        if (TThreadTable* const table = ClaimOwnTable())
            EndTable(*table);
        tOwn.fTable = nullptr;
    }
    void Arm() const {}
};

thread_local const TThreadEnd tThreadEnd;

// Returns when threads that end at this moment have done so, too.
void EndAllTables()
{
    for (bool isLast = false; !isLast;)
    {
        if (TThreadTable* const table = ClaimAnyTable(isLast))
            EndTable(*table);
        else
            std::this_thread::yield();
    }
    ++gGeneration;
}

TNqLocalStorage* AllocateIndex(TValueDestructor inDestructor)
{
    const std::lock_guard<std::mutex> lock(gStorageMutex);
    TIndex* const end = gIndices + kIndexCount;
    TIndex* const index = std::find_if(gIndices, end, [](const TIndex& i) { return !i.fInUse; });
    TNqLocalStorage* const storage = index != end ? new TNqLocalStorage(static_cast<int32>(index - gIndices)) : nullptr;
    if (storage != nullptr)
        *index = {true, inDestructor};
    return storage;
}

// Takes the value of some thread out of its table. Null when no thread has one.
void* TakeAnyValue(int32 inIndex)
{
    void* value = nullptr;
    for (TThreadTable* table = gFirstTable; table != nullptr && value == nullptr; table = table->fNext)
        value = TakeValue(*table, inIndex);
    return value;
}

// Every thread's value is gone before the index can be allocated again. A destructor that sets the value anew is called
// for it a few times, not for ever.
void FreeIndex(int32 inIndex)
{
    std::unique_lock<std::mutex> lock(gStorageMutex);
    const TValueDestructor destructor = gIndices[inIndex].fDestructor;
    int64 rounds = 0;
    for (TThreadTable* table = gFirstTable; table != nullptr; table = table->fNext)
        rounds += kEndRounds;
    while (void* value = TakeAnyValue(inIndex))
    {
        if (destructor == nullptr || rounds-- <= 0)
            continue;
        lock.unlock();
        destructor(&value);
        lock.lock();
    }
    gIndices[inIndex] = {false, nullptr};
}

// ---- Service objects ------------------------------------------------------------------------------------------------

class TSMPUtilities final : public IShSMPUtilities
{
public:
    ISMPJobWorkers* GetSMPWorkers() override { return NqHostGetPool(); }

    TNqLocalStorage* NewTLS(void (*inDestructor)(void**)) override { return AllocateIndex(inDestructor); }

    void DeleteTLS(TNqLocalStorage* inStorage) override
    {
        if (inStorage == nullptr)
            return;
        FreeIndex(inStorage->GetIndex());
        delete inStorage;
    }

    void SetupThreadLocalStorage() override
    {
        if (GetLocalStorage() != nullptr)
            return;
        TThreadTable* const table = NqHostNew<TThreadTable>();
        if (table != nullptr && !table->fValues.IsValid())
            NqHostDelete(table);
        else if (table != nullptr)
            Adopt(*table);
    }

private:
    static void Adopt(TThreadTable& inTable)
    {
        tOwn = {&inTable, gGeneration};
        tThreadEnd.Arm();
        const std::lock_guard<std::mutex> lock(gStorageMutex);
        Link(inTable);
    }
};

std::atomic<bool> gAbortRequested{false};

class TUtilities final : public IShUtilities
{
public:
    boolean IsAbortRequested() override
    {
        if (gAbortRequested.load(std::memory_order_relaxed))
            return true;
        const TNqAbortFlag* const flag = NqHostGetAbortFlag();
        return flag != nullptr && flag->load(std::memory_order_relaxed);
    }
};

TSMPUtilities gSMPService;
TUtilities gService;

// ---- The layer ------------------------------------------------------------------------------------------------------

bool gIsRunning = false;
int32 gWorkerCount = 1;
int32 gProcessorCount = 1;

int32 CountProcessors()
{
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof processors, &processors) == 0)
        return CPU_COUNT(&processors);
    return static_cast<int32>(std::thread::hardware_concurrency());
}

} // namespace

TNqLocalStorageDataPtrArray* GetLocalStorage()
{
    const TOwnTable& own = tOwn;
    const bool isValid = own.fTable != nullptr && own.fGeneration == gGeneration.load(std::memory_order_relaxed);
    return isValid ? &own.fTable->fValues : nullptr;
}

void NqHostStartSMP(int32 inWorkerCount)
{
    gWorkerCount = inWorkerCount;
    gShellSMPUtilities = &gSMPService;
    gShellUtilities = &gService;
    InitSMP(true);
}

void NqHostStopSMP()
{
    TerminateSMP();
    gShellSMPUtilities = nullptr;
    gShellUtilities = nullptr;
}

void NqHostRequestAbort(bool inAbort)
{
    gAbortRequested = inAbort;
}

const TNqAbortFlag* NqHostGetAbortFlag()
{
    TNqLocalStorageDataPtrArray* const storage = gSMPAbortFlagTLS != nullptr ? GetLocalStorage() : nullptr;
    TNqLocalStorageData* const data = storage != nullptr ? storage->FindElem(gSMPAbortFlagTLS->GetIndex()) : nullptr;
    return data != nullptr ? static_cast<const TNqAbortFlag*>(data->fDataPtr) : nullptr;
}

void NqHostSetAbortFlag(const TNqAbortFlag* inFlag)
{
    if (inFlag != NqHostGetAbortFlag() && IsTLSValid())
        SetTLS(gSMPAbortFlagTLS, const_cast<TNqAbortFlag*>(inFlag));
}

// Every thread of the pool has ended before the tables go, or has nothing left to run.
void InitSysDepSMP(unsigned char inFlag)
{
    if (gIsRunning)
        return;
    gIsRunning = true;
    gProcessorCount = std::max(CountProcessors(), 1);
    gNumberOfProcessors = &gProcessorCount;
    gSMPAbortFlagTLS = NewTLS();
    SetupSmpThreadLocalStorage();
    if (inFlag)
        NqHostStartPool(gWorkerCount > 0 ? gWorkerCount : gProcessorCount);
}

void TerminateSysDepSMP()
{
    if (!gIsRunning)
        return;
    NqHostStopPool();
    EndAllTables();
    DeleteTLS(gSMPAbortFlagTLS);
    gSMPAbortFlagTLS = nullptr;
    gIsRunning = false;
}
