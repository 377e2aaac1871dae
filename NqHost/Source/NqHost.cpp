#include "NqHost/PublicAPI/NqHost.h"

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqHost/Source/NqHostInternal.h"

namespace
{

TNqCountedObject* gFirst = nullptr;
TNqCountedObject* gLast = nullptr;
TNqSMPCountedObject* gFirstSMP = nullptr;
TNqSMPCountedObject* gLastSMP = nullptr;
TNqAtomicCounterHolder gTotal = nullptr;
TNqAtomicCounterHolder gCurrent = nullptr;

} // namespace

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
