// The command "check": reads token files as a reader does that knows none of their names, and tells every fault.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>
#include <vector>

namespace nqtoken
{

class Output;

// Prints a line for each fault, at most inLimit for one file (0: all). The status is the worst of all files: a file
// that cannot be read weighs more than one with faults. Files are checked on all workers of the host's pool.
ExitStatus CheckFiles(const std::vector<std::string>& inPaths, uint64 inLimit, Output& ioOutput);

} // namespace nqtoken
