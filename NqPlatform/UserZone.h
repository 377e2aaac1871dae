// The time zone of the user, for the formatters: what TZ says, as the C library reads it.
//
// A name such as "Europe/Berlin" is the locale services' business, which write it in the user's language. A rule
// ("CET-1CEST,M3.5.0,M10.5.0/3"), a file (":/etc/localtime") and whatever else they do not know is left to the C
// library: its clock says what to write.
//
//     const std::u16string zone = GetUserZone();
//     const TClock clock = ReadClock(time);          // where the name is empty
//
// Threads: any, as long as none changes the environment. Both throw std::bad_alloc.

#pragma once

#include "NqPlatform/CFDate.h"

#include <string>

// The zone's name for ICU; empty where only the C library knows the zone.
std::u16string GetUserZone();

// What the C library's clock shows at an instant.
struct TClock
{
    CFAbsoluteTime fShown;     // its whole seconds, as if they were GMT
    std::u16string fZoneLabel; // such as "CEST"
};

// For instants less than a thousand million years away.
TClock ReadClock(CFAbsoluteTime time);
