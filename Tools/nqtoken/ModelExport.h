// Writes a scene as a 3D model: OBJ, PLY (binary), STL (binary) or glTF 2 (.gltf, .glb), by the ending of the file's
// name, which the registry of formats tells (Formats.h).

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

class TNqFileType;

namespace nqtoken
{

// Replaces inPath, and the files that belong to it (the .mtl of an OBJ, the .bin of a glTF), all of them or none.
// What the format does not hold is named in outNotes. Trouble: an unknown ending, a failed write, or a build without
// assimp.
Outcome ExportModel(const Scene& inScene, const std::string& inPath, std::vector<std::string>& outNotes);

// Whether this build writes files of the format.
bool CanExport(const TNqFileType& inFormat);

} // namespace nqtoken
