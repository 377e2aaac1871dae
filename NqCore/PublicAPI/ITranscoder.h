// A transcoder: characters of 16 bits on the inside, the bytes of one encoding on the outside.
//
//     TNqCountedPtr<ITranscoder> transcoder;
//     NqCreateTranscoder(transcoder, kMacTranscoder);
//     const uint16 ch = transcoder->Encode(0x8E);             // é, U+00E9
//     const TNqArray<uint8>& bytes = transcoder->Decode(ch);  // the byte 0x8E
//     NqDecodeText(*transcoder, characters, count, outBytes); // those of a whole text
//
// Encode takes in an external byte, Decode gives out external bytes: the names look at the text from outside.
// Malformed bytes are dropped and characters that an encoding has not are written as UTF-8: nothing is reported.
// Ownership: counted; a transcoder keeps the state of a half-read character, so each stream has one of its own.
// Threads: counting is safe from any thread, everything else is used by one thread at a time.

#pragma once

#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqCompObj.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"

enum TranscoderType : int
{
    kAnsiTranscoder = 0, // Windows-1252
    kMacTranscoder = 1,  // Mac OS Roman
    kUTF8Transcoder = 2,
    kJpnTranscoder = 3,    // none in this library
    kPlatformDependent = 4 // what the platform writes: UTF-8
};

// What Encode returns while no character is complete.
constexpr uint16 kNqNoCharacter = 0xFFFF;

class ITranscoder : public INqUnknown
{
public:
    // Feeds one external byte. Returns the character that it completes, kNqNoCharacter when it completes none or was
    // dropped.
    virtual uint16 Encode(uint8 inByte) = 0;

    // The external bytes of one character. The array is the transcoder's, valid until its next call.
    virtual const TNqArray<uint8>& Decode(uint16 ch) = 0;

    virtual TranscoderType GetType() = 0;

    // The NUL-terminated signature that a writer puts at the start of a file (the byte-order mark), null when there is
    // none.
    virtual const uint8* GetIdentifier() = 0;

protected:
    ~ITranscoder() = default;
};

// A new transcoder of this type in `outTranscoder`, which releases what it held. A type without one is reported and
// leaves `outTranscoder` empty. Throws kNqErrOutOfMemory.
void NqCreateTranscoder(TNqCountedPtr<ITranscoder>& outTranscoder, TranscoderType inType);

// The external bytes of a whole text in outBytes, in place of what it held: what Decode gives for one character after
// the other, but a run at a time where the transcoder is exactly one of this library. False without memory, which is
// reported; outBytes then holds the bytes of the first characters. What Decode returned before is no longer valid.
boolean NqDecodeText(ITranscoder& ioTranscoder, const uint16* inCharacters, uint32 inCount, TNqArray<uint8>& outBytes);
