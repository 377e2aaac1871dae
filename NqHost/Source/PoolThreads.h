// The threads of the worker pool, which come from oneTBB: an arena of W slots, one of them kept for callers that never
// enter it. Kept apart so that only one source file sees oneTBB.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <memory>

class TPoolThreads
{
public:
    // Called on a thread of the pool with its slot, 1 to inWorkerCount - 1, which it has to itself for that time.
    using TEntry = void (*)(void* inArgument, int32 inSlot);

    // Threads for inWorkerCount workers, the caller included, or as many as the system gives; null for none. They all
    // start now: that the system may have none to give later is no concern.
    static std::unique_ptr<TPoolThreads> Make(int32 inWorkerCount);

    // Returns when the threads have ended, unless another user of oneTBB in this process keeps them. Nothing may be
    // left to be called.
    virtual ~TPoolThreads() = default;

    virtual int32 GetCount() const = 0;

    // Has inEntry called soon. False: it will not be.
    virtual bool Call(TEntry inEntry, void* inArgument) = 0;
};
