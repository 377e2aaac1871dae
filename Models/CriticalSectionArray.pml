/*
 * The array of sections (NqCore/Source/Common/NqSMPCriticalSection.cpp): slots that are locked apart and share one
 * semaphore.
 *
 * What is shown, in every interleaving of the host calls:
 *   exclusion          assert in `again`: a thread that takes a slot finds nobody in it
 *   no lost wake-up    Quiescence: whenever nothing can move, every sleeper's slot is held by a thread that stays in it
 *   progress           (pan -l -f) no endless run in which nobody gets a slot
 *
 * Threads go round without end; each may stop for good outside of its slot, or in it. So a wake-up is not excused by
 * some later one, and a holder that takes its time is covered too.
 *
 * From model to code: each statement is one host call, atomic there and sequentially consistent, but for the two calls
 * by which a release sets fThreadsToCheck (STALE and ANY_FORWARD).
 *   state, waiters     fStates, fWaiters: the counters of the slots
 *   waiting, toCheck   fWaitingThreads, fThreadsToCheck. The latter stops at 0 here; the code only asks whether a
 *                      decrement left it above 0, which no value of 0 or less ever does
 *   units              fSemaphore, MAXUNITS its maximum
 *   inside             ghost: threads that hold the slot. It changes in one step with the counter.
 *
 * Settings (-D):
 *   SLOTS, THREADS     thread t keeps to slot t % SLOTS, unless
 *   FIRST=n            the first n threads take slot 0, the others slot 1
 *   CHOOSE             each round takes a slot of its choice, of three at most
 *   NESTED             a holder of slot 0 may take slot 1 too
 *   ROUNDS=n           each thread goes round n times at most; for semaphores without maximum (MAXUNITS=250,
 *                      which is never reached)
 *   STALE              Leave reads any number of waiting threads: that read is not ordered in the code
 *   ANY_FORWARD        a failed try forwards the wake-up or not, as it likes, whatever it sees of fThreadsToCheck and
 *                      whenever: fewer states, more behaviours
 *   FIFO               the semaphore serves in order of arrival. Progress needs that: the code yields after passing a
 *                      unit on, so that the thread for which it is meant comes first; a scheduler that never ran that
 *                      thread could let the passer take its own unit for ever
 *   CHECKS_SLOT=0      without the look at the own slot before sleeping
 *   PASSES_ON=0        without passing on. 1: only when the own slot is still taken, 2: only when it was got. With both
 *                      settings 0 this is the plain algorithm, which loses wake-ups.
 */

#ifndef SLOTS
#define SLOTS 2
#endif
#ifndef THREADS
#define THREADS 3
#endif
#ifndef MAXUNITS
#define MAXUNITS 1
#endif
#ifndef CHECKS_SLOT
#define CHECKS_SLOT 1
#endif
#ifndef PASSES_ON
#define PASSES_ON 3
#endif
#ifdef FIRST
#define HOME(t) (t >= FIRST -> 1 : 0)
#else
#define HOME(t) (t % SLOTS)
#endif

byte state[SLOTS];
byte waiters[SLOTS];
byte units;
byte inside[SLOTS];
#ifndef ANY_FORWARD
byte waiting;
byte toCheck;
#endif
#ifdef FIFO
chan sleepers = [THREADS] of { byte };
#endif

/* SignalSemaphore */
inline Signal()
{
    d_step
    {
        if :: units < MAXUNITS -> units++ :: else fi;
        assert(units < 250)
    }
}

/* TNqCriticalSectionArrayInternal::PassOn */
inline PassOn()
{
    j = 0;
    do
    :: atomic { waiters[j] == 0 -> j++; if :: j == SLOTS -> break :: else fi }
    :: atomic { waiters[j] > 0 -> skip };
        if
        :: state[j] == 0 -> Signal(); break
        :: atomic { state[j] != 0 -> j++; if :: j == SLOTS -> break :: else fi }
        fi
    od;
    j = 0
}

proctype Thread(byte slot)
{
    byte j = 0;
    byte w = 0;
    bit woken = 0;
#ifdef NESTED
    bit outer = 0; /* holds slot 0 while it is about slot 1 */
#endif
#ifdef ROUNDS
    byte round = 0;
#endif

next:
#ifdef ROUNDS
    if :: atomic { round < ROUNDS -> round++ } :: else -> goto stopped fi;
#else
    if :: goto stopped :: skip fi;
#endif
#ifdef CHOOSE
    if
    :: slot = 0
    :: slot = 1
#if SLOTS > 2
    :: slot = 2
#endif
    fi;
#endif

    /* Enter */
again: /* if (IncrementAtomicCounter(state) < 2) */
    atomic
    {
        state[slot]++;
        if
        :: state[slot] < 2 -> inside[slot]++; assert(inside[slot] == 1); goto got
        :: else
        fi
    };
    state[slot]--; /* DecrementAtomicCounter(state) */
    /* if (DecrementAtomicCounter(fThreadsToCheck) > 0) SignalSemaphore(fSemaphore) */
#ifdef ANY_FORWARD
    if :: goto failed :: skip fi;
#else
    atomic { if :: toCheck > 0 -> toCheck-- :: else fi; if :: toCheck == 0 -> goto failed :: else fi };
#endif
    Signal();
failed: /* AddWaiter */
    waiters[slot]++;
#ifndef ANY_FORWARD
    waiting++;
#endif
#if PASSES_ON & 1
    if
    :: woken -> woken = 0; PassOn()
    :: else
    fi;
#endif
#if CHECKS_SLOT
    /* if (GetAtomicCounterValueOrdered(state) != 0) WaitForSemaphore(fSemaphore, -1) */
    if
    :: state[slot] == 0 -> goto lower
    :: else
    fi;
#endif
#ifdef FIFO
    sleepers!_pid;
sleep:
    atomic { units > 0 && sleepers?[eval(_pid)] -> sleepers?eval(_pid); units--; woken = 1 };
#else
sleep:
    atomic { units > 0 -> units--; woken = 1 };
#endif
lower: /* RemoveWaiter */
    waiters[slot]--;
#ifndef ANY_FORWARD
    waiting--;
#endif
    goto again;
got:
#if PASSES_ON & 2
    if
    :: woken -> woken = 0; PassOn()
    :: else
    fi;
#endif
    woken = 0;

    /* between Enter and Leave */
progress:
    if
    :: skip
    :: goto stopped
#ifdef NESTED
    :: atomic { slot == 0 && !outer -> outer = 1; slot = 1 }; goto again
#endif
    fi;

    /* Leave */
leave: /* DecrementAtomicCounter(state) */
    atomic { inside[slot]--; state[slot]-- };
#ifndef ANY_FORWARD
    /* SetAtomicCounterValue(fThreadsToCheck, GetAtomicCounterValue(fWaitingThreads)) */
#ifdef STALE
    select(w : 0 .. THREADS);
#else
    w = waiting;
#endif
    d_step { toCheck = w; w = 0 };
#endif
    Signal();
#ifdef NESTED
    if
    :: atomic { outer -> outer = 0; slot = 0 }; goto leave
    :: else
    fi;
#endif
    goto next;

stopped:
    false
}

active proctype Quiescence()
{
    byte s = 0;
    bool lostWakeUp = false;
    timeout;
    d_step
    {
        do
        :: s < SLOTS -> lostWakeUp = lostWakeUp || (waiters[s] > 0 && inside[s] == 0); s++
        :: else -> break
        od
    };
    assert(!lostWakeUp)
}

init
{
    byte t = 0;
    atomic
    {
        do
        :: t < THREADS -> run Thread(HOME(t)); t++
        :: else -> break
        od
    }
}
