// Whole texts between bytes and 16-bit characters.
//
//     uint16* const end = NqDecodeUTF8(bytes, bytes + byteLength, out, out + space).fOut;
//     uint8* const end = NqEncodeUTF8(characters, characters + count, out);
//
// Most bytes of most texts are ASCII, where a byte and a character are one number: eight of them go at a time, up to
// the first that is none. The forms with Plain in their names go character by character, with the same results to the
// last byte of the output; the others end with them.
// Threads: safe from any.

#pragma once

#include "NqCore/Include/NqStringWalk.h"
#include "NqCore/PublicAPI/ITranscoder.h"

#if defined(__GNUC__) && defined(__has_builtin) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define NQ_CHARACTER_VECTORS __has_builtin(__builtin_shufflevector)
#else
#define NQ_CHARACTER_VECTORS 0
#endif

// Bytes on their way to characters. Decoding moves fNext and fOut.
struct TNqUTF8Decoding
{
    const uint8* fNext;
    const uint8* fEnd; // the bytes end here, or at a NUL
    uint16* fOut;
    uint16* fOutEnd; // no character is written here or beyond

    bool IsAtEnd() const { return fNext == fEnd || *fNext == 0; }
};

// Decodes until the bytes end or the room for characters does. A byte that starts no character gives 0 and stays where
// it is, so that the rest of the room fills with zeros. Nothing is written behind the last character.
TNqUTF8Decoding NqDecodeUTF8(const uint8* inFirst, const uint8* inLast, uint16* outText, uint16* outEnd);
void NqDecodeUTF8Plain(TNqUTF8Decoding& ioIo);

// Bytes of the characters in UTF-8.
uint64 NqCountUTF8(const uint16* inFirst, const uint16* inLast);
uint64 NqCountUTF8Plain(const uint16* inFirst, const uint16* inLast);

// Writes them and returns their end. Surrogates are characters like any other.
uint8* NqEncodeUTF8(const uint16* inFirst, const uint16* inLast, uint8* outBytes);
uint8* NqEncodeUTF8Plain(const uint16* inFirst, const uint16* inLast, uint8* outBytes);

// The bytes of an encoding whose bytes below 0x80, and from inSameFrom on, are their own characters, and which has a
// table of those from 0x80 to there. Made when the library is compiled, so that no character waits for another.
class TNqByteTable
{
public:
    template <uint32 kCount>
    constexpr TNqByteTable(const uint16 (&inCharacters)[kCount], uint16 inSameFrom)
        : fSameFrom(inSameFrom),
          fPageOf(),
          fBytes()
    {
        uint8 pages = 1; // the first one is that of all characters without a byte
        for (uint32 i = 0; i < kCount; ++i)
        {
            uint8& page = fPageOf[inCharacters[i] >> 8];
            if (page == 0)
                page = pages++;
            fBytes[page][inCharacters[i] & 0xFF] = static_cast<uint8>(0x80 + i);
        }
    }

    // Whether the character is its own byte.
    bool IsSame(uint16 ch) const { return ch < 0x80 || (ch >= fSameFrom && ch <= 0xFF); }

    // The byte of any other character, 0 when it has none.
    uint8 operator[](uint16 ch) const { return fBytes[fPageOf[ch >> 8]][ch & 0xFF]; }

    uint16 GetSameFrom() const { return fSameFrom; }

private:
    uint16 fSameFrom;
    uint8 fPageOf[256];
    uint8 fBytes[11][256];
};

// The same into such an encoding; a character that it has not is written in UTF-8.
uint8* NqEncodeWithTable(const TNqByteTable& inTable, const uint16* inFirst, const uint16* inLast, uint8* outBytes);
uint8* NqEncodeWithTablePlain(const TNqByteTable& inTable, const uint16* inFirst, const uint16* inLast,
                              uint8* outBytes);

// Whether all bytes are below 0x80.
bool NqIsAscii(const uint8* inBytes, uint64 inCount);

// Whether such bytes are their own characters to the transcoder, and it is known to do nothing else for them: one of
// exactly this library's classes. What it holds of a sequence ends with the first of them.
bool NqHasAsciiAsItIs(const ITranscoder& inTranscoder);

// The first character 0.
const uint16* NqFindEnd(const uint16* inCharacters);

// Where a pattern of at least one byte stands first, `inLast` when it does not. Linear in the bytes.
const int8* NqFindPattern(const int8* inFirst, const int8* inLast, const int8* inPattern, size_t inLength);
