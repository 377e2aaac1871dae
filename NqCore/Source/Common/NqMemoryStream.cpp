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
int32 ReachableLength(size_t length)
{
    return static_cast<int32>(std::min<size_t>(length, kLargestSize));
}

int32 TextLength(const int8* text)
{
    return text != nullptr ? ReachableLength(std::strlen(text)) : 0;
}

} // namespace

// ---- TNqstrstream --------------------------------------------------------------------------------------------------

TNqstrstream::TNqstrstream(int8* buffer, int32 size, TranscoderType type, int32 mode)
    : fBuffer(buffer),
      fBufferSize(0),
      fBufferAllocatedSize(0),
      fCur(buffer),
      fOwnBuffer(nullptr)
{
    SetTranscoder(type);
    fMode = static_cast<EFilePermission>(mode);
    if (buffer == nullptr && size != 0)
        streamfail(kNqStreamNilBuffer);
    else if (size <= 0 && (mode & eWrite))
        streamfail(kNqStreamNotAllowed);
    else
        fBufferSize = size == 0 ? TextLength(buffer) : std::max(size, 0);
}

TNqstrstream::TNqstrstream(int8* text, TranscoderType type)
    : fBuffer(text),
      fBufferSize(TextLength(text)),
      fBufferAllocatedSize(0),
      fCur(text),
      fOwnBuffer(nullptr)
{
    SetTranscoder(type);
    if (fBufferSize == 0)
        changestate(eofbit);
}

TNqstrstream::TNqstrstream(const TNqDynamicString& text, TranscoderType type)
    : fBuffer(text.StrGet()),
      fBufferSize(fBuffer != nullptr ? ReachableLength(text.ByteLength()) : 0),
      fBufferAllocatedSize(0),
      fCur(fBuffer),
      fOwnBuffer(nullptr)
{
    SetTranscoder(type);
    fMode = eRead;
    if (fBufferSize == 0)
        changestate(eofbit);
}

TNqstrstream::TNqstrstream(TranscoderType type)
    : fBuffer(nullptr),
      fBufferSize(0),
      fBufferAllocatedSize(0),
      fCur(nullptr),
      fOwnBuffer(nullptr)
{
    SetTranscoder(type);
    GrowOwnBuffer(kGrowStep);
    changestate(eofbit);
}

TNqstrstream::~TNqstrstream()
{
    Nqfree(fOwnBuffer);
}

// The block behind a capacity. Capacities grow by 4096 bytes, but blocks by a sixteenth or more: filling one is linear.
uint32 TNqstrstream::AllocatedBlockSize(int32 capacity)
{
    uint32 step = kGrowStep;
    while (static_cast<int64>(step) * 16 <= capacity)
        step *= 2;
    return (static_cast<uint32>(capacity) + step - 1) / step * step;
}

// Gives the stream's own block the capacity `size`. False, with everything as it was, when there is no such block.
boolean TNqstrstream::GrowOwnBuffer(int64 size)
{
    if (size > kLargestSize)
        return false;
    const int32 capacity = static_cast<int32>(size);
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

void TNqstrstream::seek(int32 offset, seek_dir dir)
{
    clear(0);
    if (fBufferSize < 0)
        return streamfail(kNqStreamNotAllowed);
    int64 position = offset;
    if (dir == TNqiostream::cur)
        position += pcount();
    else if (dir == TNqiostream::end)
        position = static_cast<int64>(fBufferSize) - offset;
    else if (dir != TNqiostream::beg)
        return;
    if (position < 0 || position > fBufferSize)
        return streamfail(kNqStreamOutOfRange);
    fCur = fBuffer + position;
    if (position == fBufferSize)
        changestate(eofbit);
}

void TNqstrstream::read(int8* data, int32 count)
{
    clear(0);
    const int32 left = std::max(fBufferSize - pcount(), 0);
    if (count > left)
        changestate(eofbit);
    fgcount = std::max(std::min(count, left), 0);
    if (fgcount == 0)
        return;
    std::memcpy(data, fCur, static_cast<size_t>(fgcount));
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

// Makes `count` bytes fit from the position on, as far as the memory goes: the own block grows, a caller's buffer is
// flushed once by a class that does so.
boolean TNqstrstream::MakeRoom(int64 count)
{
    const int64 newEnd = pcount() + count;
    if (newEnd <= std::max(fBufferSize, fBufferAllocatedSize))
        return true;
    if (fOwnBuffer != nullptr)
        return GrowOwnBuffer(std::max(std::min<int64>(int64(fBufferAllocatedSize) + kGrowStep, kLargestSize), newEnd));
    if (fCur == fBuffer)
        return false;
    FlushBuffer();
    if (fBufferSize < 0 || pcount() + count > std::max(fBufferSize, fBufferAllocatedSize))
        return false;
    clear(0);
    return true;
}

void TNqstrstream::write(const int8* data, int32 count)
{
    clear(0);
    if (fBufferSize < 0)
        return streamfail(kNqStreamNotAllowed);
    if (count <= 0)
        return;
    if (!MakeRoom(count))
    {
        if (!(fState & failbit)) // FlushBuffer has not failed itself
            streamfail(kNqStreamOutOfRange);
        return;
    }
    std::memcpy(fCur, data, static_cast<size_t>(count));
    fCur += count;
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

void countstream::MoveTo(int64 position)
{
    if (position > kLargestSize || position < -kLargestSize)
        return streamfail(kNqStreamOutOfRange);
    fPos = static_cast<int32>(position);
}

void countstream::seek(int32 offset, seek_dir dir)
{
    clear(0);
    if (dir == TNqiostream::cur)
        MoveTo(static_cast<int64>(fPos) + offset);
    else if (dir == TNqiostream::end)
        MoveTo(static_cast<int64>(fCount) - offset);
    else if (dir == TNqiostream::beg)
        MoveTo(offset);
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

void countstream::write(const int8*, int32 count)
{
    MoveTo(static_cast<int64>(fPos) + std::max(count, 0));
    fCount = std::max(fCount, fPos);
}
