// The command "compare": whether two scenes, or models, are the same.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

class Output;

// Half a unit in the sixth decimal: what text rounds by.
constexpr real64 kTextTolerance = 0.5e-6;

// Prints what differs, and how far real numbers are apart. What has the same name in both belongs together, wherever it
// stands: nodes below the same parent, meshes, materials, images. kDone when the two are the same within the tolerance,
// kAtFault when they are not. Two reals are the same when they are no further apart than inTolerance and half a step
// between neighbouring 32-bit reals of that size, which any decimal text may lose again when it is read.
ExitStatus CompareScenes(const Scene& inA, const Scene& inB, real64 inTolerance, Output& ioOutput);

} // namespace nqtoken
