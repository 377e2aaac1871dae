// What the writers of the token format share: functions over a sink of bytes (NqStreamAccess.h).
//
// On a stream that somebody derived they make one call of its operations for each number and each single byte.

#pragma once

#include "NqCore/Include/NqStreamText.h"
#include "NqCore/PublicAPI/NqToken.h"

namespace NqTokenWrite
{

template <class Sink>
void PutIndent(Sink& ioSink, const NqTokenData& inData)
{
    if (inData.fTokenIndent)
        for (int32 i = 0; i < inData.fTokenIndentLevel; ++i)
            ioSink.Put(' ');
}

// A name; with `inCompact` up to its first blank.
template <class Sink>
void PutName(Sink& ioSink, uint32 inToken, bool inCompact = true)
{
    constexpr int8 tCOMMA = ',';
    int8 name[4];
    int32 count = 0;
    for (int32 shift = 24; shift >= 0; shift -= 8)
    {
        const int8 c = static_cast<int8>(inToken >> shift & 0xFF);
        if (!NqCheck(c != tCOMMA)) // what stands before it is written by then
        {
            ioSink.PutEach(name, count);
            count = 0;
        }
        if (inCompact && c == ' ')
            break;
        name[count++] = c == 0 ? '\'' : c;
    }
    ioSink.PutEach(name, count);
}

// The name at the start of a line.
template <class Sink>
void PutLineName(Sink& ioSink, const NqTokenData& inData, int32 inToken)
{
    PutIndent(ioSink, inData);
    PutName(ioSink, static_cast<uint32>(inToken));
}

// A short line that is made beside the buffer and stored at once: in small attributes the steps from piece to piece
// take longer than the pieces. inFill(at) writes what stands between the indentation and the end of the line, at most
// kShortLine bytes, and returns what is behind it, or null for what is not plain. False, and nothing written, then and
// where the buffer has no room for the line.
constexpr int32 kShortLine = 300;

template <class Sink, class Fill>
bool PutLineAtHand(Sink& ioSink, const NqTokenData& inData, Fill&& inFill)
{
    if constexpr (Sink::kIsDirect)
    {
        constexpr int32 kDeepest = 32;
        int8 line[kDeepest + kShortLine + 1];
        int8* at = line;
        if (inData.fTokenIndent && inData.fTokenIndentLevel > kDeepest)
            return false;
        for (int32 i = 0; inData.fTokenIndent && i < inData.fTokenIndentLevel; ++i)
            *at++ = ' ';
        at = inFill(at);
        if (at == nullptr || at + 1 - line > ioSink.RoomAtHand())
            return false;
        *at++ = '\r';
        ioSink.Write(line, static_cast<int32>(at - line));
        return true;
    }
    return false;
}

// A name up to its first blank, and with inWithBlank one behind it; null for one with bytes that are reported or
// replaced.
inline int8* StoreName(int8* inAt, int32 inToken, bool inWithBlank)
{
    for (int32 shift = 24; shift >= 0; shift -= 8)
    {
        const int8 c = static_cast<int8>(static_cast<uint32>(inToken) >> shift & 0xFF);
        if (c == ' ')
            break;
        if (c == 0 || c == ',')
            return nullptr;
        *inAt++ = c;
    }
    *inAt = ' ';
    return inAt + inWithBlank;
}

template <class Sink>
void PutLineEnd(Sink& ioSink)
{
    if constexpr (Sink::kIsDirect)
        ioSink.Put('\r'); // what endl writes
    else
        ioSink.Run([&] { ioSink.Stream() << endl; });
}

// A byte as two digits.
template <class Sink>
void PutHexByte(Sink& ioSink, uint8 inValue)
{
    constexpr int8 kDigits[] = "0123456789ABCDEF";
    ioSink.Put(kDigits[inValue >> 4]);
    ioSink.Put(kDigits[inValue & 15]);
}

} // namespace NqTokenWrite
