// A growable array of bitwise-copyable elements, moved with byte copies and never constructed or destroyed.
// For elements with constructors use TNqClassArray (NqClassArray.h); for pointers TNqPtrArray (NqPtrArray.h).
//
//     TNqArray<int32> ids;
//     if (!ids.AddElem(42))
//         return false;              // out of memory: already reported, the array is as it was
//     for (uint32 i = 0; i < ids.GetElemCount(); ++i)
//         Use(ids[i]);
//
// Ownership: the array owns its block, unless ArrayAllocFromBuffer lent it one. A copy has a block of its own.
// Growth: AddElem adds a fifth of the count plus one, at most 128 KiB a step; larger arrays are copied once a step, so
// reserve with SetElemSpace when the count is known.
// Failure: a failed check is reported to the host, and the operation goes on within the memory that there is. Without
// memory, which is reported too, it returns false and the array keeps what it held. Nothing throws.
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqMath.h"
#include "NqCore/PublicAPI/NqObject.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

// One past the largest count that an array can have.
constexpr uint32 kEndIndex = 0xFFFFFFFD;

// Whether values of a type are copied as bytes and dropped without a word, as TNqArray and TNqExtensibleArray do. For a
// type that the compiler does not know to be so, but that owns nothing and has no pointer into itself, say it:
// `template <> struct TNqIsBitwiseCopyable<TMyVector> : std::true_type {};`
template <typename T>
struct TNqIsBitwiseCopyable : std::is_trivially_copyable<T>
{
};

// The bits of an array's flag word.
enum ENqArrayFlag : uint32_t
{
    kNqArrayGrowSizeMask = 0x07FFFFFF,   // elements added per growth step; with smart growth the most a step adds
    kNqArrayExternalMemory = 0x08000000, // the block belongs to someone else and is never resized or freed
    kNqArrayZeroMemory = 0x10000000,     // blocks are zero-filled behind the elements, and so are dropped elements
    kNqArrayValid = 0x20000000,          // the array has been allocated successfully
    kNqArraySmartGrow = 0x80000000       // a growth step follows the count
};

// What all the arrays share: the four fields, the accessors, growth and the block. T is what a slot of the block holds,
// TArray the array itself, which says how elements come into use (StartElems) and leave it (DropElems), how those of a
// block that is given up end (EndElems), and how many slots move to a new block (GetKeptCount).
template <typename TArray, typename T>
class TNqArrayBase : public TNqObject
{
public:
    boolean IsValid() const { return HasFlag(kNqArrayValid); }
    boolean ExternalMemory() const { return HasFlag(kNqArrayExternalMemory); }
    boolean GetSmartGrow() const { return HasFlag(kNqArraySmartGrow); }

    // Elements in use, and elements that fit before the next allocation.
    uint32 GetElemCount() const { return fElemCount; }
    uint32 GetElemSpace() const { return fElemSpace; }

    // Bytes of one element.
    uint32 GetElemSize() const { return static_cast<uint32>(ElemSize()); }

    // Elements that the next growth step adds. 0 when there is no step: after SetGrowSize(0), and with smart growth of
    // elements larger than 128 KiB.
    uint32 GetGrowSize() const
    {
        const uint32 growBits = fArrayFlags & kNqArrayGrowSizeMask;
        if (!GetSmartGrow())
            return growBits;
        return Nq_Min(growBits, static_cast<uint32>(0.2f * static_cast<real32>(fElemCount)) + 1);
    }

    // The block, null when nothing is allocated. Any change of the space moves it.
    T* BaseAddress() { return fArrayData; }
    const T* BaseAddress() const { return fArrayData; }
    T* ArrayData() { return fArrayData; }
    const T* ArrayData() const { return fArrayData; }

    // True when p points into the block, at an element in use or not.
    boolean IsInArray(const T* p) const
    {
        const uintpointer address = reinterpret_cast<uintpointer>(p);
        const uintpointer start = reinterpret_cast<uintpointer>(fArrayData);
        return address >= start && address - start < static_cast<NqSize>(fElemSpace) * ElemSize();
    }

    // A fixed growth step of n elements; more than 27 bits are reported and cut.
    void SetGrowSize(uint32 n)
    {
        NqAssertPlain(n <= kNqArrayGrowSizeMask);
        constexpr uint32 replaced = kNqArrayGrowSizeMask | kNqArraySmartGrow;
        fArrayFlags = (fArrayFlags & ~replaced) | (n & kNqArrayGrowSizeMask);
    }

    // Growth that follows the count: a fifth of it plus one, at most 128 KiB a step. This is how a default array grows.
    void SetSmartGrow()
    {
        constexpr uint32 largestStep = static_cast<uint32>(kLargestStepBytes / ElemSize());
        fArrayFlags = (fArrayFlags & ~static_cast<uint32>(kNqArrayGrowSizeMask)) | largestStep | kNqArraySmartGrow;
    }

    // Makes room for exactly `inSpace` elements; elements beyond it are dropped. False, with the array as it was,
    // without memory and on lent memory.
    boolean SetElemSpace(uint32 inSpace)
    {
        NqCheck(IsValid());
        return ResizeSpace(inSpace);
    }

    // Drops all elements and the block. An array on lent memory only drops its elements; an invalid one stays as it is.
    void ArrayFree()
    {
        if (IsValid())
            FreeAll();
    }

    // Forgets everything, freeing nothing. The array is invalid until it is allocated again.
    void ZeroInternals()
    {
        fElemCount = 0;
        fElemSpace = 0;
        fArrayFlags = 0;
        fArrayData = nullptr;
    }

    // Does nothing: the block is all that an array knows of where its elements are. For code that was built for arrays
    // which know more.
    void UpdateDataPointer() {}

protected:
    static constexpr NqSize ElemSize()
    {
        return sizeof(T); // NOLINT(bugprone-sizeof-expression): the arrays of pointers mean the pointer
    }
    static constexpr NqSize kLargestStepBytes = NqSize{128} * 1024;

    // Empty, nothing allocated, smart growth.
    explicit TNqArrayBase(boolean inZeroMem)
    {
        static_assert(alignof(T) <= alignof(std::max_align_t), "the host aligns blocks for scalars only");
        static_assert(offsetof(TNqArrayBase, fElemCount) == 0 && offsetof(TNqArrayBase, fElemSpace) == 4 &&
                          offsetof(TNqArrayBase, fArrayFlags) == 8 && offsetof(TNqArrayBase, fArrayData) == 16 &&
                          sizeof(TNqArrayBase) == 24,
                      "arrays are shared with modules built elsewhere");
        ZeroInternals();
        SetValid(true);
        SetZeroMem(inZeroMem);
        SetSmartGrow();
    }
    TNqArrayBase(const TNqArrayBase&) = delete;
    TNqArrayBase& operator=(const TNqArrayBase&) = delete;

    ~TNqArrayBase() = default;

    boolean GetZeroMem() const { return HasFlag(kNqArrayZeroMemory); }
    void SetZeroMem(boolean inZeroMem) { SetFlag(kNqArrayZeroMemory, inZeroMem != 0); }
    void SetValid(boolean inValid) { SetFlag(kNqArrayValid, inValid != 0); }

    void FinishDestruction()
    {
        FreeAll();
        SetValid(false);
    }

    boolean Allocate(uint32 initialCount, uint32 initialSpace, uint32 inGrowSize, boolean inZeroMem)
    {
        ZeroInternals();
        if (!NqCheck(initialCount <= initialSpace))
        {
            NqNotify("initialCount > initialSpace");
            return false;
        }
        SetValid(true);
        SetGrowSize(inGrowSize);
        SetZeroMem(inZeroMem);
        const bool hasSpace = ResizeSpace(initialSpace);
        const bool hasElems = ResizeCount(initialCount);
        if (!hasElems)
            SetValid(false);
        return hasSpace && hasElems;
    }

    // Starts on a block of `inSpace` elements that the caller keeps alive and frees, the first `inCount` of them in
    // use. It has a growth step, so that a full block is reported as what it is.
    boolean AllocateFromBuffer(T* buffer, uint32 count, uint32 space)
    {
        ZeroInternals();
        if (!NqCheck(buffer != nullptr || space == 0) || !NqCheck(count <= space))
            return false;
        fElemCount = count;
        fElemSpace = space;
        fArrayFlags = kNqArrayValid | kNqArrayExternalMemory;
        fArrayData = buffer;
        SetGrowSize(1);
        return true;
    }

    boolean SetElemCount(NqSize n)
    {
        NqCheck(IsValid());
        NqCheckText(n < kEndIndex, "nAsNqSize < kEndIndex");
        return ResizeCount(static_cast<uint32>(n));
    }

    boolean AddElemCount(uint32 n)
    {
        NqCheck(IsValid());
        const uint64 newCount = static_cast<uint64>(fElemCount) + n;
        if (newCount > fElemSpace)
        {
            const uint32 growSize = GetGrowSize();
            if (!NqCheckText(growSize != 0, "grow size is zero!!"))
                return false;
            const uint64 rounded = (newCount + growSize - 1) / growSize * growSize;
            if (!ResizeSpace(FitsBlock(rounded) ? rounded : newCount))
                return false;
        }
        return ResizeCount(static_cast<uint32>(newCount));
    }

    // How every assignment starts: takes over the smart growth of `inSource` and makes room for its elements. True when
    // they are to be copied then; without memory, which is reported, and for the array itself they are not.
    bool StartAssignment(const TArray& inSource)
    {
        if (this == &inSource)
            return false;
        if (inSource.GetSmartGrow())
            SetSmartGrow();
        if (inSource.fElemCount <= fElemSpace || ResizeSpace(inSource.fElemCount))
            return true;
        NqNotify("Unable to complete operator=() memory allocation failed.");
        return false;
    }

    // Room for one more element: a growth step, or exactly one when there is no step or the step is too large.
    [[gnu::noinline]] boolean GrowForOneMore()
    {
        const uint64 needed = static_cast<uint64>(fElemCount) + 1;
        const uint64 stepped = static_cast<uint64>(fElemSpace) + GetGrowSize();
        return ResizeSpace(stepped >= needed && FitsBlock(stepped) ? stepped : needed);
    }

    // The same for a full array that is to get a copy of *value. Returns where that value is then, since an element of
    // this array moves with the block; null without memory.
    const T* GrowForCopyOf(const T* inValue)
    {
        const bool isOwn = IsInArray(inValue);
        const std::ptrdiff_t index = isOwn ? inValue - fArrayData : 0;
        if (!GrowForOneMore())
            return nullptr;
        return isOwn ? fArrayData + index : inValue;
    }

    boolean ResizeCount(uint32 n)
    {
        if (n > fElemSpace && !ResizeSpace(n))
            return false;
        if (n > fElemCount)
            Self().StartElems(n);
        else if (n < fElemCount)
            Self().DropElems(n);
        return true;
    }

    // Always allocate, copy, free: a failure leaves the array as it was.
    boolean ResizeSpace(uint64 inSpace)
    {
        if (inSpace == fElemSpace)
            return true;
        if (ExternalMemory())
        {
            NqNotify("Can't resize array with external memory");
            return false;
        }
        T* block = nullptr;
        if (inSpace != 0)
        {
            block = FitsBlock(inSpace) ? static_cast<T*>(Nqmalloc(inSpace * ElemSize())) : nullptr;
            if (!NqCheckText(block != nullptr, "Array allocation failed!"))
                return false;
        }
        MoveTo(block, static_cast<uint32>(inSpace));
        return true;
    }

    // Whether the block has room for an element at `inIndex`, in use or not.
    bool IsInSpace(NqSize inIndex) const { return inIndex < fElemSpace; }

    static void CopyElems(T* inTo, const T* inFrom, NqSize inCount)
    {
        if (inCount != 0)
            std::memcpy(static_cast<void*>(inTo), static_cast<const void*>(inFrom), inCount * ElemSize());
    }

    static void ZeroElems(T* inAt, NqSize inCount)
    {
        if (inCount != 0)
            std::memset(static_cast<void*>(inAt), 0, inCount * ElemSize());
    }

    uint32_t fElemCount;  // elements in use, at most fElemSpace
    uint32_t fElemSpace;  // elements allocated
    uint32_t fArrayFlags; // ENqArrayFlag
    T* fArrayData;        // null when the space is 0, but for lent memory

private:
    TArray& Self() { return static_cast<TArray&>(*this); }

    boolean HasFlag(uint32 inFlag) const { return (fArrayFlags & inFlag) != 0; }
    void SetFlag(uint32 inFlag, bool inOn) { fArrayFlags = inOn ? fArrayFlags | inFlag : fArrayFlags & ~inFlag; }

    static bool FitsBlock(uint64 inSpace) { return inSpace < kEndIndex && inSpace * ElemSize() <= 0xFFFFFFFF; }

    void FreeAll()
    {
        if (ExternalMemory())
            ResizeCount(0);
        else
            ResizeSpace(0);
    }

    // The fields change before elements end, so that what their end sets off sees an array in order.
    void MoveTo(T* inBlock, uint32 inSpace)
    {
        T* const oldBlock = fArrayData;
        const uint32 oldCount = fElemCount;
        CopyElems(inBlock, oldBlock, Self().GetKeptCount(inSpace));
        fElemCount = Nq_Min(oldCount, inSpace);
        fElemSpace = inSpace;
        fArrayData = inBlock;
        if (GetZeroMem())
            ZeroElems(inBlock + fElemCount, inSpace - fElemCount);
        if (inSpace < oldCount)
            Self().EndElems(oldBlock + inSpace, oldCount - inSpace);
        if (oldBlock != nullptr)
            Nqfree(oldBlock);
    }
};

// The arrays whose elements are bytes and nothing else. Those of a block that moves are the ones in use, or all there
// is room for when kMovesWholeBlock is set.
template <typename T, bool kMovesWholeBlock>
class TNqPlainArray : public TNqArrayBase<TNqPlainArray<T, kMovesWholeBlock>, T>
{
    using TBase = TNqArrayBase<TNqPlainArray, T>;
    friend TBase;

protected:
    using TBase::fArrayData;
    using TBase::fElemCount;
    using TBase::fElemSpace;
    using TBase::IsValid;

    TNqPlainArray() : TBase(true)
    {
        static_assert(
            TNqIsBitwiseCopyable<T>::value,
            "the array copies and drops its elements as bytes: use TNqClassArray, or see TNqIsBitwiseCopyable");
    }
    TNqPlainArray(uint32 inCount, boolean inZeroMem) : TNqPlainArray(inCount, inCount, 0, inZeroMem)
    {
        this->SetSmartGrow();
    }
    TNqPlainArray(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize, boolean inZeroMem) : TNqPlainArray()
    {
        if (!ArrayAlloc(inInitialCount, inInitialSpace, inGrowSize, inZeroMem))
            NqNotify("Array allocation failed in constructor!");
        NqCheck(IsValid());
    }
    TNqPlainArray(const TNqPlainArray& inSource) : TNqPlainArray()
    {
        this->SetGrowSize(1);
        *this = inSource;
    }
    TNqPlainArray& operator=(const TNqPlainArray& inSource)
    {
        if (this->StartAssignment(inSource))
        {
            this->ResizeCount(inSource.fElemCount);
            this->CopyElems(fArrayData, inSource.fArrayData, fElemCount);
        }
        return *this;
    }
    ~TNqPlainArray() { this->FinishDestruction(); }

    boolean ArrayAlloc(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize, boolean inZeroMem)
    {
        return this->Allocate(inInitialCount, inInitialSpace, inGrowSize, inZeroMem);
    }

private:
    void StartElems(uint32 n) { fElemCount = n; }
    void DropElems(uint32 n)
    {
        if (this->GetZeroMem())
            this->ZeroElems(fArrayData + n, fElemCount - n);
        fElemCount = n;
    }
    void EndElems(T*, uint32) {}
    uint32 GetKeptCount(uint32 inSpace) const { return Nq_Min(kMovesWholeBlock ? fElemSpace : fElemCount, inSpace); }
};

template <typename T>
class TNqArray : public TNqPlainArray<T, false>
{
    using TBase = TNqPlainArray<T, false>;
    using TBase::fArrayData;
    using TBase::fElemCount;
    using TBase::fElemSpace;

public:
    using TBase::GetElemCount;
    using TBase::IsValid;

    // Empty, nothing allocated, zero memory on, smart growth.
    TNqArray() = default;

    // `inCount` elements, zero when inZeroMem is set and indeterminate otherwise; smart growth.
    TNqArray(uint32 inCount, boolean inZeroMem) : TBase(inCount, inZeroMem) {}

    // `inInitialCount` elements in a block for `inInitialSpace`, growing by `inGrowSize` at a time.
    TNqArray(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize, boolean inZeroMem)
        : TBase(inInitialCount, inInitialSpace, inGrowSize, inZeroMem)
    {
    }

    // A copy with zero memory on; it has smart growth when `inSource` has.
    TNqArray(const TNqArray& inSource) = default;

    ~TNqArray() = default;

    // Copies the elements; a source with smart growth passes it on, nothing else of the settings is copied. Without
    // memory: reported, the elements unchanged.
    TNqArray& operator=(const TNqArray& inSource) = default;

    // With zero memory on, a block is zero behind the elements when it is allocated, and so are elements that
    // SetElemCount drops. So elements that come into use are 0, except where a value was stored behind the count, on
    // lent memory, or when zero memory was off at the time.
    using TBase::GetZeroMem;
    using TBase::SetZeroMem;

    // SetElemCount(n): exactly n elements; growth allocates exactly n. A count that is too large is reported, and its
    // low 32 bits are taken. AddElemCount(n): n more, with the space, where it has to grow, rounded up to a multiple of
    // the growth step; without a step reported and false. New elements are what the block holds: 0 as said above,
    // otherwise indeterminate.
    using TBase::AddElemCount;
    using TBase::SetElemCount;

    // Appends a copy of `inValue`, which may be an element of this array. False when the block could not grow.
    boolean AddElem(const T& inValue)
    {
        if (__builtin_expect(!NqCheck(IsValid()) || fElemCount == fElemSpace, 0))
            return AddElemSlowly(std::addressof(inValue));
        this->CopyElems(fArrayData + fElemCount, std::addressof(inValue), 1);
        ++fElemCount;
        return true;
    }

    // Replaces an element. An index past the count is reported; the value is then stored only where the block has room.
    void SetElem(uint32 index, const T& inValue)
    {
        NqCheck(IsValid());
        if (NqCheck(index < GetElemCount()) || this->IsInSpace(index))
            std::memmove(static_cast<void*>(fArrayData + index), std::addressof(inValue), sizeof(T));
    }

    // The element; an index past the count is reported and must not be used beyond the space.
    T& operator[](NqSize i)
    {
        NqCheck(IsValid());
        NqCheck(i < GetElemCount());
        return fArrayData[i];
    }
    const T& operator[](NqSize i) const
    {
        NqCheck(IsValid());
        NqCheck(i < GetElemCount());
        return fArrayData[i];
    }

    // The first allocation of an array that holds nothing: call ArrayFree before it on one that does.
    using TBase::ArrayAlloc;

    // Starts on lent memory: `inSpace` elements at `inBuffer`, the first `inCount` in use. The caller keeps the block
    // alive and frees it; the array never grows past it ("Can't resize array with external memory", false). As
    // ArrayAlloc, for an array that holds nothing.
    boolean ArrayAllocFromBuffer(T* inBuffer, uint32 inCount, uint32 inSpace)
    {
        return this->AllocateFromBuffer(inBuffer, inCount, inSpace);
    }

private:
    [[gnu::noinline]] boolean AddElemSlowly(const T* inValue)
    {
        if (fElemCount == fElemSpace && (inValue = this->GrowForCopyOf(inValue)) == nullptr)
            return false;
        this->CopyElems(fArrayData + fElemCount, inValue, 1);
        ++fElemCount;
        return true;
    }
};

static_assert(sizeof(TNqArray<uint8>) == 24, "arrays are shared with modules built elsewhere");
