// Reads a 3D model in any format that the registry knows (Formats.h) and assimp reads.

#pragma once

#include "Tools/nqtoken/ModelFiles.h"
#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

class TNqFileType;

namespace nqtoken
{

// Fills outScene from the model at inPath. What a scene does not hold (lights, animations) is named in outNotes, one
// sentence each. At fault: the file is of no known format, or no model that can be read. Trouble: it could not be
// opened, the formats could not be read, or the tool was built without assimp.
Outcome ImportModel(const std::string& inPath, Scene& outScene, std::vector<std::string>& outNotes);

// The same for a model in memory, whose name tells the format; assimp knows it.
Outcome ImportModel(ModelFiles& inFiles, const std::string& inPath, Scene& outScene,
                    std::vector<std::string>& outNotes);

// Whether this build reads files of the format.
bool CanImport(const TNqFileType& inFormat);

} // namespace nqtoken
