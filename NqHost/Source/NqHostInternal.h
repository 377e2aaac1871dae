// What the services of the reference host share.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <new>
#include <utility>

// Every allocation of the host goes through these, so that a test can make any of them fail. Null when it does.
void* NqHostAllocate(unsigned long inByteCount);
void* NqHostAllocateAligned(unsigned long inByteCount, unsigned long inAlignment);
void* NqHostReallocate(void* inBlock, unsigned long inByteCount);
void NqHostFree(void* inBlock);

// An object of the host's own in such a block; null without memory.
template <class T, class... Args>
T* NqHostNew(Args&&... inArgs)
{
    void* block = NqHostAllocateAligned(sizeof(T), alignof(T));
    return block != nullptr ? new (block) T(std::forward<Args>(inArgs)...) : nullptr;
}

template <class T>
void NqHostDelete(T* inObject)
{
    if (inObject == nullptr)
        return;
    inObject->~T();
    NqHostFree(inObject);
}

void NqHostFailAllocations(int64 inFirst, int64 inCount);
int64 NqHostCountAllocations();

// The services that are objects; starting one sets its global, stopping clears it.
void NqHostStartMemory();
void NqHostStopMemory();
void NqHostStartFiles();
void NqHostStopFiles();
void NqHostStartThreads();
void NqHostStopThreads();

// Whether the calling thread works for the pool. Threads do not until they say so, the pool's own at their start.
void NqHostMarkPoolThread(bool inIsPoolThread);

// Returns when no other thread is inside the handler that was replaced; a handler that replaces itself is not waited
// for.
void NqHostSetReportHandler(TNqHostReportHandler inHandler, void* inContext);

void NqHostSetAsciiTranslationTable(TNqAsciiTranslationTable* inTable);

// The multiprocessing layer. A worker count of 0 stands for one per processor.
void NqHostStartSMP(int32 inWorkerCount);
void NqHostStopSMP();

void NqHostStartPool(int32 inWorkerCount);
void NqHostStopPool(); // no job may be left
ISMPJobWorkers* NqHostGetPool();

// The abort request of all threads, and the calling thread's own flag (null for none).
void NqHostRequestAbort(bool inAbort);
const TNqAbortFlag* NqHostGetAbortFlag();
void NqHostSetAbortFlag(const TNqAbortFlag* inFlag);
