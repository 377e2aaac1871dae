// A scene as PLY, binary, the low byte first: all meshes as one, where the nodes place them. Vertices have what some
// mesh has of normals, first texture coordinates and first colours. A colour takes a byte a part where that is exact to
// what a scene in text holds, otherwise a real. Faces of one and two corners stand among the others.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

// At fault: there is nothing to write, or more than the format counts.
Outcome WritePly(const Scene& inScene, std::string& outBytes);

} // namespace nqtoken
