// What the transcoders share: their creation, their faces, the UTF-8 form of a character, and the search in a table of
// characters.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqHash.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"

// A new T in *outTranscoder, which holds its one reference.
template <typename T>
void NqCreateTranscoderObject(ITranscoder** outTranscoder)
{
    if (NqCheckText(outTranscoder != nullptr, "out != NULL"))
        TNqCountedCreateHelper<ITranscoder>{outTranscoder} = new T;
}

// The ITranscoder face of a transcoder; everything else is its counted object's business.
template <typename T>
NqErr NqQueryTranscoder(T& ioTranscoder, const NqIID& iid, void** outInterface)
{
    if (!NqInlineIsEqualGUID(iid, IID_ITranscoder))
        return ioTranscoder.TNqSMPCountedObject::QueryInterface(iid, outInterface);
    TNqCountedGetHelper<ITranscoder>{reinterpret_cast<ITranscoder**>(outInterface)} = &ioTranscoder;
    return kNqNoErr;
}

// Set `outBytes` to one byte, or to the UTF-8 form of a character; it becomes empty only when it never had memory.
void NqSetToByte(TNqArray<uint8>& outBytes, uint8 inByte);
void NqSetToUTF8(TNqArray<uint8>& outBytes, uint16 ch);

// The characters of the bytes from 0x80 on, in order.
struct TNqCharacterTable
{
    const uint16* fCharacters;
    uint32 fCount;
    uint32 fBucketCount; // of the map from a character back to its byte
};

// Sets `outBytes` to the byte of `ch` in the table, or to the UTF-8 form of a character that the table has not. The map
// is built on first need and belongs to the caller; without memory for it the table itself is searched.
void NqSetFromTable(TNqArray<uint8>& outBytes, const TNqCharacterTable& inTable, TNqHashMap<uint16, uint8>*& ioMap,
                    uint16 ch);
