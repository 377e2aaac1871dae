// The transcoder of Mac OS Roman, in the revision with the euro sign at 0xDB.
//
// Never reports and keeps no state between characters. Threads: one at a time, but counting is safe from any.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqHash.h"

class TMacTranscoder : public TNqSMPCountedObject, public ITranscoder
{
public:
    TMacTranscoder();
    ~TMacTranscoder() override;

    // A new transcoder in *outTranscoder, which holds its one reference. Throws kNqErrOutOfMemory; a null
    // `outTranscoder` is reported.
    static void Create(ITranscoder** outTranscoder);

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return TNqSMPCountedObject::AddRef(); }
    uint32 Release() override { return TNqSMPCountedObject::Release(); }

    uint16 Encode(uint8 inByte) override;
    const TNqArray<uint8>& Decode(uint16 ch) override;
    TranscoderType GetType() override { return kMacTranscoder; }
    const uint8* GetIdentifier() override { return nullptr; }

    // Writes what Decode gives for each of the characters, at most three bytes, and returns the end.
    static uint8* DecodeText(const uint16* inFirst, const uint16* inLast, uint8* outBytes);

private:
    friend struct TNqTranscoderLayout;

    static const uint16 fMacToUnicodeTable[128]; // for the bytes 0x80 to 0xFF

    TNqHashMap<uint16, uint8>* fUnicodeToMacTable; // owned; null until first needed
    TNqArray<uint8> fDecodedChar;
};
