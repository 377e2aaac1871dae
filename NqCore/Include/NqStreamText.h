// The text of streams, in and out: one function template for each kind of value, over the sources and sinks of
// NqStreamAccess.h. The operators of TNqiostream are these; a reader of many values calls them on one source and saves
// finding out, value by value, what kind of stream it has.
//
//     NqWithSource(stream, [&](auto& source) {
//         for (int32 i = 0; i < count; ++i)
//             NqExtract(source, out[i]);      // stream >> out[i], by the shortest way
//     });

#pragma once

#include "NqCore/Include/NqByteBuffer.h"
#include "NqCore/Include/NqDecimalWeights.h"
#include "NqCore/Include/NqDigits.h"
#include "NqCore/Include/NqStreamAccess.h"
#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/UTF8Transcoder.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqMath.h"
#include "NqCore/PublicAPI/NqString.h"

#include <cmath>

// ---- Words and separators ------------------------------------------------------------------------------------------

inline bool NqIsDigit(int8 c)
{
    return c >= '0' && c <= '9';
}

// The next character that is no separator, consumed. At the end of the stream the last one passed over, 0 without any.
template <class Source>
int8 NqSkipSeparators(Source& source)
{
    int8 c = 0;
    source.GetWhile(c, [&](int8 byte) { return source.IsWhite(byte); });
    return c;
}

// Collects a word: first `c`, then what follows up to a separator, a NUL or the end of the stream, as long as
// inStore(byte) takes it. True when it ended; false when inStore refused a byte, which is then in `c`, as is whatever
// ended the word.
template <class Source, class Store>
bool NqScanWord(Source& source, int8& c, Store&& inStore)
{
    bool refused = false;
    const auto take = [&](int8 byte)
    {
        if (source.IsWhite(byte) || byte == 0)
            return false;
        refused = !inStore(byte);
        return !refused;
    };
    if (source.Good() && take(c))
        source.GetWhile(c, take);
    return !refused;
}

template <class Source>
void NqScanUnboundedWord(Source& source, int8* word)
{
    int8 c = NqSkipSeparators(source);
    NqScanWord(source, c,
               [&](int8 byte)
               {
                   *word++ = byte;
                   return true;
               });
    *word = 0;
    if (source.Good() && source.IsWhite(c))
        source.Putback(c);
}

template <class Source>
bool NqScanBoundedWord(Source& source, int8* buffer, int32 bufferSize)
{
    int32 count = 1; // the NUL
    int8 c = NqSkipSeparators(source);
    const bool ended = NqScanWord(source, c,
                                  [&](int8 byte)
                                  {
                                      if (count >= bufferSize)
                                          return false;
                                      buffer[count++ - 1] = byte;
                                      return true;
                                  });
    buffer[count - 1] = 0;
    if (!ended || (source.Good() && source.IsWhite(c)))
        source.Putback(c);
    return ended;
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

// The next character that is no separator, as NqSkipSeparators. False when the stream is not good any more.
template <class Cursor>
[[gnu::always_inline]] inline bool NqSkipSeparatorsAt(Cursor& cursor, int8& c)
{
    c = 0;
    return cursor.NextWhile(c, [&](int8 byte) { return cursor.IsWhite(byte); });
}

// Digits, entered with the first one in `c`; left with what follows them. False when the stream ended instead. Wraps.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanDigits(Cursor& cursor, int8& c, uint32& outValue)
{
    uint32 value = static_cast<uint32>(c - '0');
    const bool more = cursor.NextWhile(c,
                                       [&](int8 byte)
                                       {
                                           if (!NqIsDigit(byte))
                                               return false;
                                           value = value * 10 + static_cast<uint32>(byte - '0');
                                           return true;
                                       });
    outValue = value;
    return more;
}

// What ended a number goes back into the stream, except a separator.
template <class Cursor>
[[gnu::always_inline]] inline ENqNumberEnd NqEndNumber(Cursor& cursor, int8 c)
{
    if (cursor.IsWhite(c))
        return kNqNumberAndBlank;
    cursor.Back(c);
    return kNqNumberClosed;
}

// Integers, signed or not, modulo 2^32.
template <class Cursor>
[[gnu::always_inline]] inline ENqNumberEnd NqScanIntegerAt(Cursor& cursor, bool inPlusAllowed, uint32& outValue)
{
    int8 c;
    if (!NqSkipSeparatorsAt(cursor, c))
        return kNqNumberMissing;
    const bool negative = c == '-';
    if ((negative || (c == '+' && inPlusAllowed)) && !cursor.Next(c))
        return kNqNumberBad;
    if (!NqIsDigit(c))
        return kNqNumberBad;
    const bool more = NqScanDigits(cursor, c, outValue);
    if (negative)
        outValue = 0 - outValue;
    return more ? NqEndNumber(cursor, c) : kNqNumberClosed;
}

// The places behind the point, which is in `c`.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanFraction(Cursor& cursor, int8& c, real64& outFraction)
{
    real64 fraction = 0;
    int32 place = 0;
    const bool more = cursor.NextWhile(c,
                                       [&](int8 byte)
                                       {
                                           if (!NqIsDigit(byte))
                                               return false;
                                           fraction += (byte - '0') * kNqDecimalWeights[place];
                                           place = Nq_Min(place + 1, NqDecimalWeights::kCount - 1);
                                           return true;
                                       });
    outFraction = fraction;
    return more;
}

// value * 10^exponent, the small powers as literal constants.
inline real64 NqScaleByTen(real64 value, int32 exponent)
{
    static constexpr real64 kSmallPowers[10] = {1e-5, 1e-4, 1e-3, 0.01, 0.1, 1, 10, 100, 1000, 10000};
    if (exponent == 0)
        return value;
    if (exponent >= -5 && exponent <= 4)
        return value * kSmallPowers[exponent + 5];
    return value * std::pow(10.0, static_cast<real64>(exponent));
}

// The exponent behind the 'e' in `c`. False, and `more` untouched, when there is none.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanExponent(Cursor& cursor, int8& c, int32& outExponent, bool& more)
{
    bool isThere = cursor.Next(c);
    const bool negative = isThere && c == '-';
    if (isThere && (c == '+' || c == '-'))
        isThere = cursor.Next(c);
    if (!isThere || !NqIsDigit(c))
        return false;
    uint32 digits;
    more = NqScanDigits(cursor, c, digits);
    outExponent = static_cast<int32>(negative ? 0 - digits : digits);
    return true;
}

template <class Cursor>
[[gnu::always_inline]] inline ENqNumberEnd NqScanDoubleAt(Cursor& cursor, real64& outValue)
{
    int8 c;
    if (!NqSkipSeparatorsAt(cursor, c))
        return kNqNumberMissing;
    const real64 sign = c == '-' ? -1 : 1;
    if ((c == '+' || c == '-') && !cursor.Next(c))
        return kNqNumberBad;
    if (c != '.' && !NqIsDigit(c))
        return kNqNumberBad;
    uint32 whole = 0;
    real64 fraction = 0;
    int32 exponent = 0;
    bool more = true;
    if (c != '.')
        more = NqScanDigits(cursor, c, whole);
    if (more && c == '.')
        more = NqScanFraction(cursor, c, fraction);
    if (more && (c == 'e' || c == 'E') && !NqScanExponent(cursor, c, exponent, more))
        return kNqNumberBad;
    // Units such as "12:" and "3/" once followed numbers: these characters still belong to the number.
    while (more && (c == ':' || c == '/'))
        more = cursor.Next(c);
    outValue = NqScaleByTen((whole + fraction) * sign, exponent);
    return more ? NqEndNumber(cursor, c) : kNqNumberClosed;
}

// Runs inScan(cursor) and notes how the number ended. False, reported, when there was none.
template <class Source, class Scan>
bool NqScanNumber(Source& source, Scan&& inScan)
{
    ENqNumberEnd ending;
    {
        typename Source::Cursor cursor(source);
        ending = inScan(cursor);
    }
    NqStreamAccess::NumberEnd(source.Stream()) = source.Stream().fail() ? kNqNumberCut : ending;
    if (ending != kNqNumberMissing && ending != kNqNumberBad)
        return true;
    source.Stream().streamfail(kNqStreamBadNumber);
    return false;
}

// The short way for a plain number that is at hand whole, by a step of NqDigits.h. False, and nothing taken, otherwise.
template <class Source, class Number, class Take>
bool NqScanAtHand(Source& source, Number& outValue, Take&& inTake)
{
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = source.NumbersAtHand();
        const int8* at = first;
        while (at != last && NqStreamAccess::IsStandardSeparator(*at))
            ++at;
        if (last - at < kNqNumberWindow || !inTake(at, outValue))
            return false;
        const bool blank = NqStreamAccess::IsStandardSeparator(*at);
        source.Pass(at - first + blank);
        NqStreamAccess::NumberEnd(source.Stream()) = blank ? kNqNumberAndBlank : kNqNumberClosed;
        return true;
    }
    return false;
}

// 0 when there is no number.
template <class Source>
bool NqScanLong(Source& source, int32& value)
{
    uint32 number = 0;
    if (NqScanAtHand(source, number, NqTakeInteger))
    {
        value = static_cast<int32>(number);
        return true;
    }
    const bool found = NqScanNumber(source, [&](auto& cursor) { return NqScanIntegerAt(cursor, true, number); });
    value = found ? static_cast<int32>(number) : 0;
    return found;
}

// A "+" is not accepted before an unsigned number; a "-" is, and wraps. As it was when there is no number.
template <class Source>
bool NqScanUnsignedLong(Source& source, uint32& value)
{
    uint32 number = 0;
    if (NqScanAtHand(source, number, NqTakeInteger))
    {
        value = number;
        return true;
    }
    const bool found = NqScanNumber(source, [&](auto& cursor) { return NqScanIntegerAt(cursor, false, number); });
    value = found ? number : value;
    return found;
}

// As it was when there is no number.
template <class Source>
bool NqScanDouble(Source& source, real64& value)
{
    real64 number = 0;
    if (NqScanAtHand(source, number, NqTakeReal))
    {
        value = number;
        return true;
    }
    const bool found = NqScanNumber(source, [&](auto& cursor) { return NqScanDoubleAt(cursor, number); });
    value = found ? number : value;
    return found;
}

// The digits of `value` up to `end`, at least `count` of them; returns the first.
inline int8* NqPutDigits(int8* end, uint64 value, int32 count)
{
    for (; value >= 100; count -= 2)
    {
        end -= 2;
        std::memcpy(end, &kNqDigitPairs[value % 100 * 2], 2);
        value /= 100;
    }
    for (; value != 0 || count > 0; --count)
    {
        *--end = static_cast<int8>('0' + value % 10);
        value /= 10;
    }
    return end;
}

// The short way for a number that fits the buffer whole: inStore(text) writes at most kNqNumberRoom bytes and returns
// what is behind them, or null for a number that is not plain.
template <class Sink, class Store>
bool NqPutAtHand(Sink& sink, Store&& inStore)
{
    if constexpr (Sink::kIsDirect)
    {
        int8 text[kNqNumberRoom];
        const int8* const end = inStore(text);
        if (end == nullptr || end - text > sink.RoomAtHand())
            return false;
        sink.Write(text, static_cast<int32>(end - text));
        return true;
    }
    return false;
}

template <class Sink>
void NqPutUnsignedLong(Sink& sink, uint32 value)
{
    int8 digits[kNqNumberRoom];
    sink.Write(digits, static_cast<int32>(NqStoreUnsigned(digits, value) - digits));
}

template <class Sink>
void NqPutLong(Sink& sink, int32 value)
{
    if (NqPutAtHand(sink, [value](int8* text) { return NqStoreInteger(text, value); }))
        return;
    uint32 magnitude = static_cast<uint32>(value);
    if (value < 0)
    {
        sink.Put('-');
        magnitude = 0 - magnitude;
    }
    NqPutUnsignedLong(sink, magnitude);
}

// floor(0.5 + value), without a call for the values that occur.
inline real64 NqRoundHalfUp(real64 value)
{
    value += 0.5;
    if (!(value >= 0 && value < 9e15))
        return std::floor(value);
    return static_cast<real64>(static_cast<int64>(value));
}

// Decimals behind the whole part: trailing zeros are dropped. A fraction that rounds up to 1 leaves the point alone:
// the whole part stands already, and existing files depend on it.
template <class Sink>
void NqPutFraction(Sink& sink, uint64 decimals, int precision)
{
    const uint64 one = static_cast<uint64>(gPowersTen[precision]);
    if (decimals <= one)
        return;
    int8 digits[16];
    const int8* last = digits + 1 + precision;
    NqPutDigits(digits + 1 + precision, decimals >= 2 * one ? 0 : decimals - one, precision);
    digits[0] = '.';
    while (last[-1] == '0')
        --last;
    sink.Write(digits, static_cast<int32>(last - digits));
}

template <class Sink>
void NqPutDouble(Sink& sink, real64 value)
{
    if (!NqCheckText(value == value, "decimals >= 0"))
        value = 0; // not a number
    if (value < 0)
    {
        sink.Put('-');
        value = -value;
    }
    if (value >= 2147483647.0)
        return NqPutLong(sink, 2147483647);
    const int32 whole = static_cast<int32>(value);
    NqPutLong(sink, whole);
    // The 1 in front keeps the zeros that a fraction begins with.
    const int precision = sink.Precision();
    const real64 decimals = NqRoundHalfUp((value + 1.0 - whole) * gPowersTen[precision]);
    NqPutFraction(sink, static_cast<uint64>(decimals), precision);
}

// With these precisions the writer makes six decimals of a real32, as NqStoreReal does.
inline bool NqHasSixDecimals(int precision)
{
    return precision >= 6 && precision <= 8;
}

template <class Sink>
void NqPutFloat(Sink& sink, real32 value)
{
    if (NqHasSixDecimals(sink.Precision()) &&
        NqPutAtHand(sink, [value](int8* text) { return NqStoreReal(text, value); }))
        return;
    NqPutDouble(sink, 1e-6 * NqRoundHalfUp(static_cast<real64>(value) * 1e6));
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

struct NqLineEnd
{
    int8 fByte;  // the delimiter, the byte that inStore refused (consumed), or 0 at the end of the stream
    bool fFound; // the delimiter was there
    int8 fLast;  // ... and this is the byte of it that was consumed last
};

// A line, byte for byte to inStore(byte). Its end is consumed and not stored; with '\n', CR, LF, CR LF and LF CR end a
// line and count as '\n'. ioCount is raised by the bytes stored, and by the second half of a pair.
template <class Source, class Store>
NqLineEnd NqScanLine(Source& source, int8 delim, int32& ioCount, Store&& inStore)
{
    const auto isEnd = [&](int8 c) { return c == delim || (delim == '\n' && c == '\r'); };
    int8 c = 0;
    const bool stopped = source.GetWhile(c,
                                         [&](int8 byte)
                                         {
                                             if (isEnd(byte) || !inStore(byte))
                                                 return false;
                                             ++ioCount;
                                             return true;
                                         });
    if (!stopped)
        return {0, false, 0};
    if (!isEnd(c))
        return {c, false, 0};
    if (delim == '\n')
    {
        int8 other = 0;
        source.Get(other);
        const bool isPair = source.Good() && other != c && isEnd(other);
        if (isPair)
            c = other;
        else if (source.Good())
            source.Putback(other);
        ioCount += isPair;
    }
    return {delim, true, c};
}

// ---- Strings -------------------------------------------------------------------------------------------------------

// Text from the bytes of UTF-8, as its transcoder takes them in.
void NqTextFromUTF8(TNqString& text, const int8* bytes);

// Text from encoded bytes, up to the first NUL. Without a transcoder they are UTF-8.
inline void NqTextFromEncoded(TNqString& text, const int8* bytes, ITranscoder* encoding)
{
    if (encoding != nullptr)
        text.FromEncodedPtr(reinterpret_cast<const uint8*>(bytes), encoding);
    else
        NqTextFromUTF8(text, bytes);
}

constexpr int32 kNqQuotedStringLimit = 256;

// The bytes of a string in quotes, or of a bare word, into inLimit + 1 bytes. False when it is longer: the surplus then
// stays in the stream, or is passed over.
template <class Source>
bool NqScanQuoted(Source& source, int8* out, int32 inLimit, bool inPassOver)
{
    int32 count = 0;
    int8 c = NqSkipSeparators(source);
    const bool quoted = c == '"';
    if (!quoted && source.Good())
        out[count++] = c;
    bool escaped = false;
    bool full = false;
    if (source.Good())
        source.GetWhile(c,
                        [&](int8 byte)
                        {
                            if (!escaped)
                            {
                                if (quoted ? byte == '"'
                                           : (byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r'))
                                    return false;
                                full = count == inLimit;
                                if (full && !inPassOver)
                                    return false;
                                escaped = byte == '\\';
                                if (escaped)
                                    return true;
                            }
                            escaped = false;
                            if (count < inLimit)
                                out[count++] = byte;
                            return true;
                        });
    if (full && !inPassOver)
        source.Putback(c);
    out[count] = 0;
    return !full;
}

// What readFileRef may fill, without the NUL.
constexpr int32 kNqLongestPath = 1023;

// The text of a path, or of a reference to one, in quotes. One that is too long is passed over whole and reported, and
// the text is empty.
void NqReadPathText(TNqiostream& stream, TNqString& text);

enum class NqLineString
{
    kRead,
    kNone, // no quote, no closing quote on the line, too long
    kNoMemory
};

// The bytes of a string in quotes on one line, more than inMaxLength of them only by the last one.
template <class Source>
NqLineString NqScanLineQuoted(Source& source, uint32 inMaxLength, NqByteBuffer& out)
{
    int8 c = NqSkipSeparators(source);
    if (c != '"')
        return NqLineString::kNone;
    bool escaped = false;
    bool memory = true;
    const bool stopped =
        source.GetWhile(c,
                        [&](int8 byte)
                        {
                            if (!escaped)
                            {
                                if (byte == '"' || byte == '\n' || byte == '\r' || out.Count() > inMaxLength)
                                    return false;
                                escaped = byte == '\\';
                                if (escaped)
                                    return true;
                            }
                            else
                            {
                                escaped = false;
                                byte = byte == 'n' ? '\n' : byte == 'r' ? '\r' : byte;
                            }
                            memory = out.Append(byte);
                            return memory;
                        });
    if (!memory)
        return NqLineString::kNoMemory;
    return stopped && c == '"' ? NqLineString::kRead : NqLineString::kNone;
}

// Whether a byte inside a string stands for something else to a reader: the quote, the escape, and the old escape 0x01.
inline bool NqNeedsEscape(uint32 c)
{
    return c == '"' || c == '\\' || c == 1;
}

// The bytes that stand for themselves in every encoding: ASCII, without the NUL and what is escaped.
class NqPlainBytes
{
public:
    constexpr NqPlainBytes() : fPlain()
    {
        for (int c = 2; c < 0x80; ++c)
            fPlain[c] = c != '"' && c != '\\';
    }
    constexpr bool operator[](int8 c) const { return fPlain[static_cast<uint8>(c)]; }

private:
    bool fPlain[256];
};
inline constexpr NqPlainBytes kNqPlainBytes;

// Characters on their way out: what the transcoder makes of them, with a short cut for those of this library; without
// one, UTF-8.
class NqTextEncoder
{
public:
    explicit NqTextEncoder(ITranscoder* encoding)
        : fEncoding(encoding),
          fUTF8(encoding == nullptr || typeid(*encoding) == typeid(TUTF8Transcoder)),
          fAsciiAsIs(encoding == nullptr || NqHasAsciiAsItIs(*encoding))
    {
    }

    bool AsciiAsIs() const { return fAsciiAsIs; }

    template <class Sink>
    void Put(Sink& sink, uint16 character) const
    {
        if (fUTF8)
        {
            uint8 bytes[4];
            const uint8 count = UnicodeToUTF8Char(character, bytes);
            sink.PutEach(reinterpret_cast<const int8*>(bytes), count);
            return;
        }
        const TNqArray<uint8>& bytes = fEncoding->Decode(character);
        for (uint32 i = 0; i < bytes.GetElemCount(); ++i)
            sink.Put(static_cast<int8>(bytes[i]));
    }

private:
    ITranscoder* fEncoding;
    bool fUTF8;
    bool fAsciiAsIs;
};

// The characters of a string, encoded and escaped.
template <class Sink>
void NqPutCharacters(Sink& sink, const int8* text, uint32 byteLength, const NqTextEncoder& encoder)
{
    uint32 i = 0;
    while (i < byteLength && text[i] != 0)
    {
        const uint32 first = i;
        while (encoder.AsciiAsIs() && i < byteLength && kNqPlainBytes[text[i]])
            ++i;
        if (i != first)
        {
            sink.PutEach(text + first, i - first);
            continue;
        }
        if (UTF8NumBytes(static_cast<uint8>(text[i])) != 0) // other bytes are no characters
        {
            const uint16 character = UTF8CharToUnicode(reinterpret_cast<const uint8*>(text + i), byteLength - i);
            if (NqNeedsEscape(character))
            {
                sink.Put(kStringEscape);
                sink.Put(static_cast<int8>(character));
            }
            else
                encoder.Put(sink, character);
        }
        ++i;
    }
}

// The bytes of a text, and a NUL. A string that had no memory for them is reported and has none.
inline const int8* NqBytesOf(const TNqString& text)
{
    const int8* const bytes = text.StrGet();
    return bytes != nullptr ? bytes : "";
}

template <class Sink>
void NqPutQuoted(Sink& sink, const TNqString& text)
{
    const int8* const bytes = NqBytesOf(text);
    sink.Write(kStringQuote, 1);
    NqPutCharacters(sink, bytes, text.ByteLength(), NqTextEncoder(sink.Stream().GetTranscoder()));
    sink.Write(kStringQuote, 1);
}

// ---- Values as the operators have them -----------------------------------------------------------------------------

template <class Source>
void NqScanValue(Source& source, int8& value)
{
    value = NqSkipSeparators(source);
}
template <class Source>
void NqScanValue(Source& source, uint8& value)
{
    value = static_cast<uint8>(NqSkipSeparators(source));
}
template <class Source>
void NqScanValue(Source& source, int32& value)
{
    NqScanLong(source, value);
}
template <class Source>
void NqScanValue(Source& source, uint32& value)
{
    NqScanUnsignedLong(source, value);
}
template <class Source>
void NqScanValue(Source& source, int16& value)
{
    int32 number = 0;
    if (NqScanLong(source, number))
        value = static_cast<int16>(number);
}
template <class Source>
void NqScanValue(Source& source, uint16& value)
{
    uint32 number = 0;
    if (NqScanUnsignedLong(source, number))
        value = static_cast<uint16>(number);
}
template <class Source>
void NqScanValue(Source& source, real32& value)
{
    real64 number = 0;
    if (NqScanDouble(source, number))
        value = static_cast<real32>(number);
}
template <class Source>
void NqScanValue(Source& source, real64& value)
{
    NqScanDouble(source, value);
}

template <class Sink>
void NqPutValue(Sink& sink, int8 value)
{
    sink.Put(value);
}
template <class Sink>
void NqPutValue(Sink& sink, uint8 value)
{
    sink.Put(static_cast<int8>(value));
}
template <class Sink>
void NqPutValue(Sink& sink, int16 value)
{
    NqPutLong(sink, value);
}
template <class Sink>
void NqPutValue(Sink& sink, uint16 value)
{
    NqPutUnsignedLong(sink, value);
}
template <class Sink>
void NqPutValue(Sink& sink, int32 value)
{
    NqPutLong(sink, value);
}
template <class Sink>
void NqPutValue(Sink& sink, uint32 value)
{
    NqPutUnsignedLong(sink, value);
}
template <class Sink>
void NqPutValue(Sink& sink, real32 value)
{
    NqPutFloat(sink, value);
}
template <class Sink>
void NqPutValue(Sink& sink, real64 value)
{
    NqPutDouble(sink, value);
}

// stream >> value and stream << value by the shortest way. Over a plain source or sink these are the operators
// themselves, which a derived stream may have overridden.
template <class Source, class T>
void NqExtract(Source& source, T& value)
{
    if constexpr (Source::kIsDirect)
        NqScanValue(source, value);
    else
        source.Stream() >> value;
}

template <class Sink, class T>
void NqInsert(Sink& sink, T value)
{
    if constexpr (Sink::kIsDirect)
        NqPutValue(sink, value);
    else
        sink.Run([&] { sink.Stream() << value; });
}
