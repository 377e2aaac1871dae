// A growable array of objects: it constructs its elements when they come into use and destroys them when they leave it.
// For plain values TNqArray is faster; for pointers use TNqPtrArray.
//
//     TNqClassArray<TNqString63> names;
//     *names.AddElem() = "left";                       // throws without memory
//     if (!names.AddElem(TNqString63("right")))         // false without memory
//         return false;
//
//     TNqIterator<TNqString63> walk(names, 0);
//     for (TNqString63* name = walk.First(); walk.More(); name = walk.Next())
//         Use(*name);
//
// Elements: default-constructible and copyable, aligned as scalars are, and free of pointers into themselves: a growing
// block moves them as bytes, without calling a constructor or a destructor.
// Ownership, growth, failure and threads: as TNqArray. Only AddElem() without a value throws, and what a constructor or
// an assignment of the elements throws passes through.

#pragma once

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqException.h"

#include <memory>
#include <new>

template <typename T>
class TNqClassArray : public TNqArrayBase<TNqClassArray<T>, T>
{
    using TBase = TNqArrayBase<TNqClassArray<T>, T>;
    friend TBase;
    using TBase::fArrayData;
    using TBase::fElemCount;
    using TBase::fElemSpace;

public:
    using TBase::GetElemCount;
    using TBase::IsValid;

    // Empty, nothing allocated, smart growth.
    TNqClassArray() : TBase(false) {}

    // A copy, element by element; it has smart growth when `inSource` has.
    TNqClassArray(const TNqClassArray& inSource) : TNqClassArray()
    {
        this->SetGrowSize(1);
        *this = inSource;
    }

    ~TNqClassArray() { this->FinishDestruction(); }

    // Assigns the elements that both have, constructs copies of the others and destroys those that `inSource` has not.
    // A source with smart growth passes it on. Without memory: reported, the elements unchanged.
    TNqClassArray& operator=(const TNqClassArray& inSource)
    {
        if (!this->StartAssignment(inSource))
            return *this;
        if (fElemCount > inSource.fElemCount)
            this->ResizeCount(inSource.fElemCount);
        std::copy(inSource.fArrayData, inSource.fArrayData + fElemCount, fArrayData);
        std::uninitialized_copy(inSource.fArrayData + fElemCount, inSource.fArrayData + inSource.fElemCount,
                                fArrayData + fElemCount);
        fElemCount = inSource.fElemCount;
        return *this;
    }

    // Exactly n elements: surplus ones are destroyed, new ones are copies of a default-constructed one, which is the
    // first of them when elements are larger than 64 KiB. Growth allocates exactly n.
    boolean SetElemCount(uint32 n)
    {
        NqCheck(IsValid());
        NqCheck(n < kEndIndex);
        return this->ResizeCount(n);
    }

    // Appends a default-constructed element and returns it. Throws kNqErrOutOfMemory when the block could not grow.
    T* AddElem()
    {
        NqCheck(IsValid());
        if (fElemCount == fElemSpace && !this->GrowForOneMore())
            throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
        T* const elem = ::new (static_cast<void*>(fArrayData + fElemCount)) T();
        ++fElemCount;
        return elem;
    }

    // Appends a copy of `inValue`, which may be an element of this array. False when the block could not grow.
    boolean AddElem(const T& inValue)
    {
        NqCheck(IsValid());
        const T* source = std::addressof(inValue);
        if (fElemCount == fElemSpace && (source = this->GrowForCopyOf(source)) == nullptr)
            return false;
        ::new (static_cast<void*>(fArrayData + fElemCount)) T(*source);
        ++fElemCount;
        return true;
    }

    // The element; an index past the count is reported and must not be used.
    T& operator[](uint32 i)
    {
        NqCheck(IsValid());
        NqCheck(i < GetElemCount());
        return fArrayData[i];
    }
    const T& operator[](uint32 i) const
    {
        NqCheck(IsValid());
        NqCheck(i < GetElemCount());
        return fArrayData[i];
    }

    // The first allocation of an array that holds nothing: call ArrayFree before it on one that does.
    boolean ArrayAlloc(uint32 inInitialCount, uint32 inInitialSpace, uint32 inGrowSize)
    {
        return this->Allocate(inInitialCount, inInitialSpace, inGrowSize, false);
    }

    // Construct n copies of `inModel` in raw memory, and destroy n elements, in place. Neither touches the count.
    static void Construct(T* inAt, uint32 n, const T& inModel) { std::uninitialized_fill_n(inAt, n, inModel); }
    static void Destruct(T* inAt, uint32 n) { std::destroy_n(inAt, n); }

private:
    static constexpr NqSize kLargestModel = NqSize{64} * 1024; // bytes that may lie on the stack

    void StartElems(uint32 n)
    {
        T* const at = fArrayData + fElemCount;
        if constexpr (sizeof(T) <= kLargestModel)
        {
            const T model = T();
            Construct(at, n - fElemCount, model);
        }
        else
        {
            StartLargeElems(at, n - fElemCount);
        }
        fElemCount = n;
    }

    // The first of them is the model of the others.
    static void StartLargeElems(T* inAt, uint32 n)
    {
        ::new (static_cast<void*>(inAt)) T();
        try
        {
            Construct(inAt + 1, n - 1, *inAt);
        }
        catch (...)
        {
            Destruct(inAt, 1);
            throw;
        }
    }

    void DropElems(uint32 n)
    {
        const uint32 oldCount = fElemCount;
        fElemCount = n;
        Destruct(fArrayData + n, oldCount - n);
    }
    void EndElems(T* inAt, uint32 n) { Destruct(inAt, n); }
    uint32 GetKeptCount(uint32 inSpace) const { return Nq_Min(fElemCount, inSpace); }
};

// Walks an array of objects by index, so it survives a block that moves while elements are appended.
//
//     TNqIterator<TNqString63> walk(names, 0);
//     for (TNqString63* name = walk.First(); walk.More(); name = walk.Next())
//         Use(*name);
//
// The iterator does not own the array. A is const for an array that is only read, and T with it.
template <typename T, typename A = TNqClassArray<T>>
class TNqIterator : public TNqObject
{
public:
    TNqIterator(A& ioArray, uint32 inIndex) : fMyArray(ioArray), fCurrent(nullptr), fCurrentIndex(inIndex) {}

    // The first element, null when there is none.
    T* First()
    {
        fCurrentIndex = 0;
        fCurrent = fMyArray.BaseAddress();
        return More() ? fCurrent : nullptr;
    }

    boolean More() const { return fCurrentIndex < fMyArray.GetElemCount(); }

    // The next element. At the last one it returns the address one past the end and More() turns false; a call after
    // that, like one before First(), is reported and returns null.
    T* Next()
    {
        if (!NqCheckText(fCurrent != nullptr, "fCurrent == NULL, did you forget to call/check More()?") ||
            !NqCheckText(More(), "Went past the end of the Array!!!"))
            return nullptr;
        ++fCurrentIndex;
        fCurrent = fMyArray.BaseAddress() + fCurrentIndex;
        return fCurrent;
    }

    uint32 GetIndex() const { return fCurrentIndex; }

private:
    A& fMyArray;
    T* fCurrent; // null before First()
    uint32_t fCurrentIndex;
};

static_assert(sizeof(TNqClassArray<uint8>) == 24 && sizeof(TNqIterator<uint8>) == 24,
              "arrays are shared with modules built elsewhere");
