// Lets a test's threads lose the processor between any two calls of the host's locks and counters, where on an idle
// machine they hardly ever do. The calls are diverted when the test program is linked.

#pragma once

// From now on the calling thread gives up its time slice around one such call in `every`, and sometimes sleeps, as
// the seed has it; 0 ends it.
void YieldAroundHostCalls(unsigned every, unsigned seed);
