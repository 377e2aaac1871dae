#include "NqHost/PublicAPI/NqHost.h"

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqTiming.h"
#include "NqHost/Source/NqHostInternal.h"

namespace
{

TNqCountedObject* gFirst = nullptr;
TNqCountedObject* gLast = nullptr;
TNqSMPCountedObject* gFirstSMP = nullptr;
TNqSMPCountedObject* gLastSMP = nullptr;
TNqAtomicCounterHolder gTotal = nullptr;
TNqAtomicCounterHolder gCurrent = nullptr;

using TFunction = void (*)();

template <class F>
TFunction Untyped(F* inFunction)
{
    return reinterpret_cast<TFunction>(inFunction);
}

} // namespace

// What the library calls of a host. The link line of every client asks for this table, and so for the whole host: with
// static libraries the linker meets the library's calls only when it has passed the host's archive.
extern "C" const TFunction NqHostServiceFunctions[];
const TFunction NqHostServiceFunctions[] = {
    Untyped(Nq_CallAssert_),
    Untyped(Nq_CallNotify_),
    Untyped(Nqmalloc),
    Untyped(Nqrealloc),
    Untyped(Nqfree),
    Untyped(NewCS),
    Untyped(EnterCS),
    Untyped(LeaveCS),
    Untyped(DeleteCS),
    Untyped(NewSemaphore),
    Untyped(SignalSemaphore),
    Untyped(WaitForSemaphore),
    Untyped(DeleteSemaphore),
    Untyped(NewAtomicCounter),
    Untyped(DeleteAtomicCounter),
    Untyped(IncrementAtomicCounter),
    Untyped(DecrementAtomicCounter),
    Untyped(GetAtomicCounterValue),
    Untyped(GetAtomicCounterValueOrdered),
    Untyped(SetAtomicCounterValue),
    Untyped(InitSysDepSMP),
    Untyped(TerminateSysDepSMP),
    Untyped(IsInMainSMPProcess),
    Untyped(GetLocalStorage),
    Untyped(GetAsciiTranslationTable),
    Untyped(TNqTiming::Now),
};

TNqHost::TNqHost(const TNqHostOptions& inOptions)
{
    NqHostSetReportHandler(inOptions.fReportHandler, inOptions.fReportContext);
    NqHostStartMemory();
    NqHostStartFiles();
    NqHostStartThreads();
    gTotal = NewAtomicCounter();
    gCurrent = NewAtomicCounter();
    InitNqCountedObject(&gFirst, &gLast, &gFirstSMP, &gLastSMP, &gTotal, &gCurrent);
    NqHostStartSMP(inOptions.fWorkerCount);
}

TNqHost::~TNqHost()
{
    NqHostStopSMP();
    InitNqCountedObject(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    DeleteAtomicCounter(gCurrent);
    DeleteAtomicCounter(gTotal);
    NqHostStopThreads();
    NqHostStopFiles();
    NqHostStopMemory();
    NqHostSetAsciiTranslationTable(nullptr);
    NqHostSetReportHandler(nullptr, nullptr);
}

void TNqHost::SetReportHandler(TNqHostReportHandler inHandler, void* inContext)
{
    NqHostSetReportHandler(inHandler, inContext);
}

void TNqHost::SetAsciiTranslationTable(TNqAsciiTranslationTable* inTable)
{
    NqHostSetAsciiTranslationTable(inTable);
}

void TNqHost::RequestAbort(bool inAbort)
{
    NqHostRequestAbort(inAbort);
}

void TNqHost::SetThreadAbortFlag(const TNqAbortFlag* inFlag)
{
    NqHostSetAbortFlag(inFlag);
}

void TNqHost::FailAllocations(int64 inFirst, int64 inCount)
{
    NqHostFailAllocations(inFirst, inCount);
}

int64 TNqHost::CountAllocations() const
{
    return NqHostCountAllocations();
}
