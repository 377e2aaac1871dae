#include "NqCore/PublicAPI/NqSMPCriticalSection.h"

#include "NqCore/Include/NqHostLocks.h"
#include "NqCore/PublicAPI/NqArray.h"

// Models/CriticalSectionArray.pml shows, for every order in which threads can take their steps, that no sleeper is
// forgotten. A change here is a change there.
class TNqCriticalSectionArrayInternal : public TNqObject
{
public:
    TNqCriticalSectionArrayInternal();
    ~TNqCriticalSectionArrayInternal();

    bool HasSlot(int32 inIndex) const { return inIndex >= 0 && inIndex < fCount; }

    boolean Initialize(int32 inCount);
    void CleanUp();

    void Enter(int32 inIndex)
    {
        if (IncrementAtomicCounter(State(inIndex)) >= 2)
            EnterTaken(inIndex);
    }

    void Leave(int32 inIndex)
    {
        DecrementAtomicCounter(State(inIndex));
        SetAtomicCounterValue(fThreadsToCheck, GetAtomicCounterValue(fWaitingThreads));
        NqSignal(fSemaphore);
    }

private:
    friend struct TNqCriticalSectionArrayLayout;
    using TCounters = TNqArray<TNqAtomicCounter*>;

    boolean MakeSlots(uint32 inCount);
    void Drop(TCounters& ioCounters);
    static void Delete(TCounters& ioCounters);

    [[gnu::noinline]] void EnterTaken(int32 inIndex);
    void AddWaiter(int32 inIndex);
    void RemoveWaiter(int32 inIndex);
    void PassOn();

    TNqAtomicCounterHolder& State(int32 inIndex) { return fStates.ArrayData()[inIndex]; }
    TNqAtomicCounterHolder& Waiters(int32 inIndex) { return fWaiters.ArrayData()[inIndex]; }

    int32 fCount;                           // slots
    TCounters fStates;                      // of each slot: who holds it and who is trying it; 0 when it is free
    TNqSemaphore* fSemaphore;               // the threads that wait for any slot sleep on it
    TNqAtomicCounterHolder fWaitingThreads; // threads about to sleep, asleep or just woken
    TNqAtomicCounterHolder fThreadsToCheck; // threads to wake one after the other since a release; below 1 none
    TCounters fWaiters;                     // of each slot: its share of fWaitingThreads
    TCounters fDropped;                     // the counters of earlier slots
};

struct TNqCriticalSectionArrayLayout
{
    using T = TNqCriticalSectionArrayInternal;
    static_assert(sizeof(CWhileInCS) == 8 && sizeof(TNqCriticalSectionArray) == 8 && sizeof(CWhileInCSArray) == 16,
                  "locks are shared with modules built elsewhere");
    static_assert(offsetof(T, fCount) == 0 && offsetof(T, fStates) == 8 && offsetof(T, fSemaphore) == 32 &&
                      offsetof(T, fWaitingThreads) == 40 && offsetof(T, fThreadsToCheck) == 48,
                  "locks are shared with modules built elsewhere");
};

TNqCriticalSectionArrayInternal::TNqCriticalSectionArrayInternal()
    : fCount(0),
      fSemaphore(NewSemaphore(1, 0)),
      fWaitingThreads(NqNewZeroCounter()),
      fThreadsToCheck(NqNewZeroCounter())
{
    NqCheck(fSemaphore != nullptr && fWaitingThreads != nullptr && fThreadsToCheck != nullptr);
}

TNqCriticalSectionArrayInternal::~TNqCriticalSectionArrayInternal()
{
    Delete(fStates);
    Delete(fWaiters);
    Delete(fDropped);
    NqDeleteCounter(fThreadsToCheck);
    NqDeleteCounter(fWaitingThreads);
    NqDeleteSemaphore(fSemaphore);
}

boolean TNqCriticalSectionArrayInternal::Initialize(int32 count)
{
    CleanUp();
    if (!NqCheck(count >= 0) || !NqCheck(fWaitingThreads != nullptr && fThreadsToCheck != nullptr))
        return false;
    if (!MakeSlots(static_cast<uint32>(count)))
    {
        Delete(fStates);
        Delete(fWaiters);
        return false;
    }
    fCount = count;
    return true;
}

// Makes room among the dropped counters first: dropping must not fail.
boolean TNqCriticalSectionArrayInternal::MakeSlots(uint32 inCount)
{
    if (!fStates.SetElemCount(inCount) || !fWaiters.SetElemCount(inCount) ||
        !fDropped.SetElemSpace(fDropped.GetElemCount() + 2 * inCount))
        return false;
    for (uint32 i = 0; i < inCount; ++i)
    {
        fStates[i] = NqNewZeroCounter();
        fWaiters[i] = NqNewZeroCounter();
        if (!NqCheck(fStates[i] != nullptr && fWaiters[i] != nullptr))
            return false;
    }
    return true;
}

// No counter goes back to the host: a thread that is slow to leave may still touch one.
void TNqCriticalSectionArrayInternal::CleanUp()
{
    fCount = 0;
    Drop(fStates);
    Drop(fWaiters);
}

void TNqCriticalSectionArrayInternal::Drop(TCounters& ioCounters)
{
    const uint32 before = fDropped.GetElemCount();
    fDropped.SetElemCount(before + ioCounters.GetElemCount());
    for (uint32 i = 0; i < ioCounters.GetElemCount(); ++i)
        fDropped[before + i] = ioCounters[i];
    ioCounters.ArrayFree();
}

void TNqCriticalSectionArrayInternal::Delete(TCounters& ioCounters)
{
    for (uint32 i = 0; i < ioCounters.GetElemCount(); ++i)
        NqDeleteCounter(ioCounters[i]);
    ioCounters.ArrayFree();
}

// A thread that failed was in the way of others while it tried: one that failed because of it may sleep although the
// slot has become free. And a unit may wake a thread of another slot than the one that was left. So whoever sleeps has
// looked at its slot once it could be seen waiting, and whoever took a unit sees to it that the unit was not meant for
// another. Neither is enough by itself.
void TNqCriticalSectionArrayInternal::EnterTaken(int32 inIndex)
{
    bool woken = false; // took a unit and has not passed it on
    do
    {
        DecrementAtomicCounter(State(inIndex));
        if (DecrementAtomicCounter(fThreadsToCheck) > 0)
            NqSignal(fSemaphore);
        AddWaiter(inIndex);
        if (woken)
        {
            PassOn();
            gShellThreadUtilities->Yield(0); // the one who is meant comes first
        }
        woken = GetAtomicCounterValueOrdered(State(inIndex)) != 0;
        if (woken)
            NqAwaitSignal(fSemaphore);
        RemoveWaiter(inIndex);
    } while (IncrementAtomicCounter(State(inIndex)) >= 2);
    if (woken)
        PassOn();
}

void TNqCriticalSectionArrayInternal::AddWaiter(int32 inIndex)
{
    IncrementAtomicCounter(Waiters(inIndex));
    IncrementAtomicCounter(fWaitingThreads);
}

void TNqCriticalSectionArrayInternal::RemoveWaiter(int32 inIndex)
{
    DecrementAtomicCounter(Waiters(inIndex));
    DecrementAtomicCounter(fWaitingThreads);
}

// Signals once if some thread waits for a slot that is free.
void TNqCriticalSectionArrayInternal::PassOn()
{
    for (int32 i = 0; i < fCount; ++i)
    {
        if (GetAtomicCounterValueOrdered(Waiters(i)) > 0 && GetAtomicCounterValueOrdered(State(i)) == 0)
        {
            NqSignal(fSemaphore);
            return;
        }
    }
}

TNqCriticalSectionArray::TNqCriticalSectionArray() : fInternal(new TNqCriticalSectionArrayInternal)
{
    NqCheck(fInternal != nullptr);
}

TNqCriticalSectionArray::~TNqCriticalSectionArray()
{
    delete fInternal;
}

inline bool TNqCriticalSectionArray::HasSlot(int32 inIndex) const
{
    return NqCheckText(fInternal != nullptr && fInternal->HasSlot(inIndex), "index < fInternal->fCount");
}

boolean TNqCriticalSectionArray::Initialize(int32 inCount)
{
    return NqCheck(fInternal != nullptr) && fInternal->Initialize(inCount);
}

void TNqCriticalSectionArray::Enter(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->Enter(inIndex);
}

void TNqCriticalSectionArray::Leave(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->Leave(inIndex);
}

void TNqCriticalSectionArray::CleanUp()
{
    if (fInternal != nullptr)
        fInternal->CleanUp();
}
