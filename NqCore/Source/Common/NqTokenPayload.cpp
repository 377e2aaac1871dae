#include "NqCore/Include/NqByteBuffer.h"
#include "NqCore/Include/NqDigits.h"
#include "NqCore/Include/NqTokenScan.h"
#include "NqCore/Include/NqTokenWrite.h"

#include <cstring>

using namespace NqTokenScan;
using namespace NqTokenWrite;

namespace
{

constexpr int32 kMoreToken = 0x4D4F5245; // 'MORE', the name of a line that continues the one before
constexpr int32 kBytesPerLine = 64;

// ---- Hexadecimal text ----------------------------------------------------------------------------------------------

template <class Sink>
void PutCount(Sink& ioSink, uint32 inValue)
{
    for (int32 shift = 24; shift >= 0; shift -= 8)
        PutHexByte(ioSink, static_cast<uint8>(inValue >> shift));
}

// Each byte as two digits, and each digit as its value or kNoHexDigit.
constexpr uint16 kNoHexDigit = 0x100;

class THexTable
{
public:
    constexpr THexTable() : fPairs(), fValues()
    {
        constexpr int8 kDigits[] = "0123456789ABCDEF";
        for (uint16& value : fValues)
            value = kNoHexDigit;
        for (int32 i = 0; i < 16; ++i)
            fValues[static_cast<uint8>(kDigits[i])] = static_cast<uint16>(i);
        for (int32 i = 0; i < 256; ++i)
        {
            fPairs[2 * i] = kDigits[i >> 4];
            fPairs[2 * i + 1] = kDigits[i & 15];
        }
    }
    const int8* Pair(uint8 inByte) const { return fPairs + 2 * inByte; }
    uint32 Value(int8 inDigit) const { return fValues[static_cast<uint8>(inDigit)]; }

private:
    int8 fPairs[512];
    uint16 fValues[256];
};
constexpr THexTable kHexTable;

constexpr int32 kPieceBytes = 1024; // of text that is made before it is written

template <class Sink>
void PutHexBytes(Sink& ioSink, const void* inData, int32 inCount)
{
    const uint8* bytes = static_cast<const uint8*>(inData);
    while (inCount > 0)
    {
        int8 piece[kPieceBytes];
        const int32 n = std::min(inCount, kPieceBytes / 2);
        for (int32 i = 0; i < n; ++i)
            std::memcpy(piece + 2 * i, kHexTable.Pair(bytes[i]), 2);
        ioSink.PutEach(piece, 2 * n);
        bytes += n;
        inCount -= n;
    }
}

// As many bytes as there are pairs of digits at hand, at most `inMost`. Returns how many.
template <class Source>
int32 TakeHexRun(Source& ioSource, uint8* outBytes, int32 inMost)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = ioSource.AtHand();
        for (const int8* at = first; count < inMost && last - at >= 2; at += 2)
        {
            const uint32 high = kHexTable.Value(at[0]);
            const uint32 low = kHexTable.Value(at[1]);
            if ((high | low) >= kNoHexDigit)
                break;
            outBytes[count++] = static_cast<uint8>(high << 4 | low);
        }
        if (count > 0)
            ioSource.Pass(2 * count);
    }
    return count;
}

// A byte from two digits that inNext(int8&) yields; it returns false at the end. Line ends before a digit are skipped.
template <class Next>
uint8 GetNextBin(Next&& inNext)
{
    uint32 value = 0;
    for (int32 i = 0; i < 2; ++i)
    {
        int8 c = 0;
        do
        {
            if (!inNext(c))
                NqToken::FailEOFFile();
        } while (IsLineEnd(c));
        if (HexDigitValue(c) < 0)
            NqToken::FailReadFile();
        value = value << 4 | static_cast<uint32>(HexDigitValue(c));
    }
    return static_cast<uint8>(value);
}

// The bytes of one line. A token that is too short ends in its NUL, which is no digit.
void GetHexBytes(const int8* inToken, uint8* outBytes, int32 inCount)
{
    for (int32 i = 0; i < inCount; ++i)
        outBytes[i] = GetNextBin(
            [&](int8& c)
            {
                c = *inToken++;
                return true;
            });
}

// ---- Six-bit text --------------------------------------------------------------------------------------------------

constexpr uint8 kFirstBinHex = '0';
constexpr uint8 kLastBinHex = kFirstBinHex + 63;

// What a caller keeps between two calls: how many values wait, and the values.
struct TBinHexState
{
    explicit TBinHexState(uint32 inState)
        : fCount(static_cast<uint8>(inState)),
          fFirst(static_cast<uint8>(inState >> 8)),
          fSecond(static_cast<uint8>(inState >> 16))
    {
    }
    TBinHexState(uint8 inCount, uint8 inFirst, uint8 inSecond) : fCount(inCount), fFirst(inFirst), fSecond(inSecond) {}

    uint32 Packed() const { return fCount | uint32{fFirst} << 8 | uint32{fSecond} << 16; }

    uint8 fCount;
    uint8 fFirst;
    uint8 fSecond;
};

struct TBinHexGroup
{
    uint8 c0, c1, c2, c3;

    TBinHexGroup(uint8 b0, uint8 b1, uint8 b2) { BinaryToBinHex(c0, c1, c2, c3, b0, b1, b2); }

    // Writes the first `inCount` characters.
    template <class Sink>
    void Put(Sink& ioSink, int32 inCount) const
    {
        const int8 characters[4] = {static_cast<int8>(c0), static_cast<int8>(c1), static_cast<int8>(c2),
                                    static_cast<int8>(c3)};
        ioSink.PutEach(characters, inCount);
    }
};

// A group that the data did not fill: the characters without data are left out.
template <class Sink>
void PutLastBinHex(Sink& ioSink, const TBinHexState& inPending)
{
    const TBinHexGroup group(inPending.fFirst, inPending.fCount == 2 ? inPending.fSecond : 0, 0);
    group.Put(ioSink, inPending.fCount + 1);
}

// The low 48 bits, six bytes, as eight characters, the first one lowest.
inline uint64 BinHexOfSix(uint64 inSix)
{
    const uint64 halves = (inSix & 0xFFFFFF) | (inSix << 8 & 0x00FFFFFF00000000u);
    const uint64 twelve = (halves & 0x00000FFF00000FFFu) | (halves << 4 & 0x0FFF00000FFF0000u);
    return ((twelve & 0x003F003F003F003Fu) | (twelve << 2 & 0x3F003F003F003F00u)) + kNqEightZeros;
}

// Whole groups of six bytes. Returns how many bytes that were.
template <class Sink>
int32 PutBinHexRun(Sink& ioSink, const uint8* inBytes, int32 inCount)
{
    const int32 whole = inCount - inCount % 6;
    for (int32 i = 0; i < whole;)
    {
        int8 piece[kPieceBytes];
        int8* at = piece;
        for (; i < whole && at != piece + kPieceBytes; i += 6, at += 8)
        {
            int8 six[8] = {};
            const bool isLast = inCount - i < 8; // the two bytes behind the group are there before that
            if (isLast)
                std::memcpy(six, inBytes + i, 6);
            NqStoreEight(at, BinHexOfSix(NqLoadEight(isLast ? six : reinterpret_cast<const int8*>(inBytes + i))));
        }
        ioSink.PutEach(piece, at - piece);
    }
    return whole;
}

// Groups of eight characters that are at hand, as six bytes each; at most `inMost` bytes. Returns how many.
template <class Source>
int32 TakeBinHexRun(Source& ioSource, uint8* outBytes, int32 inMost)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        constexpr uint64 kTopBits = 0x8080808080808080u;
        const auto [first, last] = ioSource.NumbersAtHand();
        const int8* at = first;
        for (; inMost - count >= 6 && last - at >= 8; at += 8)
        {
            const uint64 text = NqLoadEight(at);
            const uint64 values = (text | kTopBits) - kNqEightZeros; // no byte borrows
            if ((values & 0xC0C0C0C0C0C0C0C0u) != kTopBits || (text & kTopBits) != 0)
                break;
            const uint64 twelve = (values & 0x003F003F003F003Fu) | (values >> 2 & 0x0FC00FC00FC00FC0u);
            const uint64 bits = (twelve & 0x00000FFF00000FFFu) | (twelve >> 4 & 0x00FFF00000FFF000u);
            const uint64 six = (bits & 0xFFFFFF) | (bits >> 8 & 0xFFFFFF000000u);
            for (int32 i = 0; i < 6; ++i)
                outBytes[count + i] = static_cast<uint8>(six >> (8 * i));
            count += 6;
        }
        if (count > 0)
            ioSource.Pass(at - first);
    }
    return count;
}

template <class Sink>
void PutBinHex(Sink& ioSink, const uint8* inBytes, int32 inCount, uint32& ioState)
{
    const TBinHexState pending(ioState);
    switch (pending.fCount)
    {
    case 0:
        break;
    case 1:
        if (inCount < 2)
        {
            ioState = TBinHexState(2, pending.fFirst, inBytes[0]).Packed();
            return;
        }
        TBinHexGroup(pending.fFirst, inBytes[0], inBytes[1]).Put(ioSink, 4);
        inBytes += 2;
        inCount -= 2;
        break;
    case 2:
        TBinHexGroup(pending.fFirst, pending.fSecond, inBytes[0]).Put(ioSink, 4);
        inBytes += 1;
        inCount -= 1;
        break;
    default:
        NqNotify("0");
    }
    const int32 done = PutBinHexRun(ioSink, inBytes, inCount);
    inBytes += done;
    inCount -= done;
    for (; inCount > 2; inCount -= 3, inBytes += 3)
        TBinHexGroup(inBytes[0], inBytes[1], inBytes[2]).Put(ioSink, 4);
    ioState =
        inCount > 0 ? TBinHexState(static_cast<uint8>(inCount), inBytes[0], inCount > 1 ? inBytes[1] : 0).Packed() : 0;
}

// The next character of the alphabet, taken by the stream's own operator.
template <class Source>
uint8 NextBinHex(Source& ioSource)
{
    int8 d = 0;
    do
    {
        NqExtract(ioSource, d);
        if (!ioSource.Good())
        {
            NqNotify("!stream.eof()");
            NqToken::FailEOFFile();
        }
        if (!NqCheckText(d != '}', "d!='}'") || !NqCheckText(d != '{', "d!='{'"))
            throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
    } while (static_cast<uint8>(d) < kFirstBinHex || static_cast<uint8>(d) > kLastBinHex);
    return static_cast<uint8>(d);
}

template <class Source>
void GetBinHex(Source& ioSource, uint8* outBytes, int32 inSize, uint32& ioState)
{
    uint8 c[4] = {kFirstBinHex, kFirstBinHex, kFirstBinHex, kFirstBinHex};
    uint8 b[3];
    const auto take = [&](int32 first, int32 last)
    {
        for (int32 i = first; i <= last; ++i)
            c[i] = NextBinHex(ioSource);
        BinHexToBinary(c[0], c[1], c[2], c[3], b[0], b[1], b[2]);
    };
    const TBinHexState pending(ioState);
    switch (pending.fCount)
    {
    case 0:
        break;
    case 1:
        c[1] = pending.fFirst;
        if (inSize < 2)
        {
            take(2, 2);
            outBytes[0] = b[1];
            ioState = TBinHexState(2, c[2], 0).Packed();
            return;
        }
        take(2, 3);
        *outBytes++ = b[1];
        *outBytes++ = b[2];
        inSize -= 2;
        break;
    case 2:
        c[2] = pending.fFirst;
        take(3, 3);
        *outBytes++ = b[2];
        inSize -= 1;
        break;
    default:
        NqNotify("0");
    }
    while (inSize > 2)
    {
        const int32 done = TakeBinHexRun(ioSource, outBytes, inSize);
        outBytes += done;
        inSize -= done;
        if (inSize <= 2)
            break;
        take(0, 3);
        std::memcpy(outBytes, b, 3);
        outBytes += 3;
        inSize -= 3;
    }
    // What is left of a group of four waits in its last character.
    if (inSize > 0)
    {
        take(0, inSize);
        std::memcpy(outBytes, b, static_cast<size_t>(inSize));
    }
    ioState = inSize > 0 ? TBinHexState(static_cast<uint8>(inSize), c[inSize], 0).Packed() : 0;
}

// ---- Payloads ------------------------------------------------------------------------------------------------------

// Behind the next '$'.
void SkipToPayloadSign(TNqiostream& ioStream)
{
    int8 c = 0;
    if (!NqWithSource(ioStream,
                      [&](auto& source) { return source.GetWhile(c, [](int8 byte) { return byte != '$'; }); }))
        NqToken::FailEOFFile();
}

uint32 ReadCount(TNqiostream& ioStream)
{
    uint32 count = 0;
    TNoText text;
    const NqErr err = NqWithSource(ioStream, [&](auto& source) { return ScanCount(source, text, count); });
    if (err == kNqErrEndOfFile)
        NqToken::FailEOFFile();
    if (err != kNqNoErr)
        NqToken::FailReadFile();
    return count;
}

// ---- Parts of a document -------------------------------------------------------------------------------------------

// The end of the stream, as its eof() has it: the code of a text that could not be extracted.
constexpr NqErr kExtractedToEnd = 1;

// Collects the text of tokens, without payloads and comments.
class TExtractedText : public TNoText
{
public:
    // What was dropped between two words must not join them.
    void BeginWord()
    {
        if (fAfterWord)
            Append(' ');
        fAfterWord = true;
    }

    void Blank(int8 c) { AppendMark(c); }
    void Brace(int8 c) { AppendMark(c); }
    void OpenQuote() { AppendMark('"'); }
    void CloseQuote() { AppendMark('"'); }
    void Content(const int8* inFirst, const int8* inLast) { fFailed = fFailed || !fBytes.Append(inFirst, inLast); }
    void Escaped(int8 inEscape, int8 c)
    {
        Append(inEscape);
        Append(c);
    }

    NqByteBuffer& Bytes() { return fBytes; }
    bool Failed() const { return fFailed; }

private:
    void Append(int8 c) { fFailed = fFailed || !fBytes.Append(c); }
    void AppendMark(int8 c)
    {
        Append(c);
        fAfterWord = false;
    }

    NqByteBuffer fBytes{1000};
    bool fAfterWord = false; // the last byte belongs to a word
    bool fFailed = false;    // there was no memory
};

// The first byte of a token. Blanks before it are kept, except behind a comment.
template <class Source>
bool ExtractBlanks(Source& ioSource, TExtractedText& ioText, int8& c)
{
    TNoText comment;
    bool keepBlanks = true;
    for (;;)
    {
        const auto isBlank = [&](int8 byte)
        {
            if (!IsBlank(byte))
                return false;
            if (keepBlanks)
                ioText.Blank(byte);
            return true;
        };
        if (!ioSource.GetWhile(c, isBlank))
            return false;
        if (c != '#')
            return true;
        if (!ScanComment(ioSource, comment))
            return false;
        keepBlanks = false;
    }
}

template <class Source>
NqErr ExtractToken(Source& ioSource, TExtractedText& ioText, int64& ioDepth)
{
    int8 c = 0;
    if (!ExtractBlanks(ioSource, ioText, c))
        return kExtractedToEnd;
    NqErr err = kNqNoErr;
    uint32 count = 0;
    switch (KindOfFirstByte(c))
    {
    case NqToken::kStringToken:
        err = ScanQuoted(ioSource, ioText);
        break;
    case NqToken::kRawToken:
        err = ScanCount(ioSource, ioText, count);
        if (err != kNqNoErr)
            return err;
        err = ScanData(ioSource, ioText, count);
        break;
    case NqToken::kWordToken:
        ioText.BeginWord();
        err = ScanWord(ioSource, ioText, c);
        break;
    default:
        ioText.Brace(c);
        ioDepth += c == '{' ? 1 : -1;
    }
    return err != kNqNoErr ? kExtractedToEnd : kNqNoErr;
}

// The tokens of a block up to the brace that closes it. Without room for all of them the block is still read to its
// end.
template <class Source, class Sink>
NqErr CopyBlock(Source& ioSource, Sink& ioSink, bool inWithClosingBrace)
{
    TCopyText<Sink> text(ioSink);
    for (int64 depth = 0;;)
    {
        ETokenKind kind;
        const NqErr err = ScanToken(ioSource, text, kind);
        if (err != kNqNoErr)
            return err;
        if (kind == NqToken::kEndToken)
        {
            // No blank behind a closing brace: existing readers and files have it so.
            if (depth > 0 || inWithClosingBrace)
                text.Put('}');
            if (--depth < 0)
                return text.Failed() ? kNqErrOutOfMemory : kNqNoErr;
            continue;
        }
        if (kind == NqToken::kBeginToken)
        {
            text.Put('{');
            ++depth;
        }
        text.Put(' ');
    }
}

} // namespace

// ---- Hexadecimal numbers -------------------------------------------------------------------------------------------

void PutLongAsHexa(TNqiostream& ioStream, int32 inValue)
{
    NqWithSink(ioStream, [inValue](auto& sink) { PutCount(sink, static_cast<uint32>(inValue)); });
}

NqErr GetLongAsHex(TNqiostream& ioStream, int32& outValue)
{
    outValue = static_cast<int32>(ReadCount(ioStream));
    return kNqNoErr;
}

// ---- Six-bit groups ------------------------------------------------------------------------------------------------

void BinaryToBinHex(uint8& c0, uint8& c1, uint8& c2, uint8& c3, uint8 b0, uint8 b1, uint8 b2)
{
    const uint32 bits = b0 | uint32{b1} << 8 | uint32{b2} << 16;
    c0 = static_cast<uint8>(kFirstBinHex + (bits & 63));
    c1 = static_cast<uint8>(kFirstBinHex + (bits >> 6 & 63));
    c2 = static_cast<uint8>(kFirstBinHex + (bits >> 12 & 63));
    c3 = static_cast<uint8>(kFirstBinHex + (bits >> 18));
}

void BinHexToBinary(const uint8& c0, const uint8& c1, const uint8& c2, const uint8& c3, uint8& b0, uint8& b1, uint8& b2)
{
    const auto bitsOf = [](uint8 c) { return static_cast<uint32>(c - kFirstBinHex) & 63; };
    const uint32 bits = bitsOf(c0) | bitsOf(c1) << 6 | bitsOf(c2) << 12 | bitsOf(c3) << 18;
    b0 = static_cast<uint8>(bits);
    b1 = static_cast<uint8>(bits >> 8);
    b2 = static_cast<uint8>(bits >> 16);
}

void GetInt8TokenHexa(TNqiostream& ioStream, uint8& outCharacter)
{
    outCharacter = NqWithSource(ioStream, [](auto& source) { return NextBinHex(source); });
}

// ---- Blocks --------------------------------------------------------------------------------------------------------

void ReadStream(TNqiostream& stream, TNqstrstream& out, boolean inNested)
{
    if (!NqCheck(&stream != &out))
        return;
    ThrowUnlessNoErr(
        NqWithSource(stream, [&](auto& source)
                     { return NqWithSink(out, [&](auto& sink) { return CopyBlock(source, sink, inNested != 0); }); }));
}

namespace NqToken
{

// ---- Raw payloads --------------------------------------------------------------------------------------------------

void PutBinaryStartAttribute(TNqiostream& ioStream, int32 inToken, uint32 inSize)
{
    NqTokenData& data = *GetNqTokenData(ioStream);
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   PutLineName(sink, data, inToken);
                   sink.Put(' ');
                   sink.Put('$');
                   PutCount(sink, inSize);
                   sink.Put('\r'); // whatever ends the lines of the stream: readers count this byte
               });
    data.fTokenBinaryCount = 0;
}

void PutBinaryEndAttribute(TNqiostream& ioStream)
{
    NqWithSink(ioStream,
               [](auto& sink)
               {
                   sink.Put('$');
                   PutLineEnd(sink);
               });
}

void GetBinaryStartToken(TNqiostream& ioStream, uint32& outSize)
{
    SkipToPayloadSign(ioStream);
    outSize = ReadCount(ioStream);
    int8 c = 0;
    if (!NqWithSource(ioStream, [&](auto& source) { return NextByte(source, c); }))
        FailEOFFile();
}

void GetBinaryEndToken(TNqiostream& ioStream)
{
    SkipToPayloadSign(ioStream);
}

// ---- Hexadecimal text ----------------------------------------------------------------------------------------------

void PutBufferAsHexa(TNqiostream& ioStream, const int8* inBuffer, int32 inCount, boolean inBinary)
{
    if (inBinary && inCount > 0)
        return ioStream.write(inBuffer, inCount);
    NqWithSink(ioStream, [=](auto& sink) { PutHexBytes(sink, inBuffer, inCount); });
}

void GetBufferAsHexa(TNqiostream& ioStream, int8* outBuffer, int32 inCount, boolean inBinary)
{
    if (inBinary && inCount > 0)
    {
        ioStream.read(outBuffer, inCount);
        if (!ioStream.good())
            FailEOFFile();
        return;
    }
    NqWithSource(ioStream,
                 [&](auto& source)
                 {
                     uint8* const bytes = reinterpret_cast<uint8*>(outBuffer);
                     const auto next = [&](int8& c) { return NextByte(source, c); };
                     for (int32 i = 0; i < inCount;)
                     {
                         i += TakeHexRun(source, bytes + i, inCount - i);
                         if (i < inCount)
                             bytes[i++] = GetNextBin(next);
                     }
                 });
}

void PutHexaBinaryAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const void* inData)
{
    const NqTokenData& settings = *GetNqTokenData(ioStream);
    const uint8* bytes = static_cast<const uint8*>(inData);
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   while (inCount > 0)
                   {
                       const int32 n = std::min(kBytesPerLine, inCount);
                       PutLineName(sink, settings, inToken);
                       sink.Put(' ');
                       PutHexBytes(sink, bytes, n);
                       PutLineEnd(sink);
                       inToken = kMoreToken;
                       bytes += n;
                       inCount -= n;
                   }
               });
}

void GetHexaBinaryToken(TNqiostream& ioStream, int32 inCount, void* outBytes)
{
    uint8* bytes = static_cast<uint8*>(outBytes);
    while (inCount > 0)
    {
        int8 token[kTokenBufferSize];
        const int32 n = std::min(kBytesPerLine, inCount);
        ThrowUnlessNoErr(GetNextToken(ioStream, token, false));
        GetHexBytes(token, bytes, n);
        bytes += n;
        inCount -= n;
        if (inCount > 0 && GetFourCharConstToken(ioStream) != kMoreToken)
            FailReadFile();
    }
}

// ---- Six-bit text --------------------------------------------------------------------------------------------------

void BeginBufferAsBinHex(uint32& ioState)
{
    ioState = 0;
}

void PutBufferAsBinHex(TNqiostream& ioStream, const int8* inBuffer, int32 inCount, uint32& ioState)
{
    if (!NqCheckText(inCount >= 1, "count>=1"))
        return;
    NqWithSink(ioStream,
               [&](auto& sink) { PutBinHex(sink, reinterpret_cast<const uint8*>(inBuffer), inCount, ioState); });
}

void EndPutBufferAsBinHex(TNqiostream& ioStream, uint32& ioState)
{
    const TBinHexState pending(ioState);
    ioState = 0;
    if (pending.fCount > 2)
        NqNotify("0");
    else if (pending.fCount > 0)
        NqWithSink(ioStream, [&](auto& sink) { PutLastBinHex(sink, pending); });
}

void GetBufferAsBinHex(TNqiostream& ioStream, int8* outBuffer, int32 inSize, uint32& ioState)
{
    if (!NqCheckText(inSize >= 1, "size"))
        return;
    NqWithSource(ioStream,
                 [&](auto& source) { GetBinHex(source, reinterpret_cast<uint8*>(outBuffer), inSize, ioState); });
}

// ---- Parts of a document -------------------------------------------------------------------------------------------

void ExtractTokenData(TNqiostream& ioStream, void*& outData, uint32& outSize)
{
    TExtractedText text;
    NqWithSource(ioStream,
                 [&](auto& source)
                 {
                     int64 depth = 0;
                     do
                         ThrowUnlessNoErr(ExtractToken(source, text, depth));
                     while (depth > 0);
                 });
    if (text.Failed())
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
    const uint32 count = text.Bytes().Count();
    if (count == 0)
        return;
    void* const block = Nqmalloc(count);
    if (!NqCheckText(block != nullptr, "data"))
        return;
    std::memcpy(block, text.Bytes().Data(), count);
    outData = block;
    outSize = count;
}

void GetStreamToken(TNqiostream& ioStream, TNqstrstream& ioOut, int32& outSize)
{
    outSize = 0;
    GetBeginToken(ioStream);
    ReadStream(ioStream, ioOut, false);
    outSize = ioOut.pcount();
}

} // namespace NqToken
