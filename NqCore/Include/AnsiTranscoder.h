// The transcoder of the Windows code page 1252.
//
// Never reports and keeps no state between characters. Threads: one at a time, but counting is safe from any.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqHash.h"

class TAnsiTranscoder : public TNqSMPCountedObject, public ITranscoder
{
public:
    TAnsiTranscoder();
    ~TAnsiTranscoder() override;

    // A new transcoder in *outTranscoder, which holds its one reference. Throws kNqErrOutOfMemory; a null
    // `outTranscoder` is reported.
    static void Create(ITranscoder** outTranscoder);

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return TNqSMPCountedObject::AddRef(); }
    uint32 Release() override { return TNqSMPCountedObject::Release(); }

    uint16 Encode(uint8 inByte) override;
    const TNqArray<uint8>& Decode(uint16 ch) override;
    TranscoderType GetType() override { return kAnsiTranscoder; }
    const uint8* GetIdentifier() override { return nullptr; }

    // Writes what Decode gives for each of the characters, at most three bytes, and returns the end.
    static uint8* DecodeText(const uint16* inFirst, const uint16* inLast, uint8* outBytes);

private:
    friend struct TNqTranscoderLayout;

    static const uint16 fAnsiToUnicodeTable[32]; // for the bytes 0x80 to 0x9F

    TNqHashMap<uint16, uint8>* fUnicodeToAnsiTable; // owned; null until first needed
    TNqArray<uint8> fDecodedChar;
};
