// TNqHostAtomicFile with outcomes for the user, and how both tools meet signals that end them.
//
//     AtomicFile file;
//     Outcome outcome = file.Create(target);
//     ...                                      // write to file.TemporaryPath() or with Write
//     outcome = file.Sync();
//     outcome = file.Replace();

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqHost/PublicAPI/NqHostAtomicFile.h"

#include <string>
#include <string_view>

namespace nqtoken
{

class AtomicFile
{
public:
    Outcome Create(const std::string& inTarget);
    const std::string& TemporaryPath() const { return fFile.TemporaryPath(); }

    Outcome Write(std::string_view inBytes);
    Outcome Sync();
    Outcome Replace();

private:
    std::string fTarget; // as the user has it
    TNqHostAtomicFile fFile;
};

// A temporary file by hand, on any thread. Those that exist are removed when a signal ends the program.
Outcome MakeTemporary(const std::string& inFolder, std::string& outPath, int& outDescriptor);
void RemoveTemporary(const std::string& inPath);
Outcome WriteAll(int inDescriptor, std::string_view inBytes, const std::string& inName);

// Files of any origin that are to be removed, or no longer, when a signal ends the program.
void RemoveOnSignal(const std::string& inPath);
void KeepOnSignal(const std::string& inPath);

// Installs the handlers of the signals that end the program. Writing to a closed pipe or past a size limit becomes an
// error, and so does writing to standard output or error that the program was started without: no file that is opened
// later can be mistaken for them.
void PrepareProcess();

} // namespace nqtoken
