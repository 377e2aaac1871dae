#include "NqHost/Source/HostFile.h"

#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqHost/PublicAPI/NqHostFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace
{

constexpr uint32 kLargestPosition = 0x7FFFFFFF;

static_assert(sizeof(off_t) == 8, "sizes past 2 GiB must be seen to be refused");

// Repeats a system call that a signal interrupted.
template <class Call>
auto UntilDone(Call&& inCall)
{
    for (;;)
    {
        const auto result = inCall();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

thread_local int tFileError = 0; // the last one

NqErr ErrorOf(int inSystemError)
{
    tFileError = inSystemError;
    switch (inSystemError)
    {
    case ENOENT:
    case ENOTDIR:
        return kNqErrFileNotFound;
    case ENOMEM:
        return kNqErrOutOfMemory;
    default:
        return kNqErrInvalidData;
    }
}

NqErr ResultOf(int inReturned)
{
    return inReturned == 0 ? kNqNoErr : ErrorOf(errno);
}

// The access of the permission bits, -1 for none.
int AccessOf(int32 inPermission)
{
    switch (inPermission & eReadWrite)
    {
    case eRead:
        return O_RDONLY;
    case eWrite:
        return O_WRONLY;
    case eReadWrite:
        return O_RDWR;
    default:
        return -1;
    }
}

// Moves up to inCount bytes with calls that may move fewer: inCall(done) moves some behind the first `done` and returns
// their number, 0 at the end, negative with errno set. Stores in outDone what was moved; returns false when a call
// failed.
template <class Call>
bool MoveBytes(uint32 inCount, uint32& outDone, Call&& inCall)
{
    outDone = 0;
    while (outDone < inCount)
    {
        const ssize_t moved = UntilDone([&] { return inCall(outDone); });
        if (moved <= 0)
            return moved == 0;
        outDone += static_cast<uint32>(moved);
    }
    return true;
}

// A path that was cut would name another file: better none.
void StoreWhole(TNqString& outText, const TNqString& inPath)
{
    outText = inPath;
    if (outText.ByteLength() != inPath.ByteLength())
        outText.SetLength(0);
}

} // namespace

int NqHostFileError()
{
    return tFileError;
}

void NqHostForgetFileError()
{
    tFileError = 0;
}

TNqHostFile::~TNqHostFile()
{
    Close();
}

NqErr TNqHostFile::QueryInterface(const NqIID& iid, void** outInterface)
{
    if (!NqInlineIsEqualGUID(iid, IID_INqFile))
        return TNqSMPCountedObject::QueryInterface(iid, outInterface);
    TNqCountedGetHelper<INqFile>{reinterpret_cast<INqFile**>(outInterface)} = this;
    return kNqNoErr;
}

NqErr TNqHostFile::SetFileName(const TNqString& inPath, int32)
{
    const NqErr err = Close();
    fPath = inPath;
    if (fPath.ByteLength() != inPath.ByteLength())
        return kNqErrOutOfMemory;
    return err;
}

NqErr TNqHostFile::CopyFrom(INqFile& inFile)
{
    TNqDynamicString path;
    inFile.GetFullPath(path);
    if (path.ByteLength() == 0)
        return kNqErrInvalidData;
    int32 permission = 0;
    NqErr err = inFile.GetPermission(&permission);
    if (err == kNqNoErr)
        err = SetFileName(path, 0);
    if (err == kNqNoErr)
        fPermission = permission;
    return err;
}

NqErr TNqHostFile::SetPermission(int32 inMode)
{
    fPermission = inMode;
    return kNqNoErr;
}

boolean TNqHostFile::Exists()
{
    struct stat info;
    return ::stat(fPath.StrGet(), &info) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

NqErr TNqHostFile::GetSize(uint32* outSize)
{
    if (!NqCheck(outSize != nullptr))
        return kNqErrInvalidData;
    *outSize = 0;
    struct stat info;
    const NqErr err = ResultOf(IsOpen() ? ::fstat(fDescriptor, &info) : ::stat(fPath.StrGet(), &info));
    if (err != kNqNoErr)
        return err;
    if (info.st_size > kLargestPosition)
        return kNqErrInvalidData;
    *outSize = static_cast<uint32>(info.st_size);
    return kNqNoErr;
}

NqErr TNqHostFile::GetPosition(uint32* outPosition)
{
    if (!NqCheck(outPosition != nullptr))
        return kNqErrInvalidData;
    *outPosition = fPosition;
    return IsOpen() ? kNqNoErr : kNqErrInvalidData;
}

NqErr TNqHostFile::GetPermission(int32* outMode)
{
    if (!NqCheck(outMode != nullptr))
        return kNqErrInvalidData;
    *outMode = fPermission;
    return kNqNoErr;
}

NqErr TNqHostFile::Create()
{
    const int descriptor =
        UntilDone([&] { return ::open(fPath.StrGet(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
    return descriptor >= 0 ? ResultOf(::close(descriptor)) : ErrorOf(errno);
}

NqErr TNqHostFile::Open()
{
    const int access = AccessOf(fPermission);
    if (IsOpen() || access < 0)
        return kNqErrInvalidData;
    // Without O_NONBLOCK a pipe would keep the caller until somebody opens its other end.
    fDescriptor = UntilDone([&] { return ::open(fPath.StrGet(), access | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); });
    if (!IsOpen())
        return ErrorOf(errno);
    fPosition = 0;
    const NqErr err = CheckOpened();
    if (err != kNqNoErr)
        Close();
    return err;
}

NqErr TNqHostFile::CheckOpened()
{
    struct stat info;
    if (::fstat(fDescriptor, &info) != 0)
        return ErrorOf(errno);
    if (S_ISDIR(info.st_mode) || info.st_size > kLargestPosition)
        return ErrorOf(S_ISDIR(info.st_mode) ? EISDIR : EFBIG);
    const bool isFile = S_ISREG(info.st_mode);
    const bool isWrittenDevice = S_ISCHR(info.st_mode) && AccessOf(fPermission) == O_WRONLY;
    if (!isFile && !isWrittenDevice)
        return kNqErrInvalidData;
    return ResultOf(::fcntl(fDescriptor, F_SETFL, 0)); // O_NONBLOCK off, for the writes to a device
}

NqErr TNqHostFile::Close()
{
    if (!IsOpen())
        return kNqNoErr;
    // Also when a signal interrupts it, the descriptor is gone.
    const int returned = ::close(std::exchange(fDescriptor, -1));
    return returned == 0 || errno == EINTR ? kNqNoErr : ErrorOf(errno);
}

NqErr TNqHostFile::Read(int8* outData, uint32 inCount, uint32* outDone)
{
    uint32 done = 0;
    const uint32 count = std::min(inCount, kLargestPosition - fPosition);
    const bool success = MoveBytes(
        count, done, [&](uint32 at) { return ::pread(fDescriptor, outData + at, count - at, fPosition + at); });
    fPosition += done;
    if (outDone != nullptr)
        *outDone = done;
    if (!success)
    {
        ErrorOf(errno);
        return kNqErrFormat;
    }
    return done == inCount ? kNqNoErr : kNqErrEndOfFile;
}

NqErr TNqHostFile::Write(const int8* inData, uint32 inCount, uint32* outDone)
{
    uint32 done = 0;
    NqErr err = kNqErrInvalidData;
    if (inCount <= kLargestPosition - fPosition)
    {
        const bool success = MoveBytes(
            inCount, done, [&](uint32 at) { return ::pwrite(fDescriptor, inData + at, inCount - at, fPosition + at); });
        err = !success ? ErrorOf(errno) : done == inCount ? kNqNoErr : kNqErrInvalidData;
        fPosition += done;
    }
    if (outDone != nullptr)
        *outDone = done;
    return err;
}

NqErr TNqHostFile::SetPosition(int32 inOffset, TNqiostream::seek_dir inFrom)
{
    uint32 start = 0;
    if (!IsOpen() || inFrom > TNqiostream::end)
        return kNqErrInvalidData;
    if (inFrom == TNqiostream::cur)
        start = fPosition;
    const NqErr err = inFrom == TNqiostream::end ? GetSize(&start) : kNqNoErr;
    if (err != kNqNoErr)
        return err;
    const int64 position = int64{start} + inOffset;
    if (position < 0 || position > kLargestPosition)
        return kNqErrInvalidData;
    fPosition = static_cast<uint32>(position);
    return kNqNoErr;
}

NqErr TNqHostFile::SetSize(uint32 inSize)
{
    struct stat info;
    if (inSize > kLargestPosition || !IsOpen())
        return kNqErrInvalidData;
    if (::fstat(fDescriptor, &info) == 0 && S_ISCHR(info.st_mode))
        return inSize == 0 ? kNqNoErr : kNqErrInvalidData; // a device keeps nothing that would have to go
    return ResultOf(UntilDone([&] { return ::ftruncate(fDescriptor, inSize); }));
}

TNqDynamicString TNqHostFile::FullPath() const
{
    if (fPath.ByteLength() == 0 || fPath.StrGet()[0] == '/')
        return fPath;
    const std::unique_ptr<char, decltype(&std::free)> current(::getcwd(nullptr, 0), std::free);
    if (current == nullptr)
        return TNqDynamicString();
    const char* separator = std::strcmp(current.get(), "/") == 0 ? "" : "/";
    const size_t length = std::strlen(current.get()) + std::strlen(separator) + fPath.ByteLength();
    TNqDynamicString path(current.get());
    path.Append(separator, static_cast<uint32>(std::strlen(separator)));
    path.Append(fPath.StrGet(), fPath.ByteLength());
    return path.ByteLength() == length ? path : TNqDynamicString(); // an append without memory drops what was there
}

void TNqHostFile::GetPathRelativeFolder(TNqString& outFolder)
{
    const TNqDynamicString path = FullPath();
    const int8* bytes = path.StrGet();
    uint32 length = path.ByteLength();
    while (length > 0 && bytes[length - 1] != '/')
        --length;
    StoreWhole(outFolder, TNqDynamicString(bytes, length));
}

void TNqHostFile::GetFullPath(TNqString& outPath)
{
    StoreWhole(outPath, FullPath());
}

NqErr TNqHostFile::SetTypeAndCreator(TNqFileID*, int32*)
{
    return kNqNoErr;
}
