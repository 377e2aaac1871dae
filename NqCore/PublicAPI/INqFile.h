// What the library asks of a file of the host. The library does no file I/O itself: TNqfstream buffers over one of
// these.
//
//     TNqCountedPtr<INqUnknown> object;
//     gFileUtilities->CreateFileObject(&object);
//     TNqCountedPtr<INqFile> file;
//     if (object->QueryInterface(IID_INqFile, reinterpret_cast<void**>(&file)) == 0)
//     {
//         file->SetFileName(TNqString255("/tmp/scene.nq"), 0);
//         file->SetPermission(eRead);
//         TNqfstream stream(*file, kNqModeKeepPermission, kUTF8Transcoder, 65536, nullptr);
//     }
//
// Positions are 32-bit: a host refuses what does not fit at Open, Write or SetPosition and never wraps.
// Threads: one at a time per file. Failure: NqErr results, 0 for success; a read at the end of the file gives
// kNqErrEndOfFile.

#pragma once

#include "NqCore/PublicAPI/NqDateTime.h"
#include "NqCore/PublicAPI/NqStream.h"

// A file's type, four characters.
struct TNqFileID
{
    IDType fID = 0;
};

// What a host knows about a file without opening it.
struct APIFileInfo
{
    boolean fIsDir = false;
    boolean fIsReadOnly = false;
    boolean fIsHidden = false;
    boolean fIsResourceFork = false;
    TNqSystemTime fCreationTime;
    TNqSystemTime fModificationTime;
    uint64 fDataSize = 0; // bytes
    uint64 fRsrcSize = 0; // bytes
    TNqFileID fType;
    IDType fCreator = 0;
};

static_assert(sizeof(APIFileInfo) == 48, "hosts fill this record");

// A file of the host: named, then opened with the permission set before. Slot order is a contract with hosts built
// elsewhere.
class INqFile : public INqUnknown
{
public:
    // Names the file that the object stands for; nothing is opened. inFlag is 0.
    virtual NqErr SetFileName(const TNqString& inPath, int32 inFlag) = 0;
    // Makes this object stand for the same file, with the same permission, as another; it starts closed.
    virtual NqErr CopyFrom(INqFile& inFile) = 0;
    // EFilePermission bits and the kNqMode bits beyond them.
    virtual NqErr SetPermission(int32 inMode) = 0;
    virtual boolean Exists() = 0;
    virtual NqErr GetSize(uint32* outSize) = 0;
    virtual NqErr GetPosition(uint32* outPosition) = 0;
    virtual NqErr GetPermission(int32* outMode) = 0;
    // An empty file under the name; it still has to be opened.
    virtual NqErr Create() = 0;
    virtual NqErr Open() = 0;
    virtual NqErr Close() = 0;
    // Both work at the host position, which moves by *outDone; outDone, the bytes moved even when there is an error,
    // may be null.
    virtual NqErr Read(int8* outData, uint32 inCount, uint32* outDone) = 0;
    virtual NqErr Write(const int8* inData, uint32 inCount, uint32* outDone) = 0;
    // inOffset counts forwards, in all three directions: the end is reached with 0, the last byte with -1.
    virtual NqErr SetPosition(int32 inOffset, TNqiostream::seek_dir inFrom) = 0;
    virtual NqErr SetSize(uint32 inSize) = 0;
    // The folder that relative references are taken from.
    virtual void GetPathRelativeFolder(TNqString& outFolder) = 0;
    virtual void GetFullPath(TNqString& outPath) = 0;
    // Null arguments leave that code as it is.
    virtual NqErr SetTypeAndCreator(TNqFileID* inType, int32* inCreator) = 0;

protected:
    ~INqFile() = default;
};

// A file that is looked at without being opened: by a registry of file types, say.
class TNqFile
{
public:
    virtual ~TNqFile() = default;

    // Fills the record; what the host does not know of the file, or all of it when there is none, keeps its default.
    virtual void GetInfo(APIFileInfo& outInfo) const = 0;
    // What follows the last dot of the name, empty without one.
    virtual void GetExtension(TNqString& outExtension) const = 0;
};
