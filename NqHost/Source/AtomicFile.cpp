#include "NqHost/PublicAPI/NqHostAtomicFile.h"

#include "NqHost/PublicAPI/NqHostTemporaryFiles.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kWithoutSpecialBits = 0777;
constexpr int kMostLinks = 40; // that lead to each other, as in the system

NqErr Fails(int inError, const std::string& inWhat, std::string& outReason)
{
    outReason = inWhat + (inWhat.empty() ? "" : ": ") + std::strerror(inError);
    return inError == ENOENT ? kNqErrFileNotFound : inError == ENOMEM ? kNqErrOutOfMemory : kNqErrInvalidData;
}

NqErr Refused(const char* inWhy, std::string& outReason)
{
    outReason = inWhy;
    return kNqErrInvalidData;
}

std::string FolderOf(const std::string& inPath)
{
    const size_t slash = inPath.rfind('/');
    return slash == std::string::npos ? "./" : inPath.substr(0, slash + 1);
}

std::string TextOfLink(const std::string& inPath)
{
    char text[4096];
    const ssize_t length = readlink(inPath.c_str(), text, sizeof(text));
    return length <= 0 ? std::string() : std::string(text, static_cast<size_t>(length));
}

// The file that a path leads to, through symbolic links; where there is no file yet, the path that it would get. 0, or
// the error of the system.
int Resolve(std::string& ioPath)
{
    for (int links = 0; links < kMostLinks; ++links)
    {
        const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(ioPath.c_str(), nullptr), &std::free);
        if (resolved != nullptr)
        {
            ioPath = resolved.get();
            return 0;
        }
        if (errno != ENOENT)
            return errno;
        const std::string link = TextOfLink(ioPath);
        if (link.empty())
            return 0;
        ioPath = link[0] == '/' ? link : FolderOf(ioPath) + link;
    }
    return ELOOP;
}

int WriteAll(int inDescriptor, const int8* inBytes, size_t inSize)
{
    while (inSize > 0)
    {
        const ssize_t count = write(inDescriptor, inBytes, inSize);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : ENOSPC;
        inBytes += count;
        inSize -= static_cast<size_t>(count);
    }
    return 0;
}

} // namespace

TNqHostAtomicFile::TNqHostAtomicFile(TNqHostAtomicFile&& inOther) noexcept
    : fTarget(std::move(inOther.fTarget)),
      fTemporary(std::exchange(inOther.fTemporary, std::string())),
      fDescriptor(std::exchange(inOther.fDescriptor, -1)),
      fSynced(inOther.fSynced),
      fReplaces(inOther.fReplaces),
      fOwner(inOther.fOwner),
      fGroup(inOther.fGroup),
      fMode(inOther.fMode)
{
}

TNqHostAtomicFile::~TNqHostAtomicFile()
{
    if (!fTemporary.empty())
        NqHostRemoveTemporaryFile(fTemporary);
    if (fDescriptor >= 0)
        close(fDescriptor);
}

NqErr TNqHostAtomicFile::Create(const std::string& inPath, std::string& outReason)
{
    if (inPath.empty())
        return Refused("the name of a file is empty", outReason);
    fTarget = inPath;
    if (const int error = Resolve(fTarget))
        return Fails(error, "", outReason);
    struct stat old = {};
    fReplaces = stat(fTarget.c_str(), &old) == 0;
    if (!fReplaces && errno != ENOENT)
        return Fails(errno, "", outReason);
    if (fReplaces ? S_ISDIR(old.st_mode) : fTarget.back() == '/')
        return Refused(fReplaces ? "is a folder" : "is not the name of a file", outReason);
    if (fReplaces && !S_ISREG(old.st_mode))
        return Refused("is not a file", outReason);
    if (fReplaces && faccessat(AT_FDCWD, fTarget.c_str(), W_OK, AT_EACCESS) != 0)
        return Fails(errno, "", outReason);
    fOwner = old.st_uid;
    fGroup = old.st_gid;
    fMode = old.st_mode & kPermissionBits;
    // Nobody else may read what will be for nobody else; a new file gets what the mask leaves.
    const int error = NqHostMakeTemporaryFile(FolderOf(fTarget), fReplaces ? 0600 : 0666, fTemporary, fDescriptor);
    if (error == 0)
        return kNqNoErr;
    fTemporary.clear();
    return Fails(error, "no new file can be made in its folder", outReason);
}

NqErr TNqHostAtomicFile::Write(const int8* inBytes, unsigned long inSize, std::string& outReason)
{
    fSynced = false;
    const int error = WriteAll(fDescriptor, inBytes, inSize);
    return error == 0 ? kNqNoErr : Fails(error, "", outReason);
}

// Some file systems tell of a failed write only when a file is closed. Another descriptor keeps the lock meanwhile.
// What a signal interrupts is begun again; a file whose closing it interrupts is closed, and its bytes are on the disk.
NqErr TNqHostAtomicFile::Sync(std::string& outReason)
{
    int synced;
    do
        synced = fsync(fDescriptor);
    while (synced != 0 && errno == EINTR);
    if (synced != 0)
        return Fails(errno, "", outReason);
    const int another = fcntl(fDescriptor, F_DUPFD_CLOEXEC, 0);
    if (another < 0)
        return Fails(errno, "", outReason);
    const int closed = close(std::exchange(fDescriptor, another));
    if (closed != 0 && errno != EINTR)
        return Fails(errno, "", outReason);
    fSynced = true;
    return kNqNoErr;
}

// Without its owner, no bits that would then mean something else.
NqErr TNqHostAtomicFile::TakeOver(std::string& outReason)
{
    mode_t mode = fMode;
    if ((fOwner != geteuid() || fGroup != getegid()) && fchown(fDescriptor, fOwner, fGroup) != 0)
        mode &= kWithoutSpecialBits;
    return fchmod(fDescriptor, mode) == 0 ? kNqNoErr : Fails(errno, "", outReason);
}

NqErr TNqHostAtomicFile::Replace(std::string& outReason)
{
    NqErr error = fSynced ? kNqNoErr : Sync(outReason);
    if (error == kNqNoErr && fReplaces) // last: a file of another owner is not removed by those who come later
        error = TakeOver(outReason);
    if (error != kNqNoErr)
        return error;
    if (rename(fTemporary.c_str(), fTarget.c_str()) != 0)
        return Fails(errno, "", outReason);
    NqHostKeepTemporaryFile(fTemporary);
    fTemporary.clear();
    // The new name reaches the disk with its folder; a file system that cannot do so is no reason to call it failed.
    const int folder = open(FolderOf(fTarget).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0)
    {
        fsync(folder);
        close(folder);
    }
    return kNqNoErr;
}
