// Counting semaphores that saturate: a signal at the maximum is dropped.
//
// Units and sleepers share one atomic word, so the step that adds a unit also tells whether anybody has to be woken.
// Without sleepers a signal touches nothing but that word and makes no system call.
//
// Models/Semaphore.pml shows, for every order in which threads can take their steps, that nobody sleeps while there is
// a unit. A change here is a change there.

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/NqHostInternal.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

class TNqSemaphore
{
public:
    TNqSemaphore(uint32 inMaximum, uint32 inUnits) : fMaximum(inMaximum), fState(inUnits) {}
    ~TNqSemaphore();

    void Signal()
    {
        if (!AddUnit(false))
            WakeSleeper();
    }
    bool Wait(int inMilliseconds); // false: the time passed without a unit; negative waits without limit

private:
    static constexpr uint64 kUnit = 1;
    static constexpr uint64 kSleeper = uint64(1) << 32;

    static uint32 Units(uint64 inState) { return static_cast<uint32>(inState); }
    static bool HasSleepers(uint64 inState) { return inState >= kSleeper; }

    bool AddUnit(bool inMayWake);
    [[gnu::noinline]] void WakeSleeper();
    bool TakeUnit(uint64 inSleeper);

    const uint32 fMaximum;
    std::atomic<uint64> fState; // units in the low half, sleepers in the high half
    std::mutex fMutex;
    std::condition_variable fWake;
};

// Adds a unit unless the semaphore is full. False, with nothing added, when there are sleepers and the caller may not
// wake them.
inline bool TNqSemaphore::AddUnit(bool inMayWake)
{
    uint64 state = fState.load();
    do
    {
        if (Units(state) >= fMaximum)
            return true;
        if (HasSleepers(state) && !inMayWake)
            return false;
    } while (!fState.compare_exchange_weak(state, state + kUnit));
    return true;
}

// Takes a unit and, in the same step, the caller off the sleepers: kSleeper when it is one of them, otherwise 0.
bool TNqSemaphore::TakeUnit(uint64 inSleeper)
{
    uint64 state = fState.load();
    do
    {
        if (Units(state) == 0)
            return false;
    } while (!fState.compare_exchange_weak(state, state - kUnit - inSleeper));
    return true;
}

// A sleeper that took the last unit has had the mutex since; others take theirs without it.
TNqSemaphore::~TNqSemaphore()
{
    const std::lock_guard<std::mutex> lock(fMutex);
}

// Under the mutex, so that whoever takes this unit and deletes the semaphore waits until we have left it.
void TNqSemaphore::WakeSleeper()
{
    const std::lock_guard<std::mutex> lock(fMutex);
    AddUnit(true);
    fWake.notify_one();
}

bool TNqSemaphore::Wait(int inMilliseconds)
{
    if (TakeUnit(0))
        return true;
    if (inMilliseconds == 0)
        return false;

    std::unique_lock<std::mutex> lock(fMutex);
    fState += kSleeper;
    const auto take = [this] { return TakeUnit(kSleeper); };
    if (inMilliseconds < 0)
    {
        fWake.wait(lock, take);
        return true;
    }
    if (fWake.wait_for(lock, std::chrono::milliseconds(inMilliseconds), take))
        return true;
    fState -= kSleeper;
    return false;
}

TNqSemaphore* NewSemaphore(int maxCount, int initialCount)
{
    NqCheck(maxCount > 0 && initialCount >= 0 && initialCount <= maxCount);
    const int maximum = std::max(maxCount, 1);
    const int units = std::clamp(initialCount, 0, maximum);
    return NqHostNew<TNqSemaphore>(static_cast<uint32>(maximum), static_cast<uint32>(units));
}

// A semaphore that could not be made is null: signals are lost and every wait fails at once.
void SignalSemaphore(TNqSemaphore* inSemaphore)
{
    if (inSemaphore != nullptr)
        inSemaphore->Signal();
}

NqErr WaitForSemaphore(TNqSemaphore* inSemaphore, int inMilliseconds)
{
    return inSemaphore != nullptr && inSemaphore->Wait(inMilliseconds) ? kNqNoErr : kNqErrInvalidData;
}

void DeleteSemaphore(TNqSemaphore* inSemaphore)
{
    NqHostDelete(inSemaphore);
}
