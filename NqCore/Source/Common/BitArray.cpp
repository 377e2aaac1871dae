#include "NqCore/PublicAPI/BitArray.h"

#include <cstring>

namespace
{

constexpr IDType kAllBits = 0xFFFFFFFF;

// Words that are combined at once: a loop of a fixed length, which the compiler turns into vector operations.
constexpr uint32 kBlockWords = 16;

template <class Combine>
void CombineWords(IDType* __restrict words, const IDType* __restrict others, uint32 count, Combine&& inCombine)
{
    uint32 i = 0;
    for (; count - i >= kBlockWords; i += kBlockWords)
        for (uint32 j = 0; j < kBlockWords; ++j)
            words[i + j] = inCombine(words[i + j], others[i + j]);
    for (; i < count; ++i)
        words[i] = inCombine(words[i], others[i]);
}

bool AreEqual(const IDType* a, const IDType* b, uint32 count)
{
    return count == 0 || std::memcmp(a, b, count * sizeof(IDType)) == 0;
}

// Calls inVisit(bits, index of the first) for all bits below `size`, 64 at a time, zeros behind the last.
template <class Visit>
void ForEachPair(const IDType* words, uint32 size, Visit&& inVisit)
{
    constexpr uint32 pairBits = 64;
    uint32 first = 0;
    for (; size - first >= pairBits; first += pairBits, words += 2)
        inVisit(words[0] | static_cast<uint64>(words[1]) << 32, first);
    const uint32 left = size - first;
    if (left == 0)
        return;
    const uint64 high = left > 32 ? words[1] : 0;
    inVisit((words[0] | high << 32) & ((uint64{1} << left) - 1), first);
}

uint32 CountOnes(uint64 bits)
{
    // Sums of neighbours: of bits, of pairs, of fours; the multiplication adds up the bytes.
    bits -= (bits >> 1) & 0x5555555555555555;
    bits = (bits & 0x3333333333333333) + ((bits >> 2) & 0x3333333333333333);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32>((bits * 0x0101010101010101) >> 56);
}

} // namespace

TBitArray& TBitArray::operator=(const TBitArray& source)
{
    fBits = source.fBits;
    if (fBits.GetElemCount() == source.fBits.GetElemCount())
        fSize = source.fSize;
    return *this;
}

boolean TBitArray::SetSize(uint32 size)
{
    const uint32 words = WordsOf(size);
    if (words != fBits.GetElemCount() && !fBits.SetElemCount(words))
        return false;
    fSize = size;
    return true;
}

boolean TBitArray::SetSize(uint32 size, boolean fill)
{
    const uint32 oldSize = fSize;
    if (!SetSize(size))
        return false;
    if (size <= oldSize)
        return true;
    IDType* const words = fBits.BaseAddress();
    const IDType added = fill ? kAllBits : 0;
    if (oldSize % kWordBits != 0)
    {
        const IDType kept = LowBits(oldSize % kWordBits);
        IDType& last = words[oldSize / kWordBits];
        last = (last & kept) | (added & ~kept);
    }
    std::fill(words + WordsOf(oldSize), words + WordsOf(size), added);
    return true;
}

void TBitArray::ArrayFree()
{
    fSize = 0;
    fBits.ArrayFree();
}

boolean TBitArray::operator==(const TBitArray& other) const
{
    return fSize == other.fSize && AreEqual(fBits.BaseAddress(), other.fBits.BaseAddress(), CalcWordsFromSize());
}

boolean TBitArray::bitTest(const TBitArray& other) const
{
    const IDType* const words = fBits.BaseAddress();
    const IDType* const others = other.fBits.BaseAddress();
    const uint32 wholeWords = other.fSize / kWordBits;
    const uint32 ownWords = Nq_Min(wholeWords, CalcWordsFromSize());
    if (!AreEqual(words, others, ownWords))
        return false;
    for (uint32 i = ownWords; i < wholeWords; ++i)
        if (others[i] != 0)
            return false;
    const uint32 bitsLeft = other.fSize % kWordBits;
    if (bitsLeft == 0)
        return true;
    NqNotify("need to test this");
    const IDType word = wholeWords < CalcWordsFromSize() ? words[wholeWords] : 0;
    return ((word ^ others[wholeWords]) & LowBits(bitsLeft)) == 0;
}

TBitArray& TBitArray::operator|=(const TBitArray& other)
{
    if (this == &other || !GrowTo(other.fSize))
        return *this;
    IDType* const words = fBits.BaseAddress();
    const IDType* const others = other.fBits.BaseAddress();
    const bool equalSizes = fSize == other.fSize;
    const uint32 wholeWords = equalSizes ? CalcWordsFromSize() : other.fSize / kWordBits;
    CombineWords(words, others, wholeWords, [](IDType a, IDType b) { return a | b; });
    const uint32 bitsLeft = other.fSize % kWordBits;
    if (!equalSizes && bitsLeft != 0)
        words[wholeWords] |= others[wholeWords] & LowBits(bitsLeft);
    return *this;
}

TBitArray& TBitArray::operator&=(const TBitArray& other)
{
    if (this == &other || !GrowTo(other.fSize))
        return *this;
    IDType* const words = fBits.BaseAddress();
    const IDType* const others = other.fBits.BaseAddress();
    const bool equalSizes = fSize == other.fSize;
    uint32 done = equalSizes ? CalcWordsFromSize() : other.fSize / kWordBits;
    CombineWords(words, others, done, [](IDType a, IDType b) { return a & b; });
    const uint32 bitsLeft = other.fSize % kWordBits;
    if (!equalSizes && bitsLeft != 0)
    {
        words[done] &= others[done] & LowBits(bitsLeft);
        ++done;
    }
    std::fill(words + done, words + CalcWordsFromSize(), IDType{0});
    return *this;
}

void TBitArray::SetFromArrayNoResize(const TNqArray<int32>& indices)
{
    const int32* const end = indices.BaseAddress() + indices.GetElemCount();
    for (const int32* index = indices.BaseAddress(); index != end; ++index)
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
