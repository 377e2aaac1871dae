// What the transcoders share: their creation, their faces, the UTF-8 form of a character, and the search in a table of
// characters.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqHash.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

// A new T in *out, which holds its one reference.
template <typename T>
void NqCreateTranscoderObject(ITranscoder** out)
{
    if (NqCheckText(out != nullptr, "out != NULL"))
        TNqCountedCreateHelper<ITranscoder>{out} = new T;
}

// The ITranscoder face of a transcoder; everything else is its counted object's business.
template <typename T>
NqErr NqQueryTranscoder(T& transcoder, const NqIID& iid, void** outInterface)
{
    if (!NqInlineIsEqualGUID(iid, IID_ITranscoder))
        return transcoder.TNqSMPCountedObject::QueryInterface(iid, outInterface);
    TNqCountedGetHelper<ITranscoder>{reinterpret_cast<ITranscoder**>(outInterface)} = &transcoder;
    return kNqNoErr;
}

// Set `bytes` to one byte, or to the UTF-8 form of a character; it becomes empty only when it never had memory.
void NqSetToByte(TNqArray<uint8>& bytes, uint8 byte);
void NqSetToUTF8(TNqArray<uint8>& bytes, uint16 ch);

// The characters of the bytes from 0x80 on, in order.
struct TNqCharacterTable
{
    const uint16* fCharacters;
    uint32 fCount;
    uint32 fBucketCount; // of the map from a character back to its byte
};

// Sets `bytes` to the byte of `ch` in the table, or to the UTF-8 form of a character that the table has not. The map is
// built on first need and belongs to the caller; without memory for it the table itself is searched.
void NqSetFromTable(TNqArray<uint8>& bytes, const TNqCharacterTable& table, TNqHashMap<uint16, uint8>*& ioMap,
                    uint16 ch);
