#include "Tools/nqtoken/InputFile.h"

#include "Tools/nqtoken/AtomicFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace nqtoken
{
namespace
{

Outcome SystemTrouble(const std::string& inName)
{
    return Trouble(fmt::format("{}: {}", inName, strerror(errno)));
}

} // namespace

InputFile::~InputFile()
{
    ForgetPath();
    if (fDescriptor >= 0)
        close(fDescriptor);
}

void InputFile::ForgetPath()
{
    if (fTemporary)
        RemoveTemporary(fPath);
    fTemporary = false;
}

Outcome InputFile::Open(const std::string& inPath, bool inAllowCopy)
{
    const bool standardInput = inAllowCopy && inPath == "-";
    fShownName = standardInput ? "standard input" : inPath;
    fPath = inPath;
    if (inPath.empty())
        return Trouble("the name of a file is empty");
    // A pipe that is going to be refused is not waited for.
    fDescriptor = standardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                : open(inPath.c_str(), O_RDONLY | O_CLOEXEC | (inAllowCopy ? 0 : O_NONBLOCK));
    struct stat status = {};
    if (fDescriptor < 0 || fstat(fDescriptor, &status) != 0)
        return SystemTrouble(fShownName);
    if (S_ISDIR(status.st_mode))
        return Trouble(fmt::format("{}: is a folder", fShownName));
    if (S_ISREG(status.st_mode) && static_cast<uint64>(status.st_size) > kMaxFileSize)
        return Trouble(fmt::format("{}: {} bytes are more than the {} that a token file may have", fShownName,
                                   status.st_size, kMaxFileSize));
    if (S_ISREG(status.st_mode) && !standardInput)
    {
        fSize = static_cast<int32>(status.st_size);
        char byte = 0;
        const bool isMadeOnReading = fSize == 0 && ReadAt(0, &byte, 1) > 0; // by the system, as those in /proc
        if (fError != 0)
            return SystemTrouble(fShownName);
        if (!isMadeOnReading || !inAllowCopy)
            return {};
    }
    if (S_ISBLK(status.st_mode) || !inAllowCopy)
        return Trouble(fmt::format("{}: is not a file", fShownName));
    const int source = fDescriptor;
    fDescriptor = -1;
    Outcome outcome = CopyToTemporary(source);
    close(source);
    return outcome;
}

Outcome InputFile::CopyToTemporary(int inSource)
{
    const char* folder = getenv("TMPDIR");
    Outcome outcome = MakeTemporary(folder != nullptr && folder[0] != 0 ? folder : "/tmp", fPath, fDescriptor);
    if (!outcome.Ok())
        return outcome;
    fTemporary = true;
    std::vector<char> buffer(1 << 16);
    uint64 total = 0;
    for (;;)
    {
        const ssize_t count = read(inSource, buffer.data(), buffer.size());
        if (count == 0)
            break;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return SystemTrouble(fShownName);
        total += static_cast<uint64>(count);
        if (total > kMaxFileSize)
            return Trouble(
                fmt::format("{}: more than the {} bytes that a token file may have", fShownName, kMaxFileSize));
        Outcome written = WriteAll(fDescriptor, std::string_view(buffer.data(), static_cast<size_t>(count)), fPath);
        if (!written.Ok())
            return written;
    }
    fSize = static_cast<int32>(total);
    return {};
}

size_t InputFile::ReadAt(int32 inPosition, char* outBytes, size_t inSize)
{
    for (;;)
    {
        const ssize_t count = pread(fDescriptor, outBytes, inSize, inPosition);
        if (count >= 0)
            return static_cast<size_t>(count);
        if (errno == EINTR)
            continue;
        fError = errno;
        return 0;
    }
}

} // namespace nqtoken
