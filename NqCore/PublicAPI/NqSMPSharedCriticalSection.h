// Reader/writer locks: any number of threads inside to read, or one to write. For caches and tables that are looked up
// far more often than they change; where every access changes something, NqSMPCriticalSection.h is cheaper.
//
//     TNqSharedCriticalSection lock;
//     lock.EnterShared();                     // readers do not wait for each other
//     const bool found = cache.Find(key, value);
//     lock.LeaveShared();
//     if (!found)
//     {
//         lock.EnterExclusive();              // waits until the readers have left
//         cache.Add(key, value);
//         lock.LeaveExclusive();
//     }
//
// TNqSharedCriticalSectionArray has many such locks, its slots, which share one semaphore and need no host section
// each.
//
// Threads: any. Not recursive in either mode, and a reader cannot become a writer: it would wait for itself. A writer
// that waits keeps new readers out, so readers may wait long behind a stream of writers; a writer waits only for the
// readers that were there before it. No wake-up is lost.
// Exceptions: nothing leaves by itself; catch what the code inside may throw.
// Cost: a reader pays for two counters; many of them share one cache line, so short reads on many cores slow each other
// down. A writer pays for a section and two counters.
// Failure: a host without memory is reported by the constructor and by Initialize. A lock that is not there is reported
// by every call, which then does nothing: nobody is kept out.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqObject.h"

class TNqSharedCriticalSectionInternal;
class TNqSharedCriticalSectionArrayInternal;

class TNqSharedCriticalSection : public TNqObject
{
public:
    TNqSharedCriticalSection();
    // Nobody may be inside, or on the way in or out.
    ~TNqSharedCriticalSection();
    TNqSharedCriticalSection(const TNqSharedCriticalSection&) = delete;
    TNqSharedCriticalSection& operator=(const TNqSharedCriticalSection&) = delete;

    // False when the host had no memory for it.
    boolean IsValid() const;

    // Waits until no writer is inside or waiting.
    void EnterShared();
    void LeaveShared();

    // Waits for the writer before, then until the readers have left.
    void EnterExclusive();
    void LeaveExclusive();

private:
    TNqSharedCriticalSectionInternal* fInternal; // owned; null without memory
};

// The same for each of its slots.
class TNqSharedCriticalSectionArray : public TNqObject
{
public:
    // No slots yet.
    TNqSharedCriticalSectionArray();
    // Nobody may be in a slot, or on the way into or out of one.
    ~TNqSharedCriticalSectionArray();
    TNqSharedCriticalSectionArray(const TNqSharedCriticalSectionArray&) = delete;
    TNqSharedCriticalSectionArray& operator=(const TNqSharedCriticalSectionArray&) = delete;

    // Makes `inCount` free slots in place of those there were, in which nobody may be. False, and no slots, without
    // memory or with a negative count.
    boolean Initialize(int32 inCount);

    void EnterShared(int32 inIndex);
    void LeaveShared(int32 inIndex);
    void EnterExclusive(int32 inIndex);
    void LeaveExclusive(int32 inIndex);

private:
    bool HasSlot(int32 inIndex) const;

    TNqSharedCriticalSectionArrayInternal* fInternal; // owned; null without memory
};
