#!/usr/bin/env bash
# Checks the models of the locks with spin, exhaustively within the bounds that each line states: what the code does must
# hold, and what it must not do has to be caught. Two minutes on two cores; --deep adds larger bounds, a quarter of an
# hour. Needs spin and a C compiler. A failure names the log, beside which spin has left the trail of steps.
set -euo pipefail
models=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/models.XXXXXX")
compiler=$(command -v ccache || true)
compiler="${compiler:+ccache }cc" # a model that has not changed is compiled once
outcomes=() bounds=() settings=() depth=2000000 collapsed=SingleSection

# check OUTCOME BOUNDS MODEL SETTING...
#   holds    no assertion fails in any interleaving
#   goes-on  and under weak fairness there is no endless run in which nobody gets in
#   forgets  caught: a thread sleeps although nothing keeps it out
#   lies     caught: the flag does not tell who is inside
#   spins    caught: an endless run in which nobody gets in
#   overruns caught: two runs at a time
#   outlives caught: something is touched after its end
check() {
  outcomes+=("$1")
  bounds+=("$2")
  settings+=("${*:3}")
}

sections=CriticalSectionArray shared=SharedCriticalSection single=SingleSection
unbounded=-DMAXUNITS=250

# Of each model the longest first, and the models of many states before the others: no core is left alone at the end.
check holds   "single section: 2 workers, 1 thread outside, a nested body"        $single
check goes-on "single section: 2 workers, 1 thread outside"                       $single -DBODIES=0 -DPROGRESS
check goes-on "single section: and one of them must not run other tasks"          $single -DBODIES=0 -DBOUND_WORKER -DPROGRESS
check goes-on "single section: 1 worker, 4 nested bodies, loops among them"       $single -DALONE -DBODIES=4 -DPROGRESS
check spins   "single section: and a request helps before its turn"               $single -DALONE -DBODIES=2 -DHELP_EARLY -DPROGRESS
check spins   "single section: only through the job's queue, the job fails"       $single -DQUEUE_ONLY -DPROGRESS
check spins   "single section: only through it, a worker that must not help"      $single -DBODIES=0 -DBOUND_WORKER -DQUEUE_ONLY -DPROGRESS
check outlives "single section: a destructor that does not wait"                  $single -DNO_LAST_WAIT
check overruns "single section: the count lowered last"                           $single -DBODIES=0 -DCOUNT_LAST

check holds   "sections: 2 slots, 3 threads, 2 rounds, semaphore without maximum" $sections -DCHOOSE -DROUNDS=2 $unbounded
check holds   "sections: 2 slots, 4 threads, 3 of them on one slot, nested"       $sections -DTHREADS=4 -DFIRST=3 -DNESTED -DANY_FORWARD
check holds   "sections: 2 slots, 4 threads, 2 on each slot, nested"              $sections -DTHREADS=4 -DFIRST=2 -DNESTED -DANY_FORWARD
check holds   "sections: 2 slots, 3 threads, nested"                              $sections -DCHOOSE -DNESTED
check holds   "sections: 3 slots, 3 threads, nested"                              $sections -DSLOTS=3 -DCHOOSE -DNESTED -DANY_FORWARD
check holds   "sections: 2 slots, 3 threads, any count of waiting threads read"   $sections -DCHOOSE -DSTALE
check goes-on "sections: 2 slots, 4 threads, 1 round, semaphore without maximum"  $sections -DTHREADS=4 -DROUNDS=1 -DFIFO $unbounded
check holds   "sections: 1 slot, 3 threads, 2 rounds, semaphore without maximum"  $sections -DSLOTS=1 -DROUNDS=2 $unbounded
check goes-on "sections: 1 slot, 3 threads"                                       $sections -DSLOTS=1
check holds   "sections: 1 slot, 4 threads"                                       $sections -DSLOTS=1 -DTHREADS=4 -DANY_FORWARD
check goes-on "sections: 2 slots, 3 threads, 1 round, semaphore without maximum"  $sections -DCHOOSE -DROUNDS=1 -DFIFO $unbounded
check forgets "sections: plain, 1 slot, 3 threads"                                $sections -DSLOTS=1 -DCHECKS_SLOT=0 -DPASSES_ON=0
check forgets "sections: plain, 2 slots, 3 threads"                               $sections -DCHOOSE -DCHECKS_SLOT=0 -DPASSES_ON=0
check forgets "sections: passing on without looking, 1 slot, 3 threads"           $sections -DSLOTS=1 -DCHECKS_SLOT=0
check forgets "sections: looking without passing on, 2 slots, 3 threads"          $sections -DCHOOSE -DPASSES_ON=0
check forgets "sections: passing on only without the slot, 2 slots, 3 threads"    $sections -DCHOOSE -DPASSES_ON=1
check forgets "sections: passing on only with the slot, 2 slots, 3 threads"       $sections -DCHOOSE -DPASSES_ON=2
check spins   "sections: a passer that always comes first, 2 slots, 3 threads"    $sections -DCHOOSE

check holds   "shared array: 2 slots, 4 threads, 1 round, no maximum"             $shared -DTHREADS=4 -DROUNDS=1 $unbounded
check holds   "shared array: 2 slots, 3 threads, 2 rounds, no maximum"            $shared -DROUNDS=2 $unbounded
check goes-on "shared: 4 threads"                                                 $shared -DSLOTS=1 -DPASSES_ON=0 -DTHREADS=4
check goes-on "shared array: 2 slots, 3 threads"                                  $shared -DFIFO
check holds   "shared array: 3 slots, 3 threads"                                  $shared -DSLOTS=3
check holds   "shared: 3 threads, 3 rounds, semaphore without maximum"            $shared -DSLOTS=1 -DPASSES_ON=0 -DROUNDS=3 $unbounded
check holds   "shared array: 2 slots, 3 threads, nested"                          $shared -DNESTED
check holds   "shared array: 2 slots, 4 threads, 2 on each slot"                  $shared -DTHREADS=4 -DHOME
check forgets "shared array: plain, 2 slots, 3 threads"                           $shared -DPASSES_ON=0
check forgets "shared array: plain, 2 slots, 4 threads, 2 on each slot"           $shared -DPASSES_ON=0 -DTHREADS=4 -DHOME
check spins   "shared array: a passer that always comes first, 2 slots"           $shared

check holds   "semaphore: 4 threads"                                              Semaphore
check holds   "semaphore: 4 threads, 2 units"                                     Semaphore -DMAXUNITS=2
check holds   "semaphore: deleted when 2 waits have taken 2 units"                Semaphore -DMAXUNITS=2 -DDELETES
check forgets "semaphore: no look once it can be seen sleeping, 4 threads"        Semaphore -DLOOKS_FIRST
check outlives "semaphore: and without waiting for the signals"                   Semaphore -DMAXUNITS=2 -DDELETES -DNO_LAST_LOCK

check goes-on "safe section: 3 threads outside the pool, 1 inside"                SafeSection
check goes-on "safe section: 2 threads outside the pool, 2 inside"                SafeSection -DOUTSIDE=2 -DPOOL=2
check goes-on "safe critical section: 3 threads outside the pool, 1 inside"       SafeCriticalSection
check goes-on "safe critical section: 2 threads outside the pool, 2 inside"       SafeCriticalSection -DOUTSIDE=2 -DPOOL=2
check lies    "safe section: the flag set once, 3 threads outside, 1 inside"      SafeSection -DSETS_AGAIN=0
check forgets "safe critical section: the owner first, 3 threads outside"         SafeCriticalSection -DOWNER_FIRST

if [ "${1:-}" = --deep ]; then
  depth=20000000 collapsed='*'
  check goes-on "single section: 2 workers, 1 thread outside, a nested body"      $single -DPROGRESS
  check holds   "sections: 2 slots, 4 threads that choose"                        $sections -DTHREADS=4 -DCHOOSE -DANY_FORWARD
  check holds   "sections: 2 slots, 3 threads, 2 rounds, nested, no maximum"      $sections -DCHOOSE -DROUNDS=2 -DNESTED $unbounded
  check goes-on "sections: 2 slots, 3 threads, 1 round, nested"                   $sections -DCHOOSE -DROUNDS=1 -DNESTED -DFIFO
  check goes-on "sections: 2 slots, 3 threads that choose"                        $sections -DCHOOSE -DFIFO
  check holds   "sections: 3 slots, 3 threads, nested, forwarding as coded"       $sections -DSLOTS=3 -DCHOOSE -DNESTED
  check goes-on "shared array: 2 slots, 3 threads, nested"                        $shared -DNESTED -DFIFO
  check holds   "shared array: 3 slots, 3 threads, nested"                        $shared -DSLOTS=3 -DNESTED
  check holds   "shared array: 2 slots, 4 threads that choose"                    $shared -DTHREADS=4
  check goes-on "shared array: 2 slots, 4 threads, 1 round"                       $shared -DTHREADS=4 -DROUNDS=1 -DFIFO
fi

# Whether the log of spin shows the outcome. That nothing was found counts only when all states were searched and kept
# whole, and the log got to its end.
shows() {
  case $1 in
  holds | goes-on)
    grep -q '^Full statespace search' "$2" && grep -q 'errors: 0$' "$2" && grep -q 'states, stored' "$2" &&
      grep -q '^pan: elapsed time' "$2" &&
      ! grep -qiE 'not completed|too small|out of memory|exhausted|reached -DMEMLIM|max search depth' "$2"
    ;;
  forgets) grep -qE 'assertion violated +!\((lostWakeUp|hang)\)' "$2" ;;
  lies) grep -qE 'assertion violated .*mainInside' "$2" ;;
  spins) grep -q '^pan:.*non-progress cycle' "$2" ;;
  overruns) grep -qE 'assertion violated .*runCount==1' "$2" ;;
  outlives) grep -qE 'assertion violated .*!\(dead\)' "$2" ;;
  esac
}

# Checks one case in a folder of its own, and prints its line. The models say themselves where a thread may stay (-E).
run() {
  local outcome=${outcomes[$1]} folder=$work/$1 kind=(-DSAFETY) flags=("-m$depth" -w24) model defines
  read -ra defines <<<"${settings[$1]}"
  model=${defines[0]}
  # What is caught is caught early: it needs no room for all states, which takes longer to clear than to fill.
  case $outcome in holds | goes-on) ;; *) flags=(-m500000 -w20) ;; esac
  case $outcome in goes-on | spins) kind=(-DNP -DNFAIR=3) flags+=(-l -f) ;; esac
  # Keeping each process of a state by itself saves memory, but time only where states are large.
  [[ $model != $collapsed ]] || kind+=(-DCOLLAPSE)
  mkdir "$folder" && cd "$folder"
  {
    spin -a "${defines[@]:1}" "$models/$model.pml" &&
      $compiler -O2 -w "${kind[@]}" -DVECTORSZ=256 -c pan.c && cc -o pan pan.o &&
      ./pan -E -n "${flags[@]}"
  } >log 2>&1 || true
  if ! shows "$outcome" log; then
    printf 'FAILED   %-78s %s\n' "${bounds[$1]}" "$folder/log"
    return 1
  fi
  printf '%-8s %-78s %11.0f states\n' "$outcome" "${bounds[$1]}" \
    "$(sed -nE 's/^ *([0-9.e+]+) states, stored.*/\1/p' log)"
  cd "$work" && rm -rf "$folder"
}

failed=0 running=0
for number in "${!outcomes[@]}"; do
  if [ "$running" -ge "$(nproc)" ]; then
    wait -n || failed=1
    running=$((running - 1))
  fi
  run "$number" &
  running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
  wait -n || failed=1
  running=$((running - 1))
done
rmdir "$work" 2>/dev/null || failed=1 # a case that passed takes its folder away
exit "$failed"
