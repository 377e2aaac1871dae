// A program that links. What it names decides which objects the linker takes from an archive first:
//   USES_HOST   a host
//   USES_CORE   the library, with Qt and the locale services below it; without a host when it stands alone
//   OWN_HOST    the library over a host that the program brings along
//   PART        the library, from a static library between the program and it

#if USES_HOST
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqHost/PublicAPI/NqHost.h"
#endif
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqCore/PublicAPI/NqStringUtils.h"
#include "NqCore/PublicAPI/NqTiming.h"

#include <atomic>
#include <cstdlib>

#if PART
int CompareInPart();
#endif
#if USES_CORE || OWN_HOST
static int Compare()
{
    return NqCompareStrings(TNqString15("a"), TNqString15("B"));
}
#endif

#if OWN_HOST
// As much of a host as a program of one thread needs.
class TNqAtomicCounter
{
public:
    int32 fValue = 0;
};

void Nq_CallAssert_(char*, unsigned int)
{
    std::abort();
}
void Nq_CallNotify_(char*, unsigned int, const char*)
{
    std::abort();
}
void* Nqmalloc(unsigned long byteCount)
{
    return std::malloc(byteCount);
}
void* Nqrealloc(void* block, unsigned int byteCount)
{
    return std::realloc(block, byteCount);
}
void Nqfree(void* block)
{
    std::free(block);
}
TNqCriticalSection* NewCS()
{
    return nullptr;
}
void EnterCS(TNqCriticalSection*) {}
void LeaveCS(TNqCriticalSection*) {}
void DeleteCS(TNqCriticalSection*) {}
TNqSemaphore* NewSemaphore(int, int)
{
    return nullptr;
}
void SignalSemaphore(TNqSemaphore*) {}
NqErr WaitForSemaphore(TNqSemaphore*, int)
{
    return 0;
}
void DeleteSemaphore(TNqSemaphore*) {}
TNqAtomicCounter* NewAtomicCounter()
{
    return new TNqAtomicCounter;
}
void DeleteAtomicCounter(TNqAtomicCounter* inCounter)
{
    delete inCounter;
}
int32 IncrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return ++ioCounter->fValue;
}
int32 DecrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return --ioCounter->fValue;
}
int32 GetAtomicCounterValue(TNqAtomicCounter* inCounter)
{
    return inCounter->fValue;
}
int32 GetAtomicCounterValueOrdered(TNqAtomicCounter* const& inCounter)
{
    return inCounter->fValue;
}
void SetAtomicCounterValue(TNqAtomicCounter*& ioCounter, int inValue)
{
    ioCounter->fValue = inValue;
}
void InitSysDepSMP(unsigned char) {}
void TerminateSysDepSMP() {}
boolean IsInMainSMPProcess()
{
    return true;
}
TNqLocalStorageDataPtrArray* GetLocalStorage()
{
    return nullptr;
}
TNqAsciiTranslationTable* GetAsciiTranslationTable()
{
    return nullptr;
}
TNqTiming TNqTiming::Now()
{
    return TNqTiming();
}
IShMemoryUtilities* gMemoryUtilities = nullptr;
IShFileUtilities* gFileUtilities = nullptr;
IShUtilities* gShellUtilities = nullptr;
IShSMPUtilities* gShellSMPUtilities = nullptr;
IShThreadUtilities* gShellThreadUtilities = nullptr;
#endif

#if PART_ITSELF
int CompareInPart()
{
    return Compare();
}
#else
int main()
{
    int sum = 0;
#if USES_HOST
    const TNqHost host;
#if USES_CORE
    std::atomic<int32> indices = 0;
    SMPParallelFor(0, 100, [&](const TRange& range) { indices += static_cast<int32>(range.Size()); });
    sum += indices - 100;
#endif
#endif
#if USES_CORE || OWN_HOST
    sum += Compare() + 1;
#endif
#if PART
    sum += CompareInPart() + 1;
#endif
    return sum;
}
#endif
