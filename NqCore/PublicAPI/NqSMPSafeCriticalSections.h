// Sections for data that the threads outside the worker pool share with those inside it, such as the main thread with a
// running job. Threads outside wait for each other by yielding, so that one of them is known to be inside.
//
//     TNqSafeSection fSection;
//     {
//         CWhileInSafeCS inside(fSection);
//         ...
//     }
//
//     TNqSafeCriticalSection fModelLock;              // for code that may call back into itself
//     const int32 previous = fModelLock.Enter(true);  // false: a second entry by the same thread throws
//     ...
//     fModelLock.Leave(previous);
//
// A lock that is neither met by outside threads nor entered twice is better an NqSMPCriticalSection.h.
//
// Threads: any; on those of the pool both are the host's section and nothing more, which lets in again whoever holds
// it. CWhileInSafeCS is not recursive outside the pool: such a thread waits for itself for ever. Cost: a host section;
// outside the pool also two stores, and a time slice given up for each look at a taken one. Failure: without memory
// there is no host section; every use is reported, and nobody is kept out.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqObject.h"

#include <atomic>

// A host section, and whether a thread from outside the pool is inside. Entered through CWhileInSafeCS.
class TNqSafeSection : public TNqObject
{
public:
    TNqSafeSection() : fCS(NewCS()), fMainThreadInside(false) {}
    // Nobody may be inside; reported when a thread from outside the pool still is.
    ~TNqSafeSection();
    TNqSafeSection(const TNqSafeSection&) = delete;
    TNqSafeSection& operator=(const TNqSafeSection&) = delete;

    // Null when the host could not make one; then Enter and Leave do nothing.
    TNqCriticalSection* GetCS() const { return fCS; }

    boolean IsMainThreadInside() const { return fMainThreadInside.load(std::memory_order_acquire); }
    void SetMainThreadInside(boolean inInside) const { fMainThreadInside.store(inInside, std::memory_order_release); }

    void Enter() const;
    void Leave() const;

private:
    friend struct TNqSafeSectionLayout;

    TNqCriticalSection* fCS;
    mutable std::atomic<boolean> fMainThreadInside;
};

// Is inside a section for as long as it lives.
class CWhileInSafeCS : public TNqObject
{
public:
    explicit CWhileInSafeCS(TNqSafeSection& ioSection);
    ~CWhileInSafeCS();
    CWhileInSafeCS(const CWhileInSafeCS&) = delete;
    CWhileInSafeCS& operator=(const CWhileInSafeCS&) = delete;

private:
    const TNqSafeSection& fCS;
    boolean fIsInMainSMPProcess; // whether the thread comes from outside the pool
};

// A section that knows which thread from outside the pool is inside.
class TNqSafeCriticalSection : public TNqObject
{
public:
    TNqSafeCriticalSection() : fCS(NewCS()), fThreadID(kNoThread) {}
    ~TNqSafeCriticalSection();
    TNqSafeCriticalSection(const TNqSafeCriticalSection&) = delete;
    TNqSafeCriticalSection& operator=(const TNqSafeCriticalSection&) = delete;

    // Waits until the section is free, and enters it. Returns the owner before, which Leave wants back: 0, or the id of
    // the calling thread when it was inside already. That throws kNqErrSection unless allowed, and changes nothing.
    int32 Enter(boolean inAllowReentry);

    // Leaves once; inPreviousOwner is what the matching Enter returned.
    void Leave(int32 inPreviousOwner);

private:
    friend struct TNqSafeSectionLayout;
    static constexpr int32 kNoThread = 0;

    void EnterFromOutside(int32 inThreadID);
    void EnterHostSection();

    TNqCriticalSection* fCS;      // null when the host could not make one
    std::atomic<int32> fThreadID; // the thread inside, kNoThread when it belongs to the pool or there is none
};
