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

TNqfstream::TNqfstream(const int8* inPath, TranscoderType inType, int32 inMode, int32 inBufferSize, uint8* outCreated)
    : TNqfstream()
{
    TNqfstream::Init(inPath, inType, inMode, inBufferSize, outCreated);
}

TNqfstream::TNqfstream(INqFile& ioFile, int32 inMode, TranscoderType inType, int32 inBufferSize, uint8* outCreated)
    : TNqfstream()
{
    if (inMode != kNqModeKeepPermission)
        ioFile.SetPermission(inMode);
    TNqfstream::Init(ioFile, inBufferSize, outCreated, inType);
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

NqErr TNqfstream::Init(const int8* inPath, TranscoderType inType, int32 inMode, int32 inBufferSize, boolean* outCreated)
{
    Reset();
    SetTranscoder(inType);
    TNqCountedPtr<INqFile> file;
    if (good())
        MakeFile(file);
    if (!file)
        return Fail(kNqErrOutOfMemory, outCreated);
    const int8* const bytes = inPath != nullptr ? inPath : "";
    const TNqDynamicString name(bytes);
    if (name.ByteLength() != std::strlen(bytes))
        return Fail(kNqErrOutOfMemory, outCreated);
    NqErr error = file->SetFileName(name, 0);
    if (error == kNqNoErr)
        error = file->SetPermission(inMode);
    if (error != kNqNoErr)
        return Fail(error, outCreated);
    return Init(*file, inBufferSize, outCreated, inType);
}

NqErr TNqfstream::Init(INqFile& ioFile, int32 inBufferSize, boolean* outCreated, TranscoderType inType)
{
    Reset();
    if (!fFile)
    {
        SetTranscoder(inType);
        if (good())
            MakeFile(fFile);
        if (!fFile)
            return Fail(kNqErrOutOfMemory, outCreated);
    }
    NqErr error = fFile->CopyFrom(ioFile);
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
        error = AllocateBuffer(inBufferSize);
    if (error != kNqNoErr)
    {
        ShutFile();
        return Fail(error, outCreated);
    }
    if (outCreated != nullptr)
        *outCreated = made;
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

NqErr TNqfstream::Fail(NqErr inError, boolean* outCreated)
{
    if (outCreated != nullptr)
        *outCreated = false;
    changestate(failbit);
    return inError;
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

NqErr TNqfstream::AllocateBuffer(int32 inSize)
{
    if (inSize < 1)
        return kNqNoErr;
    for (; inSize > 0 && fBuffer == nullptr; inSize /= 2)
    {
        fBuffer = static_cast<int8*>(Nqmalloc(static_cast<unsigned long>(inSize)));
        fBufferSize = static_cast<uint32>(inSize);
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
void TNqfstream::DropBuffer(int64 inPosition)
{
    fBufferOffset = static_cast<uint32>(inPosition);
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
boolean TNqfstream::LoadBuffer(int64 inPosition)
{
    if (fBufferModified && !DumpBuffer())
        return false;
    if (inPosition < 0 || inPosition > NqStreamAccess::kLastPosition)
    {
        streamfail(kNqStreamOutOfRange);
        return false;
    }
    NqErr error = fFile->SetPosition(static_cast<int32>(inPosition), TNqiostream::beg);
    if (error != kNqNoErr)
    {
        changestate(eofbit);
        streamfail(error);
        return false;
    }
    const int64 before = Position();
    DropBuffer(inPosition);
    if (Allows(eRead) && inPosition < fFileSize)
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

void TNqfstream::read(int8* outData, int32 inCount)
{
    if (!Allows(eRead))
        return streamfail(kNqStreamNotAllowed);
    clear(0);
    fgcount = 0;
    const uint32 wanted = static_cast<uint32>(std::max(inCount, 0));
    if (fBuffer == nullptr)
        ReadUnbuffered(outData, wanted);
    else
        ReadBuffered(outData, wanted);
}

void TNqfstream::ReadBuffered(int8* outData, uint32 inCount)
{
    if (!fFirstBufferLoaded && !LoadBuffer(Position()))
        return;
    const uint32 left = static_cast<uint32>(std::max<int64>(fFileSize - Position(), 0));
    const uint32 wanted = std::min(inCount, left);
    uint32 done = 0;
    while (done < wanted)
    {
        if (fBufferPos >= fActualBufSize && !LoadNextBuffer())
            break;
        const uint32 run = std::min(wanted - done, fActualBufSize - fBufferPos);
        std::memcpy(outData + done, fBuffer + fBufferPos, run);
        fBufferPos += run;
        done += run;
    }
    fgcount = static_cast<int32>(done);
    if (inCount > left)
        changestate(eofbit);
}

void TNqfstream::ReadUnbuffered(int8* outData, uint32 inCount)
{
    NqErr error = kNqNoErr;
    uint32 total = 0;
    uint32 done = 1;
    while (total < inCount && error == kNqNoErr && done != 0)
    {
        done = 0;
        error = fFile->Read(outData + total, inCount - total, &done);
        total += std::min(done, inCount - total);
    }
    fgcount = static_cast<int32>(total);
    if (error != kNqNoErr && error != kNqErrEndOfFile)
        streamfail(error);
    else if (total < inCount)
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

void TNqfstream::write(const int8* inData, int32 inCount)
{
    if (!Allows(eWrite))
        return streamfail(kNqStreamNotAllowed);
    clear(0);
    if (inCount <= 0)
        return;
    if (fBuffer == nullptr)
        return WriteUnbuffered(inData, static_cast<uint32>(inCount));
    if (Position() + inCount > NqStreamAccess::kLastPosition)
        return streamfail(kNqStreamOutOfRange);
    if (fFirstBufferLoaded & kHoldsPutback)
        DropBuffer(Position()); // what was put back is for reading only
    uint32 left = static_cast<uint32>(inCount);
    for (;;)
    {
        const uint32 run = std::min(left, fBufferSize - fBufferPos);
        if (run > 0)
        {
            std::memcpy(fBuffer + fBufferPos, inData, run);
            NqStreamAccess::NoteBytesWritten(*this, run);
        }
        inData += run;
        left -= run;
        if (left == 0)
            return;
        if (!DumpBuffer())
            return;
    }
}

void TNqfstream::WriteUnbuffered(const int8* inData, uint32 inCount)
{
    uint32 done = 0;
    NqErr error = fFile->Write(inData, inCount, &done);
    if (error != kNqNoErr || done != inCount)
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
void TNqfstream::seek(int32 inOffset, seek_dir dir)
{
    clear(0);
    if (!fFileOpen)
        return streamfail(kNqStreamNotAllowed);
    const int64 distance = static_cast<int64>(inOffset) + fIDOffset;
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

void TNqfstream::SeekUnbuffered(int64 inDistance, seek_dir dir)
{
    const int64 hostOffset = dir == TNqiostream::end ? -inDistance : inDistance;
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

void TNqfstream::append(int32 inCount)
{
    const int64 size = static_cast<int64>(fFileSize) + inCount;
    fFileSize = static_cast<uint32>(std::min(std::max<int64>(size, 0), NqStreamAccess::kLastPosition));
}

uint32 TNqfstream::GetFileSize() const
{
    return fFileSize > fIDOffset ? fFileSize - fIDOffset : 0;
}

void TNqfstream::SetInfo(int32 inCreator, int32 inType)
{
    if (!fFile)
        return;
    TNqFileID id;
    id.fID = static_cast<IDType>(inType);
    fFile->SetTypeAndCreator(&id, &inCreator);
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
    explicit PathWriter(int8* outText, size_t inLongest = kNqLongestPath) : fOut(outText), fLongest(inLongest) {}

    void Add(int8 c)
    {
        if (fCount < fLongest)
            fOut[fCount] = c;
        ++fCount;
    }

    // The rest of a path, with `inSeparator` in place of whatever separates folders in it.
    void AddPath(const int8* inPath, int8 inSeparator)
    {
        for (; *inPath != 0; ++inPath)
            Add(*inPath == '\\' || *inPath == '/' || *inPath == ':' ? inSeparator : *inPath);
    }

    void AddText(const int8* inText)
    {
        for (; *inText != 0; ++inText)
            Add(*inText);
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

int64 CountOf(const int8* inText, int8 c)
{
    return std::count(inText, inText + std::strlen(inText), c);
}

bool MakeRef(const int8* inFullPath, PathWriter inOut, const int8* inBasePath)
{
    const int8 separator = PathSeparator();
    int64 common = 0;
    size_t last = 0;
    for (size_t i = 0;
         inFullPath[i] != 0 && inBasePath[i] != 0 && IsCharEqualNotCaseSensitive(inFullPath[i], inBasePath[i]); ++i)
        if (inBasePath[i] == separator)
        {
            ++common;
            last = i;
        }
    if (common == 0)
        inOut.AddText(inFullPath);
    else
    {
        for (int64 up = CountOf(inBasePath, separator) - common; up > 0; --up)
            inOut.Add(':');
        inOut.AddPath(inFullPath + last, ':');
    }
    return inOut.Finish();
}

bool FollowRef(const int8* inRef, PathWriter inOut, const int8* inBasePath)
{
    if (inRef[0] != ':')
        inOut.AddText(inRef);
    else
    {
        const int8 separator = PathSeparator();
        const size_t colons = std::strspn(inRef, ":");
        int64 kept = CountOf(inBasePath, separator) - static_cast<int64>(colons - 1);
        for (; kept > 0; ++inBasePath)
        {
            inOut.Add(*inBasePath);
            kept -= *inBasePath == separator;
        }
        inOut.AddPath(inRef + colons, separator);
    }
    return inOut.Finish();
}

} // namespace

void TNqfstream::GetFileRef(const int8* inFullPath, int8* outRef, const int8* inBasePath)
{
    MakeRef(inFullPath, PathWriter(outRef), inBasePath);
}

void TNqfstream::GetFullPathNameFromRef(const int8* inRef, int8* outFullPath, const int8* inBasePath)
{
    FollowRef(inRef, PathWriter(outFullPath), inBasePath);
}

// A path that was cut would be another file's: better none.
void TNqfstream::readFileRef(int8* outPath)
{
    TNqDynamicString ref;
    NqReadPathText(*this, ref);
    TNqString1023 base;
    if (!!fFile)
        fFile->GetFullPath(base);
    if (!FollowRef(NqBytesOf(ref), PathWriter(outPath), base.StrGet()))
        outPath[0] = 0;
}

// Written whole, however long it is. The bytes of the reference are taken for text in the encoding of the stream.
void TNqfstream::writeFileRef(const int8* inPath)
{
    TNqString1023 base;
    if (!!fFile)
        fFile->GetFullPath(base);
    const size_t longest = std::strlen(inPath) + base.ByteLength(); // a ':' for each folder at most
    const std::unique_ptr<int8, decltype(&Nqfree)> ref(static_cast<int8*>(Nqmalloc(longest + 1)), &Nqfree);
    TNqDynamicString text;
    if (ref != nullptr)
    {
        MakeRef(inPath, PathWriter(ref.get(), longest), base.StrGet());
        NqTextFromEncoded(text, ref.get(), fEncoding);
    }
    if (text.ByteLength() == 0 && inPath[0] != 0)
        return streamfail(kNqStreamOutOfRange); // no memory: better nothing than another path
    writeQuotedString(text);
}

void TNqfstream::GetPathRelativeFolder(TNqString& outFolder)
{
    if (!!fFile)
        fFile->GetPathRelativeFolder(outFolder);
    else
        TNqiostream::GetPathRelativeFolder(outFolder);
}

// ---- Contexts ------------------------------------------------------------------------------------------------------

TNqiostreamContext* TNqfstream::GetContext()
{
    TNqString1023 path;
    if (!!fFile)
        fFile->GetFullPath(path);
    return new TNqfstreamContext(path.StrGet(), fMode, static_cast<int32>(fBufferSize), tellg());
}

TNqfstreamContext::TNqfstreamContext(const int8* inFileName, int32 inMode, int32 inBufferSize, int32 inPosition)
    : fFileName(nullptr),
      fMode(inMode),
      fBufferSize(inBufferSize),
      fPos(inPosition)
{
    const size_t size = inFileName != nullptr ? std::strlen(inFileName) + 1 : 0;
    if (size > 0)
        fFileName = static_cast<int8*>(Nqmalloc(size));
    if (fFileName != nullptr)
        std::memcpy(fFileName, inFileName, size);
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

void TNqfstreamContext::Change(void* a, void* b, short inWhat)
{
    if (inWhat == 1 && a != nullptr && b != nullptr && fFileName != nullptr)
    {
        const int8* const newName = static_cast<const int8*>(b);
        const size_t size = std::strlen(newName) + 1;
        if (std::strcmp(static_cast<const int8*>(a), fFileName) == 0 &&
            NqCheckText(size <= std::strlen(fFileName) + 1, "New name is longer"))
            std::memmove(fFileName, newName, size);
    }
    else if (inWhat == 2 && a == nullptr && b != nullptr)
        std::memcpy(&fMode, b, sizeof fMode);
}
