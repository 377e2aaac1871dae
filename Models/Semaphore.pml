/*
 * The host's semaphore (NqHost/Source/Semaphores.cpp), on which the models of the locks build: one word of units and
 * sleepers, and a mutex with a condition for those who sleep.
 *
 * What is shown, in every interleaving:
 *   no lost unit       Quiescence: whenever nothing can move, nobody sleeps while there is a unit
 *   the word           it counts the sleepers, and never more units than the maximum
 *   deletion           (-DDELETES) a thread that knows that all units have been taken may delete the semaphore, though a
 *                      signal may not have returned
 *
 * Threads go round without end, signal or wait, and each may stop for good between two rounds. A wait may have a time
 * limit; then its sleep may end at any moment.
 *
 * From model to code: units and sleepers are the halves of fState, mutex is fMutex, blocked the threads inside
 * fWake.wait. A loop around a compare-exchange is the one step in which it succeeds or gives up.
 *
 * Settings (-D): THREADS, MAXUNITS. DELETES: two signals, two waits, then the end of the semaphore.
 *   LOOKS_FIRST        a sleeper looks for a unit before it is counted, and not again: it may be forgotten
 *   NO_LAST_LOCK       the destructor does not take the mutex: a signal may still hold it
 */

#ifndef THREADS
#define THREADS 4
#endif
#ifndef MAXUNITS
#define MAXUNITS 1
#endif

byte units;
byte sleepers;
bit mutex;
bit blocked[THREADS];
byte returned;     /* waits that have returned, with DELETES */
bool dead = false; /* the semaphore */

#define Lock atomic { !mutex -> assert(!dead); mutex = 1 }
#define Unlock atomic { assert(!dead); mutex = 0 }

/* Wakes one of those who are blocked. */
inline Notify()
{
    atomic
    {
        assert(!dead);
        if
        :: blocked[0] -> blocked[0] = 0
        :: blocked[1] -> blocked[1] = 0
        :: blocked[2] -> blocked[2] = 0
#if THREADS > 3
        :: blocked[3] -> blocked[3] = 0
#endif
        :: else
        fi
    }
}

proctype Thread(byte me)
{
    bit limited = 0;

next:
#ifdef DELETES
    if :: me < 2 -> goto signal :: else -> goto wait fi;
#else
    if :: goto stopped :: goto signal :: limited = 0 :: limited = 1 fi;
    goto wait;
#endif

signal:
    atomic /* AddUnit(false) */
    {
        assert(!dead);
        if
        :: units >= MAXUNITS -> goto done
        :: units < MAXUNITS && sleepers > 0
        :: else -> units++; goto done
        fi
    };
    Lock;
    atomic { if :: units < MAXUNITS -> units++ :: else fi }; /* AddUnit(true) */
    Notify();
    Unlock;
    goto done;

wait:
    atomic { if :: units > 0 -> units--; goto took :: else fi }; /* TakeUnit(0) */
    Lock;
#ifdef LOOKS_FIRST
    atomic { if :: units > 0 -> units--; Unlock; goto took :: else fi };
    sleepers++;
    goto sleep;
#else
    sleepers++;
#endif
look:
    atomic { if :: units > 0 -> units--; sleepers--; goto leave :: else fi }; /* TakeUnit(kSleeper) */
#ifdef LOOKS_FIRST
sleep:
#endif
    atomic { blocked[me] = 1; mutex = 0 };
    if
    :: !blocked[me]
    :: atomic { limited -> blocked[me] = 0 };
        Lock;
        atomic { if :: units > 0 -> units--; sleepers--; goto leave :: else fi };
        sleepers--;
        goto leave
    fi;
    Lock;
    goto look;
leave:
    Unlock;
took:
#ifdef DELETES
    returned++;
done:
#else
done:
    goto next;
#endif

stopped:
    false
}

active proctype Quiescence()
{
    bool hang = false;
#ifdef DELETES
    returned == 2;
#ifndef NO_LAST_LOCK
    Lock;
    Unlock;
#endif
    dead = true;
#endif
    timeout;
    hang = units > 0 && (blocked[0] || blocked[1] || blocked[2] || blocked[THREADS - 1]);
    assert(!hang);
    assert(sleepers == blocked[0] + blocked[1] + blocked[2] + (THREADS > 3 -> blocked[THREADS - 1] : 0))
}

init
{
    byte t = 0;
    atomic
    {
        do
        :: t < THREADS -> run Thread(t); t++
        :: else -> break
        od
    }
}
