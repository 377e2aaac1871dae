#include "NqHost/PublicAPI/NqHostPathFile.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int64 kSecondsTo2001 = 978307200; // from 1970, where the system counts from

TNqSystemTime TimeOf(const struct statx_timestamp& inTime)
{
    TNqSystemTime time;
    time.fSeconds = static_cast<real64>(inTime.tv_sec - kSecondsTo2001) + static_cast<real64>(inTime.tv_nsec) * 1e-9;
    return time;
}

// The last name in the path; empty when it ends with a slash.
std::string_view GetName(const TNqDynamicString& inPath)
{
    const std::string_view path = inPath.ByteLength() == 0 ? "" : inPath.GetString();
    return path.substr(path.rfind('/') + 1);
}

IDType ReadTypeCode(const char* inPath)
{
    const int descriptor = open(inPath, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0)
        return 0;
    uint8 bytes[4];
    ssize_t count;
    do
        count = pread(descriptor, bytes, sizeof bytes, 0);
    while (count < 0 && errno == EINTR);
    close(descriptor);
    if (count != sizeof bytes)
        return 0;
    IDType code = 0;
    for (const uint8 byte : bytes)
        code = (code << 8) | byte;
    return code;
}

} // namespace

void TNqHostPathFile::GetInfo(APIFileInfo& outInfo) const
{
    outInfo = APIFileInfo();
    struct statx found;
    const char* const path = fPath.ByteLength() == 0 ? "" : fPath.GetString();
    if (statx(AT_FDCWD, path, 0, STATX_BASIC_STATS | STATX_BTIME, &found) != 0)
        return;
    outInfo.fIsDir = S_ISDIR(found.stx_mode);
    outInfo.fIsReadOnly = access(path, W_OK) != 0;
    outInfo.fIsHidden = GetName(fPath).substr(0, 1) == ".";
    outInfo.fModificationTime = TimeOf(found.stx_mtime);
    outInfo.fCreationTime = TimeOf((found.stx_mask & STATX_BTIME) != 0 ? found.stx_btime : found.stx_mtime);
    if (!S_ISREG(found.stx_mode))
        return;
    outInfo.fDataSize = found.stx_size;
    outInfo.fType.fID = ReadTypeCode(path);
}

void TNqHostPathFile::GetExtension(TNqString& outExtension) const
{
    const std::string_view name = GetName(fPath);
    const size_t dot = name.rfind('.');
    const bool hasExtension = dot != std::string_view::npos && dot > 0;
    const std::string_view extension = hasExtension ? name.substr(dot + 1) : std::string_view();
    outExtension.FromText(extension.data(), static_cast<uint32>(extension.size()));
}
