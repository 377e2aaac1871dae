// Points in time.

#pragma once

#include "NqCore/PublicAPI/NqObject.h"

// An instant: seconds since 1 January 2001 00:00:00 GMT, fractions included. It has no time zone; zones matter only for
// text.
class TNqSystemTime : public TNqObject
{
public:
    TNqSystemTime() : fSeconds(0.0) {}

    real64 fSeconds;
};

static_assert(sizeof(TNqSystemTime) == sizeof(real64), "hosts exchange instants as one double");
