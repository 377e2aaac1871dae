// What the library asks about the calling thread, and giving up its time slice.

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <sched.h>

#include <atomic>

IShThreadUtilities* gShellThreadUtilities = nullptr;

namespace
{

thread_local bool tIsPoolThread = false;

// Numbers in the order of the first call; never 0, which stands for no thread. They start again after 2^32 threads.
int32 NewThreadID()
{
    static std::atomic<uint32> sLastID{0};
    uint32 id = 0;
    while (id == 0)
        id = sLastID.fetch_add(1, std::memory_order_relaxed) + 1;
    return static_cast<int32>(id);
}

class TThreadUtilities final : public IShThreadUtilities
{
public:
    int32 GetCurrentThreadID() override
    {
        static thread_local const int32 sID = NewThreadID();
        return sID;
    }

    void Yield(int32) override { sched_yield(); }
};

TThreadUtilities gService;

} // namespace

boolean IsInMainSMPProcess()
{
    return !tIsPoolThread;
}

void NqHostMarkPoolThread(bool inIsPoolThread)
{
    tIsPoolThread = inIsPoolThread;
}

void NqHostStartThreads()
{
    gShellThreadUtilities = &gService;
}

void NqHostStopThreads()
{
    gShellThreadUtilities = nullptr;
}
