// Writes a scene as a token file.

#pragma once

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

enum class Payload
{
    kText, // numbers in decimal, reals with six decimals
    kRaw   // arrays as bytes; a number that text would change as bytes too
};

// Replaces the file at inPath as a whole. What text could not carry is named in outNotes, one sentence each.
Outcome WriteScene(const Scene& inScene, Payload inPayload, const std::string& inPath,
                   std::vector<std::string>& outNotes);

} // namespace nqtoken
