/*
 * Reader/writer locks (NqCore/Source/Common/NqSMPSharedCriticalSection.cpp): the single one (SLOTS=1, PASSES_ON=0), and
 * the array, whose slots share the semaphore on which writers wait for readers to leave.
 *
 * What is shown, in every interleaving of the host calls:
 *   exclusion          Reading and Writing: a writer is alone in its slot
 *   no lost wake-up    Quiescence: whenever nothing can move, a sleeping writer has a reader in its slot that stays
 *                      there, and whoever queues for a slot's writer section finds it held
 *   progress           (pan -l -f) no endless run in which nobody gets in
 *
 * Threads go round without end, as reader or writer of any slot; each may stop for good outside, or inside.
 *
 * From model to code: each statement is one host call, atomic there and sequentially consistent.
 *   readers, writers   fReaderCount, fHasWriter
 *   units              fReaderWait, MAXUNITS its maximum
 *   writeCS            fWriteCS. The array's own is the array of sections, which has a model of its own; here it is a
 *                      section that lets in one thread at a time, and any of those that wait
 *   reading, writing   ghosts: threads inside
 *
 * Settings (-D): SLOTS, THREADS, MAXUNITS, ROUNDS, FIFO as in CriticalSectionArray.pml. HOME keeps thread t to slot
 * t % SLOTS. NESTED: a reader or writer of slot 0 may enter slot 1 too. PASSES_ON=0: the plain algorithm; right for a
 * single lock, whose units nobody else takes, and losing wake-ups in an array.
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
#ifndef PASSES_ON
#define PASSES_ON 1
#endif

byte readers[SLOTS];
byte writers[SLOTS];
byte units = 1;
bit writeCS[SLOTS];
byte reading[SLOTS];
byte writing[SLOTS];
byte asleep[SLOTS]; /* ghost: writers that wait for a unit */
#ifdef FIFO
chan sleepers = [THREADS] of { byte };
#endif

inline Signal()
{
    d_step
    {
        if :: units < MAXUNITS -> units++ :: else fi;
        assert(units < 250)
    }
}

/* The scope of a writer section that a reader enters and leaves at once. */
inline AwaitWriter()
{
    atomic { !writeCS[slot] -> writeCS[slot] = 1 };
    writeCS[slot] = 0
}

/* TNqSharedCriticalSectionArrayInternal::PassOn */
inline PassOn()
{
    j = 0;
    do
    :: atomic { j == slot || writers[j] <= 1 -> j++; if :: j >= SLOTS -> break :: else fi }
    :: atomic { j != slot && writers[j] > 1 -> skip };
        if
        :: readers[j] == 0 -> Signal(); break
        :: atomic { readers[j] != 0 -> j++; if :: j >= SLOTS -> break :: else fi }
        fi
    od;
    j = 0
}

proctype Thread(byte t)
{
    byte slot = 0;
    byte j = 0;
#ifdef NESTED
    byte outer = 0; /* how it holds slot 0 while it is about slot 1: 1 to read, 2 to write */
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
#if SLOTS > 1
#ifdef HOME
    slot = t % SLOTS;
#else
    if
    :: slot = 0
    :: slot = 1
#if SLOTS > 2
    :: slot = 2
#endif
    fi;
#endif
#endif
again:
    if :: skip :: goto write fi;

    /* EnterShared */
    if
    :: writers[slot] != 0 -> AwaitWriter()
    :: else
    fi;
tryRead:
    readers[slot]++;
    /* if (GetAtomicCounterValueOrdered(fHasWriter) == 0) return */
    atomic
    {
        if
        :: writers[slot] == 0 -> reading[slot]++; assert(writing[slot] == 0); goto progressRead
        :: else
        fi
    };
    atomic { readers[slot]--; if :: readers[slot] != 0 -> goto queue :: else fi };
    Signal();
queue:
    AwaitWriter();
    goto tryRead;

progressRead:
    if
    :: skip
    :: goto stopped
#ifdef NESTED
    :: atomic { slot == 0 && !outer -> outer = 1; slot = 1 }; goto again
#endif
    fi;

leaveShared: /* LeaveShared */
    atomic { reading[slot]--; readers[slot]--; if :: readers[slot] != 0 -> goto left :: else fi };
    if
    :: writers[slot] != 0 -> Signal()
    :: else
    fi;
    goto left;

    /* EnterExclusive */
write:
    atomic { !writeCS[slot] -> writeCS[slot] = 1 };
    writers[slot]++;
#if PASSES_ON
    if
    :: readers[slot] == 0 -> goto alone
    :: else -> writers[slot]++
    fi;
#endif
drain:
    if
    :: readers[slot] == 0 -> goto drained
    :: else
    fi;
    asleep[slot] = 1;
#ifdef FIFO
    sleepers!_pid;
sleep:
    atomic { units > 0 && sleepers?[eval(_pid)] -> sleepers?eval(_pid); units--; asleep[slot] = 0 };
#else
sleep:
    atomic { units > 0 -> units--; asleep[slot] = 0 };
#endif
#if PASSES_ON
    PassOn();
#endif
    goto drain;
drained:
#if PASSES_ON
    writers[slot]--;
#endif
alone:
    atomic { writing[slot]++; assert(writing[slot] == 1 && reading[slot] == 0) };

progressWrite:
    if
    :: skip
    :: goto stopped
#ifdef NESTED
    :: atomic { slot == 0 && !outer -> outer = 2; slot = 1 }; goto again
#endif
    fi;

leaveExclusive: /* LeaveExclusive */
    atomic { writing[slot]--; writers[slot]-- };
    writeCS[slot] = 0;

left:
#ifdef NESTED
    if
    :: atomic { outer == 1 -> outer = 0; slot = 0 }; goto leaveShared
    :: atomic { outer == 2 -> outer = 0; slot = 0 }; goto leaveExclusive
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
        :: s < SLOTS ->
            lostWakeUp = lostWakeUp || (asleep[s] && reading[s] == 0) ||
                         (writeCS[s] && writing[s] == 0 && !asleep[s]);
            s++
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
        :: t < THREADS -> run Thread(t); t++
        :: else -> break
        od
    }
}
