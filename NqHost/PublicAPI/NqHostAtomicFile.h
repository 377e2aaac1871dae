// Replaces a file as a whole or not at all: the new content goes to a temporary file in the same folder, reaches the
// disk, and then takes the name of the old one. Whatever fails, the old file stays as it was. For content that is in
// memory as a whole use NqHostReplaceFile (NqHostFiles.h).
//
//     TNqHostAtomicFile file;
//     std::string reason;
//     if (file.Create("settings.nq", reason) != kNqNoErr || file.Write(bytes, size, reason) != kNqNoErr ||
//         file.Replace(reason) != kNqNoErr)
//         std::fprintf(stderr, "settings.nq: %s\n", reason.c_str());
//
// What is replaced: a plain file, or none. A symbolic link is followed, also to a file that is not there yet. The new
// file has the permissions of the old one, and its owner and group where the system allows it; other hard links keep
// the old content. Refused: a folder, a pipe or a device, a file that may not be written, a folder in which no file can
// be made.
//
// What is left behind when the program ends before: see NqHostTemporaryFiles.h.
//
// Failure: an operation that fails gives kNqErrFileNotFound for a folder that is missing, kNqErrOutOfMemory, else
// kNqErrInvalidData, and tells in `outReason` why, in words for the user; std::bad_alloc for a path. Cost: writing
// waits for the disk. Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqException.h"

#include <string>

class TNqHostAtomicFile
{
public:
    TNqHostAtomicFile() = default;
    TNqHostAtomicFile(const TNqHostAtomicFile&) = delete;
    TNqHostAtomicFile& operator=(const TNqHostAtomicFile&) = delete;
    TNqHostAtomicFile(TNqHostAtomicFile&& inOther) noexcept;
    ~TNqHostAtomicFile(); // removes the temporary file, unless Replace succeeded

    // Makes the temporary file for the one at `inPath`. Once for an object.
    NqErr Create(const std::string& inPath, std::string& outReason);
    // For who writes the content by name; empty when there is none.
    const std::string& TemporaryPath() const { return fTemporary; }

    NqErr Write(const int8* inBytes, unsigned long inSize, std::string& outReason);
    // Waits until all that was written has reached the disk. Replace does so if it is still to be done.
    NqErr Sync(std::string& outReason);
    NqErr Replace(std::string& outReason);

private:
    NqErr TakeOver(std::string& outReason);

    std::string fTarget;
    std::string fTemporary;
    int fDescriptor = -1; // open as long as the temporary file is to be known as this program's
    bool fSynced = false;
    bool fReplaces = false; // there is an old file: these are its owner and permissions
    unsigned int fOwner = 0;
    unsigned int fGroup = 0;
    unsigned int fMode = 0;
};
