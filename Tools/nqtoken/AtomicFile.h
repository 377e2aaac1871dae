// Replaces a file as a whole or not at all: the new content goes to a temporary file in the same folder, reaches the
// disk, and then takes the name of the old one. A failure, or a signal that ends the program, leaves the old file and
// no other.
//
//     AtomicFile file;
//     Outcome outcome = file.Create(target);
//     ...                                      // write to file.TemporaryPath() or with Write
//     outcome = file.Sync();
//     outcome = file.Replace();

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include <string>
#include <string_view>

namespace nqtoken
{

class AtomicFile
{
public:
    AtomicFile() = default;
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    AtomicFile(AtomicFile&& ioOther) noexcept;
    ~AtomicFile(); // removes the temporary file, unless Replace succeeded

    // Makes the temporary file for inTarget, with the permissions of the target if it exists. A symbolic link is
    // followed. A target that is not a plain file, or that may not be written, is refused.
    Outcome Create(const std::string& inTarget);
    const std::string& TemporaryPath() const { return fTemporary; }

    Outcome Write(std::string_view inBytes);
    Outcome Sync();
    Outcome Replace();

private:
    std::string fTarget;
    std::string fTemporary; // empty when there is none
    int fDescriptor = -1;
};

// Temporary files by hand, on any thread. Those that exist are removed when a signal ends the program.
Outcome MakeTemporary(const std::string& inPrefix, std::string& outPath, int& outDescriptor);
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
