// A hash map that keeps its entries in the order of insertion: besides its key an entry has an index, which never
// changes.
//
//     TNqHashMap<uint16, uint8> map(64);
//     boolean alreadyThere;
//     map.AddElem(0x20AC, 0x80, alreadyThere, true);
//     if (const uint8* value = map.FindElem(0x20AC, true))
//         Use(*value);
//
// Keys and values lie in two parallel arrays, and each bucket is an array of entry indices. There is no removal, only
// ResetDatas. The number of buckets is fixed at construction: choose it near the number of entries.
// Keys that are not plain bytes need a derived map with its own hash: the default one adds up the bytes of the key.
// Failure: an entry that found no memory is not added; a look-up or an addition whose bucket is missing, for want of
// memory or since there are none, throws kNqErrInvalidData.
// Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqPtrArray.h"

#include <algorithm>
#include <utility>

// What a look-up by index returns when there is no entry.
constexpr uint32 kNqHashNotFound = 0xFFFFFFFF;

// The buckets, the values and the hash; TNqHashMap adds the keys.
template <typename Key, typename Data>
class TNqHashCommon : public TNqObject
{
public:
    using TBucket = TNqArray<IDType>;

    // `inSize` empty buckets; 0 is reported. Without memory some are missing.
    explicit TNqHashCommon(unsigned int size) : fSize(size), fHashTable(size, true)
    {
        NqCheck(size > 0);
        for (uint32 i = 0; i < fHashTable.GetElemCount(); ++i)
            fHashTable.SetElem(i, new TBucket);
    }
    TNqHashCommon(const TNqHashCommon&) = delete;
    TNqHashCommon& operator=(const TNqHashCommon&) = delete;

    // Reserves room for `inCount` entries, spread evenly over the buckets; room beyond that is given back, entries
    // stay. False without memory.
    virtual boolean SetElemSpace(unsigned int inCount)
    {
        if (fHashTable.GetElemCount() < fSize)
            return false;
        for (uint32 i = 0; i < fHashTable.GetElemCount(); ++i)
        {
            TBucket* const bucket = fHashTable[i];
            const uint32 evenShare = inCount / fSize;
            const uint32 share = std::max(evenShare + 1, evenShare); // the largest count has no larger one
            if (bucket == nullptr || !bucket->SetElemSpace(AtLeastCount(share, *bucket)))
                return false;
        }
        return fHashData.SetElemSpace(AtLeastCount(inCount, fHashData));
    }

    // Drops all entries; the buckets and the reserved space stay.
    virtual void ResetDatas()
    {
        fHashData.SetElemCount(0);
        for (uint32 i = 0; i < fHashTable.GetElemCount(); ++i)
        {
            if (fHashTable[i] != nullptr)
                fHashTable[i]->SetElemCount(0);
        }
    }

    virtual boolean AreKeysEqual(const Key& a, const Key& b) const { return a == b; }

    // The bucket of a key: the sum of the key's bytes modulo the number of buckets.
    virtual uint32 HashFunction(const Key& inKey) const
    {
        const uint8* const bytes = reinterpret_cast<const uint8*>(std::addressof(inKey));
        uint32 sum = 0;
        for (NqSize i = 0; i < sizeof(Key); ++i)
            sum += bytes[i];
        return fSize == 0 ? 0 : sum % fSize;
    }

    virtual ~TNqHashCommon()
    {
        for (uint32 i = 0; i < fHashTable.GetElemCount(); ++i)
            delete fHashTable[i];
    }

    // The bucket of a key, null when it is missing.
    TBucket* GetElemArray(const Key& inKey) { return const_cast<TBucket*>(std::as_const(*this).GetElemArray(inKey)); }
    const TBucket* GetElemArray(const Key& inKey) const
    {
        const uint32 index = HashFunction(inKey);
        return index < fHashTable.GetElemCount() ? fHashTable[index] : nullptr;
    }

protected:
    template <typename TArray>
    static uint32 AtLeastCount(uint32 inSpace, const TArray& inArray)
    {
        return std::max(inSpace, inArray.GetElemCount());
    }

    uint32 fSize;                    // buckets
    TNqPtrArray<TBucket> fHashTable; // owned
    TNqClassArray<Data> fHashData;   // by entry index
};

template <typename Key, typename Data>
class TNqHashMap : public TNqHashCommon<Key, Data>
{
    using TBase = TNqHashCommon<Key, Data>;
    using TBase::fHashData;

public:
    using typename TBase::TBucket;

    explicit TNqHashMap(unsigned int inSize) : TBase(inSize) {}

    boolean SetElemSpace(unsigned int inCount) override
    {
        return TBase::SetElemSpace(inCount) && fHashKey.SetElemSpace(this->AtLeastCount(inCount, fHashKey));
    }

    void ResetDatas() override
    {
        fHashKey.SetElemCount(0);
        TBase::ResetDatas();
    }

    // The index of the entry with this key in a bucket, kNqHashNotFound when there is none: the first added one
    // inFromStart, else the last. Throws kNqErrInvalidData for a null bucket.
    uint32 FindInArray(const TNqArray<uint32>* inBucket, const Key& inKey, boolean inFromStart) const
    {
        if (inBucket == nullptr)
            throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
        const uint32 count = inBucket->GetElemCount();
        const uint32* const indices = inBucket->BaseAddress();
        for (uint32 i = 0; i < count; ++i)
        {
            const uint32 index = indices[inFromStart ? i : count - 1 - i];
            if (this->AreKeysEqual(fHashKey[index], inKey))
                return index;
        }
        return kNqHashNotFound;
    }

    // The value of the entry with this key, null when there is none.
    Data* FindElem(const Key& inKey, boolean inFromStart) const
    {
        const uint32 index = FindInArray(this->GetElemArray(inKey), inKey, inFromStart);
        return index == kNqHashNotFound ? nullptr : const_cast<Data*>(&fHashData[index]);
    }

    // Adds an entry and returns its index. A key that is there already keeps its value: outAlreadyThere is set and its
    // index returned. Without memory nothing is added and kNqHashNotFound returned.
    uint32 AddElem(const Key& inKey, const Data& inValue, boolean& outAlreadyThere, boolean inFromStart)
    {
        TBucket* const bucket = this->GetElemArray(inKey);
        const uint32 found = FindInArray(bucket, inKey, inFromStart);
        outAlreadyThere = found != kNqHashNotFound;
        if (outAlreadyThere)
            return found;
        const uint32 index = fHashData.GetElemCount();
        if (fHashData.AddElem(inValue) && fHashKey.AddElem(inKey) && bucket->AddElem(index))
            return index;
        fHashData.SetElemCount(index);
        fHashKey.SetElemCount(index);
        return kNqHashNotFound;
    }

private:
    TNqClassArray<Key> fHashKey; // by entry index
};
