// A loop on all cores whose workers each keep a scratch block from one call to the next, and add to shared bins that
// are locked apart from each other.

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqSMP.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <atomic>
#include <cstdio>

namespace
{

constexpr int32 kBins = 16;

std::atomic<int32> gScratchBlocks = 0;

using TScratch = TNqArray<int32>;

// Called for each thread that has a block, when the handle is deleted.
void DeleteScratch(void** inValue)
{
    delete static_cast<TScratch*>(*inValue);
    --gScratchBlocks;
}

// The calling thread's block, made when it first asks.
TScratch* GetScratch(TNqLocalStorage* inHandle)
{
    auto* scratch = static_cast<TScratch*>(GetTLS(inHandle));
    if (scratch == nullptr)
    {
        scratch = new TScratch;
        ++gScratchBlocks;
        SetTLS(inHandle, scratch);
    }
    return scratch;
}

} // namespace

int main()
{
    const TNqHost host;
    TNqLocalStorage* handle = NewTLSWithDelete(DeleteScratch);
    TNqCriticalSectionArray locks;
    if (handle == nullptr || !locks.Initialize(kBins))
        return 1;

    int32 bins[kBins] = {};
    SMPParallelFor(0, 100000,
                   [&](const TRange& range)
                   {
                       TScratch& mine = *GetScratch(handle);
                       mine.SetElemCount(0); // keeps the block
                       for (int32 i = range.fStart; i < range.fEnd; ++i)
                           mine.AddElem(i * 7 % kBins);
                       for (uint32 i = 0; i < mine.GetElemCount(); ++i)
                       {
                           const CWhileInCSArray inside(locks, mine[i]);
                           ++bins[mine[i]];
                       }
                   });
    bool even = true;
    for (const int32 bin : bins)
        even = even && bin == 100000 / kBins;
    std::printf("%d bins, %s\n", kBins, even ? "all alike" : "uneven");
    const int32 workers = GetNumberOfProcessors();
    std::printf("scratch blocks: %s\n", gScratchBlocks >= 1 && gScratchBlocks <= workers ? "one a worker" : "too many");
    DeleteTLS(handle);
    std::printf("left: %d\n", gScratchBlocks.load());
    return 0;
}
