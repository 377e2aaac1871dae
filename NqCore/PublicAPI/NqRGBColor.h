// A colour of 16 bits for each component, as some systems' drawing calls take it. It only carries the values.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <cstddef>

struct TNqRGBColor
{
    uint16 rr;
    uint16 gg;
    uint16 bb;
};

static_assert(sizeof(TNqRGBColor) == 6 && offsetof(TNqRGBColor, gg) == 2 && offsetof(TNqRGBColor, bb) == 4,
              "systems take three words");
