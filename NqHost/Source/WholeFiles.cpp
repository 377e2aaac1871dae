// Reading and replacing files as a whole, or not at all.

#include "NqHost/PublicAPI/NqHostFiles.h"

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/PublicAPI/NqHostAtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr off_t kLargestFile = std::numeric_limits<int32>::max();

NqErr Fails(int inError, TNqString& outReason)
{
    outReason.FromCPtr(inError == ENOENT   ? "there is no such file"
                       : inError == ENOMEM ? "out of memory"
                                           : std::strerror(inError));
    return inError == ENOENT ? kNqErrFileNotFound : inError == ENOMEM ? kNqErrOutOfMemory : kNqErrInvalidData;
}

NqErr Refused(const char* inWhy, TNqString& outReason)
{
    outReason.FromCPtr(inWhy);
    return kNqErrInvalidData;
}

// Reads on to one byte more than there should be: what has another size was changed meanwhile, or is made by the system
// as it is read.
NqErr ReadWhole(int inFile, int8* outBytes, size_t inSize, TNqString& outReason)
{
    for (size_t done = 0;;)
    {
        int8 behind = 0;
        const ssize_t count = done < inSize ? read(inFile, outBytes + done, inSize - done) : read(inFile, &behind, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Fails(errno, outReason);
        if ((done < inSize) == (count == 0))
            return Refused("changed while it was read", outReason);
        if (count == 0)
            return kNqNoErr;
        done += static_cast<size_t>(count);
    }
}

NqErr Load(int inFile, int8*& outBytes, uint32& outSize, TNqString& outReason)
{
    struct stat status = {};
    if (inFile < 0 || fstat(inFile, &status) != 0)
        return Fails(errno, outReason);
    if (!S_ISREG(status.st_mode))
        return Refused(S_ISDIR(status.st_mode) ? "is a folder" : "is not a file", outReason);
    if (status.st_size > kLargestFile)
        return Refused("has more than the 2147483647 bytes that can be read", outReason);
    const auto size = static_cast<uint32>(status.st_size);
    outBytes = static_cast<int8*>(Nqmalloc(std::max<uint32>(size, 1)));
    if (outBytes == nullptr)
        return Fails(ENOMEM, outReason);
    outSize = size;
    return ReadWhole(inFile, outBytes, size, outReason);
}

} // namespace

NqErr NqHostLoadFile(const char* inPath, int8*& outBytes, uint32& outSize, TNqString& outReason)
{
    outBytes = nullptr;
    outSize = 0;
    if (inPath[0] == 0)
        return Refused("the name of a file is empty", outReason);
    // A pipe that is going to be refused is not waited for.
    int file;
    do
        file = open(inPath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    while (file < 0 && errno == EINTR);
    const NqErr error = Load(file, outBytes, outSize, outReason);
    if (file >= 0)
        close(file);
    if (error == kNqNoErr)
        return kNqNoErr;
    Nqfree(outBytes);
    outBytes = nullptr;
    outSize = 0;
    return error;
}

NqErr NqHostReplaceFile(const char* inPath, const int8* inBytes, uint32 inSize, TNqString& outReason)
{
    try
    {
        std::string reason;
        TNqHostAtomicFile file;
        NqErr error = file.Create(inPath, reason);
        if (error == kNqNoErr)
            error = file.Write(inBytes, inSize, reason);
        if (error == kNqNoErr)
            error = file.Replace(reason);
        if (error != kNqNoErr)
            outReason.FromCPtr(reason.c_str());
        return error;
    }
    catch (const std::bad_alloc&) // a path
    {
        return Fails(ENOMEM, outReason);
    }
}
