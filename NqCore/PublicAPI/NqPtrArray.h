// Two growable arrays of pointers: TNqPtrArray, which never touches what its pointers lead to, and TNqCountedPtrArray,
// which holds one reference of each counted object in it.
//
//     TNqPtrArray<TNqWindow> windows;
//     if (!windows.AddElem(window))
//         return false;
//     TNqConstPtrIterator<TNqWindow> walk(windows, 0);
//     for (const TNqWindow* w = walk.First(); walk.More(); w = walk.Next())
//         Use(*w);
//
// Growth, failure and threads: as TNqArray.

#pragma once

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"

template <typename T>
class TNqPtrArray : public TNqPlainArray<T*, true>
{
    using TBase = TNqPlainArray<T*, true>;
    using TBase::fArrayData;
    using TBase::fElemCount;
    using TBase::fElemSpace;

public:
    using TBase::BaseAddress;
    using TBase::GetElemCount;
    using TBase::IsValid;

    // Empty, nothing allocated, zero memory on, smart growth.
    TNqPtrArray() = default;

    // `inCount` slots, null when inZeroMem is set and indeterminate otherwise; smart growth.
    TNqPtrArray(uint32 inCount, boolean inZeroMem) : TBase(inCount, inZeroMem) {}

    // `inInitialCount` slots in a block for `inInitialSpace`, growing by `inGrowSize` at a time.
    TNqPtrArray(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize, boolean inZeroMem)
        : TBase(inInitialCount, inInitialSpace, inGrowSize, inZeroMem)
    {
    }

    // The same pointers, zero memory on; it has smart growth when `inSource` has.
    TNqPtrArray(const TNqPtrArray& inSource) = default;

    ~TNqPtrArray() = default;

    // Copies the pointers, and the settings as TNqArray does.
    TNqPtrArray& operator=(const TNqPtrArray& inSource) = default;

    using TBase::GetZeroMem;
    using TBase::SetZeroMem;

    // As in TNqArray; but a block that moves takes the slots behind the count along, unless zero memory is on.
    using TBase::AddElemCount;
    using TBase::SetElemCount;

    // Appends p. False when the block could not grow.
    boolean AddElem(const T* p)
    {
        NqCheck(IsValid());
        if (fElemCount == fElemSpace && !this->GrowForOneMore())
            return false;
        fArrayData[fElemCount++] = const_cast<T*>(p);
        return true;
    }

    // Replaces a pointer. An index past the count is reported; p is then stored only where the block has room.
    void SetElem(uint32 index, const T* p)
    {
        NqCheck(IsValid());
        NqCheck(BaseAddress());
        if (NqCheck(index < GetElemCount()) || this->IsInSpace(index))
            fArrayData[index] = const_cast<T*>(p);
    }

    // The slot itself; an index past the count is reported and must not be used beyond the space.
    T*& operator[](uint32 i) { return *Pointer(i); }
    T* const& operator[](uint32 i) const { return *Pointer(i); }
    T** Pointer(uint32 i)
    {
        CheckIndex(i);
        return fArrayData + i;
    }
    T* const* Pointer(uint32 i) const
    {
        CheckIndex(i);
        return fArrayData + i;
    }

    // The first slot, null when the space is 0.
    T** Begin() { return fArrayData; }
    T* const* Begin() const { return fArrayData; }

    // The first allocation of an array that holds nothing: call ArrayFree before it on one that does.
    using TBase::ArrayAlloc;

private:
    void CheckIndex(uint32 i) const
    {
        NqCheck(IsValid());
        NqCheck(i < GetElemCount());
    }
};

// The pointer array that keeps its objects alive: each slot in use holds one reference, taken when a pointer comes in
// and released when it leaves, by replacement, by a smaller count or space, or with the array. Slots that come into use
// are null.
//
//     TNqCountedPtrArray<INqFile> files;
//     if (!files.AddElem(file))      // takes a reference of its own
//         return false;
//     files[0]->AddRef();            // reading a slot gives the pointer, not the slot
//
// T has the AddRef and Release of INqUnknown. Slots are set as TNqCountedPtr::Assign does, with its reports of dead
// pointers. An object is released last, when the array is in order again: its end may use the array, change it and free
// its block.
template <typename T>
class TNqCountedPtrArray : public TNqArrayBase<TNqCountedPtrArray<T>, T*>
{
    using TBase = TNqArrayBase<TNqCountedPtrArray<T>, T*>;
    friend TBase;
    using TBase::fArrayData;
    using TBase::fElemCount;
    using TBase::fElemSpace;

public:
    using TBase::GetElemCount;
    using TBase::IsValid;

    // Empty, nothing allocated, smart growth.
    TNqCountedPtrArray() : TBase(true) {}

    // The same objects, with references of its own; it has smart growth when `inSource` has.
    TNqCountedPtrArray(const TNqCountedPtrArray& inSource) : TNqCountedPtrArray()
    {
        this->SetGrowSize(1);
        *this = inSource;
    }

    ~TNqCountedPtrArray() { this->FinishDestruction(); }

    // Copies the pointers, and the settings as TNqArray does.
    TNqCountedPtrArray& operator=(const TNqCountedPtrArray& inSource)
    {
        if (!this->StartAssignment(inSource))
            return *this;
        this->ResizeCount(inSource.fElemCount);
        for (uint32 i = 0; i < fElemCount && i < inSource.fElemCount; ++i)
            TNqCountedPtr<T>::Assign(fArrayData + i, inSource.fArrayData[i]);
        return *this;
    }

    // As in TNqArray. Surplus objects are released, new slots are null.
    using TBase::AddElemCount;
    using TBase::SetElemCount;

    // Appends p (null is allowed) and takes a reference. False, without one, when the block could not grow.
    boolean AddElem(T* p)
    {
        NqCheck(IsValid());
        if (fElemCount == fElemSpace && !this->GrowForOneMore())
            return false;
        StartElems(fElemCount + 1);
        TNqCountedPtr<T>::Assign(fArrayData + fElemCount - 1, p);
        return true;
    }

    // Replaces an object. An index past the count is reported and nothing is stored.
    void SetElem(uint32 index, T* p)
    {
        NqCheck(IsValid());
        NqCheck(BaseAddress());
        if (NqCheck(index < GetElemCount()))
            TNqCountedPtr<T>::Assign(fArrayData + index, p);
    }

    // The pointer, without a reference for the caller; null, after a report, for an index past the count.
    T* operator[](uint32 i) const
    {
        NqCheck(IsValid());
        return NqCheck(i < GetElemCount()) ? fArrayData[i] : nullptr;
    }

    T* const* BaseAddress() const { return fArrayData; }
    T* const* ArrayData() const { return fArrayData; }
    T* const* Begin() const { return fArrayData; }

    // The first allocation of an array that holds nothing: call ArrayFree before it on one that does.
    boolean ArrayAlloc(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize)
    {
        return this->Allocate(inInitialCount, inInitialSpace, inGrowSize, true);
    }

    // Starts on lent memory: `inSpace` slots at `inBuffer`. The first `inCount` are in use and their references pass to
    // the array; the others are set to null. The caller keeps the block alive and frees it. As ArrayAlloc, for an array
    // that holds nothing.
    boolean ArrayAllocFromBuffer(T** inBuffer, uint32 inCount, uint32 inSpace)
    {
        if (!this->AllocateFromBuffer(inBuffer, inCount, inSpace))
            return false;
        this->ZeroElems(inBuffer + inCount, inSpace - inCount);
        TBase::SetZeroMem(true);
        return true;
    }

    // Marks the array as usable or not; an unusable one is reported by every operation.
    using TBase::SetValid;

private:
    void StartElems(uint32 n)
    {
        this->ZeroElems(fArrayData + fElemCount, n - fElemCount);
        fElemCount = n;
    }

    void DropElems(uint32 n)
    {
        while (fElemCount > n)
            NqStoreReference<T>(fArrayData[--fElemCount], nullptr);
    }

    void EndElems(T** inAt, uint32 n)
    {
        for (uint32 i = 0; i < n; ++i)
            NqStoreReference<T>(inAt[i], nullptr);
    }

    uint32 GetKeptCount(uint32 inSpace) const { return Nq_Min(fElemCount, inSpace); }
};

// Walks a pointer array by index, so it survives a block that moves while pointers are appended. It does not own the
// array.
template <typename T, typename A = TNqPtrArray<T>>
class TNqConstPtrIterator : public TNqObject
{
public:
    TNqConstPtrIterator(const A& inArray, uint32 inIndex) : fMyArray(inArray), fCurrent(nullptr), fCurrentIndex(inIndex)
    {
    }

    // The first pointer, null when there is none.
    const T* First()
    {
        fCurrentIndex = 0;
        fCurrent = Slot(0);
        return More() ? *fCurrent : nullptr;
    }

    boolean More() const { return fCurrentIndex < fMyArray.GetElemCount(); }

    // The next pointer; null at the end. A call after that, like one before First(), is reported and returns null.
    const T* Next()
    {
        if (!NqCheckText(fCurrent != nullptr, "fCurrent == NULL, did you forget to call/check More()?") ||
            !NqCheckText(More(), "Went past the end of the Array!!!"))
            return nullptr;
        ++fCurrentIndex;
        fCurrent = Slot(fCurrentIndex);
        return More() ? *fCurrent : nullptr;
    }

    uint32 GetIndex() const { return fCurrentIndex; }

private:
    const T** Slot(uint32 inIndex) const { return const_cast<const T**>(fMyArray.BaseAddress()) + inIndex; }

    const A& fMyArray;
    const T** fCurrent; // null before First()
    uint32_t fCurrentIndex;
};

static_assert(sizeof(TNqPtrArray<uint8>) == 24 && sizeof(TNqCountedPtrArray<uint8>) == 24 &&
                  sizeof(TNqConstPtrIterator<uint8>) == 24,
              "arrays are shared with modules built elsewhere");
