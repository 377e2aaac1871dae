// A colour of 16 bits for each component, as some systems' drawing calls take it. It only carries the values.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

struct TNqRGBColor
{
    uint16 rr;
    uint16 gg;
    uint16 bb;
};

static_assert(sizeof(TNqRGBColor) == 6, "systems take three words");
