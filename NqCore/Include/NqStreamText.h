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
int8 NqSkipSeparators(Source& ioSource)
{
    int8 c = 0;
    ioSource.GetWhile(c, [&](int8 byte) { return ioSource.IsWhite(byte); });
    return c;
}

// Collects a word: first `c`, then what follows up to a separator, a NUL or the end of the stream, as long as
// inStore(byte) takes it. True when it ended; false when inStore refused a byte, which is then in `c`, as is whatever
// ended the word.
template <class Source, class Store>
bool NqScanWord(Source& ioSource, int8& c, Store&& inStore)
{
    bool refused = false;
    const auto take = [&](int8 byte)
    {
        if (ioSource.IsWhite(byte) || byte == 0)
            return false;
        refused = !inStore(byte);
        return !refused;
    };
    if (ioSource.Good() && take(c))
        ioSource.GetWhile(c, take);
    return !refused;
}

template <class Source>
void NqScanUnboundedWord(Source& ioSource, int8* outWord)
{
    int8 c = NqSkipSeparators(ioSource);
    NqScanWord(ioSource, c,
               [&](int8 byte)
               {
                   *outWord++ = byte;
                   return true;
               });
    *outWord = 0;
    if (ioSource.Good() && ioSource.IsWhite(c))
        ioSource.Putback(c);
}

template <class Source>
bool NqScanBoundedWord(Source& ioSource, int8* outBuffer, int32 inBufferSize)
{
    int32 count = 1; // the NUL
    int8 c = NqSkipSeparators(ioSource);
    const bool ended = NqScanWord(ioSource, c,
                                  [&](int8 byte)
                                  {
                                      if (count >= inBufferSize)
                                          return false;
                                      outBuffer[count++ - 1] = byte;
                                      return true;
                                  });
    outBuffer[count - 1] = 0;
    if (!ended || (ioSource.Good() && ioSource.IsWhite(c)))
        ioSource.Putback(c);
    return ended;
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

// The next character that is no separator, as NqSkipSeparators. False when the stream is not good any more.
template <class Cursor>
[[gnu::always_inline]] inline bool NqSkipSeparatorsAt(Cursor& ioCursor, int8& c)
{
    c = 0;
    return ioCursor.NextWhile(c, [&](int8 byte) { return ioCursor.IsWhite(byte); });
}

// Digits, entered with the first one in `c`; left with what follows them. False when the stream ended instead. Wraps.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanDigits(Cursor& ioCursor, int8& c, uint32& outValue)
{
    uint32 value = static_cast<uint32>(c - '0');
    const bool more = ioCursor.NextWhile(c,
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
[[gnu::always_inline]] inline ENqNumberEnd NqEndNumber(Cursor& ioCursor, int8 c)
{
    if (ioCursor.IsWhite(c))
        return kNqNumberAndBlank;
    ioCursor.Back(c);
    return kNqNumberClosed;
}

// Integers, signed or not, modulo 2^32.
template <class Cursor>
[[gnu::always_inline]] inline ENqNumberEnd NqScanIntegerAt(Cursor& ioCursor, bool inPlusAllowed, uint32& outValue)
{
    int8 c;
    if (!NqSkipSeparatorsAt(ioCursor, c))
        return kNqNumberMissing;
    const bool negative = c == '-';
    if ((negative || (c == '+' && inPlusAllowed)) && !ioCursor.Next(c))
        return kNqNumberBad;
    if (!NqIsDigit(c))
        return kNqNumberBad;
    const bool more = NqScanDigits(ioCursor, c, outValue);
    if (negative)
        outValue = 0 - outValue;
    return more ? NqEndNumber(ioCursor, c) : kNqNumberClosed;
}

// The places behind the point, which is in `c`.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanFraction(Cursor& ioCursor, int8& c, real64& outFraction)
{
    real64 fraction = 0;
    int32 place = 0;
    const bool more = ioCursor.NextWhile(c,
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
inline real64 NqScaleByTen(real64 inValue, int32 inExponent)
{
    static constexpr real64 kSmallPowers[10] = {1e-5, 1e-4, 1e-3, 0.01, 0.1, 1, 10, 100, 1000, 10000};
    if (inExponent == 0)
        return inValue;
    if (inExponent >= -5 && inExponent <= 4)
        return inValue * kSmallPowers[inExponent + 5];
    return inValue * std::pow(10.0, static_cast<real64>(inExponent));
}

// The exponent behind the 'e' in `c`. False, and `outMore` untouched, when there is none.
template <class Cursor>
[[gnu::always_inline]] inline bool NqScanExponent(Cursor& ioCursor, int8& c, int32& outExponent, bool& outMore)
{
    bool isThere = ioCursor.Next(c);
    const bool negative = isThere && c == '-';
    if (isThere && (c == '+' || c == '-'))
        isThere = ioCursor.Next(c);
    if (!isThere || !NqIsDigit(c))
        return false;
    uint32 digits;
    outMore = NqScanDigits(ioCursor, c, digits);
    outExponent = static_cast<int32>(negative ? 0 - digits : digits);
    return true;
}

template <class Cursor>
[[gnu::always_inline]] inline ENqNumberEnd NqScanDoubleAt(Cursor& ioCursor, real64& outValue)
{
    int8 c;
    if (!NqSkipSeparatorsAt(ioCursor, c))
        return kNqNumberMissing;
    const real64 sign = c == '-' ? -1 : 1;
    if ((c == '+' || c == '-') && !ioCursor.Next(c))
        return kNqNumberBad;
    if (c != '.' && !NqIsDigit(c))
        return kNqNumberBad;
    uint32 whole = 0;
    real64 fraction = 0;
    int32 exponent = 0;
    bool more = true;
    if (c != '.')
        more = NqScanDigits(ioCursor, c, whole);
    if (more && c == '.')
        more = NqScanFraction(ioCursor, c, fraction);
    if (more && (c == 'e' || c == 'E') && !NqScanExponent(ioCursor, c, exponent, more))
        return kNqNumberBad;
    // Units such as "12:" and "3/" once followed numbers: these characters still belong to the number.
    while (more && (c == ':' || c == '/'))
        more = ioCursor.Next(c);
    outValue = NqScaleByTen((whole + fraction) * sign, exponent);
    return more ? NqEndNumber(ioCursor, c) : kNqNumberClosed;
}

// Runs inScan(cursor) and notes how the number ended. False, reported, when there was none.
template <class Source, class Scan>
bool NqScanNumber(Source& ioSource, Scan&& inScan)
{
    ENqNumberEnd ending;
    {
        typename Source::Cursor cursor(ioSource);
        ending = inScan(cursor);
    }
    NqStreamAccess::NumberEnd(ioSource.Stream()) = ioSource.Stream().fail() ? kNqNumberCut : ending;
    if (ending != kNqNumberMissing && ending != kNqNumberBad)
        return true;
    ioSource.Stream().streamfail(kNqStreamBadNumber);
    return false;
}

// The short way for a plain number that is at hand whole, by a step of NqDigits.h. False, and nothing taken, otherwise.
template <class Source, class Number, class Take>
bool NqScanAtHand(Source& ioSource, Number& outValue, Take&& inTake)
{
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = ioSource.NumbersAtHand();
        const int8* at = first;
        while (at != last && NqStreamAccess::IsStandardSeparator(*at))
            ++at;
        if (last - at < kNqNumberWindow || !inTake(at, outValue))
            return false;
        const bool blank = NqStreamAccess::IsStandardSeparator(*at);
        ioSource.Pass(at - first + blank);
        NqStreamAccess::NumberEnd(ioSource.Stream()) = blank ? kNqNumberAndBlank : kNqNumberClosed;
        return true;
    }
    return false;
}

// 0 when there is no number.
template <class Source>
bool NqScanLong(Source& ioSource, int32& outValue)
{
    uint32 number = 0;
    if (NqScanAtHand(ioSource, number, NqTakeInteger))
    {
        outValue = static_cast<int32>(number);
        return true;
    }
    const bool found = NqScanNumber(ioSource, [&](auto& cursor) { return NqScanIntegerAt(cursor, true, number); });
    outValue = found ? static_cast<int32>(number) : 0;
    return found;
}

// A "+" is not accepted before an unsigned number; a "-" is, and wraps. As it was when there is no number.
template <class Source>
bool NqScanUnsignedLong(Source& ioSource, uint32& outValue)
{
    uint32 number = 0;
    if (NqScanAtHand(ioSource, number, NqTakeInteger))
    {
        outValue = number;
        return true;
    }
    const bool found = NqScanNumber(ioSource, [&](auto& cursor) { return NqScanIntegerAt(cursor, false, number); });
    outValue = found ? number : outValue;
    return found;
}

// As it was when there is no number.
template <class Source>
bool NqScanDouble(Source& ioSource, real64& outValue)
{
    real64 number = 0;
    if (NqScanAtHand(ioSource, number, NqTakeReal))
    {
        outValue = number;
        return true;
    }
    const bool found = NqScanNumber(ioSource, [&](auto& cursor) { return NqScanDoubleAt(cursor, number); });
    outValue = found ? number : outValue;
    return found;
}

// The digits of `inValue` up to `inEnd`, at least `inCount` of them; returns the first.
inline int8* NqPutDigits(int8* inEnd, uint64 inValue, int32 inCount)
{
    for (; inValue >= 100; inCount -= 2)
    {
        inEnd -= 2;
        std::memcpy(inEnd, &kNqDigitPairs[inValue % 100 * 2], 2);
        inValue /= 100;
    }
    for (; inValue != 0 || inCount > 0; --inCount)
    {
        *--inEnd = static_cast<int8>('0' + inValue % 10);
        inValue /= 10;
    }
    return inEnd;
}

// The short way for a number that fits the buffer whole: inStore(text) writes at most kNqNumberRoom bytes and returns
// what is behind them, or null for a number that is not plain.
template <class Sink, class Store>
bool NqPutAtHand(Sink& ioSink, Store&& inStore)
{
    if constexpr (Sink::kIsDirect)
    {
        int8 text[kNqNumberRoom];
        const int8* const end = inStore(text);
        if (end == nullptr || end - text > ioSink.RoomAtHand())
            return false;
        ioSink.Write(text, static_cast<int32>(end - text));
        return true;
    }
    return false;
}

template <class Sink>
void NqPutUnsignedLong(Sink& ioSink, uint32 inValue)
{
    int8 digits[kNqNumberRoom];
    ioSink.Write(digits, static_cast<int32>(NqStoreUnsigned(digits, inValue) - digits));
}

template <class Sink>
void NqPutLong(Sink& ioSink, int32 inValue)
{
    if (NqPutAtHand(ioSink, [inValue](int8* text) { return NqStoreInteger(text, inValue); }))
        return;
    uint32 magnitude = static_cast<uint32>(inValue);
    if (inValue < 0)
    {
        ioSink.Put('-');
        magnitude = 0 - magnitude;
    }
    NqPutUnsignedLong(ioSink, magnitude);
}

// floor(0.5 + value), without a call for the values that occur.
inline real64 NqRoundHalfUp(real64 inValue)
{
    inValue += 0.5;
    if (!(inValue >= 0 && inValue < 9e15))
        return std::floor(inValue);
    return static_cast<real64>(static_cast<int64>(inValue));
}

// Decimals behind the whole part: trailing zeros are dropped. A fraction that rounds up to 1 leaves the point alone:
// the whole part stands already, and existing files depend on it.
template <class Sink>
void NqPutFraction(Sink& ioSink, uint64 inDecimals, int inPrecision)
{
    const uint64 one = static_cast<uint64>(gPowersTen[inPrecision]);
    if (inDecimals <= one)
        return;
    int8 digits[16];
    const int8* last = digits + 1 + inPrecision;
    NqPutDigits(digits + 1 + inPrecision, inDecimals >= 2 * one ? 0 : inDecimals - one, inPrecision);
    digits[0] = '.';
    while (last[-1] == '0')
        --last;
    ioSink.Write(digits, static_cast<int32>(last - digits));
}

template <class Sink>
void NqPutDouble(Sink& ioSink, real64 inValue)
{
    if (!NqCheckText(inValue == inValue, "decimals >= 0"))
        inValue = 0; // not a number
    if (inValue < 0)
    {
        ioSink.Put('-');
        inValue = -inValue;
    }
    if (inValue >= 2147483647.0)
        return NqPutLong(ioSink, 2147483647);
    const int32 whole = static_cast<int32>(inValue);
    NqPutLong(ioSink, whole);
    // The 1 in front keeps the zeros that a fraction begins with.
    const int precision = ioSink.Precision();
    const real64 decimals = NqRoundHalfUp((inValue + 1.0 - whole) * gPowersTen[precision]);
    NqPutFraction(ioSink, static_cast<uint64>(decimals), precision);
}

// With these precisions the writer makes six decimals of a real32, as NqStoreReal does.
inline bool NqHasSixDecimals(int inPrecision)
{
    return inPrecision >= 6 && inPrecision <= 8;
}

template <class Sink>
void NqPutFloat(Sink& ioSink, real32 inValue)
{
    if (NqHasSixDecimals(ioSink.Precision()) &&
        NqPutAtHand(ioSink, [inValue](int8* text) { return NqStoreReal(text, inValue); }))
        return;
    NqPutDouble(ioSink, 1e-6 * NqRoundHalfUp(static_cast<real64>(inValue) * 1e6));
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
NqLineEnd NqScanLine(Source& ioSource, int8 inDelim, int32& ioCount, Store&& inStore)
{
    const auto isEnd = [&](int8 c) { return c == inDelim || (inDelim == '\n' && c == '\r'); };
    int8 c = 0;
    const bool stopped = ioSource.GetWhile(c,
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
    if (inDelim == '\n')
    {
        int8 other = 0;
        ioSource.Get(other);
        const bool isPair = ioSource.Good() && other != c && isEnd(other);
        if (isPair)
            c = other;
        else if (ioSource.Good())
            ioSource.Putback(other);
        ioCount += isPair;
    }
    return {inDelim, true, c};
}

// ---- Strings -------------------------------------------------------------------------------------------------------

// Text from the bytes of UTF-8, as its transcoder takes them in.
void NqTextFromUTF8(TNqString& outText, const int8* inBytes);

// Text from encoded bytes, up to the first NUL. Without a transcoder they are UTF-8.
inline void NqTextFromEncoded(TNqString& outText, const int8* inBytes, ITranscoder* inEncoding)
{
    if (inEncoding != nullptr)
        outText.FromEncodedPtr(reinterpret_cast<const uint8*>(inBytes), inEncoding);
    else
        NqTextFromUTF8(outText, inBytes);
}

constexpr int32 kNqQuotedStringLimit = 256;

// The bytes of a string in quotes, or of a bare word, into inLimit + 1 bytes. False when it is longer: the surplus then
// stays in the stream, or is passed over.
template <class Source>
bool NqScanQuoted(Source& ioSource, int8* outText, int32 inLimit, bool inPassOver)
{
    int32 count = 0;
    int8 c = NqSkipSeparators(ioSource);
    const bool quoted = c == '"';
    if (!quoted && ioSource.Good())
        outText[count++] = c;
    bool escaped = false;
    bool full = false;
    if (ioSource.Good())
        ioSource.GetWhile(c,
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
                                  outText[count++] = byte;
                              return true;
                          });
    if (full && !inPassOver)
        ioSource.Putback(c);
    outText[count] = 0;
    return !full;
}

// What readFileRef may fill, without the NUL.
constexpr int32 kNqLongestPath = 1023;

// The text of a path, or of a reference to one, in quotes. One that is too long is passed over whole and reported, and
// the text is empty.
void NqReadPathText(TNqiostream& ioStream, TNqString& outText);

enum class NqLineString
{
    kRead,
    kNone, // no quote, no closing quote on the line, too long
    kNoMemory
};

// The bytes of a string in quotes on one line, more than inMaxLength of them only by the last one.
template <class Source>
NqLineString NqScanLineQuoted(Source& ioSource, uint32 inMaxLength, NqByteBuffer& outBytes)
{
    int8 c = NqSkipSeparators(ioSource);
    if (c != '"')
        return NqLineString::kNone;
    bool escaped = false;
    bool memory = true;
    const bool stopped =
        ioSource.GetWhile(c,
                          [&](int8 byte)
                          {
                              if (!escaped)
                              {
                                  if (byte == '"' || byte == '\n' || byte == '\r' || outBytes.Count() > inMaxLength)
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
                              memory = outBytes.Append(byte);
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
    explicit NqTextEncoder(ITranscoder* inEncoding)
        : fEncoding(inEncoding),
          fUTF8(inEncoding == nullptr || typeid(*inEncoding) == typeid(TUTF8Transcoder)),
          fAsciiAsIs(inEncoding == nullptr || NqHasAsciiAsItIs(*inEncoding))
    {
    }

    bool AsciiAsIs() const { return fAsciiAsIs; }

    template <class Sink>
    void Put(Sink& ioSink, uint16 inCharacter) const
    {
        if (fUTF8)
        {
            uint8 bytes[4];
            const uint8 count = UnicodeToUTF8Char(inCharacter, bytes);
            ioSink.PutEach(reinterpret_cast<const int8*>(bytes), count);
            return;
        }
        const TNqArray<uint8>& bytes = fEncoding->Decode(inCharacter);
        for (uint32 i = 0; i < bytes.GetElemCount(); ++i)
            ioSink.Put(static_cast<int8>(bytes[i]));
    }

private:
    ITranscoder* fEncoding;
    bool fUTF8;
    bool fAsciiAsIs;
};

// The characters of a string, encoded and escaped.
template <class Sink>
void NqPutCharacters(Sink& ioSink, const int8* inText, uint32 inByteLength, const NqTextEncoder& inEncoder)
{
    uint32 i = 0;
    while (i < inByteLength && inText[i] != 0)
    {
        const uint32 first = i;
        while (inEncoder.AsciiAsIs() && i < inByteLength && kNqPlainBytes[inText[i]])
            ++i;
        if (i != first)
        {
            ioSink.PutEach(inText + first, i - first);
            continue;
        }
        if (UTF8NumBytes(static_cast<uint8>(inText[i])) != 0) // other bytes are no characters
        {
            const uint16 character = UTF8CharToUnicode(reinterpret_cast<const uint8*>(inText + i), inByteLength - i);
            if (NqNeedsEscape(character))
            {
                ioSink.Put(kStringEscape);
                ioSink.Put(static_cast<int8>(character));
            }
            else
                inEncoder.Put(ioSink, character);
        }
        ++i;
    }
}

// The bytes of a text, and a NUL. A string that had no memory for them is reported and has none.
inline const int8* NqBytesOf(const TNqString& inText)
{
    const int8* const bytes = inText.StrGet();
    return bytes != nullptr ? bytes : "";
}

template <class Sink>
void NqPutQuoted(Sink& ioSink, const TNqString& inText)
{
    const int8* const bytes = NqBytesOf(inText);
    ioSink.Write(kStringQuote, 1);
    NqPutCharacters(ioSink, bytes, inText.ByteLength(), NqTextEncoder(ioSink.Stream().GetTranscoder()));
    ioSink.Write(kStringQuote, 1);
}

// ---- Values as the operators have them -----------------------------------------------------------------------------

template <class Source>
void NqScanValue(Source& ioSource, int8& outValue)
{
    outValue = NqSkipSeparators(ioSource);
}
template <class Source>
void NqScanValue(Source& ioSource, uint8& outValue)
{
    outValue = static_cast<uint8>(NqSkipSeparators(ioSource));
}
template <class Source>
void NqScanValue(Source& ioSource, int32& outValue)
{
    NqScanLong(ioSource, outValue);
}
template <class Source>
void NqScanValue(Source& ioSource, uint32& outValue)
{
    NqScanUnsignedLong(ioSource, outValue);
}
template <class Source>
void NqScanValue(Source& ioSource, int16& outValue)
{
    int32 number = 0;
    if (NqScanLong(ioSource, number))
        outValue = static_cast<int16>(number);
}
template <class Source>
void NqScanValue(Source& ioSource, uint16& outValue)
{
    uint32 number = 0;
    if (NqScanUnsignedLong(ioSource, number))
        outValue = static_cast<uint16>(number);
}
template <class Source>
void NqScanValue(Source& ioSource, real32& outValue)
{
    real64 number = 0;
    if (NqScanDouble(ioSource, number))
        outValue = static_cast<real32>(number);
}
template <class Source>
void NqScanValue(Source& ioSource, real64& outValue)
{
    NqScanDouble(ioSource, outValue);
}

template <class Sink>
void NqPutValue(Sink& ioSink, int8 inValue)
{
    ioSink.Put(inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, uint8 inValue)
{
    ioSink.Put(static_cast<int8>(inValue));
}
template <class Sink>
void NqPutValue(Sink& ioSink, int16 inValue)
{
    NqPutLong(ioSink, inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, uint16 inValue)
{
    NqPutUnsignedLong(ioSink, inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, int32 inValue)
{
    NqPutLong(ioSink, inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, uint32 inValue)
{
    NqPutUnsignedLong(ioSink, inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, real32 inValue)
{
    NqPutFloat(ioSink, inValue);
}
template <class Sink>
void NqPutValue(Sink& ioSink, real64 inValue)
{
    NqPutDouble(ioSink, inValue);
}

// stream >> value and stream << value by the shortest way. Over a plain source or sink these are the operators
// themselves, which a derived stream may have overridden.
template <class Source, class T>
void NqExtract(Source& ioSource, T& outValue)
{
    if constexpr (Source::kIsDirect)
        NqScanValue(ioSource, outValue);
    else
        ioSource.Stream() >> outValue;
}

template <class Sink, class T>
void NqInsert(Sink& ioSink, T inValue)
{
    if constexpr (Sink::kIsDirect)
        NqPutValue(ioSink, inValue);
    else
        ioSink.Run([&] { ioSink.Stream() << inValue; });
}
