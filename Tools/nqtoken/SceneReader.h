// Reads a scene from a token file. Names and blocks that it does not know are skipped.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

class TokenFile;

// Whether the file is a token file with a scene, as far as its start tells. The stream is at the start again
// afterwards.
bool HoldsScene(TokenFile& ioFile);

// At fault: the file holds no scene, or one that is wrong; the text is of the form "FILE:LINE:COLUMN: what is wrong
// (code)".
Outcome ReadScene(TokenFile& ioFile, Scene& outScene);
Outcome ReadScene(const std::string& inPath, Scene& outScene);

} // namespace nqtoken
