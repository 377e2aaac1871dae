/*
 * TNqSafeCriticalSection (NqCore/Source/Common/NqSMPSafeCriticalSections.cpp): the owner is recorded, so that a thread
 * outside the pool that comes again is recognised. Threads of the pool are not recorded; the host's section lets in
 * again whoever holds it.
 *
 * What is shown, in every interleaving:
 *   exclusion          one thread is inside, however deep
 *   the owner          an outside thread that is inside is the recorded owner, so Enter(false) again is refused and
 *                      Enter(true) again gets in
 *   no hang            Quiescence: whoever waits at rest, waits for a thread that stays inside
 *   progress           (pan -l -f) no endless run in which nobody gets in
 *
 * From model to code: owner is fThreadID (0: none), holder and depth the host's recursive section. A loop that yields
 * until the owner is 0 is a wait for it here.
 *
 * Settings (-D): OUTSIDE, POOL, the numbers of threads. OWNER_FIRST: the owner is recorded before the host's section is
 * entered; then one that waits overwrites it, and the thread inside waits for itself when it comes again.
 */

#ifndef OUTSIDE
#define OUTSIDE 3
#endif
#ifndef POOL
#define POOL 1
#endif

byte owner;
byte holder;
byte depth;
byte waiting; /* ghost: threads on their way in */
bit staying;  /* ghost: a thread stays inside for good */

#define EnterCS atomic { holder == 0 || holder == _pid -> holder = _pid; depth++ }
#define LeaveCS atomic { assert(holder == _pid); depth--; if :: depth == 0 -> holder = 0 :: else fi }

proctype Thread(bit outside)
{
    byte previous[2]; /* what the two calls of Enter returned */
    bit again = 0;

next:
    if :: goto stopped :: skip fi;

    /* Enter */
enter:
    if
    :: !outside -> waiting++; EnterCS; previous[again] = 0; goto inside
    :: else
    fi;
    if
    :: owner == _pid -> waiting++; EnterCS; previous[again] = _pid; goto inside
    :: else -> waiting++
    fi;
#ifndef OWNER_FIRST
    assert(!again);
#endif
    owner == 0; /* while (fThreadID != 0) Yield(0) */
#ifdef OWNER_FIRST
    owner = _pid;
    EnterCS;
#else
    EnterCS;
    owner = _pid;
#endif
    previous[again] = 0;

inside:
    atomic { waiting--; assert(holder == _pid) };
progress:
    if
    :: skip
    :: staying = 1; goto stopped
    :: atomic { !again -> again = 1 }; goto enter
    fi;

    /* Leave(previous) */
leave:
    if
    :: outside -> owner = previous[again]
    :: else
    fi;
    LeaveCS;
    if
    :: atomic { again -> again = 0 }; goto leave
    :: else
    fi;
    goto next;

stopped:
    false
}

active proctype Quiescence()
{
    bool hang = false;
    timeout;
    hang = waiting > 0 && !staying;
    assert(!hang);
#ifndef OWNER_FIRST
    assert(owner == 0 || owner == holder)
#endif
}

init
{
    byte t = 0;
    atomic
    {
        do
        :: t < OUTSIDE + POOL -> run Thread(t < OUTSIDE); t++
        :: else -> break
        od
    }
}
