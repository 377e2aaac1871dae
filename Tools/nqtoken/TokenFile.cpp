#include "Tools/nqtoken/TokenFile.h"

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqHost/PublicAPI/NqHostFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace nqtoken
{
namespace
{

constexpr int32 kStreamBufferSize = 1 << 16;
constexpr size_t kScanSize = 1 << 14;

} // namespace

Outcome TokenFile::Open(const std::string& inPath)
{
    Outcome outcome = fFile.Open(inPath, true);
    if (!outcome.Ok())
        return outcome;
    NqHostForgetFileError();
    fStream = std::make_unique<TNqfstream>();
    const NqErr error = fStream->Init(fFile.Path().c_str(), kUTF8Transcoder, eRead, kStreamBufferSize, nullptr);
    fFile.ForgetPath();
    if (error != 0 && Failed())
        return ReadOutcome();
    if (error != 0)
        return Trouble(fmt::format("{}: could not be opened (0x{:08X})", ShownName(), static_cast<uint32>(error)));
    fStream->CheckIdentifier();
    fMarkSize = fFile.Size() - static_cast<int32>(fStream->GetFileSize());
    return ReadOutcome();
}

int TokenFile::Reason() const
{
    return fFile.Error() != 0 ? fFile.Error() : NqHostFileError();
}

Outcome TokenFile::ReadOutcome() const
{
    if (!Failed())
        return {};
    return Trouble(fmt::format("{}: could not be read: {}", ShownName(), strerror(Reason())));
}

LineColumn TokenFile::Locate(int32 inPosition)
{
    if (inPosition < fCounted)
    {
        fCounted = 0;
        fPlace = LineColumn();
        fAfterCR = false;
    }
    char bytes[kScanSize];
    while (fCounted < inPosition)
    {
        const size_t wanted = std::min(kScanSize, static_cast<size_t>(inPosition - fCounted));
        const size_t count = fFile.ReadAt(fCounted + fMarkSize, bytes, wanted);
        if (count == 0)
            break;
        for (size_t i = 0; i < count; ++i)
        {
            const char c = bytes[i];
            if (c == '\n' && fAfterCR)
                fPlace.fColumn = 1; // the second half of one line end
            else if (c == '\r' || c == '\n')
                fPlace = {fPlace.fLine + 1, 1};
            else
                ++fPlace.fColumn;
            fAfterCR = c == '\r';
        }
        fCounted += static_cast<int32>(count);
    }
    return fPlace;
}

// Reads ahead, as it is asked for one short stretch after the other.
int32 TokenFile::FindZeroByte(int32 inFrom, int32 inTo)
{
    if (inFrom < fScanFrom || inFrom > fScanTo)
    {
        fScanFrom = fScanTo = inFrom;
        fScanHit = false;
    }
    char bytes[kScanSize];
    while (fScanTo < inTo && !fScanHit)
    {
        const size_t count = fFile.ReadAt(fScanTo + fMarkSize, bytes, kScanSize);
        if (count == 0)
            break;
        const void* zero = memchr(bytes, 0, count);
        fScanHit = zero != nullptr;
        fScanTo +=
            static_cast<int32>(fScanHit ? static_cast<const char*>(zero) - bytes : static_cast<ptrdiff_t>(count));
    }
    return fScanHit && fScanTo < inTo ? fScanTo : inTo;
}

char TokenFile::ByteAt(int32 inPosition)
{
    char byte = 0;
    fFile.ReadAt(inPosition + fMarkSize, &byte, 1);
    return byte;
}

std::string TokenFile::FaultText(int32 inPosition, const std::string& inWhat, NqErr inCode)
{
    const LineColumn place = Locate(inPosition);
    return fmt::format("{}:{}:{}: {} (0x{:08X})", ShownName(), place.fLine, place.fColumn, inWhat,
                       static_cast<uint32>(inCode));
}

} // namespace nqtoken
