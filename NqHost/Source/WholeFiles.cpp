// Reading and replacing files as a whole, or not at all.

#include "NqHost/PublicAPI/NqHostFiles.h"

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr mode_t kPermissionBits = 07777;

// The file that a path leads to, through symbolic links; the path itself when there is no file yet.
std::string TargetOf(const char* inPath)
{
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(inPath, nullptr), &std::free);
    return resolved != nullptr ? resolved.get() : inPath;
}

std::string FolderOf(const std::string& inPath)
{
    const size_t slash = inPath.rfind('/');
    return slash == std::string::npos ? "./" : inPath.substr(0, slash + 1);
}

bool WriteAll(int inDescriptor, const int8* inData, size_t inSize)
{
    while (inSize > 0)
    {
        const ssize_t count = write(inDescriptor, inData, inSize);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        inData += count;
        inSize -= static_cast<size_t>(count);
    }
    return true;
}

// False, with errno, for what is no file that may be written.
bool MayReplace(const std::string& inTarget, const struct stat& inOld)
{
    errno = S_ISDIR(inOld.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(inOld.st_mode) && access(inTarget.c_str(), W_OK) == 0;
}

// A new file beside the target, under a name of its own. The system applies the mask of the process: asking for the
// mask would change it under other threads.
int MakeBeside(const std::string& inTarget, mode_t inMode, std::string& outPath)
{
    static std::atomic<uint32> sCount{0};
    int descriptor = -1;
    do
    {
        outPath = FolderOf(inTarget) + ".nq" + std::to_string(getpid()) + "-" + std::to_string(sCount++);
        descriptor = open(outPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, inMode);
    } while (descriptor < 0 && errno == EEXIST);
    return descriptor;
}

// Owner and permissions of the old file. Without its owner, no bits that would then mean something else.
bool TakeOver(int inDescriptor, const struct stat& inOld)
{
    mode_t mode = inOld.st_mode & kPermissionBits;
    if ((inOld.st_uid != geteuid() || inOld.st_gid != getegid()) &&
        fchown(inDescriptor, inOld.st_uid, inOld.st_gid) != 0)
        mode &= 0777;
    return fchmod(inDescriptor, mode) == 0;
}

// Everything up to the moment in which the new file takes the name of the old one, if there is one.
bool WriteBeside(int inDescriptor, const struct stat* inOld, const int8* inData, size_t inSize)
{
    const bool written = WriteAll(inDescriptor, inData, inSize) &&
                         (inOld == nullptr || TakeOver(inDescriptor, *inOld)) && fsync(inDescriptor) == 0;
    const int error = errno;
    const bool closed = close(inDescriptor) == 0;
    if (!written)
        errno = error;
    return written && closed;
}

// Returns 0 or the system's error.
int Replace(const char* inPath, const int8* inData, uint32 inSize)
{
    const std::string target = TargetOf(inPath);
    struct stat old = {};
    const bool exists = stat(target.c_str(), &old) == 0;
    if (exists ? !MayReplace(target, old) : errno != ENOENT)
        return errno;
    std::string temporary;
    const int descriptor = MakeBeside(target, exists ? 0600 : 0666, temporary);
    if (descriptor < 0)
        return errno;
    if (!WriteBeside(descriptor, exists ? &old : nullptr, inData, inSize) ||
        rename(temporary.c_str(), target.c_str()) != 0)
    {
        const int error = errno;
        unlink(temporary.c_str());
        return error;
    }
    // The new name reaches the disk with its folder; a file system that cannot do so is no reason to call it failed.
    const int folder = open(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0)
    {
        fsync(folder);
        close(folder);
    }
    return 0;
}

NqErr Load(INqFile& file, const char* inPath, int8*& outBytes, uint32& outSize)
{
    NqErr error = file.SetFileName(TNqDynamicString(inPath), 0);
    if (error == kNqNoErr)
        error = file.SetPermission(eRead);
    if (error == kNqNoErr)
        error = file.Open();
    if (error != kNqNoErr)
        return error;
    error = file.GetSize(&outSize);
    if (error == kNqNoErr && (outBytes = static_cast<int8*>(Nqmalloc(std::max<uint32>(outSize, 1)))) == nullptr)
        error = kNqErrOutOfMemory;
    uint32 done = 0;
    if (error == kNqNoErr)
        error = file.Read(outBytes, outSize, &done);
    if (error == kNqNoErr && done != outSize)
        error = kNqErrInvalidData;
    file.Close();
    return error;
}

} // namespace

NqErr NqHostLoadFile(const char* path, int8*& outBytes, uint32& outSize, TNqString& outReason)
{
    outBytes = nullptr;
    outSize = 0;
    TNqCountedPtr<INqUnknown> object;
    gFileUtilities->CreateFileObject(&object);
    TNqCountedPtr<INqFile> file;
    NqErr error = kNqErrOutOfMemory;
    if (object != nullptr && object->QueryInterface(IID_INqFile, reinterpret_cast<void**>(&file)) == kNqNoErr)
        error = Load(*file, path, outBytes, outSize);
    if (error == kNqNoErr)
        return kNqNoErr;
    Nqfree(outBytes);
    outBytes = nullptr;
    outSize = 0;
    outReason.FromCPtr(error == kNqErrFileNotFound  ? "there is no such file"
                       : error == kNqErrOutOfMemory ? "out of memory"
                                                    : "is not a file of less than 2^31 bytes that may be read");
    return error == kNqErrFileNotFound || error == kNqErrOutOfMemory ? error : kNqErrInvalidData;
}

NqErr NqHostReplaceFile(const char* path, const int8* bytes, uint32 size, TNqString& outReason)
{
    int error = ENOMEM;
    try
    {
        error = Replace(path, bytes, size);
    }
    catch (const std::bad_alloc&) // a path
    {
    }
    if (error == 0)
        return kNqNoErr;
    outReason.FromCPtr(std::strerror(error));
    return error == ENOENT ? kNqErrFileNotFound : error == ENOMEM ? kNqErrOutOfMemory : kNqErrInvalidData;
}
