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
void PutCount(Sink& sink, uint32 value)
{
    for (int32 shift = 24; shift >= 0; shift -= 8)
        PutHexByte(sink, static_cast<uint8>(value >> shift));
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
    const int8* Pair(uint8 byte) const { return fPairs + 2 * byte; }
    uint32 Value(int8 digit) const { return fValues[static_cast<uint8>(digit)]; }

private:
    int8 fPairs[512];
    uint16 fValues[256];
};
constexpr THexTable kHexTable;

constexpr int32 kPieceBytes = 1024; // of text that is made before it is written

template <class Sink>
void PutHexBytes(Sink& sink, const void* data, int32 count)
{
    const uint8* bytes = static_cast<const uint8*>(data);
    while (count > 0)
    {
        int8 piece[kPieceBytes];
        const int32 n = std::min(count, kPieceBytes / 2);
        for (int32 i = 0; i < n; ++i)
            std::memcpy(piece + 2 * i, kHexTable.Pair(bytes[i]), 2);
        sink.PutEach(piece, 2 * n);
        bytes += n;
        count -= n;
    }
}

// As many bytes as there are pairs of digits at hand, at most `most`. Returns how many.
template <class Source>
int32 TakeHexRun(Source& source, uint8* out, int32 most)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = source.AtHand();
        for (const int8* at = first; count < most && last - at >= 2; at += 2)
        {
            const uint32 high = kHexTable.Value(at[0]);
            const uint32 low = kHexTable.Value(at[1]);
            if ((high | low) >= kNoHexDigit)
                break;
            out[count++] = static_cast<uint8>(high << 4 | low);
        }
        if (count > 0)
            source.Pass(2 * count);
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
void GetHexBytes(const int8* token, uint8* out, int32 count)
{
    for (int32 i = 0; i < count; ++i)
        out[i] = GetNextBin(
            [&](int8& c)
            {
                c = *token++;
                return true;
            });
}

// ---- Six-bit text --------------------------------------------------------------------------------------------------

constexpr uint8 kFirstBinHex = '0';
constexpr uint8 kLastBinHex = kFirstBinHex + 63;

// What a caller keeps between two calls: how many values wait, and the values.
struct TBinHexState
{
    explicit TBinHexState(uint32 state)
        : fCount(static_cast<uint8>(state)),
          fFirst(static_cast<uint8>(state >> 8)),
          fSecond(static_cast<uint8>(state >> 16))
    {
    }
    TBinHexState(uint8 count, uint8 first, uint8 second) : fCount(count), fFirst(first), fSecond(second) {}

    uint32 Packed() const { return fCount | uint32{fFirst} << 8 | uint32{fSecond} << 16; }

    uint8 fCount;
    uint8 fFirst;
    uint8 fSecond;
};

struct TBinHexGroup
{
    uint8 c0, c1, c2, c3;

    TBinHexGroup(uint8 b0, uint8 b1, uint8 b2) { BinaryToBinHex(c0, c1, c2, c3, b0, b1, b2); }

    // Writes the first `count` characters.
    template <class Sink>
    void Put(Sink& sink, int32 count) const
    {
        const int8 characters[4] = {static_cast<int8>(c0), static_cast<int8>(c1), static_cast<int8>(c2),
                                    static_cast<int8>(c3)};
        sink.PutEach(characters, count);
    }
};

// A group that the data did not fill: the characters without data are left out.
template <class Sink>
void PutLastBinHex(Sink& sink, const TBinHexState& pending)
{
    const TBinHexGroup group(pending.fFirst, pending.fCount == 2 ? pending.fSecond : 0, 0);
    group.Put(sink, pending.fCount + 1);
}

// The low 48 bits, six bytes, as eight characters, the first one lowest.
inline uint64 BinHexOfSix(uint64 six)
{
    const uint64 halves = (six & 0xFFFFFF) | (six << 8 & 0x00FFFFFF00000000u);
    const uint64 twelve = (halves & 0x00000FFF00000FFFu) | (halves << 4 & 0x0FFF00000FFF0000u);
    return ((twelve & 0x003F003F003F003Fu) | (twelve << 2 & 0x3F003F003F003F00u)) + kNqEightZeros;
}

// Whole groups of six bytes. Returns how many bytes that were.
template <class Sink>
int32 PutBinHexRun(Sink& sink, const uint8* bytes, int32 count)
{
    const int32 whole = count - count % 6;
    for (int32 i = 0; i < whole;)
    {
        int8 piece[kPieceBytes];
        int8* at = piece;
        for (; i < whole && at != piece + kPieceBytes; i += 6, at += 8)
        {
            int8 six[8] = {};
            const bool isLast = count - i < 8; // the two bytes behind the group are there before that
            if (isLast)
                std::memcpy(six, bytes + i, 6);
            NqStoreEight(at, BinHexOfSix(NqLoadEight(isLast ? six : reinterpret_cast<const int8*>(bytes + i))));
        }
        sink.PutEach(piece, at - piece);
    }
    return whole;
}

// Groups of eight characters that are at hand, as six bytes each; at most `most` bytes. Returns how many.
template <class Source>
int32 TakeBinHexRun(Source& source, uint8* out, int32 most)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        constexpr uint64 kTopBits = 0x8080808080808080u;
        const auto [first, last] = source.NumbersAtHand();
        const int8* at = first;
        for (; most - count >= 6 && last - at >= 8; at += 8)
        {
            const uint64 text = NqLoadEight(at);
            const uint64 values = (text | kTopBits) - kNqEightZeros; // no byte borrows
            if ((values & 0xC0C0C0C0C0C0C0C0u) != kTopBits || (text & kTopBits) != 0)
                break;
            const uint64 twelve = (values & 0x003F003F003F003Fu) | (values >> 2 & 0x0FC00FC00FC00FC0u);
            const uint64 bits = (twelve & 0x00000FFF00000FFFu) | (twelve >> 4 & 0x00FFF00000FFF000u);
            const uint64 six = (bits & 0xFFFFFF) | (bits >> 8 & 0xFFFFFF000000u);
            for (int32 i = 0; i < 6; ++i)
                out[count + i] = static_cast<uint8>(six >> (8 * i));
            count += 6;
        }
        if (count > 0)
            source.Pass(at - first);
    }
    return count;
}

template <class Sink>
void PutBinHex(Sink& sink, const uint8* bytes, int32 count, uint32& state)
{
    const TBinHexState pending(state);
    switch (pending.fCount)
    {
    case 0:
        break;
    case 1:
        if (count < 2)
        {
            state = TBinHexState(2, pending.fFirst, bytes[0]).Packed();
            return;
        }
        TBinHexGroup(pending.fFirst, bytes[0], bytes[1]).Put(sink, 4);
        bytes += 2;
        count -= 2;
        break;
    case 2:
        TBinHexGroup(pending.fFirst, pending.fSecond, bytes[0]).Put(sink, 4);
        bytes += 1;
        count -= 1;
        break;
    default:
        NqNotify("0");
    }
    const int32 done = PutBinHexRun(sink, bytes, count);
    bytes += done;
    count -= done;
    for (; count > 2; count -= 3, bytes += 3)
        TBinHexGroup(bytes[0], bytes[1], bytes[2]).Put(sink, 4);
    state = count > 0 ? TBinHexState(static_cast<uint8>(count), bytes[0], count > 1 ? bytes[1] : 0).Packed() : 0;
}

// The next character of the alphabet, taken by the stream's own operator.
template <class Source>
uint8 NextBinHex(Source& source)
{
    int8 d = 0;
    do
    {
        NqExtract(source, d);
        if (!source.Good())
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
void GetBinHex(Source& source, uint8* out, int32 size, uint32& state)
{
    uint8 c[4] = {kFirstBinHex, kFirstBinHex, kFirstBinHex, kFirstBinHex};
    uint8 b[3];
    const auto take = [&](int32 first, int32 last)
    {
        for (int32 i = first; i <= last; ++i)
            c[i] = NextBinHex(source);
        BinHexToBinary(c[0], c[1], c[2], c[3], b[0], b[1], b[2]);
    };
    const TBinHexState pending(state);
    switch (pending.fCount)
    {
    case 0:
        break;
    case 1:
        c[1] = pending.fFirst;
        if (size < 2)
        {
            take(2, 2);
            out[0] = b[1];
            state = TBinHexState(2, c[2], 0).Packed();
            return;
        }
        take(2, 3);
        *out++ = b[1];
        *out++ = b[2];
        size -= 2;
        break;
    case 2:
        c[2] = pending.fFirst;
        take(3, 3);
        *out++ = b[2];
        size -= 1;
        break;
    default:
        NqNotify("0");
    }
    while (size > 2)
    {
        const int32 done = TakeBinHexRun(source, out, size);
        out += done;
        size -= done;
        if (size <= 2)
            break;
        take(0, 3);
        std::memcpy(out, b, 3);
        out += 3;
        size -= 3;
    }
    // What is left of a group of four waits in its last character.
    if (size > 0)
    {
        take(0, size);
        std::memcpy(out, b, static_cast<size_t>(size));
    }
    state = size > 0 ? TBinHexState(static_cast<uint8>(size), c[size], 0).Packed() : 0;
}

// ---- Payloads ------------------------------------------------------------------------------------------------------

// Behind the next '$'.
void SkipToPayloadSign(TNqiostream& stream)
{
    int8 c = 0;
    if (!NqWithSource(stream, [&](auto& source) { return source.GetWhile(c, [](int8 byte) { return byte != '$'; }); }))
        NqToken::FailEOFFile();
}

uint32 ReadCount(TNqiostream& stream)
{
    uint32 count = 0;
    TNoText text;
    const NqErr err = NqWithSource(stream, [&](auto& source) { return ScanCount(source, text, count); });
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
    void Content(const int8* first, const int8* last) { fFailed = fFailed || !fBytes.Append(first, last); }
    void Escaped(int8 escape, int8 c)
    {
        Append(escape);
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
bool ExtractBlanks(Source& source, TExtractedText& text, int8& c)
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
                text.Blank(byte);
            return true;
        };
        if (!source.GetWhile(c, isBlank))
            return false;
        if (c != '#')
            return true;
        if (!ScanComment(source, comment))
            return false;
        keepBlanks = false;
    }
}

template <class Source>
NqErr ExtractToken(Source& source, TExtractedText& text, int64& depth)
{
    int8 c = 0;
    if (!ExtractBlanks(source, text, c))
        return kExtractedToEnd;
    NqErr err = kNqNoErr;
    uint32 count = 0;
    switch (KindOfFirstByte(c))
    {
    case NqToken::kStringToken:
        err = ScanQuoted(source, text);
        break;
    case NqToken::kRawToken:
        err = ScanCount(source, text, count);
        if (err != kNqNoErr)
            return err;
        err = ScanData(source, text, count);
        break;
    case NqToken::kWordToken:
        text.BeginWord();
        err = ScanWord(source, text, c);
        break;
    default:
        text.Brace(c);
        depth += c == '{' ? 1 : -1;
    }
    return err != kNqNoErr ? kExtractedToEnd : kNqNoErr;
}

// The tokens of a block up to the brace that closes it. Without room for all of them the block is still read to its
// end.
template <class Source, class Sink>
NqErr CopyBlock(Source& source, Sink& sink, bool withClosingBrace)
{
    TCopyText<Sink> text(sink);
    for (int64 depth = 0;;)
    {
        ETokenKind kind;
        const NqErr err = ScanToken(source, text, kind);
        if (err != kNqNoErr)
            return err;
        if (kind == NqToken::kEndToken)
        {
            // No blank behind a closing brace: existing readers and files have it so.
            if (depth > 0 || withClosingBrace)
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

void PutLongAsHexa(TNqiostream& stream, int32 value)
{
    NqWithSink(stream, [value](auto& sink) { PutCount(sink, static_cast<uint32>(value)); });
}

NqErr GetLongAsHex(TNqiostream& stream, int32& value)
{
    value = static_cast<int32>(ReadCount(stream));
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

void GetInt8TokenHexa(TNqiostream& stream, uint8& character)
{
    character = NqWithSource(stream, [](auto& source) { return NextBinHex(source); });
}

// ---- Blocks --------------------------------------------------------------------------------------------------------

void ReadStream(TNqiostream& stream, TNqstrstream& out, boolean nested)
{
    if (!NqCheck(&stream != &out))
        return;
    ThrowUnlessNoErr(
        NqWithSource(stream, [&](auto& source)
                     { return NqWithSink(out, [&](auto& sink) { return CopyBlock(source, sink, nested != 0); }); }));
}

namespace NqToken
{

// ---- Raw payloads --------------------------------------------------------------------------------------------------

void PutBinaryStartAttribute(TNqiostream& stream, int32 token, uint32 size)
{
    NqTokenData& data = *GetNqTokenData(stream);
    NqWithSink(stream,
               [&](auto& sink)
               {
                   PutLineName(sink, data, token);
                   sink.Put(' ');
                   sink.Put('$');
                   PutCount(sink, size);
                   sink.Put('\r'); // whatever ends the lines of the stream: readers count this byte
               });
    data.fTokenBinaryCount = 0;
}

void PutBinaryEndAttribute(TNqiostream& stream)
{
    NqWithSink(stream,
               [](auto& sink)
               {
                   sink.Put('$');
                   PutLineEnd(sink);
               });
}

void GetBinaryStartToken(TNqiostream& stream, uint32& size)
{
    SkipToPayloadSign(stream);
    size = ReadCount(stream);
    int8 c = 0;
    if (!NqWithSource(stream, [&](auto& source) { return NextByte(source, c); }))
        FailEOFFile();
}

void GetBinaryEndToken(TNqiostream& stream)
{
    SkipToPayloadSign(stream);
}

// ---- Hexadecimal text ----------------------------------------------------------------------------------------------

void PutBufferAsHexa(TNqiostream& stream, const int8* buffer, int32 count, boolean binary)
{
    if (binary && count > 0)
        return stream.write(buffer, count);
    NqWithSink(stream, [=](auto& sink) { PutHexBytes(sink, buffer, count); });
}

void GetBufferAsHexa(TNqiostream& stream, int8* buffer, int32 count, boolean binary)
{
    if (binary && count > 0)
    {
        stream.read(buffer, count);
        if (!stream.good())
            FailEOFFile();
        return;
    }
    NqWithSource(stream,
                 [&](auto& source)
                 {
                     uint8* const bytes = reinterpret_cast<uint8*>(buffer);
                     const auto next = [&](int8& c) { return NextByte(source, c); };
                     for (int32 i = 0; i < count;)
                     {
                         i += TakeHexRun(source, bytes + i, count - i);
                         if (i < count)
                             bytes[i++] = GetNextBin(next);
                     }
                 });
}

void PutHexaBinaryAttribute(TNqiostream& stream, int32 token, int32 count, const void* data)
{
    const NqTokenData& settings = *GetNqTokenData(stream);
    const uint8* bytes = static_cast<const uint8*>(data);
    NqWithSink(stream,
               [&](auto& sink)
               {
                   while (count > 0)
                   {
                       const int32 n = std::min(kBytesPerLine, count);
                       PutLineName(sink, settings, token);
                       sink.Put(' ');
                       PutHexBytes(sink, bytes, n);
                       PutLineEnd(sink);
                       token = kMoreToken;
                       bytes += n;
                       count -= n;
                   }
               });
}

void GetHexaBinaryToken(TNqiostream& stream, int32 count, void* out)
{
    uint8* bytes = static_cast<uint8*>(out);
    while (count > 0)
    {
        int8 token[kTokenBufferSize];
        const int32 n = std::min(kBytesPerLine, count);
        ThrowUnlessNoErr(GetNextToken(stream, token, false));
        GetHexBytes(token, bytes, n);
        bytes += n;
        count -= n;
        if (count > 0 && GetFourCharConstToken(stream) != kMoreToken)
            FailReadFile();
    }
}

// ---- Six-bit text --------------------------------------------------------------------------------------------------

void BeginBufferAsBinHex(uint32& state)
{
    state = 0;
}

void PutBufferAsBinHex(TNqiostream& stream, const int8* buffer, int32 count, uint32& state)
{
    if (!NqCheckText(count >= 1, "count>=1"))
        return;
    NqWithSink(stream, [&](auto& sink) { PutBinHex(sink, reinterpret_cast<const uint8*>(buffer), count, state); });
}

void EndPutBufferAsBinHex(TNqiostream& stream, uint32& state)
{
    const TBinHexState pending(state);
    state = 0;
    if (pending.fCount > 2)
        NqNotify("0");
    else if (pending.fCount > 0)
        NqWithSink(stream, [&](auto& sink) { PutLastBinHex(sink, pending); });
}

void GetBufferAsBinHex(TNqiostream& stream, int8* buffer, int32 size, uint32& state)
{
    if (!NqCheckText(size >= 1, "size"))
        return;
    NqWithSource(stream, [&](auto& source) { GetBinHex(source, reinterpret_cast<uint8*>(buffer), size, state); });
}

// ---- Parts of a document -------------------------------------------------------------------------------------------

void ExtractTokenData(TNqiostream& stream, void*& data, uint32& size)
{
    TExtractedText text;
    NqWithSource(stream,
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
    data = block;
    size = count;
}

void GetStreamToken(TNqiostream& stream, TNqstrstream& out, int32& size)
{
    size = 0;
    GetBeginToken(stream);
    ReadStream(stream, out, false);
    size = out.pcount();
}

} // namespace NqToken
