// Atomic counters, each on a cache line of its own: counting references of one object must not slow down the threads
// that use its neighbour.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace
{

constexpr size_t kCacheLine = 64;

// Wherever such a block begins, a whole cache line lies in it. The system takes three times as long for an aligned one.
constexpr size_t kBlockSize = 2 * kCacheLine - alignof(std::max_align_t);

// False once the process has had a second thread: the system says so before that thread starts.
bool IsOnlyThread()
{
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

} // namespace

class alignas(kCacheLine) TNqAtomicCounter
{
public:
    explicit TNqAtomicCounter(void* inBlock) : fBlock(inBlock) {}

    std::atomic<int32> fValue{0};
    void* const fBlock; // in which it lies
};

static_assert(sizeof(TNqAtomicCounter) == kCacheLine, "two counters would share a cache line");
static_assert(std::atomic<int32>::is_always_lock_free, "counting must not take a lock");

TNqAtomicCounter* NewAtomicCounter()
{
    void* const block = NqHostAllocate(kBlockSize);
    if (block == nullptr)
        return nullptr;
    void* line = block;
    size_t size = kBlockSize;
    std::align(kCacheLine, kCacheLine, line, size);
    return new (line) TNqAtomicCounter(block);
}

void DeleteAtomicCounter(TNqAtomicCounter* inCounter)
{
    if (inCounter != nullptr)
        NqHostFree(inCounter->fBlock);
}

namespace
{

// Returns the sum, which wraps around. A read and a write do while there is nobody to come in between, and take less
// time: starting a thread orders them before all that it does.
inline int32 Add(std::atomic<int32>& ioValue, int32 inStep)
{
    const auto plusStep = [inStep](int32 value)
    { return static_cast<int32>(static_cast<uint32>(value) + static_cast<uint32>(inStep)); };
    if (!IsOnlyThread())
        return plusStep(ioValue.fetch_add(inStep));
    const int32 sum = plusStep(ioValue.load(std::memory_order_relaxed));
    ioValue.store(sum, std::memory_order_relaxed);
    return sum;
}

} // namespace

// Counting and the ordered read are sequentially consistent: the reader/writer locks compare two counters, and each
// side must see the other's count or have its own seen. Setting a value only publishes what came before it: nobody
// waits for it to be seen, and every slot of an array that is left sets one.
int32 IncrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return Add(ioCounter->fValue, 1);
}

int32 DecrementAtomicCounter(TNqAtomicCounter*& ioCounter)
{
    return Add(ioCounter->fValue, -1);
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
