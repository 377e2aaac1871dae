// Writes a scene as a 3D model: OBJ, PLY (binary), STL (binary) or glTF 2 (.gltf, .glb), by the ending of the file's
// name, which the registry of formats tells (Formats.h).

#pragma once

#include "Tools/nqtoken/Losses.h"
#include "Tools/nqtoken/ModelFiles.h"
#include "Tools/nqtoken/Outcome.h"

class TNqFileType;

namespace nqtoken
{

// Replaces inPath, and the files that belong to it (the .mtl of an OBJ, the .bin of a glTF), all of them or none, once
// the model could be read again. What it then does not hold of the scene, or has otherwise, is told in outNotes, a line
// for each kind of thing. At fault: the scene does not fit the format. Trouble: an unknown ending, a failed write, or a
// build without assimp.
Outcome ExportModel(const Scene& inScene, const std::string& inPath, std::vector<std::string>& outNotes);

// The second half of it, for files that hold a model of the scene: reads them, tells what they lack, puts them in
// place. At fault: they cannot be read.
Outcome PlaceModel(const Scene& inScene, const Writing& inWriting, ModelFiles& inFiles, const std::string& inPath,
                   std::vector<std::string>& outNotes);

// Whether this build writes files of the format.
bool CanExport(const TNqFileType& inFormat);

} // namespace nqtoken
