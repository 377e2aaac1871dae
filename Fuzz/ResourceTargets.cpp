#include "Fuzz/FuzzTargets.h"
#include "Fuzz/ResourceBytes.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHostResourceFile.h"

namespace NqFuzz
{

// The bytes as they are, under a right checksum, or within a right header.
void Resources(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const uint32 kind = choices.Below(3);
    const uint32 count = kind == 2 ? choices.Below(4) : 0;
    const std::vector<int8> rest = choices.Rest();
    std::string bytes(rest.begin(), rest.end());
    if (kind > 0)
        bytes = kind == 1 ? Resealed(bytes) : Sealed(bytes, count);

    TNqHostResourceFile file;
    TNqDynamicString reason;
    // A block of exactly this size, so that a byte read beyond it is seen.
    const std::vector<int8> block(bytes.begin(), bytes.end());
    const NqErr error = file.ReadBytes(block.data(), static_cast<uint32>(block.size()), reason);
    Require((error == kNqNoErr) == (reason.ByteLength() == 0), "a refusal has a reason");
    if (error != kNqNoErr)
        return Require(file.CountAllResources() == 0, "what is refused leaves nothing");
    TNqByteSwapStream out;
    Require(file.WriteBytes(out, reason) == kNqNoErr, "what was read can be written");
    const size_t written = static_cast<size_t>(out.pcount());
    int8* const copy = out.str();
    const bool same = std::string(copy, written) == bytes;
    Nqfree(copy);
    Require(same, "the same resources make the same bytes");
}

} // namespace NqFuzz
