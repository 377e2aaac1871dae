// A resizable array of bits, 32 to a word: which of many things are selected, visited or changed.
//
//     TBitArray selected;
//     if (!selected.SetSize(faceCount, false))
//         return false;                 // out of memory: already reported, the array is as it was
//     selected.SetBit(17);
//     selected |= selectedElsewhere;
//     TNqArray<int32> faces;
//     selected.GetIndicesSet(faces);    // in ascending order
//
// The last word has bits beyond the size. They are stale: nothing keeps them at 0. Growing without a fill value brings
// them into the array, == compares them, |= and &= combine them where both arrays have one size, and bitTest looks at
// those of the array that is asked. GetIndicesSet does not.
//
// Ownership: the words belong to the array; copies are deep. Cost: one bit takes a check and one access; the operations
// on whole arrays work by the word. Failure: reported; without memory an array keeps its size and its bits.
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqArray.h"

class TBitArray : public TNqObject
{
public:
    // Empty, nothing allocated.
    TBitArray() : fSize(0) {}
    TBitArray(const TBitArray& inSource) : TBitArray() { *this = inSource; }
    ~TBitArray() = default;

    // The size and all words, stale bits included. Without memory: reported, unchanged.
    TBitArray& operator=(const TBitArray& inSource);

    uint32 GetSize() const { return fSize; }

    // The words that the bits take.
    uint32 CalcWordsFromSize() const { return WordsOf(fSize); }

    // Changes no bit: the last word keeps its stale bits, which growing brings into the array. New words are 0. False
    // without memory.
    boolean SetSize(uint32 inSize);

    // The same, but growing makes all bits behind the old ones equal to `inFill`, stale ones too.
    boolean SetSize(uint32 inSize, boolean inFill);

    // No bits and no memory.
    void ArrayFree();

    // Whether a bit is set, 1 or 0. An index past the size is reported; it may still be that of a stale bit, and yields
    // 0 beyond those.
    boolean TestBit(uint32 elemNum) const
    {
        if (!NqCheck(elemNum < fSize) && !HasWordOf(elemNum))
            return false;
        return (fBits.BaseAddress()[elemNum / kWordBits] & BitOf(elemNum)) != 0;
    }

    // Sets a bit. An index past the size is reported; then only a stale bit can still be set.
    void SetBit(uint32 elemNum)
    {
        if (!NqCheck(elemNum < fSize) && !HasWordOf(elemNum))
            return;
        fBits.BaseAddress()[elemNum / kWordBits] |= BitOf(elemNum);
    }

    // Equal sizes and equal words, stale bits included.
    boolean operator==(const TBitArray& inOther) const;
    boolean operator!=(const TBitArray& inOther) const { return !(*this == inOther); }

    // Whether the first other.GetSize() bits of both are the same. Of bits that this array does not have, those in its
    // last word count as they are, stale, and those in words that it does not have as 0. Reports "need to test this"
    // when it comes to a word that `inOther` uses in part.
    boolean bitTest(const TBitArray& inOther) const;

    // Each bit or'ed, and'ed with that of `inOther`. A shorter array first grows to the size of `inOther`, with zeros.
    // In a longer one |= keeps and &= clears the bits past the end of `inOther`. Without memory: reported, unchanged.
    TBitArray& operator|=(const TBitArray& inOther);
    TBitArray& operator&=(const TBitArray& inOther);

    // Sets the bits with these indices. An index past the size is as for SetBit.
    void SetFromArrayNoResize(const TNqArray<int32>& inIndices);

    // Replaces `outIndices` by the indices of all bits that are set, in ascending order. False, with no indices, when
    // there is no memory for them.
    boolean GetIndicesSet(TNqArray<int32>& outIndices) const;

private:
    static constexpr uint32 kWordBits = 32;

    static uint32 WordsOf(uint32 inSize) { return inSize / kWordBits + (inSize % kWordBits != 0); }
    static IDType BitOf(uint32 inElemNum) { return IDType{1} << (inElemNum % kWordBits); }
    static IDType LowBits(uint32 inCount) { return (IDType{1} << inCount) - 1; } // fewer than a word's

    bool HasWordOf(uint32 inElemNum) const { return inElemNum / kWordBits < fBits.GetElemCount(); }
    boolean GrowTo(uint32 inSize) { return inSize <= fSize || SetSize(inSize, false); }
    uint32 CountBits() const;

    uint32 fSize;           // bits
    TNqArray<IDType> fBits; // CalcWordsFromSize() words; bit i is bit i % 32 of word i / 32, from the least significant
};

static_assert(sizeof(TBitArray) == 32, "bit arrays are shared with modules built elsewhere");
