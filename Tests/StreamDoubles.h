// Files in memory for tests of streams, whose host calls can be made to fail or to move fewer bytes, and the streams
// that tests derive.

#pragma once

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "Tests/TestHost.h"

#include <functional>
#include <map>
#include <memory>

using TBytes = std::vector<int8>;

inline TBytes BytesOf(const std::string& text)
{
    return TBytes(text.begin(), text.end());
}

// The contents of all files, and what befalls the calls on them.
struct TTestDisk
{
    std::map<std::string, TBytes> fFiles;
    int fCalls = 0;
    int fBadCall = 0;    // the number, from 1, of the call that goes wrong
    bool fShort = false; // a read or write that goes wrong moves one byte less, instead of failing
    int fOpen = 0;       // files open now
    std::string fLog;    // one letter for each call that moves bytes: r or w

    bool GoesWrong() { return ++fCalls == fBadCall; }
};

constexpr NqErr kTestDiskError = -7;

class TTestFile : public TNqCountedObject, public INqFile
{
public:
    explicit TTestFile(TTestDisk& disk) : fDisk(disk) {}

    NqErr QueryInterface(const NqIID& iid, void** out) override
    {
        if (iid != IID_INqFile)
            return TNqCountedObject::QueryInterface(iid, out);
        *out = static_cast<INqFile*>(this);
        AddRef();
        return 0;
    }
    uint32 AddRef() override { return TNqCountedObject::AddRef(); }
    uint32 Release() override { return TNqCountedObject::Release(); }

    NqErr SetFileName(const TNqString& path, int32) override
    {
        fName = path.StrGet();
        return Fate();
    }
    NqErr CopyFrom(INqFile& file) override
    {
        fName = static_cast<TTestFile&>(file).fName;
        fMode = static_cast<TTestFile&>(file).fMode;
        return Fate();
    }
    NqErr SetPermission(int32 mode) override
    {
        fMode = mode;
        return Fate();
    }
    boolean Exists() override { return fDisk.fFiles.count(fName) != 0; }
    NqErr GetSize(uint32* size) override
    {
        *size = static_cast<uint32>(Bytes().size());
        return Fate();
    }
    NqErr GetPosition(uint32* position) override
    {
        *position = fPosition;
        return Fate();
    }
    NqErr GetPermission(int32* mode) override
    {
        *mode = fMode;
        return 0;
    }
    NqErr Create() override
    {
        const NqErr error = Fate();
        if (error == 0)
            fDisk.fFiles[fName];
        return error;
    }
    NqErr Open() override
    {
        const NqErr error = Fate();
        fDisk.fOpen += error == 0;
        fPosition = 0;
        return error;
    }
    NqErr Close() override
    {
        --fDisk.fOpen;
        return Fate();
    }
    NqErr Read(int8* data, uint32 count, uint32* done) override
    {
        fDisk.fLog += 'r';
        const uint32 size = static_cast<uint32>(Bytes().size());
        uint32 moved = fPosition < size ? std::min(count, size - fPosition) : 0;
        const bool atEnd = moved < count;
        NqErr error = Fate(&moved);
        std::copy_n(Bytes().data() + std::min(fPosition, size), moved, data);
        fPosition += moved;
        if (done != nullptr)
            *done = moved;
        return error != 0 ? error : atEnd ? kNqErrEndOfFile : 0;
    }
    NqErr Write(const int8* data, uint32 count, uint32* done) override
    {
        fDisk.fLog += 'w';
        uint32 moved = count;
        const NqErr error = Fate(&moved);
        if (moved > 0 && Bytes().size() < fPosition + moved)
            Bytes().resize(fPosition + moved);
        std::copy_n(data, moved, Bytes().data() + fPosition);
        fPosition += moved;
        if (done != nullptr)
            *done = moved;
        return error;
    }
    NqErr SetPosition(int32 offset, TNqiostream::seek_dir from) override
    {
        const int64 start = from == TNqiostream::cur ? fPosition : from == TNqiostream::end ? int64(Bytes().size()) : 0;
        if (start + offset < 0 || start + offset > 0x7FFFFFFF)
            return kTestDiskError;
        const NqErr error = Fate();
        if (error == 0)
            fPosition = static_cast<uint32>(start + offset);
        return error;
    }
    NqErr SetSize(uint32 size) override
    {
        Bytes().resize(size);
        return Fate();
    }
    void GetPathRelativeFolder(TNqString& folder) override
    {
        folder.FromCPtr(fName.substr(0, fName.rfind('/')).c_str());
    }
    void GetFullPath(TNqString& path) override { path.FromCPtr(fName.c_str()); }
    NqErr SetTypeAndCreator(TNqFileID* type, int32* creator) override
    {
        fDisk.fFiles["type"] = {static_cast<int8>(type->fID), static_cast<int8>(*creator)};
        return 0;
    }

private:
    // What becomes of this call; `moved` is lowered to the bytes that it still moves.
    NqErr Fate(uint32* moved = nullptr)
    {
        if (!fDisk.GoesWrong())
            return 0;
        if (moved == nullptr)
            return fDisk.fShort ? 0 : kTestDiskError;
        *moved = fDisk.fShort && *moved > 0 ? *moved - 1 : 0;
        return fDisk.fShort ? 0 : kTestDiskError;
    }

    TBytes& Bytes() { return fDisk.fFiles[fName]; }

    TTestDisk& fDisk;
    std::string fName;
    int32 fMode = 0;
    uint32 fPosition = 0;
};

// The file service over one disk, in place of the host's as long as it lives.
class TTestFileUtilities : public IShFileUtilities
{
public:
    explicit TTestFileUtilities(TTestDisk& disk) : fDisk(disk), fBefore(gFileUtilities) { gFileUtilities = this; }
    ~TTestFileUtilities() { gFileUtilities = fBefore; }

    void CreateFileObject(INqUnknown** out) override
    {
        *out = fDisk.GoesWrong() ? nullptr : static_cast<INqFile*>(new TTestFile(fDisk));
    }
    int8 GetPathSeparator(int8* out) override { return *out = '/'; }
    void CreateTranscoder(TNqCountedPtr<ITranscoder>& out, TranscoderType type) override
    {
        NqCreateTranscoder(out, type);
    }

private:
    TTestDisk& fDisk;
    IShFileUtilities* fBefore;
};

// A class of its own that changes nothing: its streams take the plain path.
template <class Stream>
class TDerived : public Stream
{
public:
    using Stream::Stream;
};

// A fixture with a disk.
class StreamTest : public NqTest
{
protected:
    TTestDisk fDisk;
    TTestFileUtilities fFileUtilities{fDisk};
};
