// Does the same work for many files, on all workers of the host's pool at once.

#pragma once

#include "Tools/nqtoken/Output.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <functional>

namespace nqtoken
{

constexpr int32 kMostJobs = 256;

// How many files to work on at a time when the user asks for inJobs: one per processor for 0, and never more than there
// are files or kMostJobs.
int32 JobCount(int32 inJobs, size_t inFileCount);

// What it prints goes to ioOutput; the text of its outcome is printed behind it, as a note.
using FileWork = std::function<Outcome(size_t inIndex, Output& ioOutput)>;

// Calls inWork for each file. Files are begun in their order, and printed in it as if they were done one after the
// other. The status is the worst of all: a file that cannot be read weighs more than one with faults. A file that the
// memory does not suffice for is such a file, and the others go on. Ends early once nothing can be printed any more.
// Throws kNqErrCancelled when the loop is cancelled.
ExitStatus ForEachFile(const std::vector<std::string>& inPaths, Output& ioOutput, const FileWork& inWork);

} // namespace nqtoken
