// UTF-8 characters, on which strings rest, and the UTF-8 transcoder.
//
//     const uint32 count = UTF8StrLen(text, byteLength);          // characters
//     const uint32 start = UTF8CharIndex(text, 3, byteLength);    // byte index of the fourth
//     const uint16 ch = UTF8CharToUnicode(text + start, byteLength - start);
//
// A character starts at every byte below 0x80 or in 0xC2..0xF4; all other bytes belong to the character before them.
// Characters are 16 bits wide: a four-byte sequence gives its low 16 bits. Everything stops at the first NUL, and the
// forms that take a number of bytes read none beyond it; they are also the fast ones.
// Threads: the functions are safe from any, a transcoder is used by one at a time.

#pragma once

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"

// Whether a character starts at this byte.
inline boolean UTF8IsCharStart(uint8 inByte)
{
    return inByte < 0x80 || (inByte >= 0xC2 && inByte <= 0xF4);
}

// The characters before the first NUL, or before the end of the bytes.
uint32 UTF8StrLen(const uint8* inText);
uint32 UTF8StrLen(const uint8* inText, NqSize inByteLength);

// The byte index of the character with this index, the end of the text when there is none. The form without a number of
// bytes gives 0 for an index that is negative as int32.
uint32 UTF8CharIndex(const uint8* inText, uint32 inCharIndex);
uint32 UTF8CharIndex(const uint8* inText, uint32 inCharIndex, NqSize inByteLength);

// Bytes of the sequence that this byte starts; 0 when it starts none.
inline uint8 UTF8NumBytes(uint8 inLead)
{
    if (inLead < 0x80)
        return 1;
    if (inLead < 0xC2 || inLead > 0xF4)
        return 0;
    return inLead < 0xE0 ? 2 : inLead < 0xF0 ? 3 : 4;
}

// The character of the sequence at `inBytes`, 0 when none starts there. Continuation bytes past `inAvailable`, or past
// a NUL, count as 0. The lead byte of a four-byte sequence adds nothing: its character is the low 16 bits.
inline uint16 UTF8CharToUnicode(const uint8* inBytes, NqSize inAvailable)
{
    if (inAvailable == 0)
        return 0;
    const uint8 lead = inBytes[0];
    const uint8 total = UTF8NumBytes(lead);
    if (total < 2)
        return total == 1 ? lead : 0;
    uint32 code = total == 2 ? lead & 0x1Fu : total == 3 ? lead & 0x0Fu : 0;
    bool ended = false;
    for (uint8 i = 1; i < total; ++i)
    {
        ended = ended || i >= inAvailable || inBytes[i] == 0;
        code = (code << 6) | (ended ? 0u : inBytes[i] & 0x3Fu);
    }
    return static_cast<uint16>(code);
}

// The same for a NUL-terminated text.
inline uint16 UTF8CharToUnicode(const uint8* inBytes)
{
    return UTF8CharToUnicode(inBytes, 4);
}

// Bytes of a character in UTF-8: 1 to 3.
inline uint8 UnicodeNumBytes(uint16 ch)
{
    return ch < 0x80 ? 1 : ch < 0x800 ? 2 : 3;
}

// Writes the UTF-8 form of a character, at most 3 bytes, and returns their number. Surrogates are characters like any
// other.
inline uint8 UnicodeToUTF8Char(uint16 ch, uint8* outBytes)
{
    const uint8 count = UnicodeNumBytes(ch);
    if (count == 1)
    {
        outBytes[0] = static_cast<uint8>(ch);
    }
    else if (count == 2)
    {
        outBytes[0] = static_cast<uint8>(0xC0 | (ch >> 6));
        outBytes[1] = static_cast<uint8>(0x80 | (ch & 0x3F));
    }
    else
    {
        outBytes[0] = static_cast<uint8>(0xE0 | (ch >> 12));
        outBytes[1] = static_cast<uint8>(0x80 | ((ch >> 6) & 0x3F));
        outBytes[2] = static_cast<uint8>(0x80 | (ch & 0x3F));
    }
    return count;
}

// Takes in the next byte of a text. Returns the character that it completes, kNqNoCharacter when it completes none or
// was dropped: a lead byte in the middle of a sequence abandons it, stray bytes are none. The others keep the sequence
// from one call to the next: the index of its last byte, its length (both 0 at first), and its bytes.
uint16 UTF8TakeByte(uint8 inByte, uint8& ioIndex, uint8& ioTotal, uint8 (&ioBytes)[4]);

// Assembles characters byte by byte, as UTF8TakeByte.
class TUTF8Transcoder : public TNqSMPCountedObject, public ITranscoder
{
public:
    TUTF8Transcoder();

    // A new transcoder in *outTranscoder, which holds its one reference. Throws kNqErrOutOfMemory; a null
    // `outTranscoder` is reported.
    static void Create(ITranscoder** outTranscoder);

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return TNqSMPCountedObject::AddRef(); }
    uint32 Release() override { return TNqSMPCountedObject::Release(); }

    uint16 Encode(uint8 inByte) override;
    const TNqArray<uint8>& Decode(uint16 ch) override;
    TranscoderType GetType() override { return kUTF8Transcoder; }
    const uint8* GetIdentifier() override { return fBOM; }

private:
    friend struct TNqTranscoderLayout;

    static const uint8 fBOM[4];

    uint8 fCharIndex; // of the last byte stored
    uint8 fCharTotal; // bytes of the sequence being assembled
    uint8 fCharBuffer[4];
    TNqArray<uint8> fDecodedChar;
};
