// Reads a 3D model in any format that assimp knows.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

// Fills outScene from the model at inPath. What a scene does not hold (lights, animations) is named in outNotes, one
// sentence each. At fault: the file is no model that can be read. Trouble: it could not be opened, or the tool was
// built without assimp.
Outcome ImportModel(const std::string& inPath, Scene& outScene, std::vector<std::string>& outNotes);

} // namespace nqtoken
