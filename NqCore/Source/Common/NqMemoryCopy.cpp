#include "NqCore/PublicAPI/NqMemoryCopy.h"

#include "NqCore/PublicAPI/NqCompiler.h"

#include <cstring>

namespace
{

void Store16(uint8* outDst, uint16 inValue)
{
    std::memcpy(outDst, &inValue, sizeof inValue);
}
void Store32(uint8* outDst, uint32 inValue)
{
    std::memcpy(outDst, &inValue, sizeof inValue);
}

uint32 Misalignment(const void* p)
{
    return static_cast<uint32>(reinterpret_cast<uintpointer>(p) & 3);
}

// The word of a run that starts one byte into an element: its bytes in the order in which they follow that byte. The
// sign is carried in from the left.
uint32 RotateByOneByte(uint32 inWord)
{
    const uint32 signExtended = (inWord >> 8) | ((inWord & 0x80000000U) != 0 ? 0xFF000000U : 0U);
    return (inWord << 24) | signExtended;
}

} // namespace

void Nqmemcpy(void* outDst, const void* inSrc, unsigned long inByteCount)
{
    if (inByteCount == 0)
        return;
    const uint8* from = static_cast<const uint8*>(inSrc);
    uint8* to = static_cast<uint8*>(outDst);
    // Ranges that do not overlap forwards give the same bytes from a block copy.
    if (to <= from || to >= from + inByteCount)
    {
        std::memmove(outDst, inSrc, inByteCount);
        return;
    }
    for (unsigned long i = 0; i < inByteCount; ++i)
        to[i] = from[i];
}

void Nqmemmove(void* outDst, const void* inSrc, unsigned long inByteCount)
{
    if (inByteCount != 0)
        std::memmove(outDst, inSrc, inByteCount);
}

void Nqmemfill8(char inValue, void* outDst, unsigned long inByteCount)
{
    if (inByteCount != 0)
        std::memset(outDst, inValue, inByteCount);
}

void Nqmemfill16(short inValue, void* outDst, unsigned long inCount)
{
    if (inCount == 0)
        return;
    uint8* p = static_cast<uint8*>(outDst);
    const uint16 element = static_cast<uint16>(inValue);
    const uint32 extended = static_cast<uint32>(static_cast<int32>(inValue));
    uint32 word = (extended << 16) | extended; // a negative value leaves 0xFFFF in the upper half

    const uint32 start = Misalignment(outDst);
    const bool odd = (start & 1) != 0;
    if (odd)
    {
        *p++ = static_cast<uint8>(element & 0xFF);
        word = RotateByOneByte(word);
        --inCount;
    }
    if ((start & 2) != 0 && inCount > 0)
    {
        Store16(p, element);
        p += 2;
        --inCount;
    }
    const unsigned long words = inCount / 2;
    Nqmemfill32align(static_cast<int>(word), p, words);
    p += words * 2; // half of the run: the odd element below lands inside it
    if ((inCount & 1) != 0)
    {
        Store16(p, element);
        p += 2;
    }
    if (odd)
        *p = static_cast<uint8>(element >> 8);
}

void Nqmemfill32(int inValue, void* outDst, unsigned long inCount)
{
    if (inCount == 0)
        return;
    const uint32 k = Misalignment(outDst);
    if (k == 0)
    {
        Nqmemfill32align(inValue, outDst, inCount);
        return;
    }
    uint8 bytes[4];
    std::memcpy(bytes, &inValue, sizeof bytes);
    uint8 twice[8];
    std::memcpy(twice, bytes, sizeof bytes);
    std::memcpy(twice + 4, bytes, sizeof bytes);
    int32 rotated;
    std::memcpy(&rotated, twice + k, sizeof rotated);

    uint8* p = static_cast<uint8*>(outDst);
    std::memcpy(p, bytes, 4 - k);
    p += 4 - k;
    Nqmemfill32align(rotated, p, inCount - 1);
    std::memcpy(p, bytes + (4 - k), k); // over the first bytes of the run, not behind it
}

void Nqmemfill32align(int inValue, void* dst, unsigned long inCount)
{
    NqCheck((uintpointer(dst) & 3) == 0);
    uint8* p = static_cast<uint8*>(dst);
    for (unsigned long i = 0; i < inCount; ++i)
        Store32(p + 4 * i, static_cast<uint32>(inValue));
}

void Nqmemcpy_uint32(uint32* outDst, const uint32* inSrc, int inCount)
{
    if (inCount > 0)
        memcpyl(const_cast<uint32*>(inSrc), outDst, static_cast<unsigned long>(inCount));
}

void memcpyl(uint32* inSrc, uint32* outDst, unsigned long inCount)
{
    for (; inCount >= 4; inCount -= 4, inSrc += 4, outDst += 4)
    {
        outDst[0] = inSrc[0];
        outDst[1] = inSrc[1];
        outDst[2] = inSrc[2];
        outDst[3] = inSrc[3];
    }
    for (; inCount > 0; --inCount)
        *outDst++ = *inSrc++;
}
