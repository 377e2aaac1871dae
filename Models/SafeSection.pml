/*
 * CWhileInSafeCS on one TNqSafeSection (NqCore/Source/Common/NqSMPSafeCriticalSections.cpp): threads outside the pool
 * mark the section while they are inside, threads of the pool just enter.
 *
 * What is shown, in every interleaving:
 *   exclusion          one thread is inside
 *   the flag           an outside thread that is inside reads true; at rest, with nobody waiting, the flag is false unless
 *                      one is inside
 *   no hang            Quiescence: whoever waits at rest, waits for a thread that stays inside
 *   progress           (pan -l -f) no endless run in which nobody gets in
 *
 * From model to code: mainInside is fMainThreadInside, held is the host's section (nobody enters twice). A loop that
 * yields until the flag is false is a wait for it here: what it can see is the same.
 *
 * Settings (-D): OUTSIDE, POOL, the numbers of threads. SETS_AGAIN=0: the flag is set before entering only; then an
 * outside thread that leaves clears the flag of the one that waited for it.
 */

#ifndef OUTSIDE
#define OUTSIDE 3
#endif
#ifndef POOL
#define POOL 1
#endif
#ifndef SETS_AGAIN
#define SETS_AGAIN 1
#endif

bool mainInside;
bit held;
byte inside;        /* ghost: threads inside */
byte outsideInside; /* ghost: those of them that came from outside the pool */
byte waiting;       /* ghost: threads on their way in */

proctype Thread(bit outside)
{
next:
    if :: goto stopped :: atomic { skip; waiting++ } fi;

    /* CWhileInSafeCS */
    if
    :: !outside -> goto enter
    :: else
    fi;
    !mainInside; /* while (fCS.IsMainThreadInside()) Yield(0) */
    mainInside = true;
enter:
    atomic { !held -> held = 1; inside++; assert(inside == 1) };
#if SETS_AGAIN
    if
    :: outside -> mainInside = true
    :: else
    fi;
#endif
    atomic { outsideInside = outside; waiting-- };

progress:
    assert(!outside || mainInside);
    if :: skip :: goto stopped fi;
    assert(!outside || mainInside);

    /* ~CWhileInSafeCS */
    if
    :: outside -> atomic { outsideInside = 0; mainInside = false }
    :: else
    fi;
    atomic { inside--; held = 0 };
    goto next;

stopped:
    false
}

active proctype Quiescence()
{
    bool hang = false;
    timeout;
    hang = waiting > 0 && inside == 0;
    assert(!hang);
    assert(waiting > 0 || !mainInside || outsideInside)
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
