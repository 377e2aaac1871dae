// The host's semaphores and counters as the locks hold them: null when the host had none to give.
//
// A lock without its semaphore still excludes: nobody sleeps then, and a wait only gives up the time slice.

#pragma once

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"

inline TNqAtomicCounter* NqNewZeroCounter()
{
    TNqAtomicCounter* counter = NewAtomicCounter();
    if (counter != nullptr)
        SetAtomicCounterValue(counter, 0);
    return counter;
}

inline void NqDeleteCounter(TNqAtomicCounter* inCounter)
{
    if (inCounter != nullptr)
        DeleteAtomicCounter(inCounter);
}

inline void NqDeleteSemaphore(TNqSemaphore* inSemaphore)
{
    if (inSemaphore != nullptr)
        DeleteSemaphore(inSemaphore);
}

inline void NqSignal(TNqSemaphore* inSemaphore)
{
    if (inSemaphore != nullptr)
        SignalSemaphore(inSemaphore);
}

inline void NqAwaitSignal(TNqSemaphore* inSemaphore)
{
    constexpr int kWithoutLimit = -1;
    if (inSemaphore == nullptr || WaitForSemaphore(inSemaphore, kWithoutLimit) != kNqNoErr)
        gShellThreadUtilities->Yield(0);
}
