// A scene as STL, binary: its triangles, where the nodes place them. Polygons are cut into triangles; points and lines
// have no place.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

// At fault: there is nothing to write, or more than the format counts.
Outcome WriteStl(const Scene& inScene, std::string& outBytes);

} // namespace nqtoken
