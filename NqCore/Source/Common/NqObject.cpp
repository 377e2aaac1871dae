#include "NqCore/PublicAPI/NqObject.h"

#include "NqCore/PublicAPI/NqHostServices.h"

extern const uint64 kDeceasedPointerValue = 0xDECEA5EDDECEA5EDULL;

namespace
{

// The memory service takes 32-bit sizes; without the service there is nothing to ask.
template <class Allocate>
void* AllocateFromHost(NqSize byteCount, Allocate inAllocate)
{
    if (!NqCheck(gMemoryUtilities))
        return nullptr;
    NqCheckFitsUint32(byteCount);
    return inAllocate(static_cast<uint32>(byteCount));
}

} // namespace

void* NqAllocateObject(NqSize inByteCount) noexcept
{
    return AllocateFromHost(inByteCount, [](uint32 size) { return gMemoryUtilities->AllocateBlock(size); });
}

void NqFreeObject(void* p) noexcept
{
    if (gMemoryUtilities != nullptr)
        gMemoryUtilities->FreeBlock(p);
}

void* NqAllocateObjectArray(NqSize inByteCount) noexcept
{
    return AllocateFromHost(inByteCount, [](uint32 size) { return gMemoryUtilities->AllocateArrayBlock(size); });
}

void NqFreeObjectArray(void* p) noexcept
{
    if (gMemoryUtilities != nullptr)
        gMemoryUtilities->FreeArrayBlock(p);
}
