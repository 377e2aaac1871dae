// What the writers of the token format share: functions over a sink of bytes (NqStreamAccess.h).
//
// On a stream that somebody derived they make one call of its operations for each number and each single byte.

#pragma once

#include "NqCore/Include/NqStreamText.h"
#include "NqCore/PublicAPI/NqToken.h"

namespace NqTokenWrite
{

template <class Sink>
void PutIndent(Sink& sink, const NqTokenData& data)
{
    if (data.fTokenIndent)
        for (int32 i = 0; i < data.fTokenIndentLevel; ++i)
            sink.Put(' ');
}

// A name; with `compact` up to its first blank.
template <class Sink>
void PutName(Sink& sink, uint32 token, bool compact = true)
{
    constexpr int8 tCOMMA = ',';
    int8 name[4];
    int32 count = 0;
    for (int32 shift = 24; shift >= 0; shift -= 8)
    {
        const int8 c = static_cast<int8>(token >> shift & 0xFF);
        if (!NqCheck(c != tCOMMA)) // what stands before it is written by then
        {
            sink.PutEach(name, count);
            count = 0;
        }
        if (compact && c == ' ')
            break;
        name[count++] = c == 0 ? '\'' : c;
    }
    sink.PutEach(name, count);
}

// The name at the start of a line.
template <class Sink>
void PutLineName(Sink& sink, const NqTokenData& data, int32 token)
{
    PutIndent(sink, data);
    PutName(sink, static_cast<uint32>(token));
}

template <class Sink>
void PutLineEnd(Sink& sink)
{
    if constexpr (Sink::kIsDirect)
        sink.Put('\r'); // what endl writes
    else
        sink.Run([&] { sink.Stream() << endl; });
}

// A byte as two digits.
template <class Sink>
void PutHexByte(Sink& sink, uint8 value)
{
    constexpr int8 kDigits[] = "0123456789ABCDEF";
    sink.Put(kDigits[value >> 4]);
    sink.Put(kDigits[value & 15]);
}

} // namespace NqTokenWrite
