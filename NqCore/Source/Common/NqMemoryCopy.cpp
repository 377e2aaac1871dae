#include "NqCore/PublicAPI/NqMemoryCopy.h"

#include "NqCore/PublicAPI/NqCompiler.h"

#include <cstring>

namespace
{

void Store16(uint8* dst, uint16 value)
{
    std::memcpy(dst, &value, sizeof value);
}
void Store32(uint8* dst, uint32 value)
{
    std::memcpy(dst, &value, sizeof value);
}

uint32 Misalignment(const void* p)
{
    return static_cast<uint32>(reinterpret_cast<uintpointer>(p) & 3);
}

// The word of a run that starts one byte into an element: its bytes in the order in which they follow that byte. The
// sign is carried in from the left.
uint32 RotateByOneByte(uint32 word)
{
    const uint32 signExtended = (word >> 8) | ((word & 0x80000000U) != 0 ? 0xFF000000U : 0U);
    return (word << 24) | signExtended;
}

} // namespace

void Nqmemcpy(void* dst, const void* src, unsigned long byteCount)
{
    if (byteCount == 0)
        return;
    const uint8* from = static_cast<const uint8*>(src);
    uint8* to = static_cast<uint8*>(dst);
    // Ranges that do not overlap forwards give the same bytes from a block copy.
    if (to <= from || to >= from + byteCount)
    {
        std::memmove(dst, src, byteCount);
        return;
    }
    for (unsigned long i = 0; i < byteCount; ++i)
        to[i] = from[i];
}

void Nqmemmove(void* dst, const void* src, unsigned long byteCount)
{
    if (byteCount != 0)
        std::memmove(dst, src, byteCount);
}

void Nqmemfill8(char value, void* dst, unsigned long byteCount)
{
    if (byteCount != 0)
        std::memset(dst, value, byteCount);
}

void Nqmemfill16(short value, void* dst, unsigned long count)
{
    if (count == 0)
        return;
    uint8* p = static_cast<uint8*>(dst);
    const uint16 element = static_cast<uint16>(value);
    const uint32 extended = static_cast<uint32>(static_cast<int32>(value));
    uint32 word = (extended << 16) | extended; // a negative value leaves 0xFFFF in the upper half

    const uint32 start = Misalignment(dst);
    const bool odd = (start & 1) != 0;
    if (odd)
    {
        *p++ = static_cast<uint8>(element & 0xFF);
        word = RotateByOneByte(word);
        --count;
    }
    if ((start & 2) != 0 && count > 0)
    {
        Store16(p, element);
        p += 2;
        --count;
    }
    const unsigned long words = count / 2;
    Nqmemfill32align(static_cast<int>(word), p, words);
    p += words * 2; // half of the run: the odd element below lands inside it
    if ((count & 1) != 0)
    {
        Store16(p, element);
        p += 2;
    }
    if (odd)
        *p = static_cast<uint8>(element >> 8);
}

void Nqmemfill32(int value, void* dst, unsigned long count)
{
    if (count == 0)
        return;
    const uint32 k = Misalignment(dst);
    if (k == 0)
    {
        Nqmemfill32align(value, dst, count);
        return;
    }
    uint8 bytes[4];
    std::memcpy(bytes, &value, sizeof bytes);
    uint8 twice[8];
    std::memcpy(twice, bytes, sizeof bytes);
    std::memcpy(twice + 4, bytes, sizeof bytes);
    int32 rotated;
    std::memcpy(&rotated, twice + k, sizeof rotated);

    uint8* p = static_cast<uint8*>(dst);
    std::memcpy(p, bytes, 4 - k);
    p += 4 - k;
    Nqmemfill32align(rotated, p, count - 1);
    std::memcpy(p, bytes + (4 - k), k); // over the first bytes of the run, not behind it
}

void Nqmemfill32align(int value, void* dst, unsigned long count)
{
    NqCheck((uintpointer(dst) & 3) == 0);
    uint8* p = static_cast<uint8*>(dst);
    for (unsigned long i = 0; i < count; ++i)
        Store32(p + 4 * i, static_cast<uint32>(value));
}

void Nqmemcpy_uint32(uint32* dst, const uint32* src, int count)
{
    if (count > 0)
        memcpyl(const_cast<uint32*>(src), dst, static_cast<unsigned long>(count));
}

void memcpyl(uint32* src, uint32* dst, unsigned long count)
{
    for (; count >= 4; count -= 4, src += 4, dst += 4)
    {
        dst[0] = src[0];
        dst[1] = src[1];
        dst[2] = src[2];
        dst[3] = src[3];
    }
    for (; count > 0; --count)
        *dst++ = *src++;
}
