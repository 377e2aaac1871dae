#include "NqCore/Include/NqStreamText.h"
#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqCore/PublicAPI/NqString.h"

#include <memory>

// How the buffer stands to the file: its valid bytes, fActualBufSize of them, belong at fBufferOffset; the position is
// fBufferPos in it. A modified buffer holds bytes before fBufferPos that are not yet in the file: whatever moves the
// position backwards, or drops the buffer, writes them first. The host's own position means nothing between two calls:
// every load and every flush sets it.

// ---- Opening and closing -------------------------------------------------------------------------------------------

TNqfstream::TNqfstream()
    : fBuffer(nullptr),
      fBufferSize(0),
      fActualBufSize(0),
      fBufferPos(0),
      fBufferOffset(0),
      fFileSize(0),
      fBufferModified(false),
      fFirstBufferLoaded(0)
{
}

TNqfstream::TNqfstream(const int8* path, TranscoderType type, int32 mode, int32 bufferSize, uint8* created)
    : TNqfstream()
{
    TNqfstream::Init(path, type, mode, bufferSize, created);
}

TNqfstream::TNqfstream(INqFile& file, int32 mode, TranscoderType type, int32 bufferSize, uint8* created) : TNqfstream()
{
    if (mode != kNqModeKeepPermission)
        file.SetPermission(mode);
    TNqfstream::Init(file, bufferSize, created, type);
}

TNqfstream::~TNqfstream()
{
    ShutFile();
    Nqfree(fBuffer);
}

namespace
{

// A new file object of the host, empty when there is none.
void MakeFile(TNqCountedPtr<INqFile>& outFile)
{
    outFile = nullptr;
    TNqCountedPtr<INqUnknown> object;
    if (NqCheck(gFileUtilities))
        gFileUtilities->CreateFileObject(&object);
    INqUnknown* const unknown = object;
    if (unknown != nullptr && unknown->QueryInterface(IID_INqFile, reinterpret_cast<void**>(&outFile)) != kNqNoErr)
        outFile = nullptr;
}

} // namespace

NqErr TNqfstream::Init(const int8* path, TranscoderType type, int32 mode, int32 bufferSize, boolean* created)
{
    Reset();
    SetTranscoder(type);
    TNqCountedPtr<INqFile> file;
    if (good())
        MakeFile(file);
    if (!file)
        return Fail(kNqErrOutOfMemory, created);
    const int8* const bytes = path != nullptr ? path : "";
    const TNqDynamicString name(bytes);
    if (name.ByteLength() != std::strlen(bytes))
        return Fail(kNqErrOutOfMemory, created);
    NqErr error = file->SetFileName(name, 0);
    if (error == kNqNoErr)
        error = file->SetPermission(mode);
    if (error != kNqNoErr)
        return Fail(error, created);
    return Init(*file, bufferSize, created, type);
}

NqErr TNqfstream::Init(INqFile& file, int32 bufferSize, boolean* created, TranscoderType type)
{
    Reset();
    if (!fFile)
    {
        SetTranscoder(type);
        if (good())
            MakeFile(fFile);
        if (!fFile)
            return Fail(kNqErrOutOfMemory, created);
    }
    NqErr error = fFile->CopyFrom(file);
    int32 mode = 0;
    boolean made = false;
    if (error == kNqNoErr)
    {
        fFile->GetPermission(&mode);
        fMode = static_cast<EFilePermission>(mode);
        error = OpenFile(made);
    }
    if (error == kNqNoErr)
        error = MeasureFile();
    if (error == kNqNoErr)
        error = AllocateBuffer(bufferSize);
    if (error != kNqNoErr)
    {
        ShutFile();
        return Fail(error, created);
    }
    if (created != nullptr)
        *created = made;
    return kNqNoErr;
}

// Back to a stream without a file open, whose state, buffer and position are those of a new one.
void TNqfstream::Reset()
{
    ShutFile();
    clear(0);
    Nqfree(fBuffer);
    fBuffer = nullptr;
    fBufferSize = fFileSize = 0;
    DropBuffer(0);
    fFirstBufferLoaded = 0;
    fIDOffset = 0;
}

NqErr TNqfstream::Fail(NqErr error, boolean* created)
{
    if (created != nullptr)
        *created = false;
    changestate(failbit);
    return error;
}

// Opens the host's file, which is made when it is missing and the mode allows it.
NqErr TNqfstream::OpenFile(boolean& outMade)
{
    NqErr error = fFile->Exists() ? fFile->Open() : kNqErrFileNotFound;
    if (error == kNqErrFileNotFound && (fMode & eWrite) && !(fMode & kNqModeNoCreate))
    {
        error = fFile->Create();
        outMade = error == kNqNoErr;
        if (outMade)
            error = fFile->Open();
    }
    fFileOpen = error == kNqNoErr;
    return error;
}

// A file that is only written starts empty.
NqErr TNqfstream::MeasureFile()
{
    if (fMode & eRead)
        return fFile->GetSize(&fFileSize);
    return (fMode & eWrite) ? fFile->SetSize(0) : kNqNoErr;
}

NqErr TNqfstream::AllocateBuffer(int32 size)
{
    if (size < 1)
        return kNqNoErr;
    for (; size > 0 && fBuffer == nullptr; size /= 2)
    {
        fBuffer = static_cast<int8*>(Nqmalloc(static_cast<unsigned long>(size)));
        fBufferSize = static_cast<uint32>(size);
    }
    if (fBuffer == nullptr)
    {
        fBufferSize = 0;
        return kNqErrOutOfMemory;
    }
    fActualBufSize = std::min(fFileSize, fBufferSize);
    return kNqNoErr;
}

// A context made afterwards still knows the mode and the position, which is the host's where there is no buffer.
void TNqfstream::close()
{
    if (fFileOpen && fBuffer == nullptr)
    {
        const NqErr error = fFile->GetPosition(&fBufferOffset);
        if (error != kNqNoErr)
            streamfail(error);
    }
    ShutFile();
}

// What could not be written is lost, after the failure was reported.
void TNqfstream::ShutFile()
{
    if (!fFileOpen)
        return;
    flush();
    const NqErr error = fFile->Close();
    fFileOpen = false;
    fBufferModified = false;
    if (error != kNqNoErr)
        streamfail(error);
}

// ---- The buffer ----------------------------------------------------------------------------------------------------

// Forgets what the buffer holds and goes to a position.
void TNqfstream::DropBuffer(int64 position)
{
    fBufferOffset = static_cast<uint32>(position);
    fActualBufSize = fBufferPos = 0;
    fBufferModified = false;
    fFirstBufferLoaded &= kLoaded;
}

void TNqfstream::flush()
{
    if (fBuffer == nullptr || !Allows(eWrite) || !fBufferModified)
        return;
    NqErr error = fFile->SetPosition(static_cast<int32>(fBufferOffset), TNqiostream::beg);
    uint32 done = 0;
    if (error == kNqNoErr)
        error = fFile->Write(fBuffer, fBufferPos, &done);
    if (error != kNqNoErr || done != fBufferPos)
        return streamfail(error != kNqNoErr ? error : kNqStreamOutOfRange);
    fBufferModified = false;
}

// Writes what is modified and starts an empty buffer at the position. False, with everything as it was, when the host
// failed.
boolean TNqfstream::DumpBuffer()
{
    flush();
    if (fBufferModified)
        return false;
    DropBuffer(Position());
    return true;
}

// Fills the buffer from a position on. At or past the end of the file, and in a stream that only writes, nothing is
// loaded. False, at the old position, when the host failed.
boolean TNqfstream::LoadBuffer(int64 position)
{
    if (fBufferModified && !DumpBuffer())
        return false;
    if (position < 0 || position > NqStreamAccess::kLastPosition)
    {
        streamfail(kNqStreamOutOfRange);
        return false;
    }
    NqErr error = fFile->SetPosition(static_cast<int32>(position), TNqiostream::beg);
    if (error != kNqNoErr)
    {
        changestate(eofbit);
        streamfail(error);
        return false;
    }
    const int64 before = Position();
    DropBuffer(position);
    if (Allows(eRead) && position < fFileSize)
    {
        const uint32 wanted = std::min(fBufferSize, fFileSize - fBufferOffset);
        error = fFile->Read(fBuffer, wanted, &fActualBufSize);
        fActualBufSize = std::min(fActualBufSize, wanted);
    }
    fFirstBufferLoaded = kLoaded;
    if (error == kNqNoErr || error == kNqErrEndOfFile)
        return true;
    DropBuffer(before);
    streamfail(error);
    return false;
}

// Goes on behind the valid bytes. False at the end of the file, or when the host failed.
boolean TNqfstream::LoadNextBuffer()
{
    if (!LoadBuffer(Position()))
        return false;
    if (fActualBufSize == 0)
        changestate(eofbit);
    return fActualBufSize != 0;
}

// Steps back over the byte before the buffer. False, at the old position, when the host failed.
boolean TNqfstream::LoadPrevBuffer()
{
    const int64 position = Position() - 1;
    if (!LoadBuffer(std::max<int64>(position - fBufferSize + 1, 0)))
        return false;
    if (position - fBufferOffset < fActualBufSize)
        fBufferPos = static_cast<uint32>(position) - fBufferOffset;
    else
        DropBuffer(position); // the byte is past the end of the file
    return true;
}

// ---- Reading -------------------------------------------------------------------------------------------------------

void TNqfstream::read(int8* data, int32 count)
{
    if (!Allows(eRead))
        return streamfail(kNqStreamNotAllowed);
    clear(0);
    fgcount = 0;
    const uint32 wanted = static_cast<uint32>(std::max(count, 0));
    if (fBuffer == nullptr)
        ReadUnbuffered(data, wanted);
    else
        ReadBuffered(data, wanted);
}

void TNqfstream::ReadBuffered(int8* data, uint32 count)
{
    if (!fFirstBufferLoaded && !LoadBuffer(Position()))
        return;
    const uint32 left = static_cast<uint32>(std::max<int64>(fFileSize - Position(), 0));
    const uint32 wanted = std::min(count, left);
    uint32 done = 0;
    while (done < wanted)
    {
        if (fBufferPos >= fActualBufSize && !LoadNextBuffer())
            break;
        const uint32 run = std::min(wanted - done, fActualBufSize - fBufferPos);
        std::memcpy(data + done, fBuffer + fBufferPos, run);
        fBufferPos += run;
        done += run;
    }
    fgcount = static_cast<int32>(done);
    if (count > left)
        changestate(eofbit);
}

void TNqfstream::ReadUnbuffered(int8* data, uint32 count)
{
    NqErr error = kNqNoErr;
    uint32 total = 0;
    uint32 done = 1;
    while (total < count && error == kNqNoErr && done != 0)
    {
        done = 0;
        error = fFile->Read(data + total, count - total, &done);
        total += std::min(done, count - total);
    }
    fgcount = static_cast<int32>(total);
    if (error != kNqNoErr && error != kNqErrEndOfFile)
        streamfail(error);
    else if (total < count)
        changestate(eofbit);
}

void TNqfstream::putback(int8 c)
{
    if (!Allows(eRead))
        return streamfail(kNqStreamNotAllowed);
    if (fBuffer == nullptr)
    {
        if (fFile->SetPosition(-1, TNqiostream::cur) != kNqNoErr)
            streamfail(kNqStreamOutOfRange);
        return;
    }
    if (Position() == 0)
        return streamfail(kNqStreamOutOfRange);
    flush();
    if (fBufferModified)
        return;
    if (!fFirstBufferLoaded)
    {
        fActualBufSize = fBufferPos; // only what was written so far is known
        fFirstBufferLoaded = kLoaded;
    }
    if (fBufferPos > 0)
        --fBufferPos;
    else if (!LoadPrevBuffer())
        return;
    if (fBufferPos < fActualBufSize && fBuffer[fBufferPos] != c)
    {
        fBuffer[fBufferPos] = c;
        fFirstBufferLoaded |= kHoldsPutback;
    }
}

// ---- Writing -------------------------------------------------------------------------------------------------------

void TNqfstream::write(const int8* data, int32 count)
{
    if (!Allows(eWrite))
        return streamfail(kNqStreamNotAllowed);
    clear(0);
    if (count <= 0)
        return;
    if (fBuffer == nullptr)
        return WriteUnbuffered(data, static_cast<uint32>(count));
    if (Position() + count > NqStreamAccess::kLastPosition)
        return streamfail(kNqStreamOutOfRange);
    if (fFirstBufferLoaded & kHoldsPutback)
        DropBuffer(Position()); // what was put back is for reading only
    uint32 left = static_cast<uint32>(count);
    for (;;)
    {
        const uint32 run = std::min(left, fBufferSize - fBufferPos);
        if (run > 0)
        {
            std::memcpy(fBuffer + fBufferPos, data, run);
            NqStreamAccess::NoteBytesWritten(*this, run);
        }
        data += run;
        left -= run;
        if (left == 0)
            return;
        if (!DumpBuffer())
            return;
    }
}

void TNqfstream::WriteUnbuffered(const int8* data, uint32 count)
{
    uint32 done = 0;
    NqErr error = fFile->Write(data, count, &done);
    if (error != kNqNoErr || done != count)
        streamfail(error != kNqNoErr ? error : kNqStreamOutOfRange);
    if (done == 0)
        return; // a position past the end has not made the file longer
    uint32 position = 0;
    error = fFile->GetPosition(&position);
    if (error != kNqNoErr)
        return streamfail(error);
    fFileSize = std::max(fFileSize, position);
}

// ---- Positions -----------------------------------------------------------------------------------------------------

int32 TNqfstream::tell()
{
    int64 position = Position();
    if (fBuffer == nullptr && fFileOpen)
    {
        uint32 hostPosition = 0;
        if (fFile->GetPosition(&hostPosition) != kNqNoErr)
            streamfail(kNqStreamOutOfRange);
        position = hostPosition;
    }
    return static_cast<int32>(position - fIDOffset);
}

// The mark is skipped in every direction: callers that go by `cur` or `end` behind a mark know it.
void TNqfstream::seek(int32 offset, seek_dir dir)
{
    clear(0);
    if (!fFileOpen)
        return streamfail(kNqStreamNotAllowed);
    const int64 distance = static_cast<int64>(offset) + fIDOffset;
    if (fBuffer == nullptr)
        return SeekUnbuffered(distance, dir);
    int64 position = distance;
    if (dir == TNqiostream::cur)
        position += Position();
    else if (dir == TNqiostream::end)
        position = static_cast<int64>(fFileSize) - distance;
    else if (dir != TNqiostream::beg)
        return;
    if (LoadBuffer(position) && position > fFileSize)
        changestate(eofbit);
}

void TNqfstream::SeekUnbuffered(int64 distance, seek_dir dir)
{
    const int64 hostOffset = dir == TNqiostream::end ? -distance : distance;
    uint32 position = 0;
    if (hostOffset != static_cast<int32>(hostOffset) ||
        fFile->SetPosition(static_cast<int32>(hostOffset), dir) != kNqNoErr ||
        fFile->GetPosition(&position) != kNqNoErr)
        return streamfail(kNqStreamOutOfRange);
    if (position >= fFileSize)
        changestate(eofbit);
}

void TNqfstream::synch()
{
    if (!fFileOpen)
        return streamfail(kNqStreamNotAllowed);
    uint32 size = 0;
    const NqErr error = fFile->GetSize(&size);
    if (error != kNqNoErr)
        return streamfail(error);
    fFileSize = size;
    DropBuffer(Position());
    if (fBuffer != nullptr)
        LoadBuffer(fFileSize);
    else if (fFile->SetPosition(0, TNqiostream::end) != kNqNoErr)
        streamfail(kNqStreamOutOfRange);
}

void TNqfstream::append(int32 count)
{
    const int64 size = static_cast<int64>(fFileSize) + count;
    fFileSize = static_cast<uint32>(std::min(std::max<int64>(size, 0), NqStreamAccess::kLastPosition));
}

uint32 TNqfstream::GetFileSize() const
{
    return fFileSize > fIDOffset ? fFileSize - fIDOffset : 0;
}

void TNqfstream::SetInfo(int32 creator, int32 type)
{
    if (!fFile)
        return;
    TNqFileID id;
    id.fID = static_cast<IDType>(type);
    fFile->SetTypeAndCreator(&id, &creator);
}

// ---- File references -----------------------------------------------------------------------------------------------

namespace
{

int8 PathSeparator()
{
    int8 separator = '/';
    return NqCheck(gFileUtilities) ? gFileUtilities->GetPathSeparator(&separator) : separator;
}

// Equal, or an ASCII capital and a letter 32 above it.
bool IsCharEqualNotCaseSensitive(int8 a, int8 b)
{
    const uint8 low = std::min(static_cast<uint8>(a), static_cast<uint8>(b));
    const uint8 high = std::max(static_cast<uint8>(a), static_cast<uint8>(b));
    return low == high || (low >= 'A' && low <= 'Z' && high == low + 32);
}

// Appends to a path, up to its longest.
class PathWriter
{
public:
    explicit PathWriter(int8* out, size_t longest = kNqLongestPath) : fOut(out), fLongest(longest) {}

    void Add(int8 c)
    {
        if (fCount < fLongest)
            fOut[fCount] = c;
        ++fCount;
    }

    // The rest of a path, with `separator` in place of whatever separates folders in it.
    void AddPath(const int8* path, int8 separator)
    {
        for (; *path != 0; ++path)
            Add(*path == '\\' || *path == '/' || *path == ':' ? separator : *path);
    }

    void AddText(const int8* text)
    {
        for (; *text != 0; ++text)
            Add(*text);
    }

    // False, and reported, when it did not fit.
    bool Finish()
    {
        fOut[std::min(fCount, fLongest)] = 0;
        return NqCheckText(fCount <= fLongest, "Path is too long");
    }

private:
    int8* fOut;
    size_t fLongest;
    size_t fCount = 0;
};

int64 CountOf(const int8* text, int8 c)
{
    return std::count(text, text + std::strlen(text), c);
}

bool MakeRef(const int8* fullPath, PathWriter out, const int8* basePath)
{
    const int8 separator = PathSeparator();
    int64 common = 0;
    size_t last = 0;
    for (size_t i = 0; fullPath[i] != 0 && basePath[i] != 0 && IsCharEqualNotCaseSensitive(fullPath[i], basePath[i]);
         ++i)
        if (basePath[i] == separator)
        {
            ++common;
            last = i;
        }
    if (common == 0)
        out.AddText(fullPath);
    else
    {
        for (int64 up = CountOf(basePath, separator) - common; up > 0; --up)
            out.Add(':');
        out.AddPath(fullPath + last, ':');
    }
    return out.Finish();
}

bool FollowRef(const int8* ref, PathWriter out, const int8* basePath)
{
    if (ref[0] != ':')
        out.AddText(ref);
    else
    {
        const int8 separator = PathSeparator();
        const size_t colons = std::strspn(ref, ":");
        int64 kept = CountOf(basePath, separator) - static_cast<int64>(colons - 1);
        for (; kept > 0; ++basePath)
        {
            out.Add(*basePath);
            kept -= *basePath == separator;
        }
        out.AddPath(ref + colons, separator);
    }
    return out.Finish();
}

} // namespace

void TNqfstream::GetFileRef(const int8* fullPath, int8* ref, const int8* basePath)
{
    MakeRef(fullPath, PathWriter(ref), basePath);
}

void TNqfstream::GetFullPathNameFromRef(const int8* ref, int8* fullPath, const int8* basePath)
{
    FollowRef(ref, PathWriter(fullPath), basePath);
}

// A path that was cut would be another file's: better none.
void TNqfstream::readFileRef(int8* path)
{
    TNqDynamicString ref;
    NqReadPathText(*this, ref);
    TNqString1023 base;
    if (!!fFile)
        fFile->GetFullPath(base);
    if (!FollowRef(NqBytesOf(ref), PathWriter(path), base.StrGet()))
        path[0] = 0;
}

// Written whole, however long it is. The bytes of the reference are taken for text in the encoding of the stream.
void TNqfstream::writeFileRef(const int8* path)
{
    TNqString1023 base;
    if (!!fFile)
        fFile->GetFullPath(base);
    const size_t longest = std::strlen(path) + base.ByteLength(); // a ':' for each folder at most
    const std::unique_ptr<int8, decltype(&Nqfree)> ref(static_cast<int8*>(Nqmalloc(longest + 1)), &Nqfree);
    TNqDynamicString text;
    if (ref != nullptr)
    {
        MakeRef(path, PathWriter(ref.get(), longest), base.StrGet());
        NqTextFromEncoded(text, ref.get(), fEncoding);
    }
    if (text.ByteLength() == 0 && path[0] != 0)
        return streamfail(kNqStreamOutOfRange); // no memory: better nothing than another path
    writeQuotedString(text);
}

void TNqfstream::GetPathRelativeFolder(TNqString& folder)
{
    if (!!fFile)
        fFile->GetPathRelativeFolder(folder);
    else
        TNqiostream::GetPathRelativeFolder(folder);
}

// ---- Contexts ------------------------------------------------------------------------------------------------------

TNqiostreamContext* TNqfstream::GetContext()
{
    TNqString1023 path;
    if (!!fFile)
        fFile->GetFullPath(path);
    return new TNqfstreamContext(path.StrGet(), fMode, static_cast<int32>(fBufferSize), tellg());
}

TNqfstreamContext::TNqfstreamContext(const int8* fileName, int32 mode, int32 bufferSize, int32 position)
    : fFileName(nullptr),
      fMode(mode),
      fBufferSize(bufferSize),
      fPos(position)
{
    const size_t size = fileName != nullptr ? std::strlen(fileName) + 1 : 0;
    if (size > 0)
        fFileName = static_cast<int8*>(Nqmalloc(size));
    if (fFileName != nullptr)
        std::memcpy(fFileName, fileName, size);
}

TNqfstreamContext::~TNqfstreamContext()
{
    Nqfree(fFileName);
}

TNqiostream* TNqfstreamContext::CreateStream()
{
    TNqfstream* const stream = new TNqfstream(fFileName, kMacTranscoder, fMode, fBufferSize, nullptr);
    if (stream != nullptr)
        stream->seekg(fPos, TNqiostream::beg);
    return stream;
}

void TNqfstreamContext::Change(void* a, void* b, short what)
{
    if (what == 1 && a != nullptr && b != nullptr && fFileName != nullptr)
    {
        const int8* const newName = static_cast<const int8*>(b);
        const size_t size = std::strlen(newName) + 1;
        if (std::strcmp(static_cast<const int8*>(a), fFileName) == 0 &&
            NqCheckText(size <= std::strlen(fFileName) + 1, "New name is longer"))
            std::memmove(fFileName, newName, size);
    }
    else if (what == 2 && a == nullptr && b != nullptr)
        std::memcpy(&fMode, b, sizeof fMode);
}
