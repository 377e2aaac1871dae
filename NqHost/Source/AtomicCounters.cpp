#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <atomic>
#include <new>

class TNqAtomicCounter
{
public:
    std::atomic<int32> fValue{0};
};

TNqAtomicCounter* NewAtomicCounter()
{
    void* block = NqHostAllocate(sizeof(TNqAtomicCounter));
    return block != nullptr ? new (block) TNqAtomicCounter : nullptr;
}

void DeleteAtomicCounter(TNqAtomicCounter* inCounter)
{
    NqHostFree(inCounter);
}

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
    ioCounter->fValue.store(inValue);
}
