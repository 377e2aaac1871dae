// An array whose elements never move: it grows by whole blocks, so a pointer to an element stays good for the life of
// the array. Use it where others keep such pointers; otherwise TNqArray is smaller and faster.
//
//     TNqExtensibleArray<TNqSlot> slots(12, 5, true);      // at most 4096 elements, 32 a block, zero-filled
//     if (!slots.SetElemCount(40))
//         return false;                                    // past the maximum, or no memory: as it was
//     TNqSlot* slot = &slots[17];                          // good until the array dies
//
// Elements: plain values, never constructed or destroyed (TNqIsBitwiseCopyable). Ownership: the array owns its blocks.
// Cost: a lookup is a shift, a mask and two reads. Failure: a bad index is reported and answered with an element of the
// calling thread that is zeroed at each such call. Threads: one at a time; but a thread that was handed the address of
// an element may use it while another thread grows the array.

#pragma once

#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqPtrArray.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

// One block of elements at an address of its own.
template <typename T>
class TNqCountedBlock : public TNqSMPCountedObject
{
    static_assert(TNqIsBitwiseCopyable<T>::value,
                  "elements are never constructed or destroyed: see TNqIsBitwiseCopyable");
    static_assert(alignof(T) <= alignof(std::max_align_t), "the host aligns blocks for scalars only");

public:
    ~TNqCountedBlock() override
    {
        if (fData != nullptr)
            Nqfree(fData);
    }

    // A block of inSize elements in *outObject, which holds its one reference; what *outObject held is released.
    // Throws kNqErrOutOfMemory, with *outObject as it was. A null outObject is reported.
    static void Create(TNqCountedBlock** outObject, int32 inSize, boolean inZeroMem)
    {
        if (NqCheckText(outObject != nullptr, "outObject != NULL"))
            TNqCountedCreateHelper<TNqCountedBlock>{outObject} = Make(inSize, inZeroMem);
    }

    // The same block, with its one reference for the caller; null without memory, and no report.
    static TNqCountedBlock* Make(int32 inSize, boolean inZeroMem)
    {
        TNqAtomicCounterHolder counter = NewAtomicCounter();
        if (counter == nullptr)
            return nullptr;
        TNqCountedBlock* block = new TNqCountedBlock(counter, inSize);
        if (block == nullptr)
            DeleteAtomicCounter(counter);
        else if (block->fData == nullptr)
            ReleaseIfNotNull(block);
        else if (inZeroMem)
            std::memset(static_cast<void*>(block->fData), 0, GetByteCount(inSize));
        return block;
    }

    T* GetData() const { return fData; }
    int32 GetSize() const { return fSize; }

private:
    TNqCountedBlock(TNqAtomicCounterHolder inCounter, int32 inSize)
        : TNqSMPCountedObject(inCounter),
          fData(static_cast<T*>(Nqmalloc(GetByteCount(inSize)))),
          fSize(inSize)
    {
    }

    static NqSize GetByteCount(int32 inSize) { return static_cast<NqSize>(inSize) * sizeof(T); }

    T* fData;
    const int32 fSize; // elements in the block
};

template <typename T>
class TNqExtensibleArray : public TNqObject
{
public:
    // At most 2^inLogMaxElemCount elements, in blocks of 2^inLogGrowSize; both are taken as 0 below that and as 30
    // above. With inZeroMem every element that comes into use is zero.
    TNqExtensibleArray(int32 inLogMaxElemCount, int32 inLogGrowSize, boolean inZeroMem)
        : fLogMaxElemCount(std::clamp(inLogMaxElemCount, 0, kLargestLog)),
          fLogGrowSize(std::clamp(inLogGrowSize, 0, kLargestLog)),
          fMask((1 << fLogGrowSize) - 1),
          fZeroMem(inZeroMem),
          fElemCount(0)
    {
    }
    TNqExtensibleArray(const TNqExtensibleArray&) = delete;
    TNqExtensibleArray& operator=(const TNqExtensibleArray&) = delete;

    int32 GetElemCount() const { return fElemCount; }
    int32 GetMaxElemCount() const { return 1 << fLogMaxElemCount; }

    // Elements 0 to count - 1 are in use; whole blocks are added for them, and a lower count gives none back. False,
    // with nothing changed, for a count below 0 or past the maximum and, after a report, without memory.
    boolean SetElemCount(int32 inCount)
    {
        if (inCount < 0 || inCount > GetMaxElemCount() || !AddBlocksFor(inCount))
            return false;
        if (fZeroMem)
            ZeroElems(inCount, fElemCount);
        fElemCount = inCount;
        return true;
    }

    // The element, at an address that stays.
    T& operator[](int32 i)
    {
        if (!NqCheckText(i >= 0 && i < fElemCount, "i>=0 && i < fElemCount"))
            return GetScratch();
        T* const array = fIndex.BaseAddress()[i >> fLogGrowSize]; // which has every block of the elements in use
        if (!NqCheck(array))
            return GetScratch();
        return array[i & fMask];
    }

private:
    friend struct TNqExtensibleArrayLayout;

    static constexpr int32 kLargestLog = 30;

    bool AddBlocksFor(int32 inCount)
    {
        const int64 needed = (static_cast<int64>(inCount) + fMask) >> fLogGrowSize;
        const uint32 oldBlocks = fData.GetElemCount();
        while (fData.GetElemCount() < needed)
        {
            if (!AddBlock())
            {
                fIndex.SetElemCount(oldBlocks);
                fData.SetElemCount(oldBlocks);
                return false;
            }
        }
        return true;
    }

    bool AddBlock()
    {
        TNqCountedPtr<TNqCountedBlock<T>> block;
        *block.GetAddress() = TNqCountedBlock<T>::Make(fMask + 1, fZeroMem);
        if (!NqCheckText(!!block, "Array allocation failed!"))
            return false;
        return fData.AddElem(block) && fIndex.AddElem(block->GetData());
    }

    // New blocks are zero and dropped elements become it, so every element is when it comes into use.
    void ZeroElems(int32 inFrom, int32 inTo)
    {
        for (int32 i = inFrom; i < inTo; ++i)
            std::memset(static_cast<void*>(fIndex[static_cast<uint32>(i >> fLogGrowSize)] + (i & fMask)), 0, sizeof(T));
    }

    static T& GetScratch()
    {
        alignas(T) static thread_local unsigned char scratch[sizeof(T)];
        std::memset(scratch, 0, sizeof scratch);
        return *reinterpret_cast<T*>(scratch);
    }

    const int32 fLogMaxElemCount;
    const int32 fLogGrowSize;
    const int32 fMask; // selects the position inside a block
    const boolean fZeroMem;
    int32 fElemCount;
    TNqCountedPtrArray<TNqCountedBlock<T>> fData;
    TNqPtrArray<T> fIndex; // the elements of each block, in block order
};
