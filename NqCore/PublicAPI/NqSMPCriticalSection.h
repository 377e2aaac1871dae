// Mutual exclusion: a guard for one host section, and an array of slots that are locked apart from each other.
//
//     {
//         CWhileInCS inside(fCS);                  // entered
//         ...
//     }                                            // left, also when an exception passes
//
//     TNqCriticalSectionArray locks;               // for many objects, cheaper than a section for each
//     if (!locks.Initialize(64))
//         return false;
//     ...
//     CWhileInCSArray inside(locks, key % 64);
//
// When many readers share what a few writers change, use NqSMPSharedCriticalSection.h.
//
// Threads: any. A slot is not recursive: a thread that enters one it holds waits for ever; it may hold several, taken
// by all threads in one order. No wake-up is lost, but nothing is promised about who comes first. Cost: a free slot is
// entered with one counter and left with two and a signal. A thread that finds its slot taken sleeps on the one
// semaphore that all slots share, so a release may wake a thread of another slot; that one hands the wake-up on, for
// which it looks at every slot. Failure: a host without memory is reported by the constructor and by Initialize, and
// leaves an array of no slots. A slot that does not exist is reported by every Enter and Leave, which then do nothing:
// nobody is kept out.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqObject.h"

class TNqCriticalSectionArrayInternal;

// Enters one host section for as long as it lives. Null: none is entered.
class CWhileInCS : public TNqObject
{
public:
    explicit CWhileInCS(TNqCriticalSection* inCs) : fCS(inCs)
    {
        if (fCS != nullptr)
            EnterCS(fCS);
    }
    ~CWhileInCS() { Clean(); }
    CWhileInCS(const CWhileInCS&) = delete;
    CWhileInCS& operator=(const CWhileInCS&) = delete;

    // Leaves now instead of at the end of the scope.
    void Clean()
    {
        if (fCS != nullptr)
            LeaveCS(fCS);
        fCS = nullptr;
    }

private:
    TNqCriticalSection* fCS; // null when nothing is held
};

class TNqCriticalSectionArray : public TNqObject
{
public:
    // No slots yet.
    TNqCriticalSectionArray();
    // Nobody may be in a slot, or on the way into or out of one.
    ~TNqCriticalSectionArray();
    TNqCriticalSectionArray(const TNqCriticalSectionArray&) = delete;
    TNqCriticalSectionArray& operator=(const TNqCriticalSectionArray&) = delete;

    // Makes `inCount` free slots in place of those there were, in which nobody may be. False, and no slots, without
    // memory or with a negative count.
    boolean Initialize(int32 inCount);

    // Waits until the slot is free, and takes it.
    void Enter(int32 inIndex);

    // Frees a slot that the calling thread holds.
    void Leave(int32 inIndex);

    // Drops all slots, in which nobody may be. What belonged to them goes back to the host with the array itself.
    void CleanUp();

private:
    bool HasSlot(int32 inIndex) const;

    TNqCriticalSectionArrayInternal* fInternal; // owned; null without memory
};

// Holds one slot for as long as it lives. Null: none is entered.
class CWhileInCSArray
{
public:
    CWhileInCSArray(TNqCriticalSectionArray& ioArray, int32 inIndex) : CWhileInCSArray(&ioArray, inIndex) {}
    CWhileInCSArray(TNqCriticalSectionArray* inArray, int32 inIndex) : fCS(inArray), fIndex(inIndex)
    {
        if (fCS != nullptr)
            fCS->Enter(fIndex);
    }
    ~CWhileInCSArray() { Clean(); }
    CWhileInCSArray(const CWhileInCSArray&) = delete;
    CWhileInCSArray& operator=(const CWhileInCSArray&) = delete;

    // Leaves now instead of at the end of the scope.
    void Clean()
    {
        if (fCS != nullptr)
            fCS->Leave(fIndex);
        fCS = nullptr;
    }

private:
    TNqCriticalSectionArray* fCS; // null when nothing is held
    int32 fIndex;
};
