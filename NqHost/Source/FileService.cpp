// The file-utilities service: file objects, the path separator, transcoders.

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/Source/HostFile.h"
#include "NqHost/Source/NqHostInternal.h"

IShFileUtilities* gFileUtilities = nullptr;

namespace
{

constexpr int8 kPathSeparator = '/';

// Factories of the library throw without memory. Streams, which call this service, must not: they find an empty
// pointer.
class TFileUtilities final : public IShFileUtilities
{
public:
    void CreateFileObject(INqUnknown** outObject) override
    {
        if (!NqCheck(outObject != nullptr))
            return;
        ReleaseIfNotNull(*outObject);
        try
        {
            *outObject = static_cast<INqFile*>(new TNqHostFile);
        }
        catch (const TNqException&) // reported when it was made
        {
        }
    }

    int8 GetPathSeparator(int8* outSeparator) override
    {
        if (outSeparator != nullptr)
            *outSeparator = kPathSeparator;
        return kPathSeparator;
    }

    void CreateTranscoder(TNqCountedPtr<ITranscoder>& outTranscoder, TranscoderType inType) override
    {
        try
        {
            NqCreateTranscoder(outTranscoder, inType);
        }
        catch (const TNqException&)
        {
            outTranscoder = nullptr;
        }
    }
};

TFileUtilities gService;

} // namespace

void NqHostStartFiles()
{
    gFileUtilities = &gService;
}

void NqHostStopFiles()
{
    gFileUtilities = nullptr;
}
