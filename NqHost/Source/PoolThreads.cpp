#include "NqHost/Source/PoolThreads.h"

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>
#include <oneapi/tbb/task_arena.h>

#include <cstddef>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <vector>

namespace
{

constexpr unsigned kCallerSlots = 1;

// How many threads the system gives now, at most inWanted. oneTBB ends the process when it cannot start one.
int32 CountAvailableThreads(int32 inWanted)
{
    std::mutex gate;
    std::vector<std::thread> threads;
    {
        const std::lock_guard<std::mutex> closed(gate);
        try
        {
            threads.reserve(static_cast<size_t>(inWanted));
            while (static_cast<int32>(threads.size()) < inWanted)
                threads.emplace_back([&gate] { const std::lock_guard<std::mutex> passed(gate); });
        }
        catch (const std::exception&)
        {
        }
    }
    for (std::thread& thread : threads)
        thread.join();
    return static_cast<int32>(threads.size());
}

class TArenaThreads final : public TPoolThreads
{
public:
    explicit TArenaThreads(int32 inThreadCount) : fHandle(tbb::attach{}), fThreadCount(inThreadCount)
    {
        const int32 slots = inThreadCount + static_cast<int32>(kCallerSlots);
        if (slots > tbb::info::default_concurrency())
            fMoreThreads.emplace(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(slots));
        fArena.initialize(slots, kCallerSlots);
        fArena.enqueue([] {}); // work for one starts them all
    }

    ~TArenaThreads() override
    {
        fArena.terminate();
        tbb::finalize(fHandle, std::nothrow);
    }

    int32 GetCount() const override { return fThreadCount; }

    // Without memory oneTBB throws.
    bool Call(TEntry inEntry, void* inArgument) override
    {
        try
        {
            fArena.enqueue([inEntry, inArgument]
                           { inEntry(inArgument, tbb::this_task_arena::current_thread_index()); });
            return true;
        }
        catch (...)
        {
            return false;
        }
    }

private:
    tbb::task_scheduler_handle fHandle;
    const int32 fThreadCount;
    std::optional<tbb::global_control> fMoreThreads; // more workers than processors
    tbb::task_arena fArena;
};

} // namespace

std::unique_ptr<TPoolThreads> TPoolThreads::Make(int32 inWorkerCount)
{
    const int32 threads = CountAvailableThreads(inWorkerCount - 1);
    if (threads == 0)
        return nullptr;
    try
    {
        return std::make_unique<TArenaThreads>(threads);
    }
    catch (...)
    {
        return nullptr;
    }
}
