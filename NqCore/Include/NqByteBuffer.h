// Bytes collected while their number is not yet known: a block from the host that doubles, so that n bytes cost time in
// the order of n. Always NUL-terminated. For elements of other types, or to keep, use TNqArray.
//
//     NqByteBuffer text(256);
//     while (...)
//         if (!text.Append(c))
//             ...                       // no memory; what was collected is still there
//     out.FromText(text.Data(), text.Count());
//
// Threads: one at a time. Failure: a block that could not be had shows in the result of Append; nothing is reported.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"

#include <algorithm>
#include <cstring>
#include <limits>

class NqByteBuffer
{
public:
    // The first block, made when the object itself is full, holds `inSpace` bytes or more.
    explicit NqByteBuffer(uint32 inSpace) : fData(fInside), fSpace(std::max<uint32>(inSpace, 2 * kInside)) {}
    NqByteBuffer(const NqByteBuffer&) = delete;
    NqByteBuffer& operator=(const NqByteBuffer&) = delete;
    ~NqByteBuffer()
    {
        if (fData != fInside)
            Nqfree(fData);
    }

    bool Append(int8 c)
    {
        if (fCount == fCapacity && !Grow())
            return false;
        fData[fCount++] = c;
        return true;
    }

    // All of them, or, without memory, as many as fit.
    bool Append(const int8* inFirst, const int8* inLast)
    {
        while (inLast - inFirst > fCapacity - fCount)
        {
            const uint32 part = fCapacity - fCount;
            std::memcpy(fData + fCount, inFirst, part);
            fCount += part;
            inFirst += part;
            if (!Grow())
                return false;
        }
        std::memcpy(fData + fCount, inFirst, static_cast<size_t>(inLast - inFirst));
        fCount += static_cast<uint32>(inLast - inFirst);
        return true;
    }

    void Clear() { fCount = 0; }
    uint32 Count() const { return fCount; }

    // The bytes and a NUL; valid until the next change.
    const int8* Data()
    {
        fData[fCount] = 0;
        return fData;
    }

private:
    static constexpr uint32 kInside = 256;

    [[gnu::noinline]] bool Grow()
    {
        const bool inside = fData == fInside;
        const uint64 capacity =
            std::min<uint64>(inside ? fSpace : uint64(fCapacity) * 2, std::numeric_limits<uint32>::max() - 1);
        if (capacity <= fCapacity)
            return false;
        void* const block = inside ? Nqmalloc(static_cast<unsigned long>(capacity) + 1)
                                   : Nqrealloc(fData, static_cast<uint32>(capacity) + 1);
        if (block == nullptr)
            return false;
        if (inside)
            std::memcpy(block, fInside, fCount);
        fData = static_cast<int8*>(block);
        fCapacity = static_cast<uint32>(capacity);
        return true;
    }

    int8* fData;
    uint32 fCount = 0;
    uint32 fCapacity = kInside; // bytes that fit, the NUL not counted
    uint32 fSpace;
    int8 fInside[kInside + 1];
};
