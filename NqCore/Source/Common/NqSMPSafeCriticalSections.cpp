#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"

#include "NqCore/PublicAPI/NqException.h"

// Models/SafeSection.pml and Models/SafeCriticalSection.pml show, for every order in which threads can take their
// steps, that the flag and the owner tell the truth about the thread inside. A change here is a change there.
//
// Neither needs more than release and acquire: what a thread inside must read is what it has written itself, and any
// write of the thread before it stands before its entering the host's section.

struct TNqSafeSectionLayout
{
    static_assert(sizeof(std::atomic<boolean>) == sizeof(boolean) && sizeof(std::atomic<int32>) == sizeof(int32) &&
                      offsetof(TNqSafeSection, fCS) == 0 && offsetof(TNqSafeSection, fMainThreadInside) == 8 &&
                      offsetof(TNqSafeCriticalSection, fCS) == 0 && offsetof(TNqSafeCriticalSection, fThreadID) == 8 &&
                      sizeof(TNqSafeSection) == 16 && sizeof(TNqSafeCriticalSection) == 16 &&
                      sizeof(CWhileInSafeCS) == 16,
                  "locks are shared with modules built elsewhere");
};

TNqSafeSection::~TNqSafeSection()
{
    NqCheck(!fMainThreadInside);
    if (fCS != nullptr)
        DeleteCS(fCS);
}

void TNqSafeSection::Enter() const
{
    if (fCS != nullptr)
        EnterCS(fCS);
}

void TNqSafeSection::Leave() const
{
    if (fCS != nullptr)
        LeaveCS(fCS);
}

// The flag is set a second time inside: the thread for which this one waited cleared it on its way out.
CWhileInSafeCS::CWhileInSafeCS(TNqSafeSection& ioSection) : fCS(ioSection), fIsInMainSMPProcess(IsInMainSMPProcess())
{
    if (!NqCheckText(fCS.GetCS() != nullptr, "&fCS && fCS.GetCS()"))
        return;
    if (!fIsInMainSMPProcess)
    {
        fCS.Enter();
        return;
    }
    while (fCS.IsMainThreadInside())
        gShellThreadUtilities->Yield(0);
    fCS.SetMainThreadInside(true);
    fCS.Enter();
    fCS.SetMainThreadInside(true);
}

CWhileInSafeCS::~CWhileInSafeCS()
{
    NqCheckText(fCS.GetCS() != nullptr, "fCS.GetCS()");
    if (fIsInMainSMPProcess)
        fCS.SetMainThreadInside(false);
    fCS.Leave();
}

TNqSafeCriticalSection::~TNqSafeCriticalSection()
{
    if (fCS != nullptr)
        DeleteCS(fCS);
}

inline void TNqSafeCriticalSection::EnterHostSection()
{
    if (NqCheckText(fCS != nullptr, "fCS"))
        EnterCS(fCS);
}

// The owner is recorded inside the host's section: done before, it would overwrite that of the thread inside, which
// would then not be recognised when it comes again, and wait for itself.
inline void TNqSafeCriticalSection::EnterFromOutside(int32 inThreadID)
{
    while (fThreadID.load(std::memory_order_acquire) != kNoThread)
        gShellThreadUtilities->Yield(0);
    EnterHostSection();
    fThreadID.store(inThreadID, std::memory_order_release);
}

int32 TNqSafeCriticalSection::Enter(boolean inAllowReentry)
{
    if (!IsInMainSMPProcess())
    {
        EnterHostSection();
        return kNoThread;
    }
    const int32 threadID = gShellThreadUtilities->GetCurrentThreadID();
    NqCheckText(threadID != kNoThread, "threadId != kUndefinedThreadID");
    if (fThreadID.load(std::memory_order_acquire) != threadID)
    {
        EnterFromOutside(threadID);
        return kNoThread;
    }
    if (!inAllowReentry)
        throw TNqException(kNqErrSection, NqSourcePath(__FILE__), __LINE__);
    EnterHostSection();
    return threadID;
}

void TNqSafeCriticalSection::Leave(int32 inPreviousOwner)
{
    if (IsInMainSMPProcess())
        fThreadID.store(inPreviousOwner, std::memory_order_release);
    if (NqCheckText(fCS != nullptr, "fCS"))
        LeaveCS(fCS);
}
