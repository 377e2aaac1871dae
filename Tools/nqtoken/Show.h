// The command "show": the tree of a token file, with the type, the length and the first values of everything in it.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace nqtoken
{

class Output;

struct ShowOptions
{
    int64 fDepth = -1; // blocks deeper than this are shown as one line; -1 for all
    int64 fValues = 4; // how many values of an array, and four times as many bytes of a payload
};

// Shows what can be read. At fault: the file is wrong; the faults have been told on standard error.
Outcome ShowFile(const std::string& inPath, const ShowOptions& inOptions, Output& ioOutput);

} // namespace nqtoken
