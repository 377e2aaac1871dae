// Resource files: the container that docs/resource-file.md describes.

#include "NqHost/PublicAPI/NqHostResourceFile.h"

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHostFiles.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{

constexpr FourCharT kMagic = NqFourChar("NqRs");
constexpr uint32 kVersion = 1;
constexpr uint32 kCheckedFrom = 16; // what the checksum covers begins here
constexpr uint32 kHeaderSize = 20;
constexpr uint32 kEntrySize = 28;
constexpr uint8 kHasStrings = 1; // the one flag of an entry
constexpr int64 kLargestFile = 0x7FFFFFFF;

// ---- Reasons -------------------------------------------------------------------------------------------------------

[[gnu::format(printf, 3, 4)]] NqErr Refuse(TNqString& outReason, NqErr inError, const char* inFormat, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, inFormat);
    std::vsnprintf(text, sizeof text, inFormat, arguments);
    va_end(arguments);
    outReason.FromCPtr(text);
    return inError;
}

NqErr NoMemory(TNqString& outReason)
{
    return Refuse(outReason, kNqErrOutOfMemory, "out of memory");
}

// How messages name a resource.
struct TResourceText
{
    TResourceText(FourCharT inType, int16 inId)
    {
        char code[11];
        for (int i = 0; i < 4; ++i)
            code[i] = static_cast<char>(inType >> (24 - 8 * i));
        code[4] = 0;
        if (!std::all_of(code, code + 4, [](char c) { return c >= ' ' && c <= '~'; }))
            std::snprintf(code, sizeof code, "0x%08X", inType);
        std::snprintf(fText, sizeof fText, "resource %s %d", code, inId);
    }
    char fText[40];
};

// ---- Checksum: CRC-32 as in zip files ------------------------------------------------------------------------------

constexpr std::array<uint32, 256> MakeChecksumTable()
{
    std::array<uint32, 256> table{};
    for (uint32 i = 0; i < 256; ++i)
    {
        uint32 value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = value >> 1 ^ (value & 1 ? 0xEDB88320 : 0);
        table[i] = value;
    }
    return table;
}

uint32 ChecksumOf(const int8* inBytes, size_t inSize)
{
    static constexpr std::array<uint32, 256> kTable = MakeChecksumTable();
    uint32 sum = ~uint32(0);
    for (size_t i = 0; i < inSize; ++i)
        sum = kTable[(sum ^ static_cast<uint8>(inBytes[i])) & 0xFF] ^ sum >> 8;
    return ~sum;
}

// ---- Entries -------------------------------------------------------------------------------------------------------

// Sorts as the file does: by type, then by number with its sign.
int64 KeyOf(FourCharT inType, int16 inId)
{
    return static_cast<int64>(inType) * 0x10000 + inId;
}

int64 KeyOf(const TNqResource& inResource)
{
    return KeyOf(inResource.GetType(), inResource.GetID());
}

struct TEntry
{
    FourCharT fType;
    int16 fID;
    uint8 fFlags;
    uint8 fNameLength;
    int32 fAttributes;
    uint32 fOffset; // of the body: name, data, strings
    uint32 fDataSize;
    uint32 fStringCount;
    uint32 fStringsSize; // each string is a length of four bytes and its bytes

    int64 BodySize() const { return static_cast<int64>(fNameLength) + fDataSize + fStringsSize; }
};

TEntry ReadEntry(TNqByteSwapStream& ioStream)
{
    TEntry entry = {};
    ioStream >> entry.fType >> entry.fID >> entry.fFlags >> entry.fNameLength >> entry.fAttributes >> entry.fOffset >>
        entry.fDataSize >> entry.fStringCount >> entry.fStringsSize;
    return entry;
}

void WriteEntry(TNqByteSwapStream& ioStream, const TEntry& inEntry)
{
    ioStream << inEntry.fType << inEntry.fID << inEntry.fFlags << inEntry.fNameLength << inEntry.fAttributes
             << inEntry.fOffset << inEntry.fDataSize << inEntry.fStringCount << inEntry.fStringsSize;
}

// A NUL would end the text for every reader.
bool HoldsNul(const int8* inBytes, size_t inSize)
{
    return inSize != 0 && std::memchr(inBytes, 0, inSize) != nullptr;
}

bool HoldsNul(const TNqString& inText)
{
    return HoldsNul(inText.ByteLength() != 0 ? inText.StrGet() : "", inText.ByteLength());
}

// ---- Reading -------------------------------------------------------------------------------------------------------

class TReader
{
public:
    TReader(const int8* inBytes, uint32 inSize, TNqPtrArray<TNqResource>& ioResources, TNqString& outReason)
        : fBytes(inBytes),
          fSize(inSize),
          fOut(ioResources),
          fReason(outReason)
    {
    }

    NqErr Read()
    {
        if (fSize < kHeaderSize)
            return Refuse(fReason, kNqErrFormat, "no resource file: %u bytes are less than its header has", fSize);
        TNqByteSwapStream stream(const_cast<int8*>(fBytes), static_cast<int32>(fSize), kUTF8Transcoder, eRead);
        NqErr error = CheckHeader(stream);
        const uint32 count = error == kNqNoErr ? stream.ReadLong() : 0;
        const int64 bodies = kHeaderSize + static_cast<int64>(count) * kEntrySize;
        if (error == kNqNoErr && bodies > fSize)
            error = Refuse(fReason, kNqErrFormat, "says that it has %u resources, which %u bytes cannot hold", count,
                           fSize);
        fBodyEnd = bodies;
        if (error == kNqNoErr && !fOut.SetElemSpace(count))
            error = NoMemory(fReason);
        for (uint32 i = 0; i < count && error == kNqNoErr; ++i)
            error = ReadResource(ReadEntry(stream));
        if (error == kNqNoErr && fBodyEnd != fSize)
            error = Refuse(fReason, kNqErrFormat, "bytes %lld to %u belong to no resource",
                           static_cast<long long>(fBodyEnd), fSize);
        return error;
    }

private:
    NqErr CheckHeader(TNqByteSwapStream& ioStream)
    {
        if (ioStream.ReadLong() != kMagic)
            return Refuse(fReason, kNqErrFormat, "no resource file: it does not begin with \"NqRs\"");
        const uint32 version = ioStream.ReadLong();
        if (version != kVersion)
            return Refuse(fReason, kNqErrFormat, "has version %u; this program reads version %u", version, kVersion);
        const uint32 size = ioStream.ReadLong();
        if (size > fSize)
            return Refuse(fReason, kNqErrFormat, "is cut: %u of %u bytes are there", fSize, size);
        if (size < fSize)
            return Refuse(fReason, kNqErrFormat, "has %u bytes behind its end at %u", fSize - size, size);
        if (ioStream.ReadLong() != ChecksumOf(fBytes + kCheckedFrom, fSize - kCheckedFrom))
            return Refuse(fReason, kNqErrFormat, "is damaged: its checksum is wrong");
        return kNqNoErr;
    }

    NqErr ReadResource(const TEntry& inEntry)
    {
        const TResourceText name(inEntry.fType, inEntry.fID);
        if (inEntry.fFlags & ~kHasStrings)
            return Refuse(fReason, kNqErrFormat, "%s: has unknown flags 0x%02X", name.fText, inEntry.fFlags);
        if (fOut.GetElemCount() > 0)
        {
            const int64 before = KeyOf(*fOut[fOut.GetElemCount() - 1]);
            const int64 key = KeyOf(inEntry.fType, inEntry.fID);
            if (key <= before)
                return Refuse(fReason, kNqErrFormat, "%s: %s", name.fText,
                              key == before ? "is there twice" : "stands behind one that sorts after it");
        }
        if (inEntry.fOffset != fBodyEnd)
            return Refuse(fReason, kNqErrFormat, "%s: begins at byte %u, where the one before ends at %lld", name.fText,
                          inEntry.fOffset, static_cast<long long>(fBodyEnd));
        if (inEntry.BodySize() > fSize - fBodyEnd)
            return Refuse(fReason, kNqErrFormat, "%s: its %lld bytes from %u on do not fit the file of %u", name.fText,
                          static_cast<long long>(inEntry.BodySize()), inEntry.fOffset, fSize);
        fBodyEnd += inEntry.BodySize();
        return MakeResource(inEntry, name);
    }

    NqErr MakeResource(const TEntry& inEntry, const TResourceText& inName)
    {
        const int8* const bytes = fBytes + inEntry.fOffset;
        if (HoldsNul(bytes, inEntry.fNameLength))
            return Refuse(fReason, kNqErrFormat, "%s: a zero byte in its name", inName.fText);
        TNqResource* const resource =
            new TNqResource(inEntry.fType, inEntry.fID, TNqString255(bytes, inEntry.fNameLength));
        if (resource == nullptr)
            return NoMemory(fReason);
        if (!fOut.AddElem(resource))
        {
            resource->Release();
            return NoMemory(fReason);
        }
        resource->SetAttributes(inEntry.fAttributes);
        if (!resource->SetData(bytes + inEntry.fNameLength, inEntry.fDataSize))
            return NoMemory(fReason);
        if (inEntry.fFlags & kHasStrings)
            return ReadStrings(inEntry, *resource, inName);
        if (inEntry.fStringCount != 0 || inEntry.fStringsSize != 0)
            return Refuse(fReason, kNqErrFormat, "%s: strings without a table", inName.fText);
        return kNqNoErr;
    }

    NqErr ReadStrings(const TEntry& inEntry, TNqResource& ioResource, const TResourceText& inName)
    {
        TNqCountedPtr<TResourceStrings> strings;
        TResourceStrings::Create(&strings);
        ioResource.SetLocalizedStrings(strings);
        const uint32 start = inEntry.fOffset + inEntry.fNameLength + inEntry.fDataSize;
        TNqByteSwapStream stream(const_cast<int8*>(fBytes), static_cast<int32>(start + inEntry.fStringsSize),
                                 kUTF8Transcoder, eRead);
        stream.seek(static_cast<int32>(start), TNqiostream::beg);
        uint32 left = inEntry.fStringsSize;
        for (uint32 i = 0; i < inEntry.fStringCount; ++i)
        {
            const uint32 length = left >= 4 ? stream.ReadLong() : 0;
            if (left < 4 || length > left - 4)
                return Refuse(fReason, kNqErrFormat, "%s: its string %u does not fit its table", inName.fText, i);
            left -= 4 + length;
            const int8* const text = fBytes + stream.tell();
            if (HoldsNul(text, length))
                return Refuse(fReason, kNqErrFormat, "%s: a zero byte in its string %u", inName.fText, i);
            if (!strings->AddElem(TNqDynamicString(text, length)) || (*strings)[i].ByteLength() != length)
                return NoMemory(fReason);
            stream.seek(static_cast<int32>(length), TNqiostream::cur);
        }
        if (left != 0)
            return Refuse(fReason, kNqErrFormat, "%s: %u bytes behind its last string", inName.fText, left);
        return kNqNoErr;
    }

    const int8* const fBytes;
    const uint32 fSize;
    int64 fBodyEnd = 0;
    TNqPtrArray<TNqResource>& fOut;
    TNqString& fReason;
};

// ---- Writing -------------------------------------------------------------------------------------------------------

// The entry of a resource whose body begins at `inOffset`.
NqErr DescribeResource(const TNqResource& inResource, int64 inOffset, TEntry& outEntry, TNqString& outReason)
{
    const TResourceText name(inResource.GetType(), inResource.GetID());
    if (HoldsNul(inResource.GetName()))
        return Refuse(outReason, kNqErrInvalidData, "%s: a zero byte in its name", name.fText);
    const TResourceStrings* const strings = inResource.GetLocalizedStrings();
    const uint32 count = strings != nullptr ? strings->GetElemCount() : 0;
    int64 stringsSize = 0;
    for (uint32 i = 0; i < count; ++i)
    {
        const TNqString& text = (*strings)[i];
        if (HoldsNul(text))
            return Refuse(outReason, kNqErrInvalidData, "%s: a zero byte in its string %u", name.fText, i);
        stringsSize += 4 + static_cast<int64>(text.ByteLength());
    }
    const uint32 nameLength = inResource.GetName().ByteLength();
    if (inOffset + nameLength + inResource.GetSize() + stringsSize > kLargestFile)
        return Refuse(outReason, kNqErrInvalidData, "%s: the file would be larger than 2^31 - 1 bytes", name.fText);
    outEntry = {inResource.GetType(),
                inResource.GetID(),
                strings != nullptr ? kHasStrings : uint8(0),
                static_cast<uint8>(nameLength),
                inResource.GetAttributes(),
                static_cast<uint32>(inOffset),
                inResource.GetSize(),
                count,
                static_cast<uint32>(stringsSize)};
    return kNqNoErr;
}

void WriteText(TNqByteSwapStream& ioStream, const TNqString& inText)
{
    if (inText.ByteLength() != 0)
        ioStream.write(inText.StrGet(), static_cast<int32>(inText.ByteLength()));
}

void WriteBody(TNqByteSwapStream& ioStream, const TNqResource& inResource)
{
    WriteText(ioStream, inResource.GetName());
    ioStream.write(inResource.GetData(), static_cast<int32>(inResource.GetSize()));
    const TResourceStrings* const strings = inResource.GetLocalizedStrings();
    const uint32 count = strings != nullptr ? strings->GetElemCount() : 0;
    for (uint32 i = 0; i < count; ++i)
    {
        ioStream.WriteLong((*strings)[i].ByteLength());
        WriteText(ioStream, (*strings)[i]);
    }
}

void ReleaseResources(TNqPtrArray<TNqResource>& ioResources)
{
    for (uint32 i = 0; i < ioResources.GetElemCount(); ++i)
        ioResources[i]->Release();
    ioResources.SetElemCount(0);
}

} // namespace

TNqHostResourceFile::~TNqHostResourceFile()
{
    ReleaseAll();
}

void TNqHostResourceFile::ReleaseAll()
{
    for (uint32 i = 0; i < fResources.GetElemCount(); ++i)
        Disown(*fResources[i]);
    ReleaseResources(fResources);
}

NqErr TNqHostResourceFile::ReadBytes(const int8* inBytes, uint32 inSize, TNqString& outReason)
{
    if (inSize > kLargestFile)
        return Refuse(outReason, kNqErrFormat, "larger than 2^31 - 1 bytes");
    TNqPtrArray<TNqResource> resources;
    NqErr error = kNqErrOutOfMemory;
    try
    {
        error = TReader(inBytes, inSize, resources, outReason).Read();
    }
    catch (const TNqException&) // no memory for a counter
    {
        NoMemory(outReason);
    }
    if (error == kNqNoErr && !fResources.SetElemSpace(std::max(fResources.GetElemCount(), resources.GetElemCount())))
        error = NoMemory(outReason);
    if (error != kNqNoErr)
    {
        ReleaseResources(resources);
        return error;
    }
    ReleaseAll();
    for (uint32 i = 0; i < resources.GetElemCount(); ++i)
    {
        fResources.AddElem(resources[i]);
        Own(*resources[i]);
    }
    return kNqNoErr;
}

NqErr TNqHostResourceFile::Read(const char* inPath, TNqString& outReason)
{
    int8* bytes = nullptr;
    uint32 size = 0;
    NqErr error = NqHostLoadFile(inPath, bytes, size, outReason);
    if (error == kNqNoErr)
        error = ReadBytes(bytes, size, outReason);
    Nqfree(bytes);
    return error;
}

NqErr TNqHostResourceFile::WriteBytes(TNqByteSwapStream& ioStream, TNqString& outReason) const
{
    const uint32 count = CountAllResources();
    TNqArray<TEntry> entries;
    if (!entries.SetElemCount(count))
        return NoMemory(outReason);
    int64 size = kHeaderSize + static_cast<int64>(count) * kEntrySize;
    for (uint32 i = 0; i < count; ++i)
    {
        const NqErr error = DescribeResource(*fResources[i], size, entries[i], outReason);
        if (error != kNqNoErr)
            return error;
        size += entries[i].BodySize();
    }
    TNqByteSwapStream content;
    content << count;
    for (uint32 i = 0; i < count; ++i)
        WriteEntry(content, entries[i]);
    for (uint32 i = 0; i < count && content.good(); ++i)
        WriteBody(content, *fResources[i]);
    const int32 written = content.pcount();
    if (written != size - kCheckedFrom)
        return NoMemory(outReason);
    int8* const bytes = content.str();
    const int32 start = ioStream.pcount();
    ioStream << kMagic << kVersion << static_cast<uint32>(size) << ChecksumOf(bytes, static_cast<size_t>(written));
    ioStream.write(bytes, written);
    Nqfree(bytes);
    return ioStream.pcount() - start == size ? kNqNoErr : NoMemory(outReason);
}

NqErr TNqHostResourceFile::Write(const char* inPath, TNqString& outReason) const
{
    TNqByteSwapStream out;
    NqErr error = WriteBytes(out, outReason);
    if (error != kNqNoErr)
        return error;
    const uint32 size = static_cast<uint32>(out.pcount());
    int8* const bytes = out.str();
    error = NqHostReplaceFile(inPath, bytes, size, outReason);
    Nqfree(bytes);
    return error;
}

// ---- Finding and changing ------------------------------------------------------------------------------------------

// The first resource whose key is not less.
uint32 TNqHostResourceFile::IndexOf(int64 inKey) const
{
    TNqResource* const* const first = fResources.Begin();
    TNqResource* const* const found =
        std::lower_bound(first, first + CountAllResources(), inKey,
                         [](const TNqResource* resource, int64 wanted) { return KeyOf(*resource) < wanted; });
    return static_cast<uint32>(found - first);
}

NqErr TNqHostResourceFile::AddResource(TNqResource& ioResource)
{
    if (ioResource.GetOwningFile() != nullptr || FindResource(ioResource.GetType(), ioResource.GetID()) != nullptr)
        return kNqErrInvalidData;
    const uint32 index = IndexOf(KeyOf(ioResource));
    if (!fResources.AddElem(&ioResource))
        return kNqErrOutOfMemory;
    std::rotate(fResources.Begin() + index, fResources.Begin() + CountAllResources() - 1,
                fResources.Begin() + CountAllResources());
    ioResource.AddRef();
    Own(ioResource);
    return kNqNoErr;
}

NqErr TNqHostResourceFile::RemoveResource(FourCharT inType, int16 inId)
{
    TNqResource* const resource = FindResource(inType, inId);
    if (resource == nullptr)
        return kNqErrInvalidData;
    TNqResource** const at = fResources.Begin() + IndexOf(KeyOf(inType, inId));
    std::copy(at + 1, fResources.Begin() + CountAllResources(), at);
    fResources.SetElemCount(CountAllResources() - 1);
    Disown(*resource);
    resource->Release();
    return kNqNoErr;
}

TNqResource* TNqHostResourceFile::GetResource(uint32 inIndex) const
{
    return inIndex < CountAllResources() ? fResources[inIndex] : nullptr;
}

TNqResource* TNqHostResourceFile::FindResource(FourCharT inType, int16 inId)
{
    TNqResource* const found = GetResource(IndexOf(KeyOf(inType, inId)));
    return found != nullptr && found->GetType() == inType && found->GetID() == inId ? found : nullptr;
}

TNqResource* TNqHostResourceFile::FindResource(FourCharT inType, const TNqString& inName)
{
    const auto bytesOf = [](const TNqString& text) { return text.ByteLength() != 0 ? text.StrGet() : ""; };
    for (uint32 i = 0; TNqResource* const resource = GetResource(inType, i); ++i)
    {
        const TNqString& candidate = resource->GetName();
        if (candidate.ByteLength() == inName.ByteLength() &&
            std::memcmp(bytesOf(candidate), bytesOf(inName), inName.ByteLength()) == 0)
            return resource;
    }
    return nullptr;
}

boolean TNqHostResourceFile::GetFirstType(FourCharT& outType)
{
    if (CountAllResources() == 0)
        return false;
    outType = fResources[0]->GetType();
    return true;
}

boolean TNqHostResourceFile::GetNextType(FourCharT& ioType)
{
    const TNqResource* const next = GetResource(IndexOf(KeyOf(ioType, 0) + 0x8000));
    if (next == nullptr)
        return false;
    ioType = next->GetType();
    return true;
}

uint32 TNqHostResourceFile::CountResources(FourCharT inType)
{
    const int64 first = KeyOf(inType, 0) - 0x8000;
    return IndexOf(first + 0x10000) - IndexOf(first);
}

TNqResource* TNqHostResourceFile::GetResource(FourCharT inType, uint32 inIndex)
{
    TNqResource* const found = inIndex < 0x10000 ? GetResource(IndexOf(KeyOf(inType, 0) - 0x8000) + inIndex) : nullptr;
    return found != nullptr && found->GetType() == inType ? found : nullptr;
}
