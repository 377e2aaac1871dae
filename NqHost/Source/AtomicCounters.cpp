// Atomic counters, each on a cache line of its own: counting references of one object must not slow down the threads
// that use its neighbour.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <atomic>
#include <cstddef>

namespace
{

constexpr size_t kCacheLine = 64;

} // namespace

class alignas(kCacheLine) TNqAtomicCounter
{
public:
    std::atomic<int32> fValue{0};
};

static_assert(sizeof(TNqAtomicCounter) == kCacheLine, "two counters would share a cache line");
static_assert(std::atomic<int32>::is_always_lock_free, "counting must not take a lock");

TNqAtomicCounter* NewAtomicCounter()
{
    return NqHostNew<TNqAtomicCounter>();
}

void DeleteAtomicCounter(TNqAtomicCounter* inCounter)
{
    NqHostDelete(inCounter);
}

// Counting and the ordered read are sequentially consistent: the reader/writer locks compare two counters, and each
// side must see the other's count or have its own seen. Setting a value only publishes what came before it: nobody
// waits for it to be seen, and every slot of an array that is left sets one.
int32 IncrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return ioCounter->fValue.fetch_add(1) + 1;
}

int32 DecrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return ioCounter->fValue.fetch_sub(1) - 1;
}

int32 GetAtomicCounterValue(TNqAtomicCounter* inCounter)
{
    return inCounter->fValue.load(std::memory_order_relaxed);
}

int32 GetAtomicCounterValueOrdered(TNqAtomicCounter* const& inCounter)
{
    return inCounter->fValue.load();
}

void SetAtomicCounterValue(TNqAtomicCounter*& ioCounter, int inValue)
{
    ioCounter->fValue.store(inValue, std::memory_order_release);
}
