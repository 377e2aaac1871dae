// The reference host's resource file: resources with types, numbers, names, attributes and string tables, in one file
// that docs/resource-file.md describes byte by byte. nqres makes such files from text.
//
//     TNqHostResourceFile file;
//     TNqDynamicString reason;
//     if (file.Read("types.nqr", reason) != kNqNoErr)
//         std::fprintf(stderr, "types.nqr: %s\n", reason.StrGet());
//     if (TNqResource* resource = file.FindResource(NqFourChar("FTyp"), 128))
//         resource->SetAttributes(1);
//     if (file.Write("types.nqr", reason) != kNqNoErr)
//         ...                                        // what was there before still is
//
// A file is read whole, or refused with a reason that says what is wrong where: cut, damaged, with entries that lie
// outside of it or on each other. The same resources make the same bytes, whatever was done to get there.
//
// Ownership: the file holds a reference of each resource. Threads: one at a time. Cost: finding by number is a binary
// search; adding moves the pointers of all resources that sort behind the new one.

#pragma once

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqResource.h"
#include "NqCore/PublicAPI/NqResourceFile.h"

class TNqByteSwapStream;

class TNqHostResourceFile final : public TNqResourceFile
{
public:
    TNqHostResourceFile() = default;
    ~TNqHostResourceFile() override;

    // Replace all resources by those of a file, or of its bytes. When they are refused the result is not 0, `outReason`
    // tells why in a sentence for the user, and the resources are as they were. Errors: kNqErrFileNotFound,
    // kNqErrOutOfMemory, kNqErrFormat for what is no resource file or a damaged one, kNqErrInvalidData for one that
    // cannot be read.
    NqErr Read(const char* inPath, TNqString& outReason);
    NqErr ReadBytes(const int8* inBytes, uint32 inSize, TNqString& outReason);

    // Write the file: all of it takes the place of the one before at once, or that one stays. Errors: kNqErrInvalidData
    // for a resource that cannot be kept, kNqErrOutOfMemory, and what the system says of the file.
    NqErr Write(const char* inPath, TNqString& outReason) const;
    NqErr WriteBytes(TNqByteSwapStream& ioStream, TNqString& outReason) const;

    // Takes a reference. kNqErrInvalidData when there is a resource of that type and number, or when it is in a file
    // already; kNqErrOutOfMemory. Data, name, attributes and strings may change while it is here.
    NqErr AddResource(TNqResource& ioResource);
    // kNqErrInvalidData when there is none.
    NqErr RemoveResource(FourCharT inType, int16 inId);

    uint32 CountAllResources() const { return fResources.GetElemCount(); }
    // In ascending order of type and number; null when out of range.
    TNqResource* GetResource(uint32 inIndex) const;

    TNqResource* FindResource(FourCharT inType, int16 inId) override;
    TNqResource* FindResource(FourCharT inType, const TNqString& inName) override;
    boolean GetFirstType(FourCharT& outType) override;
    boolean GetNextType(FourCharT& ioType) override;
    uint32 CountResources(FourCharT inType) override;
    TNqResource* GetResource(FourCharT inType, uint32 inIndex) override;

private:
    void ReleaseAll();
    uint32 IndexOf(int64 inKey) const;

    TNqPtrArray<TNqResource> fResources; // sorted by type and number; a reference of each
};
