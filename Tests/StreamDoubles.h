// Files in memory for tests of streams, whose host calls can be made to fail or to move fewer bytes, and the streams
// that tests derive.

#pragma once

#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "Tests/TestHost.h"

#include <map>
#include <memory>

constexpr NqErr kTestDiskError = -7;

// The contents of all files, and what befalls the calls on them.
struct TTestDisk
{
    std::map<std::string, std::string> fFiles;
    int fCalls = 0;
    int fBadCall = 0;    // the number, from 1, of the call that goes wrong
    bool fShort = false; // it moves one byte less, instead of failing
    int fOpen = 0;       // files open now
    std::string fLog;    // one letter for each call that moves bytes: r or w
    uint32 fBefore = 0;  // bytes that every file has before those that are kept; they must not be touched

    bool GoesWrong() { return ++fCalls == fBadCall; }
};

class TTestFile : public TNqCountedObject, public INqFile
{
public:
    explicit TTestFile(TTestDisk& disk) : fDisk(disk) {}

    NqErr QueryInterface(const NqIID& iid, void** out) override
    {
        if (iid != IID_INqFile)
            return TNqCountedObject::QueryInterface(iid, out);
        *out = static_cast<INqFile*>(this);
        return AddRef(), 0;
    }
    uint32 AddRef() override { return TNqCountedObject::AddRef(); }
    uint32 Release() override { return TNqCountedObject::Release(); }

    NqErr SetFileName(const TNqString& path, int32) override { return Fails() ? kTestDiskError : Name(path.StrGet()); }
    NqErr CopyFrom(INqFile& file) override
    {
        const TTestFile& other = static_cast<TTestFile&>(file);
        return Fails() ? kTestDiskError : (fMode = other.fMode, Name(other.fName));
    }
    NqErr SetPermission(int32 mode) override { return Fails() ? kTestDiskError : (fMode = mode, 0); }
    boolean Exists() override { return fDisk.fFiles.count(fName) != 0; }
    NqErr GetSize(uint32* size) override
    {
        *size = 0;
        return Fails() ? kTestDiskError : (*size = Size(), 0);
    }
    NqErr GetPosition(uint32* position) override
    {
        Allow(fIsOpen, "asked for its position");
        return Fails() ? kTestDiskError : (*position = fPosition, 0);
    }
    NqErr GetPermission(int32* mode) override { return *mode = fMode, 0; }
    NqErr Create() override { return Fails() ? kTestDiskError : (Bytes(), 0); }
    NqErr Open() override
    {
        Allow(!fIsOpen, "opened");
        return Fails() ? kTestDiskError : (fPosition = 0, fIsOpen = true, ++fDisk.fOpen, 0);
    }
    NqErr Close() override
    {
        Allow(fIsOpen, "closed");
        fIsOpen = false;
        return --fDisk.fOpen, Fails() ? kTestDiskError : 0;
    }
    NqErr SetSize(uint32 size) override
    {
        Allow(fIsOpen && (fMode & eWrite), "cut");
        return Fails() ? kTestDiskError : (Bytes().resize(size), 0);
    }
    void GetPathRelativeFolder(TNqString& out) override { out.FromCPtr(fName.substr(0, fName.rfind('/')).c_str()); }
    void GetFullPath(TNqString& path) override { path.FromCPtr(fName.c_str()); }
    NqErr SetTypeAndCreator(TNqFileID* type, int32* creator) override
    {
        fDisk.fLog += std::to_string(type->fID) + " " + std::to_string(*creator);
        return 0;
    }

    NqErr Read(int8* data, uint32 count, uint32* done) override
    {
        Allow(fIsOpen && (fMode & eRead), "read");
        fDisk.fLog += 'r';
        const uint32 left = Size() - std::min(fPosition, Size());
        const NqErr error = Move(std::min(count, left), *done);
        if (*done > 0)
            std::copy_n(&Bytes()[Index(fPosition - *done)], *done, data);
        return error != 0 ? error : count > left ? kNqErrEndOfFile : 0;
    }
    NqErr Write(const int8* data, uint32 count, uint32* done) override
    {
        Allow(fIsOpen && (fMode & eWrite), "written");
        fDisk.fLog += 'w';
        *done = 0;
        if (count > kLastPosition - fPosition)
            return kTestDiskError;
        const NqErr error = Move(count, *done);
        if (*done == 0)
            return error;
        Bytes().resize(std::max(Bytes().size(), Index(fPosition - 1) + 1));
        std::copy_n(data, *done, &Bytes()[Index(fPosition - *done)]);
        return error;
    }
    NqErr SetPosition(int32 offset, TNqiostream::seek_dir from) override
    {
        Allow(fIsOpen, "moved");
        const int64 start = from == TNqiostream::cur ? fPosition : from == TNqiostream::end ? Size() : 0;
        if (start + offset < 0 || start + offset > kLastPosition)
            return kTestDiskError;
        return Fails() ? kTestDiskError : (fPosition = static_cast<uint32>(start + offset), 0);
    }

private:
    static constexpr uint32 kLastPosition = 0x7FFFFFFF;

    // A file of the host does only what it was opened for.
    static void Allow(bool allowed, const char* what) { EXPECT_TRUE(allowed) << "a file must not be " << what; }

    // Whether this call fails instead of doing something.
    bool Fails() { return fDisk.GoesWrong() && !fDisk.fShort; }
    NqErr Name(const std::string& name) { return fName = name, 0; }

    // Moves the position over the bytes that this call transfers.
    NqErr Move(uint32 count, uint32& done)
    {
        const bool wrong = fDisk.GoesWrong();
        done = !wrong ? count : fDisk.fShort && count > 0 ? count - 1 : 0;
        fPosition += done;
        return wrong && !fDisk.fShort ? kTestDiskError : 0;
    }

    std::string& Bytes() { return fDisk.fFiles[fName]; }
    uint32 Size() { return fDisk.fBefore + static_cast<uint32>(Bytes().size()); }
    size_t Index(uint32 position)
    {
        Allow(position >= fDisk.fBefore, "touched before its kept bytes");
        return position - std::min(position, fDisk.fBefore);
    }

    TTestDisk& fDisk;
    std::string fName;
    int32 fMode = 0;
    uint32 fPosition = 0;
    bool fIsOpen = false;
};

// The file service over one disk, in place of the host's as long as it lives.
class TTestFileUtilities : public IShFileUtilities
{
public:
    explicit TTestFileUtilities(TTestDisk& disk) : fDisk(disk), fBefore(gFileUtilities) { gFileUtilities = this; }
    ~TTestFileUtilities() { gFileUtilities = fBefore; }

    IShFileUtilities* Before() const { return fBefore; }

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

// The bytes that write puts into a memory stream.
template <class Stream = TNqstrstream, class Write>
std::string WrittenBy(Write&& write, TranscoderType type = kUTF8Transcoder)
{
    Stream stream(type);
    write(stream);
    const std::unique_ptr<int8, void (*)(void*)> block(stream.str(), Nqfree);
    return std::string(block.get(), static_cast<size_t>(stream.pcount()));
}

// Notes the calls of its virtual operations: those that the plain path must make, one by one.
class TWatched : public TNqstrstream
{
public:
    using TNqstrstream::TNqstrstream;
    using TNqstrstream::operator>>;
    using TNqstrstream::operator<<;
    using TNqstrstream::get;
    int32 tell() override { return fCalls += 't', TNqstrstream::tell(); }
    void seek(int32 offset, seek_dir dir) override { fCalls += 's', TNqstrstream::seek(offset, dir); }
    void read(int8* data, int32 count) override { fCalls += 'r', TNqstrstream::read(data, count); }
    void get(int8& c) override { fCalls += 'g', TNqstrstream::get(c); }
    void putback(int8 c) override { fCalls += 'p', TNqstrstream::putback(c); }
    void write(const int8* data, int32 n) override { fCalls += std::to_string(n), TNqstrstream::write(data, n); }
    TNqiostream& operator>>(int32& value) override { return fCalls += '>', TNqstrstream::operator>>(value); }
    TNqiostream& operator>>(uint32& value) override
    {
        return read(reinterpret_cast<int8*>(&value), 4), *this;
    } // binary
    TNqiostream& operator<<(int32 value) override { return fCalls += '<', TNqstrstream::operator<<(value); }
    TNqiostream& operator<<(TNqiostream& (*manipulator)(TNqiostream&)) override
    {
        return fCalls += 'e', TNqstrstream::operator<<(manipulator);
    }

    std::string fCalls;
};

// What an operation on these bytes, or on fresh ones to write, calls.
struct TCallsCase
{
    std::string fBytes;
    std::function<void(TNqiostream&)> fOperate;
    std::string fCalls;
};

inline void CheckCalls(const std::vector<TCallsCase>& cases)
{
    for (const TCallsCase& c : cases)
    {
        std::string buffer = c.fBytes + std::string(50, 0);
        const int32 size = static_cast<int32>(c.fBytes.empty() ? buffer.size() : c.fBytes.size());
        TWatched stream(buffer.data(), size, kUTF8Transcoder, eReadWrite);
        c.fOperate(stream);
        EXPECT_EQ(stream.fCalls, c.fCalls) << c.fBytes;
    }
}

// A fixture with a disk.
class StreamTest : public NqTest
{
protected:
    TTestDisk fDisk;
    TTestFileUtilities fFileUtilities{fDisk};
};
