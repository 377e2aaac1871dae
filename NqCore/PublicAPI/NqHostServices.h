// What the library asks of its host: everything that depends on the system beneath.
//
// The library declares these functions, interfaces and globals and never defines them; the host that links the library
// does (NqHost is one). The host sets the service globals before their first use, gMemoryUtilities before the first
// allocation, and clears them last. Slot orders are a contract: hosts and plug-ins are built apart from the library.

#pragma once

#include "NqCore/PublicAPI/NqCompiler.h"

class INqUnknown;
class ISMPJobWorkers;
class ITranscoder;
class TNqAsciiTranslationTable;
class TNqLocalStorage;
class TNqLocalStorageDataPtrArray;
enum TranscoderType : int;
template <class T>
class TNqCountedPtr;

// The host's own objects; the library never looks inside.
class TNqCriticalSection;
class TNqSemaphore;
class TNqAtomicCounter;

// How classes hold one host counter. The class that made the counter destroys it.
using TNqAtomicCounterHolder = TNqAtomicCounter*;

// ---- Raw memory -----------------------------------------------------------------------------------------------------

// A block suitably aligned for any scalar, or null. Nqrealloc keeps the contents, and the old block when it fails; its
// size is 32-bit.
void* Nqmalloc(unsigned long inByteCount);
void* Nqrealloc(void* inBlock, unsigned int inByteCount);
void Nqfree(void* inBlock);

// ---- Reports: Nq_CallAssert_ and Nq_CallNotify_ stand in NqCompiler.h -----------------------------------------------

// ---- Critical sections: recursive for the thread that owns them -----------------------------------------------------

TNqCriticalSection* NewCS();
void EnterCS(TNqCriticalSection* inSection);
void LeaveCS(TNqCriticalSection* inSection);
void DeleteCS(TNqCriticalSection* inSection);

// ---- Counting semaphores --------------------------------------------------------------------------------------------

// Saturates at inMaxCount: a signal at the maximum does nothing.
TNqSemaphore* NewSemaphore(int inMaxCount, int inInitialCount);
void SignalSemaphore(TNqSemaphore* inSemaphore);
// Takes one unit, waiting at most that many milliseconds, without limit when negative. 0 when a unit was taken.
NqErr WaitForSemaphore(TNqSemaphore* inSemaphore, int inMilliseconds);
void DeleteSemaphore(TNqSemaphore* inSemaphore);

// ---- Atomic counters: 32-bit, new ones at 0 -------------------------------------------------------------------------

// Counting and the ordered read are sequentially consistent, setting releases, and the plain read orders nothing.
TNqAtomicCounter* NewAtomicCounter();
void DeleteAtomicCounter(TNqAtomicCounter* inCounter);
int32 IncrementAtomicCounter(TNqAtomicCounter*& ioCounter); // the value after the increment
int32 DecrementAtomicCounter(TNqAtomicCounter*& ioCounter); // the value after the decrement
int32 GetAtomicCounterValue(TNqAtomicCounter* inCounter);
int32 GetAtomicCounterValueOrdered(TNqAtomicCounter* const& inCounter); // ordered against earlier memory operations
void SetAtomicCounterValue(TNqAtomicCounter*& ioCounter, int inValue);

// ---- Multiprocessing ------------------------------------------------------------------------------------------------

void InitSysDepSMP(unsigned char inFlag);
void TerminateSysDepSMP();
boolean IsInMainSMPProcess();                   // false on the threads of the worker pool
TNqLocalStorageDataPtrArray* GetLocalStorage(); // the calling thread's table, null when it has none

// ---- Text: the byte translation that strings use, or null -----------------------------------------------------------

TNqAsciiTranslationTable* GetAsciiTranslationTable();

// ---- Service objects ------------------------------------------------------------------------------------------------

// The object allocator. The library calls the last four operations; the host may use the seven before as it likes.
class IShMemoryUtilities
{
public:
    virtual void* HostOperation1() = 0;
    virtual void* HostOperation2() = 0;
    virtual void* HostOperation3() = 0;
    virtual void* HostOperation4() = 0;
    virtual void* HostOperation5() = 0;
    virtual void* HostOperation6() = 0;
    virtual void* HostOperation7() = 0;
    virtual void* AllocateBlock(uint32 inByteCount) = 0; // null without memory
    virtual void FreeBlock(void* inBlock) = 0;           // null does nothing
    virtual void* AllocateArrayBlock(uint32 inByteCount) = 0;
    virtual void FreeArrayBlock(void* inBlock) = 0;

protected:
    ~IShMemoryUtilities() = default;
};

// Files, paths and transcoders.
class IShFileUtilities
{
public:
    // A new file object without a name, with a reference for the caller; null when none could be made.
    virtual void CreateFileObject(INqUnknown** outObject) = 0;
    // The character between the folders of a path, stored in *outSeparator and returned.
    virtual int8 GetPathSeparator(int8* outSeparator) = 0;
    // A new transcoder of that type; empty, and reported, when the host has none.
    virtual void CreateTranscoder(TNqCountedPtr<ITranscoder>& outTranscoder, TranscoderType inType) = 0;

protected:
    ~IShFileUtilities() = default;
};

class IShUtilities
{
public:
    virtual boolean IsAbortRequested() = 0;

protected:
    ~IShUtilities() = default;
};

class IShSMPUtilities
{
public:
    virtual ISMPJobWorkers* GetSMPWorkers() = 0;
    virtual TNqLocalStorage* NewTLS(void (*inDestructor)(void**)) = 0;
    virtual void DeleteTLS(TNqLocalStorage* inStorage) = 0;
    virtual void SetupThreadLocalStorage() = 0;

protected:
    ~IShSMPUtilities() = default;
};

class IShThreadUtilities
{
public:
    virtual int32 GetCurrentThreadID() = 0;   // never 0
    virtual void Yield(int32 inArgument) = 0; // gives up the time slice and never sleeps

protected:
    ~IShThreadUtilities() = default;
};

extern IShMemoryUtilities* gMemoryUtilities;
extern IShFileUtilities* gFileUtilities;
extern IShUtilities* gShellUtilities;
extern IShSMPUtilities* gShellSMPUtilities;
extern IShThreadUtilities* gShellThreadUtilities;
