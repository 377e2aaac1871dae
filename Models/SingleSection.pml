/* The single section: who runs the work that bodies of a parallel job ask for.
 *
 * Two workers of the pool each run a body that asks for work; a thread outside the pool asks as well, and another one
 * waits for the job, so it runs what is queued. Helping the job may run more bodies, nested, which ask in turn, for the
 * same work or for other, or wait for a loop of which a third worker runs a body that asks. The job may fail at any
 * moment: what is queued is dropped and what is added later is dropped as well.
 * The lock around the list is an atomic block here; TNqSafeSection has a model of its own.
 *
 * Checked: no two runs at a time, each entry runs once, nothing touches the section after its destructor, and every
 * request ends.
 *
 *   -DBODIES=n        n nested bodies, 1 unless given
 *   -DALONE           worker 1 asks alone, but for the nested bodies
 *   -DBOUND_WORKER    worker 2 runs a task that cannot spawn others: it must not run tasks of the job
 *   -DPROGRESS        for a search of endless runs, see PassWaitOn
 *
 * Variants, each without one of the algorithm's steps, which must be caught:
 *   -DQUEUE_ONLY      an entry runs only through the queue of its job: nobody runs it once the job has failed, or when
 *                     its worker may not run other tasks
 *   -DNO_LAST_WAIT    the destructor does not take the wait semaphore: the last run signals a dead one
 *   -DCOUNT_LAST      a direct run lowers the count after it has let the next one go: two runs are counted
 *   -DHELP_EARLY      a request helps before its turn has come: the loop of a nested body waits for a request that waits
 *                     for the one below the loop, which nobody starts
 */

#ifndef BODIES
#define BODIES 1      /* bodies that wait in the queue of the job */
#endif
#define ENTRIES (3 + BODIES)
#define NONE 255
#define OTHER_WORK 9
#define OUTSIDE 3     /* the thread outside; the workers are 1 and 2 */
#define THIRD 4       /* and this one, which runs nothing but the body of a loop */

byte owner[ENTRIES];
byte work[ENTRIES];
byte users[ENTRIES];
byte runs[ENTRIES];
bool started[ENTRIES];
bool executed[ENTRIES];
bool queued[ENTRIES]; /* its task is in the queue of the job */
byte entries = 0;     /* made so far; the list is in this order */

byte running = NONE;  /* fRunningJob */
bool direct = false;  /* fMainThreadInside */
byte waitUnits = 1;   /* fWait */
byte runCount = 0;
bool failed = false;  /* the pool job */
byte bodies = BODIES;
#ifdef ALONE
byte requests = 1;    /* that have not ended, but for the nested ones */
#else
byte requests = 3;
#endif
bool nestedEnded[BODIES + 1];
bool thirdIsBusy = false;
bool hang = false;    /* nobody can go on */
bool dead = false;    /* the section */

#define IS_POOL(id) (id != OUTSIDE)
#ifdef BOUND_WORKER
#define MAY_HELP(id) (id != 2)
#else
#define MAY_HELP(id) true
#endif
#ifdef HELP_EARLY
#define HAS_TURN(running, mine) true
#else
#define HAS_TURN(running, mine) (running == mine)
#endif

inline TakeWait() { atomic { waitUnits > 0 -> waitUnits--; assert(!dead) } }
inline SignalWait() { atomic { assert(!dead); waitUnits = 1 } }

inline RunStarted(entry)
{
    atomic { assert(!dead); runCount++; assert(runCount == 1) };
    TakeWait();
    runs[entry]++;
    assert(runs[entry] == 1);
    runCount--;
    atomic { assert(!dead); executed[entry] = true; running = NONE };
    SignalWait()
}

/* The claim is one atomic exchange */
inline TryStart(entry, mine)
{
    atomic { mine = !started[entry]; started[entry] = true }
}

/* Takes the unit and passes it on at once. Weak fairness does not promise a unit to somebody who finds it taken again
 * and again for a moment, though every semaphore does in the end: to look for cycles, -DPROGRESS makes it one step. */
inline PassWaitOn()
{
#ifdef PROGRESS
    atomic { waitUnits > 0 -> assert(!dead) }
#else
    TakeWait();
    SignalWait()
#endif
}

inline WaitForTurn(id)
{
    if
    :: !IS_POOL(id) -> skip /* yields */
    :: else -> PassWaitOn() /* and yields when it was free at once */
    fi
}

/* The first entry that waits, NONE without one. */
inline FindFirst(entry)
{
    entry = 0;
    do
    :: entry < entries && (users[entry] == 0 || executed[entry]) -> entry++
    :: entry >= entries -> entry = NONE; break
    :: else -> break
    od;
    skip
}

/* A queued task, NONE without one. */
inline TakeQueued(entry)
{
    entry = 0;
    do
    :: entry < ENTRIES && !queued[entry] -> entry++
    :: entry >= ENTRIES -> entry = NONE; break
    :: else -> queued[entry] = false; break
    od;
    skip
}

/* `body` is the number of the nested body that asks, BODIES for none. */
proctype Request(byte me; byte what; byte body)
{
    byte mine;  /* the entry of this request */
    byte other = NONE;
    byte turn;  /* 0 wait, 1 help, 2 run here */
    bool claimed;
    byte inner;

    /* GetSectionJob */
    atomic {
        mine = 0;
        do
        :: mine < entries && !(users[mine] > 0 && owner[mine] == me && work[mine] == what && !executed[mine]) -> mine++
        :: else -> break
        od;
        if
        :: mine == entries -> owner[mine] = me; work[mine] = what; entries++
        :: else -> skip
        fi;
        users[mine]++
    };

    do
    :: executed[mine] -> break
    :: else ->
        /* ChooseStep */
        atomic {
            turn = 0;
            other = NONE;
            if
            :: running == NONE && !direct ->
                FindFirst(other);
                if
                :: other != NONE && owner[other] == me && IS_POOL(me) ->
                    queued[other] = !failed;
                    running = other
                :: other == mine && !IS_POOL(me) ->
                    direct = true;
                    started[mine] = true;
                    turn = 2
                :: else -> skip
                fi
            :: else -> skip
            fi;
            if
            :: turn != 2 && running != NONE && owner[running] == me && IS_POOL(me) -> turn = 1; other = running
            :: else -> skip
            fi
        };
        if
        :: turn == 0 -> WaitForTurn(me)
        :: turn == 1 ->
            if
            :: MAY_HELP(me) && HAS_TURN(other, mine) ->
                byte task = NONE;
                atomic { TakeQueued(task) };
                if
                :: task != NONE ->
                    TryStart(task, claimed);
                    if
                    :: claimed -> RunStarted(task)
                    :: else -> skip
                    fi;
                    turn = 3
                :: else ->
                    if
                    :: atomic { bodies > 0 && me != THIRD -> bodies--; inner = bodies };
                        if
                        :: run Request(me, me, inner)
                        :: run Request(me, OTHER_WORK, inner)
                        :: atomic { !thirdIsBusy -> thirdIsBusy = true };
                            run Request(THIRD, THIRD, inner)
                        fi;
                        nestedEnded[inner];
                        turn = 3
                    :: else -> skip
                    fi
                fi
            :: else -> skip
            fi;
#ifndef QUEUE_ONLY
            if
            :: turn == 1 ->
                TryStart(other, claimed);
                if
                :: claimed -> RunStarted(other)
                :: else ->
                    if
                    :: executed[other] -> skip
                    :: else -> WaitForTurn(me)
                    fi
                fi
            :: else -> skip
            fi
#endif
        :: turn == 2 ->
            atomic { runCount++; assert(runCount == 1) };
            runs[mine]++;
            assert(runs[mine] == 1);
#ifdef COUNT_LAST
            atomic { executed[mine] = true; direct = false };
            runCount--
#else
            runCount--;
            atomic { executed[mine] = true; direct = false }
#endif
        fi
    od;
    /* ReleaseSectionJob; of all requests only the last to end may see the section die */
progress:
    atomic {
        assert(!dead);
        users[mine]--;
        if
        :: body < BODIES ->
            nestedEnded[body] = true;
            thirdIsBusy = thirdIsBusy && me != THIRD
        :: else -> requests--
        fi
    }
}

/* The thread that waits for the job runs its queued tasks. */
proctype Waiter()
{
    byte task;
    bool claimed;
end:
    do
    :: atomic { (queued[0] || queued[1] || queued[2] || queued[ENTRIES - 1]) -> TakeQueued(task) };
        TryStart(task, claimed);
        if
        :: claimed -> RunStarted(task)
        :: else -> skip
        fi
    od
}

/* Another task of the job throws. */
proctype Failure()
{
    atomic { failed = true; bodies = 0; queued[0] = false; queued[1] = false; queued[2] = false; queued[ENTRIES - 1] = false }
}

init
{
    atomic {
        run Request(1, 1, BODIES);
#ifndef ALONE
        run Request(2, 2, BODIES);
        run Request(OUTSIDE, 3, BODIES);
#endif
        run Waiter();
        run Failure()
    };
    if
    :: requests == 0
    :: timeout -> hang = true; assert(!(hang))
    fi;
    /* The destructor */
#ifndef NO_LAST_WAIT
    TakeWait();
#endif
    dead = true
}
