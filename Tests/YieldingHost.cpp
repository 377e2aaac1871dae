#include "Tests/YieldingHost.h"

#include "NqCore/PublicAPI/NqHostServices.h"

#include <sched.h>
#include <unistd.h>

#include <random>

namespace
{

thread_local unsigned tEvery = 0;
thread_local std::minstd_rand tRandom;

class TYields
{
public:
    TYields() { Yield(); }
    ~TYields() { Yield(); }

private:
    static void Yield()
    {
        if (tEvery == 0 || tRandom() % tEvery != 0)
            return;
        if (tRandom() % 16 == 0)
            usleep(50);
        else
            sched_yield();
    }
};

} // namespace

void YieldAroundHostCalls(unsigned every, unsigned seed)
{
    tRandom.seed(seed);
    tEvery = every;
}

// The linker sends calls of f to __wrap_f and those of __real_f to f (--wrap in CMakeLists.txt).
#define DIVERT(result, name, mangled, parameters, arguments)     \
    result Real##name parameters __asm__("__real_" mangled);     \
    result Diverted##name parameters __asm__("__wrap_" mangled); \
    result Diverted##name parameters                             \
    {                                                            \
        const TYields yields;                                    \
        return Real##name arguments;                             \
    }

DIVERT(int32, Increment, "_Z22IncrementAtomicCounterRP16TNqAtomicCounter", (TNqAtomicCounter * &c), (c))
DIVERT(int32, Decrement, "_Z22DecrementAtomicCounterRP16TNqAtomicCounter", (TNqAtomicCounter * &c), (c))
DIVERT(int32, Get, "_Z21GetAtomicCounterValueP16TNqAtomicCounter", (TNqAtomicCounter * c), (c))
DIVERT(int32, GetOrdered, "_Z28GetAtomicCounterValueOrderedRKP16TNqAtomicCounter", (TNqAtomicCounter* const& c), (c))
DIVERT(void, Set, "_Z21SetAtomicCounterValueRP16TNqAtomicCounteri", (TNqAtomicCounter * &c, int value), (c, value))
DIVERT(void, Signal, "_Z15SignalSemaphoreP12TNqSemaphore", (TNqSemaphore * s), (s))
DIVERT(NqErr, Wait, "_Z16WaitForSemaphoreP12TNqSemaphorei", (TNqSemaphore * s, int milliseconds), (s, milliseconds))
DIVERT(void, Enter, "_Z7EnterCSP18TNqCriticalSection", (TNqCriticalSection * s), (s))
DIVERT(void, Leave, "_Z7LeaveCSP18TNqCriticalSection", (TNqCriticalSection * s), (s))
