#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

// The weights of decimal places: each a tenth of the one before, in double precision, down to 0. Files read the same
// everywhere because the same roundings are made everywhere.
class NqDecimalWeights
{
public:
    static constexpr int32 kCount = 326;

    constexpr NqDecimalWeights() : fWeights()
    {
        real64 weight = 0.1;
        for (real64& place : fWeights)
        {
            place = weight;
            weight /= 10;
        }
    }
    constexpr real64 operator[](int32 inPlace) const { return fWeights[inPlace]; }

private:
    real64 fWeights[kCount];
};
inline constexpr NqDecimalWeights kNqDecimalWeights;
static_assert(kNqDecimalWeights[NqDecimalWeights::kCount - 1] == 0, "places beyond the table add nothing");
