// A scene as OBJ with its materials in a .mtl beside it: one group for each use of a mesh, where the nodes place it.

#pragma once

#include "Tools/nqtoken/ModelFiles.h"
#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

#include <vector>

namespace nqtoken
{

// Names become such that a line carries them, and different where the format tells things apart by them: outMaterials
// are those of the materials. At fault: there is nothing to write.
Outcome WriteObj(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles,
                 std::vector<std::string>& outMaterials);

} // namespace nqtoken
