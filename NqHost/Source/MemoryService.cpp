// Memory: the system's allocator, with a way to make chosen allocations fail.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <atomic>
#include <cstdlib>

IShMemoryUtilities* gMemoryUtilities = nullptr;

namespace
{

// Allocations are numbered only once a test has asked for a failure or a count: until then threads share no counter.
std::atomic<bool> gCounting{false};
std::atomic<int64> gAllocations{0};
std::atomic<int64> gFirstFailure{0};
std::atomic<int64> gFailures{0};

[[gnu::cold]] bool CountedFailsNow()
{
    const int64 number = gAllocations.fetch_add(1, std::memory_order_relaxed) + 1;
    const int64 first = gFirstFailure.load(std::memory_order_relaxed);
    return first > 0 && number >= first && number - first < gFailures.load(std::memory_order_relaxed);
}

inline bool FailsNow()
{
    return gCounting.load(std::memory_order_relaxed) && CountedFailsNow();
}

class TMemoryUtilities final : public IShMemoryUtilities
{
public:
    void* HostOperation1() override { return nullptr; }
    void* HostOperation2() override { return nullptr; }
    void* HostOperation3() override { return nullptr; }
    void* HostOperation4() override { return nullptr; }
    void* HostOperation5() override { return nullptr; }
    void* HostOperation6() override { return nullptr; }
    void* HostOperation7() override { return nullptr; }
    void* AllocateBlock(uint32 inByteCount) override { return NqHostAllocate(inByteCount); }
    void FreeBlock(void* inBlock) override { NqHostFree(inBlock); }
    void* AllocateArrayBlock(uint32 inByteCount) override { return NqHostAllocate(inByteCount); }
    void FreeArrayBlock(void* inBlock) override { NqHostFree(inBlock); }
};

TMemoryUtilities gService;

} // namespace

void* NqHostAllocate(unsigned long inByteCount)
{
    return FailsNow() ? nullptr : std::malloc(inByteCount != 0 ? inByteCount : 1);
}

void* NqHostAllocateAligned(unsigned long inByteCount, unsigned long inAlignment)
{
    return FailsNow() ? nullptr
                      : std::aligned_alloc(inAlignment, (inByteCount + inAlignment - 1) / inAlignment * inAlignment);
}

// A size of 0 keeps a block: a null result would tell the caller that the old one is still its own.
void* NqHostReallocate(void* inBlock, unsigned long inByteCount)
{
    return FailsNow() ? nullptr : std::realloc(inBlock, inByteCount != 0 ? inByteCount : 1);
}

void NqHostFree(void* inBlock)
{
    std::free(inBlock);
}

void NqHostFailAllocations(int64 inFirst, int64 inCount)
{
    gFirstFailure = 0;
    gAllocations = 0;
    gFailures = inCount;
    gFirstFailure = inFirst;
    gCounting = true;
}

int64 NqHostCountAllocations()
{
    return gAllocations;
}

void NqHostStartMemory()
{
    gMemoryUtilities = &gService;
}

void NqHostStopMemory()
{
    gMemoryUtilities = nullptr;
}

void* Nqmalloc(unsigned long inByteCount)
{
    return NqHostAllocate(inByteCount);
}

void* Nqrealloc(void* inBlock, unsigned int inByteCount)
{
    return NqHostReallocate(inBlock, inByteCount);
}

void Nqfree(void* inBlock)
{
    NqHostFree(inBlock);
}
