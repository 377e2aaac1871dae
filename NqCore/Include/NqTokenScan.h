// The scanner of the token format: small functions over a source of bytes (NqStreamAccess.h) and a text that receives
// what was found.
//
// A text decides what becomes of each byte: GetNextToken stores what fits its buffer, skipping stores nothing, copying
// a block takes everything. The grammar itself stands here once, for all of them.
//
//     NqTokenScan::TNoText nothing;
//     NqToken::ETokenKind kind;
//     NqErr error = NqTokenScan::ScanToken(source, nothing, kind);
//
// Failure: nothing is thrown or reported, except by the stream's own operations; a scanner returns 0, kNqErrFormat or
// kNqErrEndOfFile. A source that is not good counts as ended; the stream's state tells whether it has failed.
//
// Cost: every byte is looked at once, and nothing recurses.

#pragma once

#include "NqCore/Include/NqByteSearch.h"
#include "NqCore/Include/NqStreamAccess.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <algorithm>
#include <limits>

namespace NqTokenScan
{

using NqToken::ETokenKind;

constexpr uint32 kUnknownSize = 0xFFFFFFFF; // count of a payload that reaches to the next '$'
constexpr int32 kCountDigits = 8;           // hexadecimal digits of a count
constexpr uint32 kMaxTokenBytes = NqToken::kTokenBufferSize - 1;

// Passes a scanner's code on, with the place that calls this.
inline void ThrowUnlessNoErr(NqErr inErr, const char* inFile = __builtin_FILE(), int inLine = __builtin_LINE())
{
    if (inErr != kNqNoErr)
        throw TNqException(inErr, NqSourcePath(inFile), inLine);
}

// ---- Characters ----------------------------------------------------------------------------------------------------

inline bool IsLineEnd(int8 c)
{
    return c == '\r' || c == '\n';
}

inline bool IsBlank(int8 c)
{
    return c == ' ' || c == '\t' || IsLineEnd(c);
}

using TLineEnds = NqByteSet<'\r', '\n'>;
using TWordEnds = NqByteSet<' ', '\t', '\r', '\n', '#', '{', '}', '"'>;
using TStringEnds = NqByteSet<'"', '\\', 1>; // and escapes

// As NqFindByte, by a table.
inline const int8* FindWordEnd(const int8* inFirst, const int8* inLast)
{
    struct Table
    {
        constexpr Table() : fEnds()
        {
            for (int c = 0; c < 256; ++c)
                fEnds[c] = TWordEnds::Has(static_cast<int8>(c));
        }
        bool fEnds[256];
    };
    static constexpr Table kTable;
    while (inFirst != inLast && !kTable.fEnds[static_cast<uint8>(*inFirst)])
        ++inFirst;
    return inFirst;
}

inline ETokenKind KindOfFirstByte(int8 c)
{
    switch (c)
    {
    case '{':
        return NqToken::kBeginToken;
    case '}':
        return NqToken::kEndToken;
    case '"':
        return NqToken::kStringToken;
    case '$':
        return NqToken::kRawToken;
    default:
        return NqToken::kWordToken;
    }
}

// 0 to 15 for 0-9 and A-F, -1 for anything else, small letters included.
inline int32 HexDigitValue(int8 c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// ---- Bytes ---------------------------------------------------------------------------------------------------------

// Takes one byte; false at the end of the stream.
template <class Source>
bool NextByte(Source& ioSource, int8& c)
{
    ioSource.Get(c);
    return ioSource.Good();
}

// Takes bytes up to the first that is no blank.
template <class Source>
bool NextNonBlank(Source& ioSource, int8& c)
{
    return ioSource.GetWhile(c, IsBlank);
}

// Hands `inCount` bytes to inTake(const int8*, int32) in pieces; false when the stream ends before.
template <class Source, class Take>
bool ReadInPieces(Source& ioSource, uint64 inCount, Take&& inTake)
{
    int8 piece[4096];
    while (inCount > 0)
    {
        const int32 size = static_cast<int32>(std::min<uint64>(inCount, sizeof(piece)));
        ioSource.Read(piece, size);
        if (!ioSource.Good())
            return false;
        inTake(piece, size);
        inCount -= static_cast<uint64>(size);
    }
    return true;
}

// Passes over `inCount` bytes, at least one: with one absolute seek where the stream's positions can be believed, else
// by reading. False, with the stream at its end, when it holds fewer; false and failed when it cannot be read.
bool SkipAhead(TNqiostream& ioStream, uint64 inCount);

// ---- Texts ---------------------------------------------------------------------------------------------------------

// Stores nothing, and is the base of the other texts: each hides what it takes an interest in.
class TNoText
{
public:
    static constexpr bool kAtOnce = true;                     // may be told of a token before that is taken
    static constexpr bool StopsAtComments() { return false; } // a comment is a token of its own

    template <class Source>
    void Begin(Source&, ETokenKind) // the first byte of a token was taken
    {
    }
    void Comment(const int8* /*first*/, const int8* /*last*/) {} // the '#' or bytes behind it
    void CommentEnd(int8) {}                                     // the end of its line
    void Brace(int8) {}
    void OpenQuote() {}
    void Content(const int8* /*first*/, const int8* /*last*/) {} // bytes of a word or string
    void Escaped(int8 /*escape*/, int8) {}                       // a byte of a string behind an escape
    void CloseQuote() {}

    void RawFrame(int8) {} // a byte of a payload outside its data: '$', digits of the count
    template <class Source>
    void BeginData(Source&, uint32 /*count*/) // the count was taken
    {
    }
    template <class Source>
    bool TakeData(Source& ioSource, uint64 inCount) // the data, with the byte before it
    {
        return SkipAhead(ioSource.Stream(), inCount);
    }
    template <class Source>
    void EndData(Source&) // the closing '$' was taken
    {
    }
};

// Fills a caller's 256 bytes; the destructor terminates them.
class TTokenBuffer : public TNoText
{
public:
    TTokenBuffer(int8* inBuffer, bool inKeepDelimiters) : fBuffer(inBuffer), fKeep(inKeepDelimiters) {}
    ~TTokenBuffer() { fBuffer[fLength] = 0; }
    TTokenBuffer(const TTokenBuffer&) = delete;
    TTokenBuffer& operator=(const TTokenBuffer&) = delete;

    // A brace stands alone and a payload leaves nothing: callers know them by the first byte.
    template <class Source>
    void Begin(Source&, ETokenKind inKind)
    {
        if (inKind == NqToken::kBeginToken || inKind == NqToken::kEndToken || inKind == NqToken::kRawToken)
            fLength = 0;
    }

    // The last place is kept for the end of the line: what follows must not become part of the comment.
    void Comment(const int8* inFirst, const int8* inLast)
    {
        if (fKeep)
            StoreUpTo(kMaxTokenBytes - 1, inFirst, inLast);
    }

    void CommentEnd(int8 c)
    {
        if (fKeep && fLength < kMaxTokenBytes)
            Store(c);
    }

    void Brace(int8 c) { Content(&c, &c + 1); }

    // Both quotes are stored or none.
    void OpenQuote()
    {
        if (!fKeep || fLength + 2 > kMaxTokenBytes)
            return;
        Store('"');
        fQuoted = true;
        fLimit = kMaxTokenBytes - 1;
    }

    void Content(const int8* inFirst, const int8* inLast)
    {
        fFullLength += static_cast<uint32>(inLast - inFirst);
        StoreUpTo(fLimit, inFirst, inLast);
    }

    // An escape and its byte are stored together, or neither and nothing after them.
    void Escaped(int8 inEscape, int8 c)
    {
        if (fKeep && fLength + 2 > fLimit)
            fLimit = fLength;
        else if (fKeep)
            Store(inEscape);
        Content(&c, &c + 1);
    }

    void CloseQuote()
    {
        if (fQuoted)
            Store('"');
    }

protected:
    void Store(int8 c) { fBuffer[fLength++] = c; }

    // What fits before the limit.
    void StoreUpTo(uint32 inLimit, const int8* inFirst, const int8* inLast)
    {
        if (fLength >= inLimit)
            return;
        const uint32 count = static_cast<uint32>(std::min<int64>(inLast - inFirst, inLimit - fLength));
        std::memcpy(fBuffer + fLength, inFirst, count);
        fLength += count;
    }

    int8* fBuffer;
    uint32 fLength = 0;             // bytes stored
    uint32 fLimit = kMaxTokenBytes; // where content ends
    uint32 fFullLength = 0;         // bytes of content, stored or not
    bool fKeep;
    bool fQuoted = false;
};

// Fills the buffer and tells what was found, and where.
class TInfoText : public TTokenBuffer
{
public:
    static constexpr bool kAtOnce = false;

    TInfoText(int8* inBuffer, NqToken::TNqTokenInfo& outInfo, bool inKeepComments)
        : TTokenBuffer(inBuffer, false),
          fInfo(outInfo),
          fKeepComments(inKeepComments)
    {
    }
    ~TInfoText()
    {
        fInfo.fStoredLength = fLength;
        fInfo.fFullLength = fFullLength;
    }
    TInfoText(const TInfoText&) = delete;
    TInfoText& operator=(const TInfoText&) = delete;

    bool StopsAtComments() const { return fKeepComments; }

    template <class Source>
    void Begin(Source& ioSource, ETokenKind)
    {
        fInfo.fOffset = PositionFrom(ioSource, -1);
    }

    void Comment(const int8* inFirst, const int8* inLast)
    {
        if (fKeepComments)
            TTokenBuffer::Content(inFirst, inLast);
    }

    void CommentEnd(int8 c) { Comment(&c, &c + 1); }

    void Content(const int8* inFirst, const int8* inLast)
    {
        fInfo.fCommaCount += static_cast<uint32>(NqCountByte(inFirst, inLast, ','));
        TTokenBuffer::Content(inFirst, inLast);
    }

    void Escaped(int8, int8 c) { Content(&c, &c + 1); }

    template <class Source>
    void BeginData(Source& ioSource, uint32 inCount)
    {
        fInfo.fDataOffset = PositionFrom(ioSource, 1);
        fInfo.fDataSize = inCount;
    }

    template <class Source>
    void EndData(Source& ioSource)
    {
        const int32 closing = PositionFrom(ioSource, -1);
        fInfo.fDataOffset = std::min(fInfo.fDataOffset, closing);
        const uint32 found = static_cast<uint32>(int64{closing} - fInfo.fDataOffset);
        if (fInfo.fDataSize == kUnknownSize)
            fInfo.fDataSize = found;
        fInfo.fExcess = found - fInfo.fDataSize;
    }

private:
    // The position `inDistance` bytes on, as far as positions go.
    template <class Source>
    static int32 PositionFrom(Source& ioSource, int64 inDistance)
    {
        using TLimits = std::numeric_limits<int32>;
        return static_cast<int32>(
            std::clamp<int64>(ioSource.Stream().tell() + inDistance, TLimits::min(), TLimits::max()));
    }

    NqToken::TNqTokenInfo& fInfo;
    bool fKeepComments;
};

// Copies everything but braces to a sink, as it stands. Stops writing when a write has failed, since each would be
// reported, and knows that it has.
template <class Sink>
class TCopyText : public TNoText
{
public:
    static constexpr bool kAtOnce = false;

    explicit TCopyText(Sink& ioSink) : fSink(ioSink) {}

    bool Failed() const { return fFailed; }

    void Put(int8 c) { Write(&c, 1); }

    void Comment(const int8* inFirst, const int8* inLast) { Content(inFirst, inLast); }
    void CommentEnd(int8 c) { Put(c); }
    void OpenQuote() { Put('"'); }
    void Content(const int8* inFirst, const int8* inLast) // each byte by itself, as it came
    {
        if (fFailed)
            return;
        fSink.PutEach(inFirst, inLast - inFirst);
        fFailed = fSink.Stream().fail();
    }
    void Escaped(int8 inEscape, int8 c)
    {
        Put(inEscape);
        Put(c);
    }
    void CloseQuote() { Put('"'); }
    void RawFrame(int8 c) { Put(c); }

    template <class Source>
    bool TakeData(Source& ioSource, uint64 inCount)
    {
        return ReadInPieces(ioSource, inCount, [this](const int8* bytes, int32 size) { Write(bytes, size); });
    }

private:
    void Write(const int8* inBytes, int32 inSize)
    {
        if (fFailed)
            return;
        fSink.Write(inBytes, inSize);
        fFailed = fSink.Stream().fail();
    }

    Sink& fSink;
    bool fFailed = false;
};

// ---- Tokens --------------------------------------------------------------------------------------------------------

// Behind the '#', up to the end of the line.
template <class Source, class Text>
bool ScanComment(Source& ioSource, Text& ioText)
{
    constexpr int8 kSign = '#';
    int8 c = 0;
    ioText.Comment(&kSign, &kSign + 1);
    const auto take = [&](const int8* first, const int8* last) { ioText.Comment(first, last); };
    const bool ended = ioSource.template GetUntil<TLineEnds>(c, take);
    if (ended)
        ioText.CommentEnd(c);
    return ended;
}

// Behind the opening quote.
template <class Source, class Text>
NqErr ScanQuoted(Source& ioSource, Text& ioText)
{
    const auto take = [&](const int8* first, const int8* last) { ioText.Content(first, last); };
    ioText.OpenQuote();
    for (;;)
    {
        int8 c = 0;
        if (!ioSource.template GetUntil<TStringEnds>(c, take))
            return kNqErrEndOfFile;
        if (c == '"')
            break;
        const int8 escape = c;
        if (!NextByte(ioSource, c))
            return kNqErrEndOfFile;
        ioText.Escaped(escape, c);
    }
    ioText.CloseQuote();
    return kNqNoErr;
}

// A word of which `inFirst` was taken. What ends it is put back; where that fails the word is not whole either, since
// the byte behind it is lost.
template <class Source, class Text>
NqErr ScanWord(Source& ioSource, Text& ioText, int8 inFirst)
{
    int8 c = 0;
    ioText.Content(&inFirst, &inFirst + 1);
    const auto take = [&](const int8* begin, const int8* end) { ioText.Content(begin, end); };
    if (!ioSource.template GetUntil<TWordEnds>(c, take))
        return kNqErrEndOfFile;
    ioSource.Putback(c);
    return ioSource.Stream().fail() ? kNqErrEndOfFile : kNqNoErr;
}

// Eight hexadecimal digits; what stands between them is skipped, except a '$', which is put back.
template <class Source, class Text>
NqErr ScanCount(Source& ioSource, Text& ioText, uint32& outCount)
{
    outCount = 0;
    for (int32 digits = 0; digits < kCountDigits;)
    {
        int8 c = 0;
        ioSource.Read(&c, 1);
        if (!ioSource.Good())
            return kNqErrEndOfFile;
        if (c == '$')
        {
            ioSource.Putback(c);
            return kNqErrFormat;
        }
        ioText.RawFrame(c);
        const int32 digit = HexDigitValue(c);
        if (digit < 0)
            continue;
        outCount = outCount << 4 | static_cast<uint32>(digit);
        ++digits;
    }
    return kNqNoErr;
}

// Behind the count of a payload, up to its closing '$'.
template <class Source, class Text>
NqErr ScanData(Source& ioSource, Text& ioText, uint32 inCount)
{
    ioText.BeginData(ioSource, inCount);
    if (inCount != kUnknownSize && !ioText.TakeData(ioSource, uint64{inCount} + 1))
        return kNqErrEndOfFile;
    int8 c = 0;
    do
    {
        if (!NextByte(ioSource, c))
            return kNqErrEndOfFile;
        ioText.RawFrame(c);
    } while (c != '$');
    ioText.EndData(ioSource);
    return kNqNoErr;
}

// Behind the opening '$'.
template <class Source, class Text>
NqErr ScanRaw(Source& ioSource, Text& ioText)
{
    uint32 count = 0;
    ioText.RawFrame('$');
    const NqErr err = ScanCount(ioSource, ioText, count);
    return err != kNqNoErr ? err : ScanData(ioSource, ioText, count);
}

// A short token that the buffer holds whole, with what ends it: most are names, braces and small values, for which the
// steps between the functions above cost more than the bytes. False, and nothing taken or told, otherwise.
template <class Source, class Text>
bool ScanTokenAtHand(Source& ioSource, Text& ioText, ETokenKind& outKind)
{
    if constexpr (Source::kIsDirect && Text::kAtOnce)
    {
        constexpr int64 kFarthest = 64; // looked at; a longer token is not worth it, and its bytes count twice
        const auto [first, end] = ioSource.WordsAtHand();
        const int8* const last = first + std::min<int64>(end - first, kFarthest);
        const int8* at = first;
        while (at != last && IsBlank(*at))
            ++at;
        if (at == last || *at == '#' || *at == '$')
            return false;
        const ETokenKind found = KindOfFirstByte(*at);
        const int8* behind = at + 1;
        if (found == NqToken::kWordToken)
        {
            // Names have four letters: a vector takes longer to tell.
            const int8* const near = behind + std::min<int64>(last - behind, 8);
            behind = FindWordEnd(behind, near);
            behind = behind == near ? NqFindByte<TWordEnds>(behind, last) : behind;
        }
        if (found == NqToken::kStringToken)
            behind = NqFindByte<TStringEnds>(behind, last);
        if (behind == last || (found == NqToken::kStringToken && *behind != '"'))
            return false;
        outKind = found;
        ioText.Begin(ioSource, outKind);
        if (outKind == NqToken::kWordToken)
            ioText.Content(at, behind);
        else if (outKind == NqToken::kStringToken)
        {
            ioText.OpenQuote();
            ioText.Content(at + 1, behind++);
            ioText.CloseQuote();
        }
        else
            ioText.Brace(*at);
        ioSource.Pass(behind - first);
        return true;
    }
    return false;
}

// One token with the blanks and comments before it. `outKind` is what was begun, also when the stream ends in it.
template <class Source, class Text>
NqErr ScanToken(Source& ioSource, Text& ioText, ETokenKind& outKind)
{
    if (ScanTokenAtHand(ioSource, ioText, outKind))
        return kNqNoErr;
    outKind = NqToken::kNoToken;
    int8 c = 0;
    if (!NextNonBlank(ioSource, c))
        return kNqErrEndOfFile;
    while (c == '#')
    {
        if (ioText.StopsAtComments())
        {
            outKind = NqToken::kCommentToken;
            ioText.Begin(ioSource, outKind);
        }
        if (!ScanComment(ioSource, ioText))
            return kNqErrEndOfFile;
        if (ioText.StopsAtComments())
            return kNqNoErr;
        if (!NextNonBlank(ioSource, c))
            return kNqErrEndOfFile;
    }
    outKind = KindOfFirstByte(c);
    ioText.Begin(ioSource, outKind);
    switch (outKind)
    {
    case NqToken::kStringToken:
        return ScanQuoted(ioSource, ioText);
    case NqToken::kRawToken:
        return ScanRaw(ioSource, ioText);
    case NqToken::kWordToken:
        return ScanWord(ioSource, ioText, c);
    default:
        ioText.Brace(c);
        return kNqNoErr;
    }
}

} // namespace NqTokenScan
