// Runs work in a process of its own, because the libraries that read models are not built for files that mean harm: a
// crash in them must become a message and an exit status.

#pragma once

#include <functional>

namespace nqtoken
{

// The status of inWork, which may print and ends its process; kTrouble, and a message, when it ended in a crash.
// Signals that end the program end the work as well.
int RunGuarded(const std::function<int()>& inWork);

} // namespace nqtoken
