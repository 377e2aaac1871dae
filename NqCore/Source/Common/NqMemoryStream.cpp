#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqString.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace
{

constexpr int32 kGrowStep = 4096;
constexpr int64 kLargestSize = std::numeric_limits<int32>::max();

// Positions are 32-bit: of a longer text only what they reach is read.
int32 ReachableLength(size_t inLength)
{
    return static_cast<int32>(std::min<size_t>(inLength, kLargestSize));
}

int32 TextLength(const int8* inText)
{
    return inText != nullptr ? ReachableLength(std::strlen(inText)) : 0;
}

} // namespace

// ---- TNqstrstream --------------------------------------------------------------------------------------------------

TNqstrstream::TNqstrstream(int8* inBuffer, int32 inSize, TranscoderType inType, int32 inMode)
    : fBuffer(inBuffer),
      fBufferSize(0),
      fBufferAllocatedSize(0),
      fCur(inBuffer),
      fOwnBuffer(nullptr)
{
    SetTranscoder(inType);
    fMode = static_cast<EFilePermission>(inMode);
    if (inBuffer == nullptr && inSize != 0)
        streamfail(kNqStreamNilBuffer);
    else if (inSize <= 0 && (inMode & eWrite))
        streamfail(kNqStreamNotAllowed);
    else
        fBufferSize = inSize == 0 ? TextLength(inBuffer) : std::max(inSize, 0);
}

TNqstrstream::TNqstrstream(int8* inText, TranscoderType inType)
    : fBuffer(inText),
      fBufferSize(TextLength(inText)),
      fBufferAllocatedSize(0),
      fCur(inText),
      fOwnBuffer(nullptr)
{
    SetTranscoder(inType);
    if (fBufferSize == 0)
        changestate(eofbit);
}

TNqstrstream::TNqstrstream(const TNqDynamicString& inText, TranscoderType inType)
    : fBuffer(inText.StrGet()),
      fBufferSize(fBuffer != nullptr ? ReachableLength(inText.ByteLength()) : 0),
      fBufferAllocatedSize(0),
      fCur(fBuffer),
      fOwnBuffer(nullptr)
{
    SetTranscoder(inType);
    fMode = eRead;
    if (fBufferSize == 0)
        changestate(eofbit);
}

TNqstrstream::TNqstrstream(TranscoderType inType)
    : fBuffer(nullptr),
      fBufferSize(0),
      fBufferAllocatedSize(0),
      fCur(nullptr),
      fOwnBuffer(nullptr)
{
    SetTranscoder(inType);
    GrowOwnBuffer(kGrowStep);
    changestate(eofbit);
}

TNqstrstream::~TNqstrstream()
{
    Nqfree(fOwnBuffer);
}

// The block behind a capacity. Capacities grow by 4096 bytes, but blocks by a sixteenth or more: filling one is linear.
uint32 TNqstrstream::AllocatedBlockSize(int32 inCapacity)
{
    uint32 step = kGrowStep;
    while (static_cast<int64>(step) * 16 <= inCapacity)
        step *= 2;
    return (static_cast<uint32>(inCapacity) + step - 1) / step * step;
}

// Gives the stream's own block the capacity `inSize`. False, with everything as it was, when there is no such block.
boolean TNqstrstream::GrowOwnBuffer(int64 inSize)
{
    if (inSize > kLargestSize)
        return false;
    const int32 capacity = static_cast<int32>(inSize);
    const uint32 blockSize = AllocatedBlockSize(capacity);
    if (fOwnBuffer == nullptr || blockSize != AllocatedBlockSize(fBufferAllocatedSize))
    {
        void* const block = fOwnBuffer == nullptr ? Nqmalloc(blockSize) : Nqrealloc(fOwnBuffer, blockSize);
        if (block == nullptr)
            return false;
        const int32 position = pcount();
        fOwnBuffer = fBuffer = static_cast<int8*>(block);
        fCur = fBuffer + position;
    }
    fBufferAllocatedSize = capacity;
    return true;
}

int32 TNqstrstream::tell()
{
    return pcount();
}

void TNqstrstream::seek(int32 inOffset, seek_dir dir)
{
    clear(0);
    if (fBufferSize < 0)
        return streamfail(kNqStreamNotAllowed);
    int64 position = inOffset;
    if (dir == TNqiostream::cur)
        position += pcount();
    else if (dir == TNqiostream::end)
        position = static_cast<int64>(fBufferSize) - inOffset;
    else if (dir != TNqiostream::beg)
        return;
    if (position < 0 || position > fBufferSize)
        return streamfail(kNqStreamOutOfRange);
    fCur = fBuffer + position;
    if (position == fBufferSize)
        changestate(eofbit);
}

void TNqstrstream::read(int8* outData, int32 inCount)
{
    clear(0);
    const int32 left = std::max(fBufferSize - pcount(), 0);
    if (inCount > left)
        changestate(eofbit);
    fgcount = std::max(std::min(inCount, left), 0);
    if (fgcount == 0)
        return;
    std::memcpy(outData, fCur, static_cast<size_t>(fgcount));
    fCur += fgcount;
}

void TNqstrstream::get(int8& c)
{
    clear(0);
    if (pcount() < fBufferSize)
        c = *fCur++;
    else
        changestate(eofbit);
}

// A byte that is already there is not stored: the text may be constant.
void TNqstrstream::putback(int8 c)
{
    if (fBufferSize < 0)
        return streamfail(kNqStreamNotAllowed);
    if (pcount() <= 0)
        return streamfail(kNqStreamOutOfRange);
    --fCur;
    if (*fCur != c)
        *fCur = c;
}

// Makes `inCount` bytes fit from the position on, as far as the memory goes: the own block grows, a caller's buffer is
// flushed once by a class that does so.
boolean TNqstrstream::MakeRoom(int64 inCount)
{
    const int64 newEnd = pcount() + inCount;
    if (newEnd <= std::max(fBufferSize, fBufferAllocatedSize))
        return true;
    if (fOwnBuffer != nullptr)
        return GrowOwnBuffer(std::max(std::min<int64>(int64(fBufferAllocatedSize) + kGrowStep, kLargestSize), newEnd));
    if (fCur == fBuffer)
        return false;
    FlushBuffer();
    if (fBufferSize < 0 || pcount() + inCount > std::max(fBufferSize, fBufferAllocatedSize))
        return false;
    clear(0);
    return true;
}

void TNqstrstream::write(const int8* inData, int32 inCount)
{
    clear(0);
    if (fBufferSize < 0)
        return streamfail(kNqStreamNotAllowed);
    if (inCount <= 0)
        return;
    if (!MakeRoom(inCount))
    {
        if (!(fState & failbit)) // FlushBuffer has not failed itself
            streamfail(kNqStreamOutOfRange);
        return;
    }
    std::memcpy(fCur, inData, static_cast<size_t>(inCount));
    fCur += inCount;
    fBufferSize = std::max(fBufferSize, pcount());
}

void TNqstrstream::FlushBuffer()
{
    streamfail(kNqStreamOutOfRange);
}

int8* TNqstrstream::str()
{
    if (fOwnBuffer != nullptr)
    {
        fOwnBuffer = nullptr;
        fBufferSize = -1;
        fBufferAllocatedSize = -1;
    }
    return fBuffer;
}

int32 TNqstrstream::GetSize()
{
    if (fMode & eRead)
        return fBufferSize;
    streamfail(kNqStreamNotAllowed);
    return 0;
}

// ---- countstream ---------------------------------------------------------------------------------------------------

countstream::countstream() : fCount(0), fPos(0) {}

countstream::~countstream() = default;

int32 countstream::tell()
{
    return fPos;
}

void countstream::MoveTo(int64 inPosition)
{
    if (inPosition > kLargestSize || inPosition < -kLargestSize)
        return streamfail(kNqStreamOutOfRange);
    fPos = static_cast<int32>(inPosition);
}

void countstream::seek(int32 inOffset, seek_dir dir)
{
    clear(0);
    if (dir == TNqiostream::cur)
        MoveTo(static_cast<int64>(fPos) + inOffset);
    else if (dir == TNqiostream::end)
        MoveTo(static_cast<int64>(fCount) - inOffset);
    else if (dir == TNqiostream::beg)
        MoveTo(inOffset);
    if (fPos > fCount)
    {
        fCount = fPos;
        changestate(eofbit);
    }
}

void countstream::read(int8*, int32)
{
    streamfail(kNqStreamNotAllowed);
}

void countstream::putback(int8)
{
    streamfail(kNqStreamNotAllowed);
}

void countstream::write(const int8*, int32 inCount)
{
    MoveTo(static_cast<int64>(fPos) + std::max(inCount, 0));
    fCount = std::max(fCount, fPos);
}
