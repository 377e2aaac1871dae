#include "NqCore/PublicAPI/BitArray.h"

#include <cstring>

namespace
{

constexpr IDType kAllBits = 0xFFFFFFFF;

// Words that are combined at once: a loop of a fixed length, which the compiler turns into vector operations.
constexpr uint32 kBlockWords = 16;

template <class Combine>
void CombineWords(IDType* __restrict inWords, const IDType* __restrict inOthers, uint32 inCount, Combine&& inCombine)
{
    uint32 i = 0;
    for (; inCount - i >= kBlockWords; i += kBlockWords)
        for (uint32 j = 0; j < kBlockWords; ++j)
            inWords[i + j] = inCombine(inWords[i + j], inOthers[i + j]);
    for (; i < inCount; ++i)
        inWords[i] = inCombine(inWords[i], inOthers[i]);
}

bool AreEqual(const IDType* a, const IDType* b, uint32 inCount)
{
    return inCount == 0 || std::memcmp(a, b, inCount * sizeof(IDType)) == 0;
}

// Calls inVisit(bits, index of the first) for all bits below `inSize`, 64 at a time, zeros behind the last.
template <class Visit>
void ForEachPair(const IDType* inWords, uint32 inSize, Visit&& inVisit)
{
    constexpr uint32 pairBits = 64;
    uint32 first = 0;
    for (; inSize - first >= pairBits; first += pairBits, inWords += 2)
        inVisit(inWords[0] | static_cast<uint64>(inWords[1]) << 32, first);
    const uint32 left = inSize - first;
    if (left == 0)
        return;
    const uint64 high = left > 32 ? inWords[1] : 0;
    inVisit((inWords[0] | high << 32) & ((uint64{1} << left) - 1), first);
}

uint32 CountOnes(uint64 inBits)
{
    // Sums of neighbours: of bits, of pairs, of fours; the multiplication adds up the bytes.
    inBits -= (inBits >> 1) & 0x5555555555555555;
    inBits = (inBits & 0x3333333333333333) + ((inBits >> 2) & 0x3333333333333333);
    inBits = (inBits + (inBits >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32>((inBits * 0x0101010101010101) >> 56);
}

} // namespace

TBitArray& TBitArray::operator=(const TBitArray& inSource)
{
    fBits = inSource.fBits;
    if (fBits.GetElemCount() == inSource.fBits.GetElemCount())
        fSize = inSource.fSize;
    return *this;
}

boolean TBitArray::SetSize(uint32 inSize)
{
    const uint32 words = WordsOf(inSize);
    if (words != fBits.GetElemCount() && !fBits.SetElemCount(words))
        return false;
    fSize = inSize;
    return true;
}

boolean TBitArray::SetSize(uint32 inSize, boolean inFill)
{
    const uint32 oldSize = fSize;
    if (!SetSize(inSize))
        return false;
    if (inSize <= oldSize)
        return true;
    IDType* const words = fBits.BaseAddress();
    const IDType added = inFill ? kAllBits : 0;
    if (oldSize % kWordBits != 0)
    {
        const IDType kept = LowBits(oldSize % kWordBits);
        IDType& last = words[oldSize / kWordBits];
        last = (last & kept) | (added & ~kept);
    }
    std::fill(words + WordsOf(oldSize), words + WordsOf(inSize), added);
    return true;
}

void TBitArray::ArrayFree()
{
    fSize = 0;
    fBits.ArrayFree();
}

boolean TBitArray::operator==(const TBitArray& inOther) const
{
    return fSize == inOther.fSize && AreEqual(fBits.BaseAddress(), inOther.fBits.BaseAddress(), CalcWordsFromSize());
}

boolean TBitArray::bitTest(const TBitArray& inOther) const
{
    const IDType* const words = fBits.BaseAddress();
    const IDType* const others = inOther.fBits.BaseAddress();
    const uint32 wholeWords = inOther.fSize / kWordBits;
    const uint32 ownWords = Nq_Min(wholeWords, CalcWordsFromSize());
    if (!AreEqual(words, others, ownWords))
        return false;
    for (uint32 i = ownWords; i < wholeWords; ++i)
        if (others[i] != 0)
            return false;
    const uint32 bitsLeft = inOther.fSize % kWordBits;
    if (bitsLeft == 0)
        return true;
    NqNotify("need to test this");
    const IDType word = wholeWords < CalcWordsFromSize() ? words[wholeWords] : 0;
    return ((word ^ others[wholeWords]) & LowBits(bitsLeft)) == 0;
}

TBitArray& TBitArray::operator|=(const TBitArray& inOther)
{
    if (this == &inOther || !GrowTo(inOther.fSize))
        return *this;
    IDType* const words = fBits.BaseAddress();
    const IDType* const others = inOther.fBits.BaseAddress();
    const bool equalSizes = fSize == inOther.fSize;
    const uint32 wholeWords = equalSizes ? CalcWordsFromSize() : inOther.fSize / kWordBits;
    CombineWords(words, others, wholeWords, [](IDType a, IDType b) { return a | b; });
    const uint32 bitsLeft = inOther.fSize % kWordBits;
    if (!equalSizes && bitsLeft != 0)
        words[wholeWords] |= others[wholeWords] & LowBits(bitsLeft);
    return *this;
}

TBitArray& TBitArray::operator&=(const TBitArray& inOther)
{
    if (this == &inOther || !GrowTo(inOther.fSize))
        return *this;
    IDType* const words = fBits.BaseAddress();
    const IDType* const others = inOther.fBits.BaseAddress();
    const bool equalSizes = fSize == inOther.fSize;
    uint32 done = equalSizes ? CalcWordsFromSize() : inOther.fSize / kWordBits;
    CombineWords(words, others, done, [](IDType a, IDType b) { return a & b; });
    const uint32 bitsLeft = inOther.fSize % kWordBits;
    if (!equalSizes && bitsLeft != 0)
    {
        words[done] &= others[done] & LowBits(bitsLeft);
        ++done;
    }
    std::fill(words + done, words + CalcWordsFromSize(), IDType{0});
    return *this;
}

void TBitArray::SetFromArrayNoResize(const TNqArray<int32>& inIndices)
{
    const int32* const end = inIndices.BaseAddress() + inIndices.GetElemCount();
    for (const int32* index = inIndices.BaseAddress(); index != end; ++index)
        SetBit(static_cast<uint32>(*index));
}

uint32 TBitArray::CountBits() const
{
    uint32 count = 0;
    ForEachPair(fBits.BaseAddress(), fSize, [&count](uint64 bits, uint32) { count += CountOnes(bits); });
    return count;
}

boolean TBitArray::GetIndicesSet(TNqArray<int32>& outIndices) const
{
    const uint32 count = CountBits();
    outIndices.SetElemCount(0);
    if (!outIndices.SetElemCount(count))
        return false;
    int32* next = outIndices.BaseAddress();
    ForEachPair(fBits.BaseAddress(), fSize,
                [&next](uint64 bits, uint32 first)
                {
                    for (; bits != 0; bits &= bits - 1)
                        *next++ = static_cast<int32>(first + static_cast<uint32>(__builtin_ctzll(bits)));
                });
    return true;
}
