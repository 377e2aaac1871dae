// Runs work in a process of its own, because the libraries that read models are not built for files that mean harm: a
// crash in them must become a message and an exit status, and so must a hunger for memory or time.

#pragma once

#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Output.h"

#include "NqHost/PublicAPI/NqHost.h"

#include <csignal>
#include <functional>
#include <sys/types.h>
#include <vector>

namespace nqtoken
{

// The status of inWork, which may print and ends its process; kTrouble, and a message about inFile, when it ended in a
// crash or at a limit. Signals that end the program end the work as well. Only for a process with a single thread.
int RunGuarded(const std::string& inFile, const std::function<int()>& inWork, const Limits& inLimits = {});

// Processes for work of which several pieces are to be guarded at the same time. They are made while this process has
// no threads yet, since what a thread has locked at a fork stays locked in the new process; then each waits to be told
// what to do, and forks for each piece of it.
class GuardProcesses
{
public:
    // A piece of work by its number, as RunGuarded. It runs with a host of its own, and prints to this process.
    using Work = std::function<int(uint32 inNumber)>;

    // As many of inCount as the system gives: Count tells.
    GuardProcesses(int32 inCount, const Work& inWork);
    ~GuardProcesses();
    GuardProcesses(const GuardProcesses&) = delete;
    GuardProcesses& operator=(const GuardProcesses&) = delete;

    int32 Count() const { return static_cast<int32>(fProcesses.size()); }

    // Has one of the processes do a piece of work, and passes on what it prints; the status. A thread uses one process
    // at a time. Throws kNqErrCancelled when a signal that ends the program has ended the process.
    int Run(int32 inProcess, uint32 inNumber, Output& ioOutput);

    // True once such a signal has come, for the loop that calls Run.
    static const TNqAbortFlag& Cancelled();
    // Ends the program by that signal if one has come. After the destructor, when no process is left that could still
    // be removing its temporary file.
    static void DieIfCancelled();

    struct Process
    {
        pid_t fID;
        int fControl;
        int fOut; // what it prints
        int fError;
    };

private:
    std::vector<Process> fProcesses;
    struct sigaction fBefore[4] = {};
};

} // namespace nqtoken
