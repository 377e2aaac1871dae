// Walking the characters of bytes that may be malformed: never past their number, never past a NUL.

#pragma once

#include "NqCore/Include/UTF8Transcoder.h"

// Bytes of the character that starts at `inAt`: what its lead byte asks for, as far as it is there. 0 where none
// starts, as at a NUL.
inline uint32 NqCharWidth(const uint8* inBytes, uint32 inByteLength, uint32 inAt)
{
    const uint32 wanted = inBytes[inAt] != 0 ? UTF8NumBytes(inBytes[inAt]) : 0;
    uint32 width = wanted != 0;
    while (width < wanted && inAt + width < inByteLength && inBytes[inAt + width] != 0)
        ++width;
    return width;
}

// The characters of a string one after the other, by their lead bytes; stray bytes between them are passed over. It is
// what GetCharAt gives for the indices 0, 1, 2 and so on, in one walk.
class TNqCharWalk
{
public:
    TNqCharWalk(const int8* inBytes, uint32 inByteLength)
        : fBytes(reinterpret_cast<const uint8*>(inBytes)),
          fByteLength(inByteLength),
          fNext(0)
    {
    }

    // The next character, false at the end.
    bool Next(uint16& outChar)
    {
        while (fNext < fByteLength && !UTF8IsCharStart(fBytes[fNext]))
            ++fNext;
        if (fNext >= fByteLength || fBytes[fNext] == 0)
            return false;
        outChar = UTF8CharToUnicode(fBytes + fNext, fByteLength - fNext);
        ++fNext;
        return true;
    }

private:
    const uint8* fBytes;
    uint32 fByteLength;
    uint32 fNext; // byte index
};
