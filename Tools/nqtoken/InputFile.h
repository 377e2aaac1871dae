// A file to be read: opened, found to be one that can be read, and named for the library's file stream.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace nqtoken
{

// Positions in a file are 32-bit in the library.
constexpr uint64 kMaxFileSize = 0x7FFFFFFF;

class InputFile
{
public:
    InputFile() = default;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    // Opens a file of at most kMaxFileSize bytes. What has no size and position of its own, such as a pipe or standard
    // input (the name "-"), is first copied to a temporary file, unless inAllowCopy is false.
    Outcome Open(const std::string& inPath, bool inAllowCopy = false);

    // What to call the file in messages.
    const std::string& ShownName() const { return fShownName; }
    // What to open. After the stream has opened it, ForgetPath removes the name of a temporary file; the destructor
    // does too.
    const std::string& Path() const { return fPath; }
    void ForgetPath();

    int32 Size() const { return fSize; }
    // Reads at most inSize bytes at a position; the number read, 0 at the end or on an error.
    size_t ReadAt(int32 inPosition, char* outBytes, size_t inSize);
    // The system's error of the last ReadAt that failed; 0 when none has.
    int Error() const { return fError; }

private:
    Outcome CopyToTemporary(int inSource);

    std::string fShownName;
    std::string fPath;
    int fDescriptor = -1;
    int32 fSize = 0;
    int fError = 0;
    bool fTemporary = false; // fPath is to be removed
};

} // namespace nqtoken
