// The clock: steady, in nanoseconds, from a start that only the system knows.

#include "NqCore/PublicAPI/NqTiming.h"

#include <chrono>

TNqTiming TNqTiming::Now()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return TNqTiming(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}
